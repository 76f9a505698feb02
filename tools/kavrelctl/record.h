// Records what happens to a viewer as a scenario.
#pragma once

#include <optional>
#include <string>

#include "settings.h"

namespace kavrelctl {

struct RecordArguments {
  std::string file;
  std::optional<double> duration_seconds;
  std::optional<unsigned> count;  ///< ends after so many steps
  std::optional<int> ready_fd;    ///< told when nothing is missed any more
};

/// Records until a signal comes, the time or number is reached, or the viewer is lost. Returns an
/// exit code. Main thread.
int RunRecord(const RecordArguments& arguments, const Settings& settings);

}  // namespace kavrelctl
