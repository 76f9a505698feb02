#include "style.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace kavrelctl {
namespace {

const char* CodeOf(Style style) {
  switch (style) {
    case Style::kGood:
      return "\x1b[32m";
    case Style::kWarning:
      return "\x1b[33m";
    case Style::kBad:
      return "\x1b[31m";
    case Style::kFaint:
      break;
  }
  return "\x1b[2m";
}

bool IsSet(const char* variable) {
  const char* const value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

}  // namespace

bool MayColour(int fd) {
  const char* const terminal = std::getenv("TERM");
  return !IsSet("NO_COLOR") && terminal != nullptr && std::strcmp(terminal, "dumb") != 0 &&
         ::isatty(fd) != 0;
}

std::string Styled(const std::string& text, Style style, int fd) {
  return MayColour(fd) ? CodeOf(style) + text + "\x1b[0m" : text;
}

}  // namespace kavrelctl
