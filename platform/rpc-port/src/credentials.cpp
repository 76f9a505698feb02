#include "credentials.h"

#include <directories.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <string>

#include "log.h"

namespace kavrel_rpc {
namespace {

constexpr const char* kAllowVariable = "KAVREL_RPC_ALLOW_UIDS";
constexpr uid_t kNobodyAtAll = static_cast<uid_t>(-1);

std::optional<uid_t> ParseUid(std::string_view text) {
  uid_t uid = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), uid);
  if (error != std::errc() || end != text.data() + text.size() || uid == kNobodyAtAll) {
    return std::nullopt;
  }
  return uid;
}

}  // namespace

std::optional<Credentials> PeerCredentials(int socket) {
  struct ucred peer {};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  if (size != sizeof peer || peer.uid == kNobodyAtAll) return std::nullopt;
  return Credentials{peer.uid, peer.pid};
}

TrustedUsers::TrustedUsers(uid_t own, std::string_view allowed) : own_(own) {
  while (!allowed.empty()) {
    const auto comma = std::min(allowed.find(','), allowed.size());
    const auto entry = allowed.substr(0, comma);
    allowed.remove_prefix(std::min(comma + 1, allowed.size()));
    if (const auto uid = ParseUid(entry)) {
      allowed_.push_back(*uid);
    } else {
      RPC_LOG_ERROR("%s: \"%.*s\" is not a user id (decimal numbers with commas between)",
                    kAllowVariable, static_cast<int>(entry.size()), entry.data());
    }
  }
}

TrustedUsers TrustedUsers::FromEnvironment() {
  return {::geteuid(), kavrel_platform::Environment(kAllowVariable)};
}

bool TrustedUsers::Contains(uid_t uid) const {
  return uid == own_ || uid == 0 ||
         std::find(allowed_.begin(), allowed_.end(), uid) != allowed_.end();
}

}  // namespace kavrel_rpc
