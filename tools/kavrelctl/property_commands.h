// The commands "get", "set" and "watch".
#pragma once

#include "command_line.h"

namespace kavrelctl {

void AddGetCommand(CommandLine& line);
void AddSetCommand(CommandLine& line);
void AddWatchCommand(CommandLine& line);

}  // namespace kavrelctl
