#include "health_commands.h"

#include "doctor.h"
#include "status.h"

namespace kavrelctl {

void AddStatusCommand(CommandLine& line) {
  CLI::App* const command =
      line.app.add_subcommand("status", "Tell whether the viewer is there, and who it is");
  command->group("Health")->footer(
      R"(Ends with 0 when the viewer can be reached on both its ports, else with 1. Example:
  kavrelctl status --json)");
  AddConnectionOptions(*command, line.settings);
  AddOutputOptions(*command, line.settings);
  command->callback([&line] { line.action = [&line] { return RunStatus(line.settings); }; });
}

void AddDoctorCommand(CommandLine& line) {
  CLI::App* const command = line.app.add_subcommand(
      "doctor", "Look for what is in a viewer's way on this machine, and say what to do");
  command->group("Health")->footer(
      R"(Looks at directories, the state store, what killed processes have left, the bus and its policy, and
fonts. Changes nothing. Ends with 0 when there is no problem, else with 1. Example:
  kavrelctl doctor)");
  AddTimeoutOption(*command, line.settings);
  AddOutputOptions(*command, line.settings);
  command->callback([&line] { line.action = [&line] { return RunDoctor(line.settings); }; });
}

}  // namespace kavrelctl
