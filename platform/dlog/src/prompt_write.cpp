#include "prompt_write.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "signal_guard.h"
#include "unique_fd.h"

namespace kavrel_dlog {
namespace {

using kavrel_platform::UniqueFd;

template <typename Operation>
long Retry(Operation operation) noexcept {
  constexpr int kMostInterruptions = 100;
  for (int i = 0; i < kMostInterruptions; ++i) {
    const ssize_t done = operation();
    if (done >= 0) return done;
    if (errno != EINTR) return -errno;
  }
  return -EINTR;
}

long Write(int fd, std::string_view bytes) noexcept {
  return Retry([&] { return ::write(fd, bytes.data(), bytes.size()); });
}

long Send(int fd, std::string_view bytes) noexcept {
  return Retry([&] { return ::send(fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL); });
}

// Pipes know this flag since Linux 6.5, /dev/null for long, terminals not at all.
long WriteNoWait(int fd, std::string_view bytes) noexcept {
  const iovec part{const_cast<char*>(bytes.data()), bytes.size()};
  constexpr off_t kCurrentPosition = -1;
  return Retry([&] { return ::pwritev2(fd, &part, 1, kCurrentPosition, RWF_NOWAIT); });
}

long WriteToStream(int fd, std::string_view bytes) noexcept {
  if (const long done = WriteNoWait(fd, bytes); done != -EOPNOTSUPP && done != -ENOSYS) return done;
  return WriteThroughOwnDescription(fd, bytes);
}

long WriteByKind(int fd, mode_t mode, std::string_view bytes) noexcept {
  if (S_ISREG(mode)) return Write(fd, bytes);
  if (S_ISSOCK(mode)) return Send(fd, bytes);
  return WriteToStream(fd, bytes);
}

}  // namespace

bool CanBeFull(int fd) noexcept {
  struct stat status {};
  return ::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode);
}

long WritePromptly(int fd, std::string_view bytes) noexcept {
  struct stat status {};
  if (::fstat(fd, &status) != 0) return -errno;
  SignalGuard guard;
  const long done = WriteByKind(fd, status.st_mode, bytes);
  if (done < 0) guard.WriteFailed(static_cast<int>(-done));
  return done;
}

// The description lives for one write only: a pipe's reader would otherwise miss that the program
// closed its end.
long WriteThroughOwnDescription(int fd, std::string_view bytes) noexcept {
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
  const UniqueFd own(::open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (own) return Write(own.get(), bytes);
  return errno == ENXIO ? -EPIPE : WriteWhenReady(fd, bytes);
}

// Another user's pipe or terminal, or no /proc. A pipe with room has room for an atomic write, a
// terminal for a small one; only another writer in between could still make this one wait.
long WriteWhenReady(int fd, std::string_view bytes) noexcept {
  pollfd room{fd, POLLOUT, 0};
  if (::poll(&room, 1, 0) <= 0) return -EAGAIN;
  if ((room.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) return -EPIPE;
  return Write(fd, bytes.substr(0, kAtomicWrite));
}

}  // namespace kavrel_dlog
