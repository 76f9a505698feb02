// Directories, the state store, and what killed processes have left.
#include <fcntl.h>
#include <kavrel/state_properties.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "descriptor.h"
#include "doctor.h"
#include "properties.h"

namespace kavrelctl {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSystems = "the system's platform services know where; not looked at";

std::string Octal(mode_t mode) {
  char text[8];
  (void)std::snprintf(text, sizeof text, "%04o", mode & 07777U);
  return text;
}

Finding CheckDirectory(const std::string& about, const std::string& path, const char* made_by) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return {about, Health::kOk, path + " does not exist yet", made_by};
    return {about, Health::kProblem, path + ": " + std::strerror(errno),
            "let this user reach it, or name another directory"};
  }
  if (!S_ISDIR(status.st_mode)) {
    return {about, Health::kProblem, path + " is no directory", "remove it: rm " + path};
  }
  if (status.st_uid != ::geteuid() && status.st_uid != 0) {
    return {about, Health::kProblem,
            path + " belongs to user " + std::to_string(status.st_uid) + ", not to this one",
            "name another directory, or give it to this user: chown " +
                std::to_string(::geteuid()) + ' ' + path};
  }
  if ((status.st_mode & 022U) != 0) {
    return {about, Health::kProblem,
            path + " has mode " + Octal(status.st_mode) + ": others may write to it",
            "chmod 700 " + path};
  }
  return {about, Health::kOk, path + ", mode " + Octal(status.st_mode), ""};
}

Finding CheckXdgRuntime(const std::string& path) {
  const std::string about = "XDG_RUNTIME_DIR";
  if (path.empty()) {
    return {about, Health::kWarning, "not set: plug-ins' windows cannot meet the viewer",
            "log in by pam_systemd, or set it to a directory of this user's with mode 0700"};
  }
  Finding finding = CheckDirectory(about, path, "");
  if (finding.health == Health::kOk && ::access(path.c_str(), F_OK) != 0) {
    finding.health = Health::kWarning;
    finding.advice = "make it: mkdir -m 700 " + path;
  }
  return finding;
}

// --- Store

Finding CheckStoreFiles(const std::string& about, const std::string& directory) {
  std::error_code error;
  const fs::path values = fs::path(directory) / "vconf";
  std::uintmax_t largest = 0;
  for (const auto& entry : fs::directory_iterator(values, error)) {
    const std::string name = entry.path().filename();
    if (name.find(".damaged") != std::string::npos) {
      return {about, Health::kWarning, entry.path().string() + " was set aside as damaged",
              "look at it, then remove it: rm " + entry.path().string()};
    }
    std::error_code ignored;
    if (entry.is_regular_file(ignored)) largest = std::max(largest, entry.file_size(ignored));
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    return {about, Health::kProblem, values.string() + ": " + error.message(),
            "let this user read it, or name another directory"};
  }
  if (error) return {about, Health::kOk, "nothing kept yet", ""};
  constexpr std::uintmax_t kMuch = std::uintmax_t{48} * 1024 * 1024;
  if (largest > kMuch) {
    return {about, Health::kWarning,
            values.string() + " has a file of " + std::to_string(largest >> 20U) +
                " MiB; a store holds 64 MiB",
            "find who keeps so much in it, and unset what is not needed"};
  }
  return {about, Health::kOk,
          values.string() + ", largest file " + std::to_string(largest >> 10U) + " KiB", ""};
}

// Every value is read, as any program would.
Finding CheckStoreOpens() {
  for (const auto& property : kavrel::state::kProperties) {
    std::string failure;
    if (!ReadProperty(property, failure)) {
      return {"state store", Health::kProblem, std::string(property.name) + ": " + failure,
              "look at the directories above; a log line of the store says more (--verbose)"};
    }
  }
  return {"state store", Health::kOk, "opens, and every property can be read", ""};
}

// --- Leftovers

