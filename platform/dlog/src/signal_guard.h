// Keeps a write from harming its process: a closed pipe, a file at its size limit or a terminal
// that stops background jobs raise a signal whose default ends or stops the program.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <cerrno>

namespace kavrel_dlog {

/// Holds these signals back on the calling thread for its life time, and takes away the one that
/// the write raised, but none that was waiting before.
class SignalGuard {
 public:
  SignalGuard() {
    sigset_t held;
    ::sigemptyset(&held);
    ::sigaddset(&held, SIGPIPE);
    ::sigaddset(&held, SIGXFSZ);
    ::sigaddset(&held, SIGTTOU);
    ::pthread_sigmask(SIG_BLOCK, &held, &before_);
    pipe_waited_ = Waits(SIGPIPE);
    size_waited_ = Waits(SIGXFSZ);
  }
  SignalGuard(const SignalGuard&) = delete;
  SignalGuard& operator=(const SignalGuard&) = delete;
  ~SignalGuard() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  /// To be called with the errno value of a write that failed.
  void WriteFailed(int error) {
    if (error == EPIPE && !pipe_waited_) Take(SIGPIPE);
    if (error == EFBIG && !size_waited_) Take(SIGXFSZ);
  }

 private:
  // Only a signal that the program itself blocks can have been waiting.
  bool Waits(int signal) const {
    if (::sigismember(&before_, signal) != 1) return false;
    sigset_t waiting;
    return ::sigpending(&waiting) == 0 && ::sigismember(&waiting, signal) == 1;
  }

  static void Take(int signal) {
    sigset_t set;
    ::sigemptyset(&set);
    ::sigaddset(&set, signal);
    const timespec now{};
    while (::sigtimedwait(&set, nullptr, &now) < 0 && errno == EINTR) {
    }
  }

  sigset_t before_{};
  bool pipe_waited_ = false;
  bool size_waited_ = false;
};

}  // namespace kavrel_dlog
