// Who is at the other end, and whom this process deals with.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string_view>
#include <vector>

namespace kavrel_rpc {

struct Credentials {
  uid_t uid;
  pid_t pid;
  bool operator==(const Credentials&) const = default;
};

/// The kernel's account of the process that connected (seen from a service) or that listens (seen
/// from a client); nothing when there is none, which counts as a stranger.
std::optional<Credentials> PeerCredentials(int socket);

/// The users that a process deals with: its own, root, and those of KAVREL_RPC_ALLOW_UIDS (decimal
/// numbers with commas between). Immutable.
class TrustedUsers {
 public:
  TrustedUsers(uid_t own, std::string_view allowed);
  static TrustedUsers FromEnvironment();

  bool Contains(uid_t uid) const;
  /// Whether others than this user and root are meant to come.
  bool AreMany() const { return !allowed_.empty(); }

 private:
  uid_t own_;
  std::vector<uid_t> allowed_;
};

}  // namespace kavrel_rpc
