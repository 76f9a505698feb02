#include "method_commands.h"

#include <string_view>

#include "arguments.h"
#include "call.h"
#include "method_list.h"
#include "method_names.h"
#include "output.h"

namespace kavrelctl {
namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::MethodInfo;

constexpr const char* kListOption = "--list";

std::string GroupOf(const MethodInfo& method) {
  const std::string_view name = method.name;
  if (method.HasReply()) return "Methods that answer";
  if (name.starts_with("Show") || name.ends_with("Banner")) return "Banners and pop-ups";
  if (name.find("Tune") != name.npos || name == "ChangeSource") return "Channels and sources";
  return "Keys, settings and commands";
}

const CLI::Option* AddArgument(CLI::App& command, std::string_view name, ItemType type) {
  // A callback that takes everything: the texts are read from the option itself.
  const auto accept = [](const CLI::results_t& /*texts*/) { return true; };
  if (type == ItemType::StringList) {
    return command.add_option(kListOption, accept, "One element of the list; repeat for more")
        ->type_name("TEXT")
        ->take_all()
        ->allow_extra_args(false);
  }
  const auto mistake = [type](const std::string& text) { return ValueMistake(type, text); };
  CLI::Option* const option =
      command.add_option(ArgumentLabel(name), accept, ArgumentMeaning(name))
          ->type_name(TypeLabel(type))
          ->required()
          ->allow_extra_args(false);
  if (type != ItemType::String) option->check(Check(mistake));
  return option;
}

std::string MethodFooter(const MethodInfo& method) {
  std::string footer = "Method " + std::to_string(method.id) + ' ' + method.name +
                       ", C function kavrel_api_" + method.c_name + "().\n";
  footer += method.HasReply() ? "Prints the viewer's answer: " + AnswerSynopsis(method) + ".\n"
                              : "The viewer does not answer: \"sent\" means handed over to it.\n";
  if (method.argument_count > 0) {
    footer += "A value that begins with a dash and is no number goes behind \"--\".\n";
  }
  return footer;
}

void AddMethod(CLI::App& call, const CallableMethod& method, CommandLine& line) {
  const MethodInfo& info = *method.info;
  CLI::App* const command = call.add_subcommand(KebabName(info.name), info.summary);
  command->group(GroupOf(info))->footer(MethodFooter(info));
  std::vector<const CLI::Option*> arguments;
  for (std::size_t i = 0; i < info.argument_count; ++i) {
    const CLI::Option* option = AddArgument(*command, info.argument_names[i], info.arguments[i]);
    if (info.arguments[i] == ItemType::Bool) line.choices[option] = {"on", "off"};
    arguments.push_back(option);
  }
  AddConnectionOptions(*command, line.settings);
  AddOutputOptions(*command, line.settings);
  command->callback([&line, &method, arguments] {
    std::vector<std::vector<std::string>> texts;
    texts.reserve(arguments.size());
    for (const CLI::Option* argument : arguments) texts.push_back(argument->results());
    line.action = [&line, &method, texts] { return RunCall(method, texts, line.settings); };
  });
}

}  // namespace

void AddMethodsCommand(CommandLine& line) {
  CLI::App* const command =
      line.app.add_subcommand("methods", "List what can be called, with arguments and answers");
  command->group("Commands");
  command->add_flag("--json", line.settings.json, "Print for programs: one JSON array")
      ->group("Output");
  command->callback([&line] {
    line.action = [&line] {
      const bool printed =
          line.settings.json ? PrintJson(MethodListJson()) : Print(MethodListText());
      return printed ? kDone : kFailed;
    };
  });
}

void AddCallCommand(CommandLine& line) {
  CLI::App* const call =
      line.app.add_subcommand("call", "Tell the viewer to do something, or ask it");
  call->group("Commands")->require_subcommand(1);
  call->footer(R"(Examples:
  kavrelctl call tune-channel 7 News DVB-T me
  kavrelctl call show-source-banner 1 HDMI Player 4K
  kavrelctl call get-window-size --json
  kavrelctl call send-mbr-key 1 2 0 KEY_PLAY --list fast --list quiet

kavrelctl call METHOD --help shows a method's arguments.)");
  AddConnectionOptions(*call, line.settings);
  AddOutputOptions(*call, line.settings);
  for (const CallableMethod& method : CallableMethods()) AddMethod(*call, method, line);
}

}  // namespace kavrelctl
