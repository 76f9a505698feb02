// From the text of a scenario to its steps, checked whole.
#pragma once

#include <string>

#include "scenario.h"
#include "yaml_tree.h"

namespace kavrelctl {

inline constexpr std::size_t kLargestScenario = std::size_t{1024} * 1024;
inline constexpr std::size_t kMostSteps = 10'000;

/// Throws TextMistake for the first mistake: the step, the value and what is allowed.
Scenario ReadScenario(const std::string& text);

}  // namespace kavrelctl
