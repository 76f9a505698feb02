// The program whose log the tests look at: does what its arguments say, in order, and prints what
// each call returned.
#include <dlog.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

using Arguments = std::vector<std::string>;

int Number(const std::string& text) {
  return std::stoi(text);
}

// print PRIORITY TAG TEXT
void Print(const Arguments& arguments) {
  std::printf("%d\n",
              dlog_print(Number(arguments[0]), arguments[1].c_str(), "%s", arguments[2].c_str()));
}

// buffer-print BUFFER PRIORITY TAG TEXT
void BufferPrint(const Arguments& arguments) {
  std::printf("%d\n", __dlog_print(Number(arguments[0]), Number(arguments[1]), arguments[2].c_str(),
                                   "%s", arguments[3].c_str()));
}

// repeat COUNT TEXT: prints how many of the calls failed
void Repeat(const Arguments& arguments) {
  int failed = 0;
  for (int i = 0; i < Number(arguments[0]); ++i) {
    failed += dlog_print(DLOG_ERROR, "repeat", "%s", arguments[1].c_str()) < 0 ? 1 : 0;
  }
  std::printf("failed %d\n", failed);
}

// fill LENGTH BYTE: one record of LENGTH bytes
void Fill(const Arguments& arguments) {
  const std::string text(static_cast<std::size_t>(Number(arguments[0])), arguments[1].front());
  std::printf("%d\n", dlog_print(DLOG_ERROR, "fill", "%s", text.c_str()));
}

// threads COUNT RECORDS LENGTH: each thread logs its own letter
void Threads(const Arguments& arguments) {
  std::vector<std::jthread> threads;
  threads.reserve(static_cast<std::size_t>(Number(arguments[0])));
  for (int i = 0; i < Number(arguments[0]); ++i) {
    threads.emplace_back([&, i] {
      const std::string text(static_cast<std::size_t>(Number(arguments[2])),
                             static_cast<char>('a' + i));
      for (int k = 0; k < Number(arguments[1]); ++k) {
        while (dlog_print(DLOG_ERROR, "threads", "%s", text.c_str()) == -EAGAIN) {
          pollfd room{STDERR_FILENO, POLLOUT, 0};
          ::poll(&room, 1, -1);
        }
      }
    });
  }
}

// fork COUNT: forks while threads log; each child logs once. Hangs when a child hangs.
void Fork(const Arguments& arguments) {
  std::atomic<bool> stop{false};
  std::vector<std::jthread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      while (!stop) dlog_print(DLOG_ERROR, "parent", "noise");
    });
  }
  for (int i = 0; i < Number(arguments[0]); ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      dlog_print(DLOG_ERROR, "child", "number %d", i);
      ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
  }
  stop = true;
}

// wait: until a line comes on standard input
void Wait(const Arguments&) {
  (void)std::fflush(stdout);
  for (int byte = std::getchar(); byte != '\n' && byte != EOF; byte = std::getchar()) {
  }
}

// say TEXT
void Say(const Arguments& arguments) {
  std::printf("%s\n", arguments[0].c_str());
}

// errno: logs %m and prints whether errno was kept
void Errno(const Arguments&) {
  const std::string format = "%m%s";  // not a literal: %m is an extension
  errno = ENOENT;
  dlog_print(DLOG_ERROR, "errno", format.c_str(), "!");
  std::printf("%s\n", errno == ENOENT ? "kept" : "changed");
}

// signals: prints the signals that wait for this thread
void Signals(const Arguments&) {
  sigset_t waiting;
  ::sigpending(&waiting);
  std::printf("%s\n", ::sigisemptyset(&waiting) == 1 ? "none waits" : "a signal waits");
}

// raise-blocked-pipe-signal: one that the program itself holds back must stay
void RaiseBlockedPipeSignal(const Arguments&) {
  sigset_t pipe;
  ::sigemptyset(&pipe);
  ::sigaddset(&pipe, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
  (void)::raise(SIGPIPE);
}

// rename FROM TO
void Rename(const Arguments& arguments) {
  if (std::rename(arguments[0].c_str(), arguments[1].c_str()) != 0) std::abort();
}

// redirect-errors PATH
void RedirectErrors(const Arguments& arguments) {
  const int fd = ::open(arguments[0].c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (fd < 0 || ::dup2(fd, STDERR_FILENO) < 0) std::abort();
  ::close(fd);
}

// replace-descriptors PATH: closes all and opens PATH under each of the numbers
void ReplaceDescriptors(const Arguments& arguments) {
  for (int fd = 3; fd < 64; ++fd) ::close(fd);
  for (int fd = 3; fd < 16; ++fd) {
    if (::open(arguments[0].c_str(), O_WRONLY | O_CREAT, 0600) != fd) std::abort();
  }
}

// limit-file-size BYTES
void LimitFileSize(const Arguments& arguments) {
  const rlimit limit{static_cast<rlim_t>(Number(arguments[0])), RLIM_INFINITY};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) std::abort();
}

// background-job TERMINAL: logs as a background job of a terminal that stops those when they write
void BackgroundJob(const Arguments& arguments) {
  ::setsid();
  const int terminal = ::open(arguments[0].c_str(), O_RDWR);
  termios settings{};
  if (::dup2(terminal, STDERR_FILENO) < 0 || ::tcgetattr(terminal, &settings) != 0) std::abort();
  settings.c_lflag |= TOSTOP;
  ::tcsetattr(terminal, TCSANOW, &settings);
  const pid_t job = ::fork();
  if (job == 0) {
    ::setpgid(0, 0);
    ::_exit(dlog_print(DLOG_ERROR, "job", "logged"));
  }
  int status = 0;
  ::waitpid(job, &status, WUNTRACED);
  std::printf("%s\n", WIFSTOPPED(status) ? "stopped" : "not stopped");
  ::kill(job, SIGKILL);
}

// umask OCTAL
void Umask(const Arguments& arguments) {
  ::umask(static_cast<mode_t>(std::strtoul(arguments[0].c_str(), nullptr, 8)));
}

struct Command {
  int arguments;
  void (*run)(const Arguments&);
};

const std::map<std::string, Command> kCommands = {
    {"print", {3, Print}},
    {"buffer-print", {4, BufferPrint}},
    {"repeat", {2, Repeat}},
    {"fill", {2, Fill}},
    {"threads", {3, Threads}},
    {"fork", {1, Fork}},
    {"wait", {0, Wait}},
    {"say", {1, Say}},
    {"errno", {0, Errno}},
    {"signals", {0, Signals}},
    {"raise-blocked-pipe-signal", {0, RaiseBlockedPipeSignal}},
    {"rename", {2, Rename}},
    {"redirect-errors", {1, RedirectErrors}},
    {"replace-descriptors", {1, ReplaceDescriptors}},
    {"limit-file-size", {1, LimitFileSize}},
    {"background-job", {1, BackgroundJob}},
    {"umask", {1, Umask}},
};

}  // namespace

int main(int count, char** words) {
  for (int next = 1; next < count;) {
    const auto command = kCommands.find(words[next++]);
    if (command == kCommands.end() || next + command->second.arguments > count) return 2;
    command->second.run(Arguments(words + next, words + next + command->second.arguments));
    next += command->second.arguments;
  }
  return 0;
}
