// The outputs that take lines: standard error and a file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "prompt_write.h"
#include "sink.h"

namespace kavrel_dlog {
namespace {

using kavrel_platform::UniqueFd;

// Beyond any line, small enough to add to.
constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max() / 2;

/// Writes one line a record with one write, and ends in the next one what a full disk or terminal
/// broke off. Any thread.
class LineWriter {
 public:
  int Write(int fd, const Record& record, std::uint64_t lost_records, std::size_t limit) noexcept {
    TextBuffer line;
    const bool ends_half_line = half_line_.exchange(false, std::memory_order_relaxed);
    FormatLine(line, record, {ends_half_line, lost_records}, limit);
    const long done = WritePromptly(fd, line.view());
    if (done == static_cast<long>(line.size())) return 0;
    if (done > 0 || ends_half_line) half_line_.store(true, std::memory_order_relaxed);
    return done < 0 ? static_cast<int>(done) : -ENOSPC;
  }

 private:
  std::atomic<bool> half_line_{false};
};

class StandardErrorSink final : public Sink {
 public:
  int Write(const Record& record, std::uint64_t lost_records) noexcept override {
    const std::size_t limit = CanBeFull(STDERR_FILENO) ? kAtomicWrite : kNoLimit;
    return writer_.Write(STDERR_FILENO, record, lost_records, limit);
  }

 private:
  LineWriter writer_;
};

class FileSink final : public Sink {
 public:
  FileSink(UniqueFd file, const struct stat& status)
      : file_(std::move(file)), device_(status.st_dev), inode_(status.st_ino) {}

  int Write(const Record& record, std::uint64_t lost_records) noexcept override {
    if (!StillOurs()) return -EBADF;
    return writer_.Write(file_.get(), record, lost_records, kNoLimit);
  }

 private:
  // A program that closes all descriptors hands our number to the next file it opens.
  bool StillOurs() const noexcept {
    struct stat status {};
    return ::fstat(file_.get(), &status) == 0 && status.st_dev == device_ &&
           status.st_ino == inode_;
  }

  UniqueFd file_;
  dev_t device_;
  ino_t inode_;
  LineWriter writer_;
};

int RefusalOf(const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return EINVAL;
  return status.st_uid == ::geteuid() || status.st_uid == 0 ? 0 : EACCES;
}

}  // namespace

std::unique_ptr<Sink> StandardError() {
  return std::make_unique<StandardErrorSink>();
}

std::unique_ptr<Sink> OpenFile(const std::string& path) {
  // O_NONBLOCK only for the opening: a FIFO without a reader must not hold the program up.
  constexpr int kFlags =
      O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  UniqueFd file(::open(path.c_str(), kFlags, 0640));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) return nullptr;
  if (const int refusal = RefusalOf(status); refusal != 0) {
    errno = refusal;
    return nullptr;
  }
  return std::make_unique<FileSink>(std::move(file), status);
}

}  // namespace kavrel_dlog
