// The commands "run" and "record".
#pragma once

#include "command_line.h"

namespace kavrelctl {

void AddRunCommand(CommandLine& line);
void AddRecordCommand(CommandLine& line);

}  // namespace kavrelctl
