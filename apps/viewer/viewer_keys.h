// What the television itself does with keys that no plug-in wants.
#pragma once

#include <string>

#include "television.h"

namespace viewer {

/// Acts on a key that was pressed. False: it means nothing to the television.
bool UseKey(Television& television, const std::string& key);

}  // namespace viewer
