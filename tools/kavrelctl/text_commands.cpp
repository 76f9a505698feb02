#include "text_commands.h"

#include <memory>

#include "completion.h"
#include "man_page.h"
#include "output.h"

namespace kavrelctl {
namespace {

struct Shell {
  const char* name;
  std::string (*script)(const CommandNode& root);
};

constexpr Shell kShells[] = {
    {"bash", &BashCompletion}, {"zsh", &ZshCompletion}, {"fish", &FishCompletion}};

int PrintCompletion(const std::string& name, const CommandNode& root) {
  for (const Shell& shell : kShells) {
    if (name == shell.name) return Print(shell.script(root)) ? kDone : kFailed;
  }
  return kUsage;
}

nlohmann::ordered_json CommandsJson(const CommandNode& root) {
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const CommandNode* node : Flattened(root)) {
    nlohmann::ordered_json options = nlohmann::ordered_json::array();
    for (const CommandOption& option : node->options) {
      options.push_back({{"name", option.name}, {"value", option.value}});
    }
    all.push_back({{"command", node->path},
                   {"usage", node->usage},
                   {"summary", node->description},
                   {"is_group", !node->commands.empty()},
                   {"options", options}});
  }
  return all;
}

std::string CommandsText(const CommandNode& root) {
  std::string text;
  for (const CommandNode* node : Flattened(root)) {
    if (node->commands.empty()) text += node->usage + '\n';
  }
  return text;
}

}  // namespace

void AddCompletionCommand(CommandLine& line) {
  CLI::App* const command =
      line.app.add_subcommand("completion", "Print a completion script for a shell");
  command->group("Texts")->footer(R"(Example, for the shell at hand:
  source <(kavrelctl completion bash))");
  const auto name = std::make_shared<std::string>();
  std::vector<std::string> names;
  for (const Shell& shell : kShells) names.emplace_back(shell.name);
  CLI::Option* const option = command->add_option("SHELL", *name, "bash, zsh or fish")
                                  ->type_name("")
                                  ->required()
                                  ->check(CLI::IsMember(names));
  line.choices[option] = names;
  command->callback([&line, name] {
    line.action = [&line, name] { return PrintCompletion(*name, TreeOf(line)); };
  });
}

void AddCommandsCommand(CommandLine& line) {
  CLI::App* const command =
      line.app.add_subcommand("commands", "List every command with what it takes");
  command->group("Texts")->footer("Example:\n  kavrelctl commands --json");
  command->add_flag("--json", line.settings.json, "Print for programs: one JSON array")
      ->group("Output");
  command->callback([&line] {
    line.action = [&line] {
      const CommandNode root = TreeOf(line);
      const bool printed =
          line.settings.json ? PrintJson(CommandsJson(root)) : Print(CommandsText(root));
      return printed ? kDone : kFailed;
    };
  });
}

void AddManCommand(CommandLine& line) {
  CLI::App* const command = line.app.add_subcommand("man", "Print the man page, in roff");
  command->group("Texts")->footer("Example:\n  kavrelctl man | man -l -");
  command->callback([&line] {
    line.action = [&line] { return Print(ManPage(TreeOf(line))) ? kDone : kFailed; };
  });
}

}  // namespace kavrelctl
