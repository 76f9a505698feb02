// Whether a viewer is there, and who it is.
#pragma once

#include "settings.h"

namespace kavrelctl {

/// Prints. Returns kDone when the viewer can be reached on both its ports, else kFailed.
int RunStatus(const Settings& settings);

}  // namespace kavrelctl
