#include "record.h"

#include <dlog.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>

namespace kavrel_dlog {
namespace {

// Not localtime_r or gmtime_r: both take a lock of the C library that a fork can leave locked in
// the child.
void AppendTime(TextBuffer& line) noexcept {
  using std::chrono::days, std::chrono::microseconds;
  const auto now = std::chrono::floor<microseconds>(std::chrono::system_clock::now());
  const auto midnight = std::chrono::floor<days>(now);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss<microseconds> time(now - midnight);
  char text[64];
  const int length = std::snprintf(
      text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%06dZ", static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
      static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
      static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count()));
  line.Append({text, static_cast<std::size_t>(std::max(length, 0))});
}

void AppendOrigin(TextBuffer& line) noexcept {
  char text[32];
  const int length = std::snprintf(text, sizeof text, " %d/%d: ", ::getpid(), ::gettid());
  line.Append({text, static_cast<std::size_t>(std::max(length, 0))});
}

void AppendPriorityAndTag(TextBuffer& line, const Record& record) noexcept {
  constexpr std::size_t kLongestTag = 256;
  const char letter[] = {' ', "VDIWEF"[record.priority - DLOG_VERBOSE], ' '};
  line.Append({letter, sizeof letter});
  if (record.tag.empty()) line.Append("-");
  AppendClean(line, record.tag, Newlines::kEscape, line.size() + kLongestTag);
}

void AppendRecord(TextBuffer& line, const Record& record, std::size_t limit) noexcept {
  AppendTime(line);
  AppendPriorityAndTag(line, record);
  AppendOrigin(line);
  const std::size_t end = kCutMark.size() + 1;
  if (!AppendClean(line, record.text, Newlines::kEscape, limit - end)) line.AppendEnd(kCutMark);
  line.AppendEnd("\n");
}

bool IsPlain(char byte) {
  return byte >= 0x20 && byte < 0x7f;
}

// The length of the character at the front when it may be shown as it is, else 0.
std::size_t ShownAsItIs(std::string_view text, Newlines newlines) noexcept {
  const char first = text.front();
  if (IsPlain(first) || first == '\t') return 1;
  if (first == '\n') return newlines == Newlines::kKeep ? 1 : 0;
  if (static_cast<unsigned char>(first) < 0x80) return 0;
  const auto length = std::min<std::size_t>(text.size(), 6);
  const gunichar character = g_utf8_get_char_validated(text.data(), static_cast<gssize>(length));
  constexpr gunichar kLastControl = 0x9f, kLineSeparator = 0x2028, kParagraphSeparator = 0x2029;
  const bool valid = character <= 0x10ffff;
  if (!valid || character <= kLastControl || character == kLineSeparator ||
      character == kParagraphSeparator) {
    return 0;
  }
  return static_cast<std::size_t>(g_unichar_to_utf8(character, nullptr));
}

bool AppendWithin(TextBuffer& out, std::string_view piece, std::size_t limit) noexcept {
  return out.size() + piece.size() <= limit && out.Append(piece);
}

bool AppendEscaped(TextBuffer& out, char byte, std::size_t limit) noexcept {
  if (byte == '\n') return AppendWithin(out, "\\n", limit);
  if (byte == '\r') return AppendWithin(out, "\\r", limit);
  constexpr char kDigits[] = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(byte);
  const char escape[] = {'\\', 'x', kDigits[value >> 4], kDigits[value & 15]};
  return AppendWithin(out, {escape, sizeof escape}, limit);
}

std::size_t PlainRun(std::string_view text) noexcept {
  const auto* const end = std::find_if_not(text.begin(), text.end(), IsPlain);
  return static_cast<std::size_t>(end - text.begin());
}

}  // namespace

int FormatText(TextBuffer& text, const char* format, va_list arguments) noexcept {
  va_list again;
  va_copy(again, arguments);
  int length = std::vsnprintf(text.data(), text.capacity(), format, arguments);
  const bool too_long = length >= 0 && static_cast<std::size_t>(length) >= text.capacity();
  if (too_long &&
      text.Reserve(std::min<std::size_t>(static_cast<std::size_t>(length) + 1, kLongestText + 1))) {
    length = std::vsnprintf(text.data(), text.capacity(), format, again);
  }
  const int error = length < 0 ? -errno : 0;
  va_end(again);
  if (length < 0) return error;
  const auto whole = static_cast<std::size_t>(length);
  const std::size_t kept = std::min(whole, text.capacity() - 1);
  text.SetSize(kept);
  if (kept > 0 && kept == whole && text.data()[kept - 1] == '\n') text.SetSize(kept - 1);
  if (kept < whole) text.AppendEnd(kCutMark);
  return 0;
}

bool AppendClean(TextBuffer& out, std::string_view text, Newlines newlines,
                 std::size_t limit) noexcept {
  while (!text.empty()) {
    const std::size_t room = limit - std::min(limit, out.size());
    if (const std::size_t run = std::min(PlainRun(text), room); run > 0) {
      if (!out.AppendWhatFits(text.substr(0, run))) return false;
      text.remove_prefix(run);
      continue;
    }
    const std::size_t whole = ShownAsItIs(text, newlines);
    const bool fits = whole > 0 ? AppendWithin(out, text.substr(0, whole), limit)
                                : AppendEscaped(out, text.front(), limit);
    if (!fits) return false;
    text.remove_prefix(std::max<std::size_t>(whole, 1));
  }
  return true;
}

void FormatLine(TextBuffer& line, const Record& record, const Preamble& preamble,
                std::size_t limit) noexcept {
  if (preamble.ends_half_line) line.Append("\n");
  if (preamble.lost_records > 0) {
    TextBuffer text;
    AppendRecord(line, LostNotice(text, preamble.lost_records), limit);
  }
  AppendRecord(line, record, limit);
}

Record LostNotice(TextBuffer& text, std::uint64_t lost_records) noexcept {
  const int length =
      std::snprintf(text.data(), text.capacity(), "%llu records before this were lost",
                    static_cast<unsigned long long>(lost_records));
  text.SetSize(static_cast<std::size_t>(std::max(length, 0)));
  return {DLOG_WARN, "dlog", text.view()};
}

}  // namespace kavrel_dlog
