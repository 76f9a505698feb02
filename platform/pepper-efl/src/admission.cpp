#include "admission.h"

#include <directories.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <vector>

#include "log.h"

namespace kavrel_pepper {
namespace {

constexpr auto kShutOutTime = std::chrono::seconds(1);
constexpr std::size_t kMostShutOut = 64;

constexpr char kGroupVariable[] = "KAVREL_COMPOSITOR_GROUP";

std::optional<gid_t> GroupOf(const std::string& text) {
  if (text.empty()) return std::nullopt;
  gid_t number = 0;
  const char* end = text.data() + text.size();
  if (std::from_chars(text.data(), end, number).ptr == end) return number;
  // cppcheck-suppress getgrnamCalled ; only here, on the main thread
  if (const group* entry = ::getgrnam(text.c_str())) return entry->gr_gid;
  LogError("%s: there is no group \"%s\"; only this user and root may connect", kGroupVariable,
           Printable(text).c_str());
  return std::nullopt;
}

std::vector<gid_t> GroupsOfPeer(int socket) {
#ifdef SO_PEERGROUPS
  socklen_t bytes = 0;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, nullptr, &bytes) == 0 || errno != ERANGE) {
    return {};
  }
  std::vector<gid_t> groups(bytes / sizeof(gid_t));
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &bytes) == 0) return groups;
#endif
  return {};
}

}  // namespace

Admission::Admission() : group_(GroupOf(kavrel_platform::Environment(kGroupVariable))) {}

bool Admission::IsMember(int socket, gid_t primary) const {
  if (!group_) return false;
  if (primary == *group_) return true;
  for (const gid_t group : GroupsOfPeer(socket)) {
    if (group == *group_) return true;
  }
  return false;
}

void Admission::ShutOut(wl_client* client) {
  const Clock::time_point now = Clock::now();
  std::erase_if(shut_out_, [now](const ShutOutProcess& process) { return process.until <= now; });
  pid_t pid = 0;
  wl_client_get_credentials(client, &pid, nullptr, nullptr);
  if (pid <= 0 || IsShutOut(pid)) return;  // 0: of another namespace, as others may be
  if (shut_out_.size() == kMostShutOut) shut_out_.erase(shut_out_.begin());
  shut_out_.push_back({pid, now + kShutOutTime});
  LogWarning("process %d floods; it may connect again in a second", pid);
}

bool Admission::IsShutOut(pid_t process) const {
  const Clock::time_point now = Clock::now();
  return std::any_of(shut_out_.begin(), shut_out_.end(), [&](const ShutOutProcess& one) {
    return one.pid == process && one.until > now;
  });
}

bool Admission::Admits(wl_client* client) const {
  pid_t pid = 0;
  uid_t uid = 0;
  gid_t gid = 0;
  wl_client_get_credentials(client, &pid, &uid, &gid);
  if (IsShutOut(pid)) return false;
  if (uid == ::geteuid() || uid == 0 || IsMember(wl_client_get_fd(client), gid)) return true;
  LogWarning("client refused: user %u, process %d; this user, root%s may connect", uid, pid,
             group_ ? " and the stated group" : "");
  return false;
}

// Whoever connects before this has taken effect is still asked for credentials.
void Admission::ProtectSocket(const std::string& path) const {
  if (group_ && ::lchown(path.c_str(), static_cast<uid_t>(-1), *group_) != 0) {
    LogError("%s cannot be given to group %u: %s", path.c_str(), *group_, std::strerror(errno));
  }
  if (::chmod(path.c_str(), group_ ? 0660 : 0600) != 0) {
    LogError("%s: the mode cannot be set: %s", path.c_str(), std::strerror(errno));
  }
}

}  // namespace kavrel_pepper
