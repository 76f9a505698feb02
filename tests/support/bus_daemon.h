// A message bus of one's own: a dbus-daemon that may stand in for the system bus.
#pragma once

#include <csignal>
#include <memory>
#include <string>

#include "child_process.h"
#include "temporary_directory.h"

namespace kavrel_test {

struct BusOptions {
  /// Lines of the configuration, after those that let everybody of this user own and send all.
  std::string configuration = {};
  /// Closed: nothing is allowed but what `configuration` allows, and other users may log in.
  bool closed = false;
};

/// A dbus-daemon with the limits of a system bus, at an address of its own. Belongs to the thread
/// that made it and dies with it.
class BusDaemon {
 public:
  /// Throws std::runtime_error when there is no daemon, with its words.
  explicit BusDaemon(const BusOptions& options = {});
  BusDaemon(const BusDaemon&) = delete;
  BusDaemon& operator=(const BusDaemon&) = delete;
  ~BusDaemon() { Continue(); }

  const std::string& address() const { return address_; }
  const std::string& directory() const { return directory_.path(); }
  pid_t pid() const { return daemon_->pid(); }

  void Stop() const { daemon_->Signal(SIGSTOP); }
  void Continue() const { daemon_->Signal(SIGCONT); }
  void Kill() { daemon_->Kill(); }
  /// Starts it again, at the same address, after Kill().
  void Start();
  /// What the daemon complained about so far.
  const std::string& errors() const { return daemon_->errors(); }

 private:
  TemporaryDirectory directory_;
  std::string address_;
  std::unique_ptr<ChildProcess> daemon_;
};

}  // namespace kavrel_test
