#include "standard_streams.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <initializer_list>

namespace kavrel_programs {

void ProtectStandardStreams() {
  (void)::signal(SIGPIPE, SIG_IGN);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    // The lowest free number is this one. Read-only also for output, so that writing to it fails
    // as it would have; nobody is to be told about standard error.
    // cppcheck-suppress leakReturnValNotUsed ; it is open as long as the program runs
    ::open("/dev/null", fd == STDERR_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace kavrel_programs
