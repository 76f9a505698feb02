// A message bus of the test's own that stands in for the system bus.
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

/// A dbus-daemon with the limits of a system bus. While it exists DBUS_SYSTEM_BUS_ADDRESS of this
/// process, and of the programs it starts, names it. Belongs to the test's thread, dies with it,
/// and is made before anything else that uses the bus.
class PrivateBus {
 public:
  explicit PrivateBus(const BusOptions& options = {});
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  /// Waits until GIO has let go of this process's connection, so that the next test gets its own.
  ~PrivateBus();

  const std::string& address() const { return address_; }
  const std::string& directory() const { return directory_.path(); }
  /// The daemon's process.
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
  ScopedEnvironment system_bus_;
  std::unique_ptr<ChildProcess> daemon_;
};

}  // namespace kavrel_test
