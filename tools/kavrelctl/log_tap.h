// What the library and its platform services log while kavrelctl uses them.
//
// The C API tells failures in log lines and neutral return values alone. So this program defines
// the log service's two functions itself: an executable's definitions take the place of a shared
// library's for everything loaded into the process, with the bundled log service as with a
// system's.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace kavrelctl {

struct LogLine {
  int priority;
  std::string tag;
  std::string text;  ///< without the newline at its end
};

/// Keeps error lines until they are asked for, and prints every line on standard error when asked
/// to be verbose. Any thread.
class LogTap {
 public:
  static LogTap& Instance();

  void SetVerbose(bool verbose);

  /// Whether anybody wants a line of that priority.
  bool Wants(int priority) const;
  void Add(LogLine line);

  /// The error lines since the last call, oldest first; no more than the first few of a flood.
  std::vector<LogLine> TakeErrors();

 private:
  mutable std::mutex mutex_;
  bool verbose_ = false;
  std::vector<LogLine> errors_;
};

}  // namespace kavrelctl
