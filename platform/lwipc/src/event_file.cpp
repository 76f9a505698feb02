#include "event_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <string>
#include <string_view>

namespace lwipc {
namespace {

using kavrel_platform::UniqueFd;

constexpr mode_t kEverybodyReads = 0644;

struct flock WholeFile(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

// A lock of the open file, not of the process: looking at the event from the raising process
// would drop the latter.
bool Lock(int fd) {
  struct flock lock = WholeFile(F_WRLCK);
  return ::fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

// The kernel writes the lock that stands in the way into `lock`, and nothing when it cannot tell.
bool IsLockedByWriter(int fd) {
  struct flock lock = WholeFile(F_RDLCK);
  static_cast<void>(::fcntl(fd, F_OFD_GETLK, &lock));
  return lock.l_type == F_WRLCK;
}

// False with errno set. A disk that is nearly full takes a part.
bool WriteContent(int fd, const std::string& content) {
  const ssize_t size = ::write(fd, content.data(), content.size());
  if (size >= 0) errno = ENOSPC;
  return size == static_cast<ssize_t>(content.size());
}

// 1 or 0, or a negative errno value when the file cannot be read.
int HoldsContent(int fd, const std::string& content) {
  std::array<char, std::size_t{2} * PATH_MAX> found;
  const ssize_t size = ::pread(fd, found.data(), found.size(), 0);
  if (size < 0) return -errno;
  return content == std::string_view(found.data(), static_cast<std::size_t>(size)) ? 1 : 0;
}

bool IsTrustedFile(const struct stat& status) {
  return S_ISREG(status.st_mode) && (status.st_uid == ::geteuid() || status.st_uid == 0);
}

std::string TemporaryName() {
  static std::atomic<unsigned> count = 0;
  return ".lwipc-" + std::to_string(::getpid()) + '-' + std::to_string(count++);
}

// A name that a stranger guessed and occupied costs one more round.
UniqueFd CreateTemporary(int directory, std::string& name) {
  constexpr int kRounds = 1000;
  for (int round = 0; round < kRounds; ++round) {
    name = TemporaryName();
    UniqueFd file(::openat(directory, name.c_str(),
                           O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file || errno != EEXIST) return file;
  }
  return UniqueFd();
}

// Whether looking failed for a reason that says nothing about the event.
bool IsShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM;
}

int NotRaisedUnlessShort() {
  return IsShortage(errno) ? -errno : 0;
}

}  // namespace

UniqueFd MakeEventFile(const Place& place) {
  const UniqueFd directory = OpenDirectory(place);
  if (!directory) return UniqueFd();
  std::string temporary;
  UniqueFd file = CreateTemporary(directory.get(), temporary);
  if (!file) return file;
  if (Lock(file.get()) && WriteContent(file.get(), place.content) &&
      ::fchmod(file.get(), kEverybodyReads) == 0 &&
      ::renameat(directory.get(), temporary.c_str(), directory.get(), place.name.c_str()) == 0) {
    return file;
  }
  const int error = errno;
  ::unlinkat(directory.get(), temporary.c_str(), 0);
  errno = error;
  return UniqueFd();
}

int TestEventFile(const Place& place) {
  const UniqueFd directory = OpenDirectory(place);
  if (!directory) return NotRaisedUnlessShort();
  // Looked at before it is opened: opening a FIFO or a device can have effects.
  struct stat status {};
  if (::fstatat(directory.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return 0;
  if (!IsTrustedFile(status)) return 0;
  const UniqueFd file(::openat(directory.get(), place.name.c_str(),
                               O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) return NotRaisedUnlessShort();
  if (::fstat(file.get(), &status) != 0 || !IsTrustedFile(status)) return 0;
  return IsLockedByWriter(file.get()) ? HoldsContent(file.get(), place.content) : 0;
}

}  // namespace lwipc
