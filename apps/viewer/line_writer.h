// Writes lines to a descriptor that somebody else reads, without ever waiting long for that reader.
#pragma once

#include <string>

namespace viewer {

/// Belongs to the viewer's main thread. Each line goes out at once. A reader that has stopped
/// reading costs one short wait; of the lines that find no room one is kept for when there is some
/// again, the others are dropped whole. A reader that has gone costs one note on standard error.
/// SIGPIPE must be ignored.
class LineWriter {
 public:
  /// `fd` stays its owner's.
  explicit LineWriter(int fd) : fd_(fd) {}
  LineWriter(const LineWriter&) = delete;
  LineWriter& operator=(const LineWriter&) = delete;
  ~LineWriter() { Flush(); }

  /// `line` without the newline. False when it was dropped.
  bool Write(const std::string& line);

 private:
  enum class Outcome { kWritten, kStalled, kGone };

  Outcome Flush();
  bool WaitForRoom();

  int fd_;
  bool is_gone_ = false;
  bool is_stalled_ = false;
  std::string pending_;  // a line, or the rest of one that has been begun
};

}  // namespace viewer
