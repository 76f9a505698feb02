// The commands "completion", "man" and "commands".
#pragma once

#include "command_line.h"

namespace kavrelctl {

void AddCompletionCommand(CommandLine& line);
void AddManCommand(CommandLine& line);
void AddCommandsCommand(CommandLine& line);

}  // namespace kavrelctl
