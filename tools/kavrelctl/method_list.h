// The list of methods that "kavrelctl methods" prints.
#pragma once

#include <string>

#include "output.h"

namespace kavrelctl {

/// Two lines a method: how to call it, and what it is for.
std::string MethodListText();

nlohmann::ordered_json MethodListJson();

}  // namespace kavrelctl
