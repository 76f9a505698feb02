// The form of every log line: "<file>: <function>(<line>) > <text>", handed to the platform's log
// service in one call so that a line below its threshold costs no formatting.
//
// The prefix names the function that a text belongs to - the exported function or the method that
// was called - also when a shared helper logs it: such a helper takes the caller's Here().
#pragma once

#include <dlog.h>

namespace kavrel {

/// A place in the sources, as a log line's prefix shows it. The texts are literals.
struct SourceLine {
  const char* file;  ///< base name with its extension
  const char* function;
  int line;
};

consteval const char* BaseName(const char* path) {
  const char* base = path;
  for (const char* at = path; *at != '\0'; ++at) {
    if (*at == '/') base = at + 1;
  }
  return base;
}

/// The place that calls it.
consteval SourceLine Here(const char* file = __builtin_FILE(),
                          const char* function = __builtin_FUNCTION(),
                          int line = __builtin_LINE()) {
  return {BaseName(file), function, line};
}

inline constexpr int kLogInfo = 4;
inline constexpr int kLogWarning = 5;
inline constexpr int kLogError = 6;

}  // namespace kavrel

/// Logs one line. A macro because prefix and text become one literal, which lets the compiler check
/// the arguments and the log service drop the line unformatted.
#define KAVREL_LOG(priority, tag, where, text, ...)                                   \
  dlog_print((priority), (tag), "%s: %s(%d) > " text, (where).file, (where).function, \
             (where).line __VA_OPT__(, ) __VA_ARGS__)
