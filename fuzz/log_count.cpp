#include "log_count.h"

#include <dlog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace {

constexpr std::size_t kLongestRecord = 4096;

std::atomic<std::size_t> error_count{0};

int Record(int priority, const char* format, std::va_list arguments) {
  char text[kLongestRecord];
  if (priority >= DLOG_ERROR) ++error_count;
  return std::vsnprintf(text, sizeof text, format, arguments);
}

}  // namespace

int dlog_print(int priority, const char* /*tag*/, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int result = Record(priority, format, arguments);
  va_end(arguments);
  return result;
}

int __dlog_print(int /*buffer*/, int priority, const char* /*tag*/, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int result = Record(priority, format, arguments);
  va_end(arguments);
  return result;
}

namespace kavrel_fuzz {

std::size_t ErrorCount() {
  return error_count;
}

}  // namespace kavrel_fuzz
