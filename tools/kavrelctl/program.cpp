#include "program.h"

#include <kavrel/app_api.h>

#include <cstdio>
#include <span>
#include <sstream>

#include "bus_commands.h"
#include "command_line.h"
#include "control_commands.h"
#include "edit_distance.h"
#include "health_commands.h"
#include "log_tap.h"
#include "method_commands.h"
#include "output.h"
#include "property_commands.h"
#include "scenario_commands.h"
#include "text_commands.h"
#include "texts.h"

namespace kavrelctl {
namespace {

std::string Listed(const char* title, std::span<const Explained> entries) {
  std::vector<std::vector<std::string>> rows;
  for (const Explained& entry : entries) {
    rows.push_back({std::string("  ") + entry.what, entry.meaning});
  }
  return title + Table(rows);
}

void Build(CommandLine& line) {
  line.settings.app_id = KAVREL_VIEWER_APP_ID;
  line.app.name("kavrelctl");
  line.app.description(kPurpose);
  line.app.footer(Listed("Examples:\n", kExamples) + Listed("\nEnvironment:\n", kEnvironment) +
                  Listed("\nExit codes:\n", kExitCodes));
  line.app.require_subcommand(1);
  // Commands take these over.
  line.app.get_formatter()->column_width(40);
  line.app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  line.app.get_formatter()->label("Positionals", "Arguments");
  line.app.get_formatter()->label("REQUIRED", "");
  line.app.set_version_flag("--version", "kavrelctl " KAVREL_VERSION);
  AddConnectionOptions(line.app, line.settings);
  AddOutputOptions(line.app, line.settings);
  AddMethodsCommand(line);
  AddCallCommand(line);
  AddGetCommand(line);
  AddSetCommand(line);
  AddWatchCommand(line);
  AddKeysCommand(line);
  AddPluginsCommand(line);
  AddScreenshotCommand(line);
  AddBusCommand(line);
  AddRunCommand(line);
  AddRecordCommand(line);
  AddStatusCommand(line);
  AddDoctorCommand(line);
  AddCompletionCommand(line);
  AddManCommand(line);
  AddCommandsCommand(line);
}

// The command that a mistake belongs to: the first that was left with words it does not know, else
// the last that was given.
const CLI::App& MistakenCommand(const CLI::App& app) {
  const CLI::App* command = &app;
  while (command->remaining().empty() && !command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
  }
  return *command;
}

std::vector<std::string> NamesBelow(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* below : CommandsBelow(command)) names.push_back(below->get_name());
  return names;
}

std::string Mistake(const CLI::App& command, const CLI::ParseError& error) {
  const bool wants_command = !CommandsBelow(command).empty();
  const std::vector<std::string> unexpected = command.remaining();
  if (unexpected.empty()) return wants_command ? "a command is missing" : error.what();
  const std::string& first = unexpected.front();
  if (first.size() > 1 && first.front() == '-') {
    return '"' + first + "\" is no option of " + PathOf(command) +
           "; a value that begins with a dash goes behind \"--\"";
  }
  if (wants_command) {
    return '"' + first + "\" is no command of " + PathOf(command) +
           DidYouMean(first, NamesBelow(command));
  }
  return '"' + first + "\" is one argument too many";
}

int ExplainMistake(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = MistakenCommand(app);
  PrintError(Mistake(command, error));
  (void)std::fprintf(stderr, "Usage: %s\nTry:   %s --help\n", UsageOf(command).c_str(),
                     PathOf(command).c_str());
  return kUsage;
}

int ShowHelpOrVersion(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream text;
  app.exit(error, text, text);
  return Print(text.str()) ? kDone : kFailed;
}

}  // namespace

int Run(int argc, char** argv) {
  CommandLine line;
  Build(line);
  try {
    line.app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return error.get_exit_code() == 0 ? ShowHelpOrVersion(line.app, error)
                                      : ExplainMistake(line.app, error);
  }
  LogTap::Instance().SetVerbose(line.settings.verbose);
  ApplyTimeout(line.settings);
  return line.action();
}

}  // namespace kavrelctl
