#include "ready_fd.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>

namespace kavrel_programs {

std::string ReadyFdMistake(const std::string& text) {
  int fd = -1;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, fd);
  if (parsed.ec == std::errc() && parsed.ptr == end && fd > STDERR_FILENO &&
      ::fcntl(fd, F_GETFD) >= 0) {
    return {};
  }
  return '"' + text + "\" is not an open descriptor above 2";
}

bool TellReady(int fd) {
  const bool told = ::write(fd, "\n", 1) == 1;
  return ::close(fd) == 0 && told;
}

}  // namespace kavrel_programs
