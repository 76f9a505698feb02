// Where the bundled platform services keep their files, as far as this program knows them.
#pragma once

#include <string>

namespace kavrelctl {

/// "bundled", or "system" when the services, and where their files are, are the system's.
const char* PlatformName();

struct Paths {
  std::string runtime;              ///< empty: the system's services know
  std::string state;                ///< empty: the system's services know
  std::string events;               ///< directory of event files
  std::string xdg_runtime;          ///< where plug-ins' windows meet the viewer; empty: not set
  std::string bus_address;          ///< of the system bus, as it is set, else the usual one
  bool has_bus_of_its_own = false;  ///< the address is set

  std::string Sockets() const { return runtime.empty() ? "" : runtime + "/rpc"; }
  std::string Socket(const std::string& app_id, const std::string& port) const;
};

Paths FindPaths();

}  // namespace kavrelctl
