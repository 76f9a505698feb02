// Who may connect.
#pragma once

#include <optional>
#include <string>
#include <wayland-server.h>

namespace kavrel_pepper {

/// The same user, root, and members of the group that KAVREL_COMPOSITOR_GROUP names (a name or a
/// number). Main thread.
class Admission {
 public:
  Admission();

  /// Checks the kernel's word on who is at the other end of the client's socket; logs a refusal.
  bool Admits(wl_client* client) const;

  /// Opens the socket file to the group, or to nobody but this user.
  void ProtectSocket(const std::string& path) const;

 private:
  bool IsMember(int socket, gid_t primary) const;

  std::optional<gid_t> group_;
};

}  // namespace kavrel_pepper
