// Log lines of this service: tag "vconf", the place that speaks, then the text.
#pragma once

#include <dlog.h>

// A macro only because the place is the caller's.
#define VCONF_LOG(priority, format, ...)                                       \
  static_cast<void>(dlog_print(priority, "vconf", "%s: %s(%d) > " format "\n", \
                               static_cast<const char*>(__FILE_NAME__),        \
                               static_cast<const char*>(__func__), __LINE__, __VA_ARGS__))
#define VCONF_LOG_ERROR(format, ...) VCONF_LOG(DLOG_ERROR, format, __VA_ARGS__)
#define VCONF_LOG_WARNING(format, ...) VCONF_LOG(DLOG_WARN, format, __VA_ARGS__)
