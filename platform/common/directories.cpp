#include "directories.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <system_error>

namespace kavrel_platform {
namespace {

bool IsOwnedByUsOrRoot(const struct stat& status) {
  return status.st_uid == ::geteuid() || status.st_uid == 0;
}

bool OthersMayWrite(const struct stat& status) {
  return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

// mkdir obeys the umask, which may take away even the owner's rights; a second thread may be
// changing it, so the mode is set explicitly instead.
bool MakeDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) == 0) return ::chmod(path.c_str(), 0700) == 0;
  return errno == EEXIST;
}

bool MakeParents(const std::string& path) {
  for (auto slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    if (!MakeDirectory(path.substr(0, slash)) && errno != EROFS && errno != EACCES) return false;
  }
  return true;
}

std::string Below(const std::string& base, const char* name) {
  return base.empty() ? std::string() : base + '/' + name;
}

}  // namespace

std::string Environment(const char* name) {
  const char* value = ::secure_getenv(name);
  return value != nullptr ? value : std::string();
}

long EnvironmentNumber(const char* name, long fallback, long least, long most) {
  const std::string text = Environment(name);
  long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return fallback;
  return value < least || value > most ? fallback : value;
}

std::string RuntimeDirectory() {
  if (std::string own = Environment("KAVREL_RUNTIME_DIR"); !own.empty()) return own;
  if (std::string xdg = Below(Environment("XDG_RUNTIME_DIR"), "kavrel"); !xdg.empty()) return xdg;
  return "/tmp/kavrel-" + std::to_string(::geteuid());
}

std::string StateDirectory() {
  if (std::string own = Environment("KAVREL_STATE_DIR"); !own.empty()) return own;
  if (std::string xdg = Below(Environment("XDG_STATE_HOME"), "kavrel"); !xdg.empty()) return xdg;
  if (std::string home = Below(Environment("HOME"), ".local/state/kavrel"); !home.empty()) {
    return home;
  }
  return RuntimeDirectory() + "/state";
}

UniqueFd OpenExistingPrivateDirectory(const std::string& path) {
  UniqueFd directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) return directory;
  struct stat status {};
  if (::fstat(directory.get(), &status) != 0) return UniqueFd();
  if (!IsOwnedByUsOrRoot(status) || OthersMayWrite(status)) {
    errno = EACCES;
    return UniqueFd();
  }
  return directory;
}

UniqueFd OpenPrivateDirectory(const std::string& path) {
  if (path.empty() || path.front() != '/') {
    errno = EINVAL;
    return UniqueFd();
  }
  if (!MakeParents(path) || !MakeDirectory(path)) return UniqueFd();
  return OpenExistingPrivateDirectory(path);
}

}  // namespace kavrel_platform
