#include "address.h"

#include <directories.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "bounds.h"
#include "log.h"

namespace kavrel_rpc {
namespace {

using kavrel_platform::UniqueFd;

constexpr int kBacklog = SOMAXCONN;

// Locale-free: what a name may hold must not depend on the viewer's language.
bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-';
}

std::string NodeName(const std::string& app_id, const std::string& port_name) {
  return app_id + ':' + port_name;
}

std::string RpcDirectory() {
  return kavrel_platform::RuntimeDirectory() + "/rpc";
}

// An address that reaches a file through an open descriptor. Its length does not depend on where
// the runtime directory lies, and nobody can exchange a directory on the way.
struct sockaddr_un DescriptorAddress(int descriptor, const char* name_below) {
  struct sockaddr_un address {};
  address.sun_family = AF_UNIX;
  (void)std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d%s%s", descriptor,
                      *name_below != '\0' ? "/" : "", name_below);
  return address;
}

const struct sockaddr* Generic(const struct sockaddr_un& address) {
  return reinterpret_cast<const struct sockaddr*>(&address);
}

// The socket is made under a short passing name, which always fits into an address, and renamed
// once it listens: nobody finds it half made.
std::string PassingName() {
  static std::atomic<unsigned> counter{0};
  return ".new-" + std::to_string(::getpid()) + '-' + std::to_string(counter.fetch_add(1));
}

bool IsTrustedNode(int fd, mode_t type, const TrustedUsers& users) {
  struct stat status {};
  if (::fstat(fd, &status) != 0 || (status.st_mode & S_IFMT) != type) return false;
  if (!users.Contains(status.st_uid)) return false;
  return type != S_IFDIR || (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

int ConnectError() {
  return errno == EACCES || errno == EPERM ? -EACCES : -EIO;
}

// Opens a directory on the way to a socket; one that strangers own or may write to is refused.
int OpenTrustedDirectory(const std::string& path, const TrustedUsers& users, UniqueFd& directory) {
  directory.Reset(::open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!directory) return ConnectError();
  if (IsTrustedNode(directory.get(), S_IFDIR, users)) return 0;
  RPC_LOG_ERROR(
      "the directory \"%s\" is not to be trusted: it must belong to this user or root, "
      "and nobody else may write to it",
      path.c_str());
  return -EACCES;
}

int Failure(const char* action, const std::string& name) {
  const int error = errno;
  RPC_LOG_ERROR("cannot %s \"%s/%s\": %s", action, RpcDirectory().c_str(), name.c_str(),
                std::strerror(error));
  return error == EACCES || error == EPERM ? -EACCES : -EIO;
}

}  // namespace

bool IsName(std::string_view text) {
  return !text.empty() && text.size() <= kMaxNameLength &&
         std::all_of(text.begin(), text.end(), IsNameCharacter);
}

std::string OwnApplicationId() {
  if (std::string own = kavrel_platform::Environment("KAVREL_APP_ID"); !own.empty()) {
    if (IsName(own)) return own;
    RPC_LOG_ERROR(
        "KAVREL_APP_ID: \"%s\" is not an application id (1 to %zu letters, digits, '.', "
        "'_' and '-')",
        own.c_str(), kMaxNameLength);
    return {};
  }
  std::string name = program_invocation_short_name;
  name.resize(std::min(name.size(), kMaxNameLength));
  std::replace_if(
      name.begin(), name.end(), [](char c) { return !IsNameCharacter(c); }, '-');
  return name.empty() ? "unnamed" : name;
}

ListeningSocket::~ListeningSocket() {
  // The lock is still held: the socket that is removed here is this one.
  if (socket_ && lock_ && !lock_.IsForeign()) ::unlinkat(directory_.get(), name_.c_str(), 0);
}

ListeningSocket& ListeningSocket::operator=(ListeningSocket&& other) noexcept {
  std::swap(name_, other.name_);
  std::swap(directory_, other.directory_);
  std::swap(lock_, other.lock_);
  std::swap(socket_, other.socket_);
  return *this;
}

int ListeningSocket::Open(const std::string& app_id, const std::string& port_name,
                          const TrustedUsers& users) {
  name_ = NodeName(app_id, port_name);
  if (const int result = OpenDirectory(users); result != 0) return result;
  if (const int result = Lock(); result != 0) return result;
  return Bind(users);
}

int ListeningSocket::OpenDirectory(const TrustedUsers& users) {
  const std::string runtime = kavrel_platform::RuntimeDirectory();
  for (const std::string& path : {runtime, RpcDirectory()}) {
    directory_ = kavrel_platform::OpenPrivateDirectory(path);
    if (!directory_) return Failure("use the directory of", name_);
    // The modes that others need to reach the socket, no more: to pass, not to list.
    if (users.AreMany() && ::fchmod(directory_.get(), 0711) != 0 && errno != EPERM) {
      return Failure("open to other users the directory of", name_);
    }
  }
  return 0;
}

int ListeningSocket::Lock() {
  const std::string lock_name = name_ + ".lock";
  lock_ = OwnedFd::Open([&] {
    return ::openat(directory_.get(), lock_name.c_str(),
                    O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  });
  if (!lock_) return Failure("open", lock_name);
  // Whatever the umask took away, the next service of this user must be able to open it.
  ::fchmod(lock_.get(), 0600);
  if (::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return 0;
  lock_.Reset();
  RPC_LOG_ERROR("\"%s\" is taken: another service listens there", name_.c_str());
  return -EIO;
}

int ListeningSocket::Bind(const TrustedUsers& users) {
  OwnedFd socket = OwnedFd::Open(
      [] { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); });
  if (!socket) return Failure("make a socket for", name_);
  const std::string passing = PassingName();
  const auto address = DescriptorAddress(directory_.get(), passing.c_str());
  ::unlinkat(directory_.get(), passing.c_str(), 0);
  const mode_t mode = users.AreMany() ? 0666 : 0600;
  if (::bind(socket.get(), Generic(address), sizeof address) != 0 ||
      ::fchmodat(directory_.get(), passing.c_str(), mode, 0) != 0 ||
      ::listen(socket.get(), kBacklog) != 0 ||
      ::renameat(directory_.get(), passing.c_str(), directory_.get(), name_.c_str()) != 0) {
    const int result = Failure("listen on", name_);
    ::unlinkat(directory_.get(), passing.c_str(), 0);
    return result;
  }
  socket_ = std::move(socket);
  return 0;
}

int ServiceAddress::Find(const std::string& app_id, const std::string& port_name,
                         const TrustedUsers& users) {
  UniqueFd directory;
  const std::string runtime = kavrel_platform::RuntimeDirectory();
  if (const int result = OpenTrustedDirectory(runtime, users, directory); result != 0) {
    return result;
  }
  if (const int result = OpenTrustedDirectory(RpcDirectory(), users, directory); result != 0) {
    return result;
  }
  const std::string name = NodeName(app_id, port_name);
  node_.Reset(::openat(directory.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!node_) return ConnectError();
  if (IsTrustedNode(node_.get(), S_IFSOCK, users)) return 0;
  RPC_LOG_ERROR("\"%s/%s\" is not a socket of this user or root", RpcDirectory().c_str(),
                name.c_str());
  return -EACCES;
}

int ServiceAddress::Connect(int socket) const {
  const auto address = DescriptorAddress(node_.get(), "");
  return ::connect(socket, Generic(address), sizeof address) == 0 ? 0 : -errno;
}

}  // namespace kavrel_rpc
