// What belongs to this process and not to its forked children.
//
// A forked child inherits descriptors of connections that it must not use, and whose mere existence
// there would keep a connection (or the lock of an address) alive after its owner's death. So every
// descriptor of this service is entered in one list, and a fork closes the child's copies at once.
#pragma once

#include <atomic>
#include <utility>

namespace kavrel_rpc {

namespace internal {
extern std::atomic<unsigned> fork_generation;
void LockDescriptors();
void UnlockDescriptors();
/// False without memory, which closes the descriptor.
bool EnterDescriptor(int fd) noexcept;
void CloseDescriptor(int fd);
}  // namespace internal

/// Base of what a handle names: knows whether this process made it. Any thread.
class ProcessBound {
 public:
  ProcessBound() : generation_(Current()) {}
  /// True in a child that was forked after the object was made.
  bool IsForeign() const { return generation_ != Current(); }

 private:
  static unsigned Current() { return internal::fork_generation.load(std::memory_order_relaxed); }

  unsigned generation_;
};

/// The owner of one descriptor that no child inherits. Any thread, one at a time.
class OwnedFd : private ProcessBound {
 public:
  using ProcessBound::IsForeign;

  OwnedFd() = default;
  OwnedFd(OwnedFd&& other) noexcept : ProcessBound(other), fd_(std::exchange(other.fd_, -1)) {}
  OwnedFd& operator=(OwnedFd&& other) noexcept {
    if (this == &other) return *this;
    Reset();
    ProcessBound::operator=(other);
    fd_ = std::exchange(other.fd_, -1);
    return *this;
  }
  OwnedFd(const OwnedFd&) = delete;
  OwnedFd& operator=(const OwnedFd&) = delete;
  ~OwnedFd() { Reset(); }

  /// Owns what `opener` returns; invalid with errno set when that is negative. A fork waits
  /// meanwhile, so the opener must not block.
  template <typename Opener>
  static OwnedFd Open(Opener opener) {
    OwnedFd owned;
    internal::LockDescriptors();
    const int fd = opener();
    if (fd >= 0 && internal::EnterDescriptor(fd)) owned.fd_ = fd;
    internal::UnlockDescriptors();
    return owned;
  }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

  void Reset() {
    const int fd = std::exchange(fd_, -1);
    if (fd >= 0 && !IsForeign()) internal::CloseDescriptor(fd);
  }

 private:
  int fd_ = -1;
};

}  // namespace kavrel_rpc
