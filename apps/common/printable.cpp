#include "printable.h"

#include <cstdio>

namespace kavrel_programs {

std::string Printable(std::string_view text, std::size_t longest) {
  std::string printable;
  const std::string_view shown = text.substr(0, longest);
  unsigned char before = 0;
  for (const char c : shown) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f || (before == 0xc2 && byte >= 0x80 && byte < 0xa0)) {
      char escaped[5];
      (void)std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      printable += escaped;
    } else {
      printable += c;
    }
    before = byte;
  }
  if (shown.size() < text.size()) printable += "...";
  return printable;
}

}  // namespace kavrel_programs
