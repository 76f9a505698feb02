// One call of a method, from texts to what is printed about the answer.
#pragma once

#include <string>
#include <vector>

#include "method_call.h"
#include "settings.h"

namespace kavrelctl {

/// Connects, calls, prints. `texts` are the arguments as typed, free of mistakes: one text each, a
/// list any number. Returns an exit code.
int RunCall(const CallableMethod& method, const std::vector<std::vector<std::string>>& texts,
            const Settings& settings);

}  // namespace kavrelctl
