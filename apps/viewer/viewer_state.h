// The state in which plug-ins see the viewer.
#pragma once

#include "television.h"

namespace viewer {

/// "PAUSE"         nothing moves: loading, no signal, locked by rating, paused
/// "BACKGROUND"    something else is at the front: the picture does not fill the screen, or cannot
///                 be seen at all
/// "RESUME"        the picture runs, and somebody else has the direction keys: another window, a
///                 pop-up, or picture-in-picture
/// "RESUME_FOCUS"  the picture runs and has the keys
const char* ViewerState(const Television& television);

}  // namespace viewer
