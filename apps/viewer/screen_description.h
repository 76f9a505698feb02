// What is on the screen, for programs that cannot look at it.
#pragma once

#include <nlohmann/json.hpp>

#include "television.h"

namespace viewer {

/// The answer of the control port to "screen"; its members stand in control_protocol.h.
nlohmann::ordered_json DescribeScreen(const Television& television);

}  // namespace viewer
