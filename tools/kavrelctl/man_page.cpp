#include "man_page.h"

#include <kavrel/state_properties.h>

#include <algorithm>

#include "method_names.h"
#include "texts.h"

namespace kavrelctl {
namespace {

// Text for roff: nothing in it is a request or an escape, and dashes stay what was typed.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else {
      escaped += c;
    }
  }
  const bool looks_like_request = !text.empty() && (text[0] == '.' || text[0] == '\'');
  return looks_like_request ? "\\&" + escaped : escaped;
}

std::string Section(const std::string& title) {
  return ".SH " + title + '\n';
}

std::string Bold(const std::string& text) {
  return "\\fB" + Escaped(text) + "\\fR";
}

// A term with what it means below it.
std::string Item(const std::string& term, const std::string& meaning) {
  return ".TP\n" + term + '\n' + Escaped(meaning) + '\n';
}

template <class Entries>
std::string Items(const Entries& entries) {
  std::string text;
  for (const Explained& entry : entries) text += Item(Bold(entry.what), entry.meaning);
  return text;
}

std::string Options(const CommandNode& node) {
  std::string text;
  for (const CommandOption& option : node.options) {
    const std::string value = option.value.empty() ? "" : " \\fI" + Escaped(option.value) + "\\fR";
    text += Item(Bold(option.name) + value, option.description);
  }
  return text;
}

// Options that are a command's own: "Options: --count N (end after so many lines)."
std::string OwnOptions(const CommandNode& command, const CommandNode& root) {
  std::string text;
  for (const CommandOption& option : command.options) {
    const auto is_it = [&](const CommandOption& other) { return other.name == option.name; };
    if (std::any_of(root.options.begin(), root.options.end(), is_it)) continue;
    const std::string value = option.value.empty() ? "" : ' ' + option.value;
    text += (text.empty() ? " Options: " : "; ") + option.name + value + ": " + option.description;
  }
  return text.empty() ? "" : text + '.';
}

std::string Commands(const CommandNode& commands, const CommandNode& root) {
  std::string text;
  for (const CommandNode& command : commands.commands) {
    text += Item(Bold(command.usage), command.description + '.' + OwnOptions(command, root));
    // The methods have a section of their own.
    if (command.name != "call") text += Commands(command, root);
  }
  return text;
}

std::string Methods() {
  std::string text;
  for (const auto& method : kavrel::app_api::kMethods) {
    std::string term = Bold(KebabName(method.name));
    if (method.argument_count > 0) term += ' ' + Escaped(ArgumentSynopsis(method));
    std::string meaning = method.summary;
    if (method.HasReply()) meaning += "; answers " + AnswerSynopsis(method);
    text += Item(term, meaning + " (method " + std::to_string(method.id) + ", kavrel_api_" +
                           method.c_name + ')');
  }
  return text;
}

std::string Properties() {
  std::string text;
  for (const auto& property : kavrel::state::kProperties) {
    std::string meaning = property.meaning;
    meaning += std::string(" (") + property.key;
    if (property.IsWritable()) meaning += ", can be set";
    if (property.IsWatchable()) meaning += ", can be watched";
    text += Item(Bold(property.name) + " (" + PropertyTypeName(property.type) + ')', meaning + ')');
  }
  return text;
}

std::string Examples() {
  std::string text = ".nf\n";
  for (const Explained& example : kExamples) {
    text += Bold(example.what) + "\n    " + Escaped(example.meaning) + '\n';
  }
  return text + ".fi\n";
}

}  // namespace

std::string ManPage(const CommandNode& root) {
  return ".\\\" Made by \"kavrelctl man\".\n"
         ".TH KAVRELCTL 1 \"\" \"kavrel " KAVREL_VERSION
         "\"\n"
         ".nh\n"  // a name with a hyphen put into it is another name
         ".ad l\n" +
         Section("NAME") + "kavrelctl \\- command a television's viewer and watch its state\n" +
         Section("SYNOPSIS") + Bold("kavrelctl") +
         " [\\fIoption\\fR]... \\fIcommand\\fR [\\fIargument\\fR]...\n" +  //
         Section("DESCRIPTION") + Escaped(kPurpose) +
         "\nOptions may stand before and after a command that takes them.\n"
         "A value that begins with a dash and is no number goes behind a " +
         Bold("--") + ".\n" +  //
         Section("COMMANDS") + Commands(root, root) + Section("OPTIONS") + Options(root) +
         Section("METHODS") + "What " + Bold("kavrelctl call") + " takes:\n" + Methods() +
         Section("PROPERTIES") + "What " + Bold("kavrelctl get") + ", " + Bold("set") + " and " +
         Bold("watch") + " take:\n" + Properties() +  //
         Section("ENVIRONMENT") + Items(kEnvironment) + Section("EXIT STATUS") + Items(kExitCodes) +
         Section("EXAMPLES") + Examples() + Section("SEE ALSO") + ".BR kavrel\\-viewer (1)\n";
}

}  // namespace kavrelctl
