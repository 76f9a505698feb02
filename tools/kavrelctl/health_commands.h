// The commands "status" and "doctor".
#pragma once

#include "command_line.h"

namespace kavrelctl {

void AddStatusCommand(CommandLine& line);
void AddDoctorCommand(CommandLine& line);

}  // namespace kavrelctl
