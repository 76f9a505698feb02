#include "bus_commands.h"

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
  AddFollowOptions(*command, "lines", arguments->count, arguments->ready_fd);
  AddOutputOptions(*command, line.settings);
  command->callback([&line, arguments] {
    line.action = [&line, arguments] {
      return RunBusMonitor(*arguments, EffectiveTimeoutSeconds(line.settings), line.settings.json);
    };
  });
}

}  // namespace kavrelctl
