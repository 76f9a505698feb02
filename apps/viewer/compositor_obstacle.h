// Why plug-ins can have no windows.
#pragma once

#include <string>

namespace viewer {

/// What stands in the way of the compositor's socket and what to do about it, for people. For a
/// viewer whose compositor could not be made: it looks at the place of the socket, and at who has
/// it.
std::string CompositorObstacle();

}  // namespace viewer
