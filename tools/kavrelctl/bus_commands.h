// The command "bus".
#pragma once

#include "command_line.h"

namespace kavrelctl {

void AddBusCommand(CommandLine& line);

}  // namespace kavrelctl
