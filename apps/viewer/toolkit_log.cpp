#include "toolkit_log.h"

#include <Eina.h>
#include <dlog.h>

#include <cstdarg>
#include <cstdio>

namespace viewer {
namespace {

int PriorityOf(Eina_Log_Level level) {
  switch (level) {
    case EINA_LOG_LEVEL_CRITICAL:
    case EINA_LOG_LEVEL_ERR:
      return DLOG_ERROR;
    case EINA_LOG_LEVEL_WARN:
      return DLOG_WARN;
    case EINA_LOG_LEVEL_INFO:
      return DLOG_INFO;
    default:
      return DLOG_DEBUG;
  }
}

void Log(const Eina_Log_Domain* domain, Eina_Log_Level level, const char* file,
         const char* function, int line, const char* format, void* /*data*/,
         std::va_list arguments) {
  char text[1024];
  (void)std::vsnprintf(text, sizeof text, format, arguments);
  dlog_print(PriorityOf(level), domain->name, "%s: %s(%d) > %s\n", file, function, line, text);
}

}  // namespace

void LogForToolkit() {
  eina_log_print_cb_set(&Log, nullptr);
}

}  // namespace viewer
