// The two sockets of one connection.
#pragma once

#include <sys/socket.h>

#include <atomic>

#include "process.h"

namespace kavrel_rpc {

/// Shared by both ports of a connection; any thread. The descriptors stay open until the link is
/// destroyed, so that a thread inside a call never meets a number that names something else.
class Link {
 public:
  Link(OwnedFd main, OwnedFd callback) : main_(std::move(main)), callback_(std::move(callback)) {}

  int main() const { return main_.get(); }
  int callback() const { return callback_.get(); }

  /// Ends the connection at both ends and wakes who waits in it; what has arrived can still be
  /// read. False when that was done before.
  bool End() {
    if (ended_.exchange(true)) return false;
    ShutDown();
    return true;
  }
  bool HasEnded() const { return ended_.load(std::memory_order_relaxed); }

  /// After the peer has hung up on one socket: makes the end show on the other.
  void ShutDown() const {
    ::shutdown(main_.get(), SHUT_RDWR);
    if (callback_) ::shutdown(callback_.get(), SHUT_RDWR);
  }

  /// Completes a connection of which only the main socket was there.
  void SetCallback(OwnedFd callback) { callback_ = std::move(callback); }

 private:
  OwnedFd main_;
  OwnedFd callback_;
  std::atomic<bool> ended_{false};
};

}  // namespace kavrel_rpc
