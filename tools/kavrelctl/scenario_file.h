// Scenarios in files.
#pragma once

#include <string>
#include <variant>

#include "scenario.h"

namespace kavrelctl {

struct LoadFailure {
  std::string message;         ///< "tune.yaml:12: step 3: ..."
  bool is_unreadable = false;  ///< the file, whatever is in it
};

std::variant<Scenario, LoadFailure> LoadScenario(const std::string& file);

}  // namespace kavrelctl
