// Completion scripts, made from the command line itself.
#pragma once

#include <string>

#include "command_tree.h"

namespace kavrelctl {

std::string BashCompletion(const CommandNode& root);
std::string ZshCompletion(const CommandNode& root);
std::string FishCompletion(const CommandNode& root);

}  // namespace kavrelctl
