// How the framework's modules log: the one tag, and log lines' usual words at hand.
#pragma once

#include "../common/log.h"

namespace kavreldbus {

inline constexpr const char* kLogTag = "kavrel-api";

/// A text from GLib for a log line; some are null.
inline const char* OrNone(const char* text) {
  return text == nullptr ? "(null)" : text;
}

}  // namespace kavreldbus

#define CHANNEL_INFO(where, ...) \
  KAVREL_LOG(kavrel::kLogInfo, kavreldbus::kLogTag, where, __VA_ARGS__)
#define CHANNEL_ERROR(where, ...) \
  KAVREL_LOG(kavrel::kLogError, kavreldbus::kLogTag, where, __VA_ARGS__)
