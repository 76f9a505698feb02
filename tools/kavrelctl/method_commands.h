// The commands "methods" and "call".
#pragma once

#include "command_line.h"

namespace kavrelctl {

/// Lists the methods of the remote interface.
void AddMethodsCommand(CommandLine& line);

/// One subcommand a method, from the method table.
void AddCallCommand(CommandLine& line);

}  // namespace kavrelctl
