#include "child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

namespace kavrel_test {
namespace {

[[noreturn]] void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::vector<std::string> MergedEnvironment(
    const std::map<std::string, std::optional<std::string>>& changes) {
  std::vector<std::string> merged;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (!changes.contains(text.substr(0, text.find('=')))) merged.push_back(text);
  }
  for (const auto& [name, value] : changes) {
    if (value) merged.push_back(name + '=' + *value);
  }
  return merged;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

struct Launch {
  std::vector<char*> arguments;
  std::vector<char*> environment;
  std::array<int, 3> descriptors;
  uid_t real_user;
  pid_t parent;
};

// After the fork: only calls that are safe with other threads' locks held.
[[noreturn]] void Become(const Launch& launch) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != launch.parent) ::_exit(127);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  (void)::signal(SIGPIPE, SIG_DFL);
  for (int target = 0; target < 3; ++target) {
    if (::dup2(launch.descriptors[static_cast<std::size_t>(target)], target) < 0) ::_exit(127);
  }
  if (launch.real_user != static_cast<uid_t>(-1)) {
    constexpr auto kUnchanged = static_cast<uid_t>(-1);
    if (::setresuid(launch.real_user, kUnchanged, kUnchanged) != 0) ::_exit(127);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  }
  ::execve(launch.arguments[0], launch.arguments.data(), launch.environment.data());
  ::_exit(127);
}

int RemainingMilliseconds(std::chrono::steady_clock::time_point deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::max<long>(left.count(), 0));
}

}  // namespace

Pipe MakePipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) ThrowErrno("pipe2");
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

ChildProcess::ChildProcess(const ChildOptions& options) {
  if (options.arguments.empty() || ::access(options.arguments[0].c_str(), X_OK) != 0) {
    ThrowErrno("no program " + (options.arguments.empty() ? "" : options.arguments[0]));
  }
  Start(options);
}

void ChildProcess::Start(const ChildOptions& options) {
  Pipe input = MakePipe();
  Pipe output = MakePipe();
  Pipe errors = MakePipe();
  std::vector<std::string> arguments = options.arguments;
  std::vector<std::string> environment = MergedEnvironment(options.environment);
  const int error_fd = options.errors >= 0 ? options.errors : errors.write.get();
  const Launch launch{Pointers(arguments),
                      Pointers(environment),
                      {input.read.get(), output.write.get(), error_fd},
                      options.real_user,
                      ::getpid()};
  pid_ = ::fork();
  if (pid_ < 0) ThrowErrno("fork");
  if (pid_ == 0) Become(launch);
  // Not pidfd_open(): glibc 2.36 declares it without C linkage.
  pidfd_.Reset(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  input_ = std::move(input.write);
  output_.fd = std::move(output.read);
  if (options.errors < 0) errors_.fd = std::move(errors.read);
}

ChildProcess::~ChildProcess() {
  Kill();
}

void ChildProcess::Kill() {
  if (result_) return;
  Signal(SIGKILL);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  result_ = -SIGKILL;
}

void ChildProcess::Signal(int signal) const {
  if (!result_) ::kill(pid_, signal);
}

void ChildProcess::WriteInput(const std::string& text) const {
  if (::write(input_.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    ThrowErrno("write to the standard input of the child");
  }
}

void ChildProcess::ReadFrom(Capture& capture) {
  std::array<char, 65536> bytes;
  const ssize_t size = ::read(capture.fd.get(), bytes.data(), bytes.size());
  if (size > 0) {
    capture.text.append(bytes.data(), static_cast<std::size_t>(size));
  } else if (size == 0 || errno != EINTR) {
    capture.fd.Reset();
  }
}

// Reads what has come; false when nothing more can come or the deadline has passed.
bool ChildProcess::ReadOnce(Clock::time_point deadline, bool until_exit) {
  std::array<pollfd, 3> wanted = {{{output_.fd.get(), POLLIN, 0},
                                   {errors_.fd.get(), POLLIN, 0},
                                   {until_exit && !result_ ? pidfd_.get() : -1, POLLIN, 0}}};
  const auto absent = [](const pollfd& one) { return one.fd < 0; };
  if (std::all_of(wanted.begin(), wanted.end(), absent)) return false;
  const int ready = ::poll(wanted.data(), wanted.size(), RemainingMilliseconds(deadline));
  if (ready < 0) return errno == EINTR;
  if (ready == 0) return false;
  if (wanted[0].revents != 0) ReadFrom(output_);
  if (wanted[1].revents != 0) ReadFrom(errors_);
  if (wanted[2].revents != 0) Reap();
  return true;
}

bool ChildProcess::Reap() {
  int status = 0;
  if (::waitpid(pid_, &status, WNOHANG) != pid_) return false;
  result_ = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  return true;
}

std::optional<std::string> ChildProcess::NextLine(Capture& capture, const std::string& text) {
  for (auto end = capture.text.find('\n', capture.searched); end != std::string::npos;
       end = capture.text.find('\n', capture.searched)) {
    const std::string line = capture.text.substr(capture.searched, end - capture.searched);
    capture.searched = end + 1;
    if (line.find(text) != std::string::npos) return line;
  }
  return std::nullopt;
}

std::optional<std::string> ChildProcess::WaitForLine(const std::string& text, Milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  do {
    if (auto line = NextLine(output_, text)) return line;
    if (auto line = NextLine(errors_, text)) return line;
  } while (ReadOnce(deadline, false));
  return std::nullopt;
}

std::optional<int> ChildProcess::WaitForExit(Milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  while (ReadOnce(deadline, true)) {
  }
  return result_;
}

}  // namespace kavrel_test
