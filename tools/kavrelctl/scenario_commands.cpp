#include "scenario_commands.h"

#include <memory>

#include "interrupt.h"
#include "output.h"
#include "player.h"
#include "record.h"
#include "scenario_file.h"

namespace kavrelctl {
namespace {

struct RunArguments {
  std::string file;
  bool each_step = false;
  bool keeps_going = false;
};

int RunScenario(const RunArguments& arguments, const Settings& settings) {
  const auto loaded = LoadScenario(arguments.file);
  if (const auto* failure = std::get_if<LoadFailure>(&loaded)) {
    PrintError(failure->message);
    if (settings.json) PrintJson({{"summary", true}, {"ok", false}, {"error", failure->message}});
    return failure->is_unreadable ? kFailed : kUsage;
  }
  const auto& scenario = std::get<Scenario>(loaded);
  SetInterruptText("before the first step of " + arguments.file);
  EndWhenInterrupted();
  PlayReport report({arguments.file, settings.json, arguments.each_step}, scenario);
  return Player(scenario, settings, report).Play(arguments.keeps_going);
}

std::string DurationMistake(const std::string& text) {
  if (TimeoutMistake(text).empty()) return {};
  return '"' + text + "\" is not a number of seconds from 0 to 86400";
}

}  // namespace

void AddRunCommand(CommandLine& line) {
  CLI::App* const command =
      line.app.add_subcommand("run", "Play a scenario and tell whether everything held");
  command->group("Scenarios")
      ->footer(
          R"(A scenario is a list of steps in YAML or JSON: call, set, key, wait, expect, screenshot. It is
checked whole before the first step. Ends with 0 when all held, 1 when a step failed or the viewer
was lost, 2 for a scenario that is none, 130 when interrupted. Example:
  kavrelctl run examples/scenarios/tune-and-check.yaml -v)");
  const auto arguments = std::make_shared<RunArguments>();
  command->add_option("SCENARIO", arguments->file, "The file with the steps")
      ->type_name("")
      ->required();
  command->add_flag("-v,--steps", arguments->each_step, "Print one line a step");
  command->add_flag("--keep-going", arguments->keeps_going, "Play on after a step that failed");
  AddConnectionOptions(*command, line.settings);
  AddOutputOptions(*command, line.settings);
  command->callback([&line, arguments] {
    line.action = [&line, arguments] { return RunScenario(*arguments, line.settings); };
  });
}

void AddRecordCommand(CommandLine& line) {
  CLI::App* const command =
      line.app.add_subcommand("record", "Record what happens to a viewer as a scenario");
  command->group("Scenarios")
      ->footer(
          R"(Calls, keys and settings become steps, what follows from them becomes waits; plug-ins and messages on
the bus become comments, as far as this user may watch the bus. Ends with Ctrl-C. The file is whole
after each step. Example:
  kavrelctl record session.yaml
  kavrelctl run session.yaml)");
  const auto arguments = std::make_shared<RecordArguments>();
  command->add_option("FILE", arguments->file, "Where to write, in the place of what is there")
      ->type_name("")
      ->required();
  command->add_option("--duration", arguments->duration_seconds, "End after so many seconds")
      ->type_name("SECONDS")
      ->check(Check(&DurationMistake));
  AddFollowOptions(*command, "steps", arguments->count, arguments->ready_fd);
  AddConnectionOptions(*command, line.settings);
  AddOutputOptions(*command, line.settings);
  command->callback([&line, arguments] {
    line.action = [&line, arguments] { return RunRecord(*arguments, line.settings); };
  });
}

}  // namespace kavrelctl
