// Whether plug-ins can find this viewer on the system bus.
#pragma once

#include <string>

namespace viewer {

/// Why plug-ins cannot be had, for people; empty when they can: there is a bus, it answers, and no
/// other viewer is their host. Serves this thread's main context meanwhile, for two seconds at
/// most. Main thread.
std::string PluginObstacle();

}  // namespace viewer
