#include "line_writer.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace viewer {
namespace {

constexpr int kPatienceMs = 100;

}  // namespace

bool LineWriter::Write(const std::string& line) {
  if (is_gone_ || Flush() != Outcome::kWritten) return false;
  pending_ = line + '\n';
  return Flush() != Outcome::kGone;
}

LineWriter::Outcome LineWriter::Flush() {
  while (!pending_.empty()) {
    if (!WaitForRoom()) return Outcome::kStalled;
    // A pipe with room has it for this many bytes, so the write does not wait.
    const ssize_t size =
        ::write(fd_, pending_.data(), std::min<std::size_t>(pending_.size(), PIPE_BUF));
    if (size >= 0) {
      pending_.erase(0, static_cast<std::size_t>(size));
    } else if (errno != EINTR && errno != EAGAIN) {
      (void)std::fprintf(stderr,
                         "kavrel-viewer: standard output is gone (%s); serving on without it\n",
                         std::strerror(errno));
      is_gone_ = true;
      pending_.clear();
      return Outcome::kGone;
    }
  }
  return Outcome::kWritten;
}

// Once the patience is used up, a reader gets it again when it has read something.
bool LineWriter::WaitForRoom() {
  pollfd wanted{fd_, POLLOUT, 0};
  const int ready = ::poll(&wanted, 1, is_stalled_ ? 0 : kPatienceMs);
  is_stalled_ = ready == 0;
  return ready != 0;
}

}  // namespace viewer
