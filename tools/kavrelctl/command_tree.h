// The commands as completion and man page see them.
#pragma once

#include <string>
#include <vector>

namespace kavrelctl {

struct CommandOption {
  std::string name;  ///< "--json"
  std::string description;
  std::string value;  ///< "SECONDS"; empty for a flag
};

struct CommandNode {
  std::string path;  ///< "kavrelctl call tune-channel"
  std::string name;
  std::string description;
  std::string usage;               ///< path and arguments
  std::vector<std::string> words;  ///< what an argument can be
  std::vector<CommandOption> options;
  std::vector<CommandNode> commands;
};

/// The node and all nodes below it, each before those below it.
std::vector<const CommandNode*> Flattened(const CommandNode& root);

}  // namespace kavrelctl
