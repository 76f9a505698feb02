// Names, and where a service's socket lies: <runtime>/rpc/<app_id>:<port_name>, with a lock file of
// the same name and ".lock" that the listening process holds. The lock, not the socket, says
// whether somebody lives there: the kernel lets go of it when its holder dies.
#pragma once

#include <string>
#include <string_view>

#include "credentials.h"
#include "process.h"
#include "unique_fd.h"

namespace kavrel_rpc {

/// 1 to 64 letters, digits, '.', '_' and '-'.
bool IsName(std::string_view text);

/// KAVREL_APP_ID, else the program's base name with '-' for what a name cannot hold. Empty when the
/// variable's value is not a name (one error line).
std::string OwnApplicationId();

/// A listening socket and its address. Given up by the destructor; any thread, one at a time.
class ListeningSocket {
 public:
  ListeningSocket() = default;
  ListeningSocket(ListeningSocket&&) = default;
  /// What this one had goes with `other`.
  ListeningSocket& operator=(ListeningSocket&& other) noexcept;
  ~ListeningSocket();

  /// Takes the address and listens; 0 or a negative errno value after one error line.
  int Open(const std::string& app_id, const std::string& port_name, const TrustedUsers& users);

  int fd() const { return socket_.get(); }

 private:
  int OpenDirectory(const TrustedUsers& users);
  int Lock();
  int Bind(const TrustedUsers& users);

  std::string name_;
  kavrel_platform::UniqueFd directory_;
  OwnedFd lock_;
  OwnedFd socket_;
};

/// A service's socket in the file system, found and checked but not connected.
class ServiceAddress {
 public:
  /// 0; -EACCES when the directory or the socket belongs to somebody not trusted or is out of
  /// reach, -EIO when there is none.
  int Find(const std::string& app_id, const std::string& port_name, const TrustedUsers& users);

  /// connect(2) to what was found, whatever the path names now. 0 or a negative errno value.
  int Connect(int socket) const;

 private:
  kavrel_platform::UniqueFd node_;
};

}  // namespace kavrel_rpc
