// The commands "keys", "plugins" and "screenshot".
#pragma once

#include "command_line.h"

namespace kavrelctl {

void AddKeysCommand(CommandLine& line);
void AddPluginsCommand(CommandLine& line);
void AddScreenshotCommand(CommandLine& line);

}  // namespace kavrelctl
