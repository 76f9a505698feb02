// The command line: the parser with all commands, and what they fill in.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "command_tree.h"
#include "settings.h"

namespace kavrelctl {

struct CommandLine {
  CLI::App app;
  Settings settings;
  /// What the command that was given does; returns an exit code.
  std::function<int()> action;
  /// The words that a positional argument can be, where they are known.
  std::map<const CLI::Option*, std::vector<std::string>> choices;
};

/// Options of commands that talk to a viewer: --app-id, --timeout.
void AddConnectionOptions(CLI::App& command, Settings& settings);
/// Of those that wait for somebody else: --timeout.
void AddTimeoutOption(CLI::App& command, Settings& settings);
/// Options of commands that print answers: --json, --verbose.
void AddOutputOptions(CLI::App& command, Settings& settings);

/// Options of commands that follow something: --count (of `things`), --ready-fd.
void AddFollowOptions(CLI::App& command, const std::string& things, std::optional<unsigned>& count,
                      std::optional<int>& ready_fd);

/// A CLI11 check from a function that tells what is wrong with a text.
template <class MistakeOf>
CLI::Validator Check(const MistakeOf& mistake_of) {
  return CLI::Validator([mistake_of](const std::string& text) { return mistake_of(text); }, "");
}

/// "kavrelctl call tune-channel"
std::string PathOf(const CLI::App& command);
/// The path with arguments: "kavrelctl call tune-channel NUMBER NAME SOURCE CALLER"
std::string UsageOf(const CLI::App& command);
/// All commands below `command`.
std::vector<const CLI::App*> CommandsBelow(const CLI::App& command);

/// The whole command line as data.
CommandNode TreeOf(const CommandLine& line);

}  // namespace kavrelctl
