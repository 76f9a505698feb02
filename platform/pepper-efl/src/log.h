// The lines of this service in the log, under the tag "pepper-efl".
#pragma once

#include <string>

namespace kavrel_pepper {

void LogError(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogWarning(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogInfo(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// A client's text fit for a log line: cut, control characters and broken UTF-8 replaced.
std::string Printable(const std::string& text);

/// Sends what libwayland has to say into the log. Process-wide.
void CatchWaylandLog();

}  // namespace kavrel_pepper
