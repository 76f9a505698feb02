#include "command_line.h"

#include <app_id.h>
#include <ready_fd.h>

namespace kavrelctl {
namespace {

std::string PositionalSynopsis(const CLI::Option& option) {
  std::string name = option.get_name(true);
  if (option.get_required()) return name;
  return option.get_items_expected_max() > 1 ? '[' + name + "]..." : '[' + name + ']';
}

CommandOption Describe(const CLI::Option& option) {
  const auto& names = option.get_lnames();
  const bool is_flag = option.get_type_size_max() == 0;
  return {names.empty() ? '-' + option.get_snames().front() : "--" + names.front(),
          option.get_description(), is_flag ? "" : option.get_type_name()};
}

CommandNode NodeOf(const CLI::App& command, const CommandLine& line) {
  CommandNode node{
      PathOf(command), command.get_name(), command.get_description(), UsageOf(command), {}, {}, {}};
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional()) node.options.push_back(Describe(*option));
    const auto choices = line.choices.find(option);
    if (choices == line.choices.end()) continue;
    node.words.insert(node.words.end(), choices->second.begin(), choices->second.end());
  }
  for (const CLI::App* below : CommandsBelow(command)) {
    node.commands.push_back(NodeOf(*below, line));
  }
  return node;
}

}  // namespace

void AddConnectionOptions(CLI::App& command, Settings& settings) {
  command.add_option("--app-id", settings.app_id, "Application id of the viewer")
      ->type_name("ID")
      ->check(Check(&kavrel_programs::AppIdMistake))
      ->capture_default_str()
      ->group("Connection");
  AddTimeoutOption(command, settings);
}

void AddTimeoutOption(CLI::App& command, Settings& settings) {
  command
      .add_option("--timeout", settings.timeout_seconds,
                  "Limit of connecting, of sending and of the answer, in seconds; 0: none [10]")
      ->type_name("SECONDS")
      ->check(Check(&TimeoutMistake))
      ->group("Connection");
}

void AddOutputOptions(CLI::App& command, Settings& settings) {
  command.add_flag("--json", settings.json, "Print for programs: JSON, one line an answer")
      ->group("Output");
  command.add_flag("--verbose", settings.verbose, "Show log lines on standard error")
      ->group("Output");
}

void AddFollowOptions(CLI::App& command, const std::string& things, std::optional<unsigned>& count,
                      std::optional<int>& ready_fd) {
  command.add_option("--count", count, "End after so many " + things)
      ->type_name("N")
      ->check(CLI::PositiveNumber);
  command
      .add_option("--ready-fd", ready_fd,
                  "Write a newline to this descriptor and close it as soon as nothing is missed")
      ->type_name("FD")
      ->check(Check(&kavrel_programs::ReadyFdMistake));
}

std::string PathOf(const CLI::App& command) {
  const CLI::App* const parent = command.get_parent();
  return (parent != nullptr ? PathOf(*parent) + ' ' : "") + command.get_name();
}

std::string UsageOf(const CLI::App& command) {
  std::string usage = PathOf(command);
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional()) usage += ' ' + PositionalSynopsis(*option);
  }
  return CommandsBelow(command).empty() ? usage : usage + " COMMAND";
}

std::vector<const CLI::App*> CommandsBelow(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App* /*every*/) { return true; });
}

CommandNode TreeOf(const CommandLine& line) {
  return NodeOf(line.app, line);
}

}  // namespace kavrelctl
