// The commands "completion" and "man".
#pragma once

#include "command_line.h"

namespace kavrelctl {

void AddCompletionCommand(CommandLine& line);
void AddManCommand(CommandLine& line);

}  // namespace kavrelctl
