// Other processes of a test, and memory that they share with it.
#pragma once

#include <semaphore.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <new>

namespace kavrel_test {

/// A forked process that runs a function and ends. Dies with the test; killed and reaped by the
/// destructor.
class Forked {
 public:
  /// `body` returns the exit code.
  explicit Forked(const std::function<int()>& body) : pid_(::fork()) {
    if (pid_ != 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::_exit(body());
  }
  Forked(const Forked&) = delete;
  Forked& operator=(const Forked&) = delete;
  ~Forked() { Kill(); }

  pid_t pid() const { return pid_; }
  void Signal(int signal) const {
    if (pid_ > 0) ::kill(pid_, signal);  // one that has ended must not become everybody
  }

  /// Stops the process and returns when it stands still.
  void Stop() const {
    Signal(SIGSTOP);
    ::waitpid(pid_, nullptr, WUNTRACED);
  }
  /// Waits until the process has stopped itself; false when it has ended instead.
  bool WaitUntilStopped() {
    int status = 0;
    ::waitpid(pid_, &status, WUNTRACED);
    if (WIFSTOPPED(status)) return true;
    pid_ = -1;
    return false;
  }
  void Continue() const { Signal(SIGCONT); }

  void Kill() {
    if (pid_ <= 0) return;
    Signal(SIGKILL);
    Wait();
  }

  /// Whether it has ended by itself; does not wait.
  bool HasEnded() {
    if (pid_ <= 0) return true;
    if (::waitpid(pid_, nullptr, WNOHANG) != pid_) return false;
    pid_ = -1;
    return true;
  }

  /// Waits for the end. The exit code, or minus the signal that ended it.
  int Wait() {
    int status = 0;
    if (pid_ <= 0 || ::waitpid(pid_, &status, 0) != pid_) return -1000;
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  pid_t pid_;
};

/// One object in memory that processes forked later share.
template <typename Object>
class Shared {
 public:
  Shared()
      : object_(new (::mmap(nullptr, sizeof(Object), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Object()) {}
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  ~Shared() { ::munmap(object_, sizeof(Object)); }

  Object* operator->() const { return object_; }
  Object& operator*() const { return *object_; }

 private:
  Object* object_;
};

/// Rung by one process for another that shares it; in Shared memory.
class Bell {
 public:
  Bell() { ::sem_init(&rings_, 1, 0); }
  Bell(const Bell&) = delete;
  Bell& operator=(const Bell&) = delete;
  ~Bell() { ::sem_destroy(&rings_); }

  void Ring() { ::sem_post(&rings_); }
  /// Returns when `done`, which is looked at after each ring. Whoever hangs here is ended by the
  /// test's own time limit.
  void AwaitUntil(const std::function<bool()>& done) {
    while (!done()) ::sem_wait(&rings_);
  }

 private:
  sem_t rings_;
};

}  // namespace kavrel_test
