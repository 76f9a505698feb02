#include "output.h"

#include <printable.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kavrelctl {
namespace {

constexpr std::size_t kLongestMessage = 2000;

}  // namespace

bool Print(const std::string& text) {
  const char* rest = text.data();
  std::size_t left = text.size();
  while (left > 0) {
    const ssize_t size = ::write(STDOUT_FILENO, rest, left);
    if (size >= 0) {
      rest += size;
      left -= static_cast<std::size_t>(size);
    } else if (errno != EINTR) {
      if (errno != EPIPE)
        PrintError(std::string("cannot write the output: ") + std::strerror(errno));
      return false;
    }
  }
  return true;
}

bool PrintJson(const nlohmann::ordered_json& value) {
  return Print(value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n');
}

std::string Table(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      text += row[i];
      if (i + 1 < row.size()) text.append(widths[i] - row[i].size() + 2, ' ');
    }
    text += '\n';
  }
  return text;
}

void PrintError(const std::string& message) {
  (void)std::fprintf(stderr, "kavrelctl: %s\n",
                     kavrel_programs::Printable(message, kLongestMessage).c_str());
}

}  // namespace kavrelctl
