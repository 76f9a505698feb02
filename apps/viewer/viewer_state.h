// The state in which plug-ins see the viewer.
#pragma once

#include "television.h"

namespace viewer {

/// "PAUSE"         nothing to be seen: loading, no signal, locked by rating
/// "BACKGROUND"    the window does not fill the screen: something else is at the front
/// "RESUME"        the picture runs, and somebody else has the direction keys: a pop-up, or the
///                 picture-in-picture window
/// "RESUME_FOCUS"  the picture runs and has the keys
const char* ViewerState(const Television& television);

}  // namespace viewer
