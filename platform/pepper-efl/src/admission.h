// Who may connect.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>
#include <wayland-server.h>

namespace kavrel_pepper {

/// The same user, root, and members of the group that KAVREL_COMPOSITOR_GROUP names (a name or a
/// number). Main thread.
class Admission {
 public:
  Admission();

  /// Checks the kernel's word on who is at the other end of the client's socket; logs a refusal.
  bool Admits(wl_client* client) const;

  /// Refuses the client's process for a second. For one that floods: cut off, it would come back at
  /// once and begin anew.
  void ShutOut(wl_client* client);

  /// Opens the socket file to the group, or to nobody but this user.
  void ProtectSocket(const std::string& path) const;

 private:
  using Clock = std::chrono::steady_clock;
  struct ShutOutProcess {
    pid_t pid;
    Clock::time_point until;
  };

  bool IsShutOut(pid_t process) const;
  bool IsMember(int socket, gid_t primary) const;

  std::optional<gid_t> group_;
  std::vector<ShutOutProcess> shut_out_;  // in order of time
};

}  // namespace kavrel_pepper
