// Writes lines to a descriptor that somebody else reads, without ever waiting long for that reader.
#pragma once

#include <string>

namespace viewer {

/// Belongs to the viewer's main thread. Each line goes out at once. A reader that has stopped
/// reading costs one short wait; lines that it leaves no room for are dropped whole. A reader that
/// has gone costs one note on standard error. SIGPIPE must be ignored.
class LineWriter {
 public:
  /// `fd` stays its owner's.
  explicit LineWriter(int fd) : fd_(fd) {}

  /// `line` without the newline. False when it was dropped.
  bool Write(const std::string& line);

 private:
  enum class Outcome { kWritten, kStalled, kGone };

  Outcome Flush();
  bool WaitForRoom();

  int fd_;
  bool is_gone_ = false;
  bool is_stalled_ = false;
  std::string pending_;  // the rest of a line that has been begun
};

}  // namespace viewer
