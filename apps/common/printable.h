// Text from elsewhere on a terminal.
#pragma once

#include <string>
#include <string_view>

namespace kavrel_programs {

/// `text` with control characters - the ASCII ones, and those behind 0xC2 in UTF-8 - as "\x1b", so
/// that what another process sent stays one line and cannot command the terminal. Cut off, with
/// "..." behind it, after `longest` bytes.
std::string Printable(std::string_view text, std::size_t longest = 200);

}  // namespace kavrel_programs
