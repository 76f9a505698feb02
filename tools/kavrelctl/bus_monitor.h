// The traffic between hosts and plug-ins, live.
#pragma once

#include <optional>

namespace kavrelctl {

struct BusArguments {
  std::optional<unsigned> count;  ///< ends after so many lines
  std::optional<int> ready_fd;    ///< told when nothing is missed any more
};

/// Becomes a monitor of the system bus and prints one line an event until a signal comes, enough
/// were printed, nobody reads them or the bus is lost. `limit_seconds` is how long the bus may take
/// to let it in; 0: no limit. Returns an exit code. Main thread.
int RunBusMonitor(const BusArguments& arguments, double limit_seconds, bool json);

}  // namespace kavrelctl
