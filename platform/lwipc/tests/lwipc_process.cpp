// A process that raises, tests and awaits events as its standard input says, one command a line,
// one line of result each. `lwipc_process [uid]` takes on that user first.
#include <errno.h>
#include <fcntl.h>
#include <lwipc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

namespace {

// Stays until the standard input ends, and holds whatever it inherited.
[[noreturn]] void Hold() {
  char letter = 0;
  while (::read(STDIN_FILENO, &letter, 1) > 0) {
  }
  ::_exit(0);
}

[[noreturn]] void BecomeOtherProgram() {
  ::execlp("cat", "cat", nullptr);
  ::_exit(127);
}

// Returns when the child has got as far as it goes: its copy of the pipe's end is closed by the
// child itself or by the start of the other program.
void Fork(bool other_program) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return;
  if (::fork() == 0) {
    if (other_program) BecomeOtherProgram();
    ::close(ends[1]);
    Hold();
  }
  ::close(ends[1]);
  char letter = 0;
  while (::read(ends[0], &letter, 1) < 0 && errno == EINTR) {
  }
  ::close(ends[0]);
}

int TestWithoutDescriptors(const std::string& event) {
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{0, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &none);
  const int result = LwipcIsDone(event.c_str());
  ::setrlimit(RLIMIT_NOFILE, &before);
  return result;
}

int Obey(const std::string& line) {
  std::istringstream words(line);
  std::string command;
  std::string event;
  int limit = 0;
  words >> command >> event >> limit;
  if (command == "raise") return LwipcEventDone(event.c_str());
  if (command == "test") return LwipcIsDone(event.c_str());
  if (command == "wait") return LwipcWaitEvent(event.c_str(), limit);
  if (command == "short") return TestWithoutDescriptors(event);
  if (command == "fork") Fork(false);
  if (command == "exec") Fork(true);
  if (command == "exit") std::exit(0);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const uid_t user = argc > 1 ? static_cast<uid_t>(std::stoi(argv[1])) : ::geteuid();
  if (argc > 1 && (::setresgid(user, user, user) != 0 || ::setresuid(user, user, user) != 0)) {
    return 2;
  }
  std::string line;
  while (std::getline(std::cin, line)) {
    std::cout << line << " = ";
    std::cout.flush();
    std::cout << Obey(line) << std::endl;
  }
}
