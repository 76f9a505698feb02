#include "log.h"

#include <dlog.h>

#include <cstdarg>
#include <cstdio>
#include <wayland-server-core.h>

namespace kavrel_pepper {
namespace {

constexpr std::size_t kLineBytes = 512;
constexpr std::size_t kShownTextBytes = 64;

void Log(int priority, const char* format, va_list arguments) {
  char line[kLineBytes];
  if (std::vsnprintf(line, sizeof line, format, arguments) < 0) return;
  dlog_print(priority, "pepper-efl", "%s", line);
}

void LogWayland(const char* format, va_list arguments) {
  Log(DLOG_WARN, format, arguments);
}

}  // namespace

void LogError(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Log(DLOG_ERROR, format, arguments);
  va_end(arguments);
}

void LogWarning(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Log(DLOG_WARN, format, arguments);
  va_end(arguments);
}

void LogInfo(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Log(DLOG_INFO, format, arguments);
  va_end(arguments);
}

std::string Printable(const std::string& text) {
  std::string shown = text.substr(0, kShownTextBytes);
  for (char& c : shown) {
    if (c < 0x20 || c > 0x7e) c = '?';
  }
  return text.size() > kShownTextBytes ? shown + "..." : shown;
}

void CatchWaylandLog() {
  wl_log_set_handler_server(LogWayland);
}

}  // namespace kavrel_pepper
