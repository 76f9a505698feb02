// A program run beside the test: its output captured, its end awaited, gone with the test.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kavrel_test {

/// Longer than anything healthy takes on a loaded machine.
inline constexpr std::chrono::milliseconds kGenerous = std::chrono::seconds(30);

/// Owns one descriptor.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int Release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void Reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

struct Pipe {
  Descriptor read;
  Descriptor write;
};

/// A close-on-exec pipe; throws std::system_error.
Pipe MakePipe();

struct ChildOptions {
  std::vector<std::string> arguments = {};  ///< the program's path first
  /// Changes to the test's own environment; without a value the variable is unset.
  std::map<std::string, std::optional<std::string>> environment = {};
  int errors = -1;  ///< descriptor that becomes standard error instead of a captured pipe
  uid_t real_user = static_cast<uid_t>(-1);  ///< set as real (not effective) user id when given
};

/// Belongs to the thread that made it, and the program dies with that thread. The destructor kills
/// and reaps. Limits are how long to wait at most; what happens in time is waited for, never slept.
class ChildProcess {
 public:
  using Milliseconds = std::chrono::milliseconds;

  /// Throws std::system_error when the program cannot be started.
  explicit ChildProcess(const ChildOptions& options);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  pid_t pid() const { return pid_; }

  /// Waits until a line that contains `text` has been written on standard output or standard
  /// error. Returns that line, each line once, in order of arrival on its stream.
  std::optional<std::string> WaitForLine(const std::string& text, Milliseconds limit = kGenerous);

  /// Waits for the end of the program and of its output (which its own children may prolong).
  /// Returns the exit code, or minus the number of the signal that ended it; nothing when it still
  /// runs at the limit.
  std::optional<int> WaitForExit(Milliseconds limit = kGenerous);

  /// Everything that was read so far.
  const std::string& output() const { return output_.text; }
  const std::string& errors() const { return errors_.text; }

  void WriteInput(const std::string& text) const;
  void CloseInput() { input_.Reset(); }
  void Signal(int signal) const;
  void Kill();

 private:
  struct Capture {
    Descriptor fd;
    std::string text;
    std::size_t searched = 0;  // lines before this have been handed out or passed over
  };
  using Clock = std::chrono::steady_clock;

  void Start(const ChildOptions& options);
  bool ReadOnce(Clock::time_point deadline, bool until_exit);
  static void ReadFrom(Capture& capture);
  static std::optional<std::string> NextLine(Capture& capture, const std::string& text);
  bool Reap();

  pid_t pid_ = -1;
  Descriptor pidfd_;
  Descriptor input_;
  Capture output_;
  Capture errors_;
  std::optional<int> result_;
};

}  // namespace kavrel_test
