// A message bus of the test's own that stands in for the system bus.
#pragma once

#include <string>

#include "bus_daemon.h"
#include "shared_connection.h"
#include "temporary_directory.h"

namespace kavrel_test {

/// While it exists DBUS_SYSTEM_BUS_ADDRESS of this process, and of the programs it starts, names
/// it. Belongs to the test's thread, dies with it, and is made before anything else that uses the
/// bus.
class PrivateBus {
 public:
  explicit PrivateBus(const BusOptions& options = {}) : daemon_(options) {}
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  /// Waits until GIO has let go of this process's connection, so that the next test gets its own.
  ~PrivateBus() {
    Continue();
    ForgetSystemBus();
  }

  const std::string& address() const { return daemon_.address(); }
  const std::string& directory() const { return daemon_.directory(); }
  /// The daemon's process.
  pid_t pid() const { return daemon_.pid(); }

  void Stop() const { daemon_.Stop(); }
  void Continue() const { daemon_.Continue(); }
  void Kill() { daemon_.Kill(); }
  void Start() { daemon_.Start(); }
  const std::string& errors() const { return daemon_.errors(); }

 private:
  BusDaemon daemon_;
  ScopedEnvironment system_bus_{"DBUS_SYSTEM_BUS_ADDRESS", daemon_.address()};
};

}  // namespace kavrel_test
