// What one call of dlog_print logs, and how it becomes text. Everything here runs on the thread of
// the call and shares nothing.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "text_buffer.h"

namespace kavrel_dlog {

/// A text beyond this many bytes is cut, whatever the output.
inline constexpr std::size_t kLongestText = std::size_t{4} << 20;

/// Ends a text that was cut.
inline constexpr std::string_view kCutMark = " [cut]";

struct Record {
  int priority;
  std::string_view tag;
  std::string_view text;
};

enum class Newlines { kEscape, kKeep };

/// What stands in front of a record's line in the same write.
struct Preamble {
  bool ends_half_line = false;     ///< the record before broke off in mid-line
  std::uint64_t lost_records = 0;  ///< records that did not get through since the last one
};

/// Formats as printf does; the newline that ends most texts is the record's end and left out.
/// Returns 0, or a negative errno value for a format that cannot be used.
int FormatText(TextBuffer& text, const char* format, va_list arguments) noexcept;

/// Appends `text` as valid UTF-8 without control characters: newline, carriage return and the
/// other ones as \n, \r, \x1b, and each byte that is not UTF-8 as \xff. Tabs and backslashes stay.
/// Stops before `limit` bytes are exceeded and returns false then.
bool AppendClean(TextBuffer& out, std::string_view text, Newlines newlines,
                 std::size_t limit) noexcept;

/// Appends "<time> <priority> <tag> <pid>/<tid>: <text>\n", at most `limit` bytes with the
/// preamble.
void FormatLine(TextBuffer& line, const Record& record, const Preamble& preamble,
                std::size_t limit) noexcept;

/// The notice that stands for records that did not get through.
Record LostNotice(TextBuffer& text, std::uint64_t lost_records) noexcept;

}  // namespace kavrel_dlog
