// Scenarios in files.
#pragma once

#include <string>
#include <variant>

#include "scenario.h"

namespace kavrelctl {

/// The scenario, or what is wrong for people: "tune.yaml:12: step 3: ...".
std::variant<Scenario, std::string> LoadScenario(const std::string& file);

}  // namespace kavrelctl
