// Changes of the viewer's state as they happen.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kavrelctl {

struct WatchArguments {
  std::vector<std::string> names;  ///< of watchable properties; none: all
  std::optional<unsigned> count;   ///< ends after so many changes
  std::optional<int> ready_fd;     ///< told when no change is missed any more
};

/// Prints changes until a signal comes, enough were printed or nobody reads them. Returns an exit
/// code. Main thread.
int RunWatch(const WatchArguments& arguments, bool json);

}  // namespace kavrelctl
