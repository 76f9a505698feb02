#include "bus_commands.h"

#include <ready_fd.h>

#include <memory>

#include "bus_monitor.h"

namespace kavrelctl {

void AddBusCommand(CommandLine& line) {
  CLI::App* const command =
      line.app.add_subcommand("bus", "Print what hosts and plug-ins say to each other on the bus");
  command->group("Commands")
      ->footer(R"(One line for each handshake step, message, notification and auxiliary event: time,
host/plug-in, who, what. A bus lets only root and its own user watch. Examples:
  kavrelctl bus
  kavrelctl bus --json
  DBUS_SYSTEM_BUS_ADDRESS=unix:path=/run/my-bus kavrelctl bus)");
  const auto arguments = std::make_shared<BusArguments>();
  command->add_option("--count", arguments->count, "End after so many lines")
      ->type_name("N")
      ->check(CLI::PositiveNumber);
  command
      ->add_option("--ready-fd", arguments->ready_fd,
                   "Write a newline to this descriptor and close it as soon as nothing is missed")
      ->type_name("FD")
      ->check(Check(&kavrel_programs::ReadyFdMistake));
  AddOutputOptions(*command, line.settings);
  command->callback([&line, arguments] {
    line.action = [&line, arguments] {
      return RunBusMonitor(*arguments, EffectiveTimeoutSeconds(line.settings), line.settings.json);
    };
  });
}

}  // namespace kavrelctl
