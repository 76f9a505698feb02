#include "log_tap.h"

#include <dlog.h>
#include <printable.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace kavrelctl {
namespace {

constexpr std::size_t kMostErrors = 32;
constexpr std::size_t kLongestLine = 2048;

char PriorityLetter(int priority) {
  constexpr std::array kLetters = {'V', 'D', 'I', 'W', 'E', 'F'};
  const int index = std::clamp(priority, int{DLOG_VERBOSE}, int{DLOG_FATAL}) - DLOG_VERBOSE;
  return kLetters[static_cast<std::size_t>(index)];
}

int Record(int priority, const char* tag, const char* format, std::va_list arguments) {
  if (format == nullptr) return -EINVAL;
  if (!LogTap::Instance().Wants(priority)) return 0;
  std::array<char, kLongestLine> buffer;
  const int size = std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
  if (size < 0) return -EINVAL;
  std::string text(buffer.data());
  if (!text.empty() && text.back() == '\n') text.pop_back();
  LogTap::Instance().Add({priority, tag != nullptr ? tag : "", std::move(text)});
  return size;
}

// Nothing may leave the log service's functions but a number.
int RecordOrDrop(int priority, const char* tag, const char* format,
                 std::va_list arguments) noexcept {
  try {
    return Record(priority, tag, format, arguments);
  } catch (...) {
    return -ENOMEM;
  }
}

}  // namespace

// Never destroyed: libraries may log while the program exits.
LogTap& LogTap::Instance() {
  static LogTap& tap = *new LogTap();
  return tap;
}

void LogTap::SetVerbose(bool verbose) {
  const std::lock_guard lock(mutex_);
  verbose_ = verbose;
}

bool LogTap::Wants(int priority) const {
  const std::lock_guard lock(mutex_);
  return verbose_ || priority >= DLOG_ERROR;
}

void LogTap::Add(LogLine line) {
  const std::lock_guard lock(mutex_);
  if (verbose_) {
    (void)std::fprintf(stderr, "%c %s: %s\n", PriorityLetter(line.priority),
                       kavrel_programs::Printable(line.tag).c_str(),
                       kavrel_programs::Printable(line.text, kLongestLine).c_str());
  }
  if (line.priority >= DLOG_ERROR && errors_.size() < kMostErrors) {
    errors_.push_back(std::move(line));
  }
}

std::vector<LogLine> LogTap::TakeErrors() {
  const std::lock_guard lock(mutex_);
  return std::exchange(errors_, {});
}

}  // namespace kavrelctl

// The log service's functions, as dlog.h declares them.
int dlog_print(int priority, const char* tag, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int result = kavrelctl::RecordOrDrop(priority, tag, format, arguments);
  va_end(arguments);
  return result;
}

int __dlog_print(int /*buffer*/, int priority, const char* tag, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int result = kavrelctl::RecordOrDrop(priority, tag, format, arguments);
  va_end(arguments);
  return result;
}
