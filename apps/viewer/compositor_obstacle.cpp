#include "compositor_obstacle.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace viewer {
namespace {

constexpr const char* kAdvice = "set it to a directory of your own with mode 0700";
// The library's compositor is found by clients under this name.
constexpr const char* kSocket = "/kavrel-compositor";

std::string DirectoryObstacle(const std::string& directory) {
  const std::string named = "XDG_RUNTIME_DIR names \"" + directory + "\", which ";
  struct stat status {};
  if (::stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    return named + "is no directory; " + kAdvice;
  }
  if (status.st_uid != ::geteuid() && status.st_uid != 0) {
    return named + "belongs to another user; " + kAdvice;
  }
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return named + "others may write; chmod it to 0700, or " + kAdvice;
  }
  if (::access(directory.c_str(), W_OK | X_OK) != 0) {
    return named + "cannot be written; " + kAdvice;
  }
  if (directory.size() + std::string(kSocket).size() >= sizeof(sockaddr_un::sun_path)) {
    return named + "is too long for a socket's path; choose a shorter one";
  }
  return {};
}

// Whoever serves a Wayland socket holds a lock beside it for as long as it lives.
bool IsServed(const std::string& socket) {
  const int lock = ::open((socket + ".lock").c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (lock < 0) return false;
  const bool held = ::flock(lock, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(lock);
  return held;
}

}  // namespace

std::string CompositorObstacle() {
  const char* const variable = std::getenv("XDG_RUNTIME_DIR");
  if (variable == nullptr || *variable == '\0') {
    return std::string("XDG_RUNTIME_DIR is not set; ") + kAdvice;
  }
  const std::string directory = variable;
  std::string obstacle = DirectoryObstacle(directory);
  if (!obstacle.empty()) return obstacle;
  if (IsServed(directory + kSocket)) {
    return "another viewer serves \"" + directory + kSocket +
           "\"; stop it, or give this one an XDG_RUNTIME_DIR of its own";
  }
  return "the log tells why; KAVREL_LOG=stderr shows it";
}

}  // namespace viewer
