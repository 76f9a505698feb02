// kavrelctl as a whole.
#pragma once

namespace kavrelctl {

/// Parses the arguments and carries out the command. Returns an exit code; mistakes and failures
/// are explained on standard error.
int Run(int argc, char** argv);

}  // namespace kavrelctl
