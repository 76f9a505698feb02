// The man page, made from the command line itself and from the method and property tables.
#pragma once

#include <string>

#include "command_tree.h"

namespace kavrelctl {

/// kavrelctl(1) in roff with the man macros.
std::string ManPage(const CommandNode& root);

}  // namespace kavrelctl