// Whether nobody listens on a socket of that directory, whatever the length of its path.
bool IsDeadSocket(const std::string& directory, const std::string& name) {
  const Descriptor at(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const Descriptor client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const std::string path = "/proc/self/fd/" + std::to_string(at.fd) + '/' + name;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (at.fd < 0 || client.fd < 0 || path.size() >= sizeof address.sun_path) return false;
  path.copy(address.sun_path, path.size());
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  return ::connect(client.fd, generic, sizeof address) != 0 && errno == ECONNREFUSED;
}

// A raised event is locked by the process that has raised it.
bool IsDeadEvent(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct flock lock {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  return file.fd >= 0 && ::fcntl(file.fd, F_OFD_GETLK, &lock) == 0 && lock.l_type == F_UNLCK;
}

bool IsOurs(const fs::path& path, mode_t type) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == type &&
         status.st_uid == ::geteuid();
}

template <class IsDead>
std::vector<std::string> DeadIn(const std::string& directory, const IsDead& is_dead) {
  std::vector<std::string> dead;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(directory, error)) {
    if (is_dead(entry.path())) dead.push_back(entry.path().string());
  }
  std::sort(dead.begin(), dead.end());
  return dead;
}

Finding Leftovers(const std::string& about, const std::vector<std::string>& dead,
                  const std::string& none) {
  if (dead.empty()) return {about, Health::kOk, none, ""};
  std::string list;
  for (const std::string& path : dead) list += (list.empty() ? "" : " ") + path;
  return {about, Health::kWarning,
          std::to_string(dead.size()) +
              " left by processes that were killed; the next one takes "
              "its place, or:",
          "rm " + list};
}

}  // namespace

std::vector<Finding> CheckDirectories(const Paths& paths) {
  std::vector<Finding> findings;
  if (paths.runtime.empty()) {
    findings.push_back({"runtime and state directories", Health::kOk, kSystems, ""});
  } else {
    findings.push_back(CheckDirectory("runtime directory", paths.runtime, ""));
    findings.push_back(CheckDirectory("state directory", paths.state, ""));
  }
  findings.push_back(CheckXdgRuntime(paths.xdg_runtime));
  return findings;
}

std::vector<Finding> CheckStore(const Paths& paths) {
  std::vector<Finding> findings;
  if (!paths.runtime.empty()) {
    findings.push_back(CheckStoreFiles("volatile values", paths.runtime));
    findings.push_back(CheckStoreFiles("durable values", paths.state));
    // Reading would make the files.
    std::error_code ignored;
    if (!fs::exists(fs::path(paths.runtime) / "vconf", ignored)) return findings;
  }
  findings.push_back(CheckStoreOpens());
  return findings;
}

std::vector<Finding> CheckLeftovers(const Paths& paths) {
  std::vector<Finding> findings;
  if (!paths.runtime.empty()) {
    const auto is_dead = [&](const fs::path& path) {
      return IsOurs(path, S_IFSOCK) && IsDeadSocket(paths.Sockets(), path.filename());
    };
    findings.push_back(Leftovers("sockets of viewers", DeadIn(paths.Sockets(), is_dead),
                                 "none that nobody listens on"));
  }
  const auto is_dead_event = [](const fs::path& path) {
    const std::string name = path.filename();
    return name.starts_with("kavrel") && name.ends_with("_ready") && IsOurs(path, S_IFREG) &&
           IsDeadEvent(path);
  };
  findings.push_back(
      Leftovers("event files", DeadIn(paths.events, is_dead_event), "none of a dead process"));
  if (paths.xdg_runtime.empty()) return findings;
  const auto is_dead_compositor = [&](const fs::path& path) {
    return path.filename() == "kavrel-compositor" && IsOurs(path, S_IFSOCK) &&
           IsDeadSocket(paths.xdg_runtime, path.filename());
  };
  findings.push_back(Leftovers("compositor's socket", DeadIn(paths.xdg_runtime, is_dead_compositor),
                               "none of a dead process"));
  return findings;
}

std::vector<Finding> CheckFonts() {
  std::vector<std::string> places = {"/usr/share/fonts", "/usr/local/share/fonts"};
  if (const char* const home = std::getenv("HOME")) {
    places.push_back(std::string(home) + "/.fonts");
    places.push_back(std::string(home) + "/.local/share/fonts");
  }
  for (const std::string& place : places) {
    std::error_code error;
    const auto options = fs::directory_options::skip_permission_denied;
    for (auto at = fs::recursive_directory_iterator(place, options, error);
         !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
      const std::string ending = at->path().extension();
      if (ending == ".ttf" || ending == ".otf" || ending == ".ttc" || ending == ".pfb") {
        return {{"fonts", Health::kOk, at->path().string() + " and maybe more", ""}};
      }
    }
  }
  return {{"fonts", Health::kWarning, "none found: the viewer's screen shows no texts",
           "install one: apt-get install fonts-dejavu-core"}};
}

}  // namespace kavrelctl
