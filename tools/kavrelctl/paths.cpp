#include "paths.h"

#include <cstdlib>
#include <string_view>

#ifdef KAVREL_PLATFORM_IS_BUNDLED
#include <directories.h>
#endif

namespace kavrelctl {
namespace {

std::string Environment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string FirstSet(const std::string& one, const std::string& other) {
  return one.empty() ? other : one;
}

}  // namespace

const char* PlatformName() {
  return KAVREL_PLATFORM;
}

std::string Paths::Socket(const std::string& app_id, const std::string& port) const {
  return runtime.empty() ? "" : Sockets() + '/' + app_id + ':' + port;
}

Paths FindPaths() {
  Paths paths;
#ifdef KAVREL_PLATFORM_IS_BUNDLED
  paths.runtime = kavrel_platform::RuntimeDirectory();
  paths.state = kavrel_platform::StateDirectory();
#endif
  paths.events = FirstSet(Environment("KAVREL_EVENT_DIR"),
                          FirstSet(Environment("KAVREL_RUNTIME_DIR"), "/tmp"));
  paths.xdg_runtime = Environment("XDG_RUNTIME_DIR");
  const std::string bus = Environment("DBUS_SYSTEM_BUS_ADDRESS");
  paths.has_bus_of_its_own = !bus.empty();
  paths.bus_address = FirstSet(bus, "unix:path=/run/dbus/system_bus_socket");
  return paths;
}

}  // namespace kavrelctl
