#include <dlog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace {

constexpr int kThreshold = DLOG_ERROR;

int Print(int priority, const char* tag, const char* format, va_list arguments) {
  if (priority < DLOG_VERBOSE || priority > DLOG_FATAL || format == nullptr) return -EINVAL;
  if (priority < kThreshold) return 0;
  char text[4096];
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  if (length < 0) return -EINVAL;
  const std::string line = std::string(tag != nullptr ? tag : "") + ": " + text + '\n';
  return ::write(STDERR_FILENO, line.data(), line.size()) < 0 ? -errno : length;
}

}  // namespace

extern "C" int dlog_print(int priority, const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = Print(priority, tag, format, arguments);
  va_end(arguments);
  return result;
}

extern "C" int __dlog_print(int, int priority, const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = Print(priority, tag, format, arguments);
  va_end(arguments);
  return result;
}
