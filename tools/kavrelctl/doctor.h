// What is in a viewer's and its clients' way on this machine, and what to do about it.
#pragma once

#include <string>
#include <vector>

#include "paths.h"
#include "settings.h"

namespace kavrelctl {

enum class Health { kOk, kWarning, kProblem };

struct Finding {
  std::string about;  ///< "runtime directory"
  Health health = Health::kOk;
  std::string what;    ///< what was found
  std::string advice;  ///< what to do; empty: nothing
};

// Each looks at one thing. Nothing is changed, but for a bus name that is owned for a moment.
std::vector<Finding> CheckDirectories(const Paths& paths);
std::vector<Finding> CheckBus(const Paths& paths, double limit_seconds);
std::vector<Finding> CheckStore(const Paths& paths);
std::vector<Finding> CheckLeftovers(const Paths& paths);
std::vector<Finding> CheckFonts();

/// Looks at everything and prints. Returns kDone when there is no problem, else kFailed.
int RunDoctor(const Settings& settings);

}  // namespace kavrelctl
