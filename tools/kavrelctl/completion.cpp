#include "completion.h"

#include <algorithm>
#include <set>

namespace kavrelctl {
namespace {

// Each script walks the words before the cursor down the tree of commands and then offers what
// stands at that place. The walk needs the same two lists in all three shells.
struct Walk {
  std::string valued_options;  ///< options whose next word is their value: "--app-id|--timeout"
  std::vector<std::string> paths;
};

Walk WalkOf(const std::vector<const CommandNode*>& nodes) {
  Walk walk;
  std::set<std::string> valued;
  for (const CommandNode* node : nodes) {
    walk.paths.push_back(node->path);
    for (const CommandOption& option : node->options) {
      if (!option.value.empty()) valued.insert(option.name);
    }
  }
  for (const std::string& name : valued) {
    walk.valued_options += (walk.valued_options.empty() ? "" : "|") + name;
  }
  return walk;
}

std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + '\'';
}

// "'kavrelctl call'|'kavrelctl get'": every path but the program's own.
std::string PathPattern(const Walk& walk) {
  std::string pattern;
  for (std::size_t i = 1; i < walk.paths.size(); ++i) {
    pattern += (i > 1 ? "|" : "") + Quoted(walk.paths[i]);
  }
  return pattern;
}

std::string WordList(const CommandNode& node) {
  std::string words;
  for (const CommandNode& command : node.commands) words += command.name + ' ';
  for (const std::string& word : node.words) words += word + ' ';
  for (const CommandOption& option : node.options) words += option.name + ' ';
  return words;
}

// "'name:description' ..." for zsh, which takes a colon in the name apart.
std::string Described(const std::string& name, const std::string& description) {
  return Quoted(name + ':' + description) + ' ';
}

std::string ZshCandidates(const CommandNode& node) {
  std::string commands;
  for (const CommandNode& command : node.commands) {
    commands += Described(command.name, command.description);
  }
  for (const std::string& word : node.words) commands += Quoted(word) + ' ';
  std::string options;
  for (const CommandOption& option : node.options) {
    options += Described(option.name, option.description);
  }
  return "commands=(" + commands + ") options=(" + options + ")";
}

std::string FishLines(const CommandNode& node) {
  const std::string begin = "complete -c kavrelctl -n " + Quoted("__kavrelctl_at " + node.path);
  std::string lines;
  for (const CommandNode& command : node.commands) {
    lines += begin + " -a " + command.name + " -d " + Quoted(command.description) + '\n';
  }
  for (const std::string& word : node.words) lines += begin + " -a " + Quoted(word) + '\n';
  for (const CommandOption& option : node.options) {
    lines += begin + " -l " + option.name.substr(2) + (option.value.empty() ? "" : " -x") + " -d " +
             Quoted(option.description) + '\n';
  }
  return lines;
}

}  // namespace

std::string BashCompletion(const CommandNode& root) {
  const auto nodes = Flattened(root);
  const Walk walk = WalkOf(nodes);
  std::string script = R"(# bash completion for kavrelctl; made by "kavrelctl completion bash"
_kavrelctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} at=kavrelctl skip= i word words=
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if [ -n "$skip" ]; then skip=; continue; fi
    case $word in
      )" + walk.valued_options +
                       R"() skip=1; continue ;;
      -*) continue ;;
    esac
    case "$at $word" in
      )" + PathPattern(walk) +
                       R"() at="$at $word" ;;
    esac
  done
  [ -z "$skip" ] || return 0
  case $at in
)";
  for (const CommandNode* node : nodes) {
    script += "    " + Quoted(node->path) + ") words=" + Quoted(WordList(*node)) + " ;;\n";
  }
  return script + R"(  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}
complete -F _kavrelctl kavrelctl
)";
}

std::string ZshCompletion(const CommandNode& root) {
  const auto nodes = Flattened(root);
  const Walk walk = WalkOf(nodes);
  std::string script = R"(#compdef kavrelctl
# zsh completion for kavrelctl; made by "kavrelctl completion zsh"
_kavrelctl() {
  local at=kavrelctl skip= word
  local -a commands options
  for word in ${words[2,CURRENT-1]}; do
    if [[ -n $skip ]]; then skip=; continue; fi
    case $word in
      )" + walk.valued_options +
                       R"() skip=1; continue ;;
      -*) continue ;;
    esac
    case "$at $word" in
      )" + PathPattern(walk) +
                       R"() at="$at $word" ;;
    esac
  done
  [[ -z $skip ]] || return 0
  case $at in
)";
  for (const CommandNode* node : nodes) {
    script += "    " + Quoted(node->path) + ") " + ZshCandidates(*node) + " ;;\n";
  }
  return script + R"(  esac
  _describe -t commands command commands
  _describe -o -t options option options
}
_kavrelctl "$@"
)";
}

std::string FishCompletion(const CommandNode& root) {
  const auto nodes = Flattened(root);
  const Walk walk = WalkOf(nodes);
  std::string valued = walk.valued_options;
  std::replace(valued.begin(), valued.end(), '|', ' ');
  std::string script = R"(# fish completion for kavrelctl; made by "kavrelctl completion fish"
function __kavrelctl_at
    set -l at kavrelctl
    set -l skip ''
    for word in (commandline -opc)[2..-1]
        if test -n "$skip"
            set skip ''
            continue
        end
        if contains -- $word )" +
                       valued + R"(
            set skip 1
        else if not string match -q -- '-*' $word
            switch "$at $word"
                case )";
  for (std::size_t i = 1; i < walk.paths.size(); ++i) script += Quoted(walk.paths[i]) + ' ';
  script += R"(
                    set at "$at $word"
            end
        end
    end
    test "$at" = "$argv"
end
complete -c kavrelctl -f
)";
  for (const CommandNode* node : nodes) script += FishLines(*node);
  return script;
}

}  // namespace kavrelctl
