#include "command_tree.h"

namespace kavrelctl {

std::vector<const CommandNode*> Flattened(const CommandNode& root) {
  std::vector<const CommandNode*> nodes = {&root};
  for (const CommandNode& below : root.commands) {
    const auto nodes_below = Flattened(below);
    nodes.insert(nodes.end(), nodes_below.begin(), nodes_below.end());
  }
  return nodes;
}

}  // namespace kavrelctl
