#include "control_commands.h"

#include <printable.h>

#include <memory>

#include "control_connection.h"
#include "key_owners.h"
#include "output.h"
#include "screenshot_file.h"

namespace kavrelctl {
namespace {

using kavrel_programs::ControlCommand;
using kavrel_programs::ControlRequest;
using kavrel_programs::Printable;
using nlohmann::ordered_json;

int Fail(const Settings& settings, const std::string& message) {
  PrintError(message);
  if (settings.json) PrintJson({{"ok", false}, {"error", message}});
  return kFailed;
}

// Asks, and hands the answer to `use`, which returns an exit code and may throw what the JSON
// library throws for an answer that is not what it should be.
template <class Use>
int Ask(const ControlRequest& request, const Settings& settings, const Use& use) {
  const auto answer = AskViewer(request, settings);
  if (const auto* failure = std::get_if<ControlFailure>(&answer)) {
    return Fail(settings, failure->message);
  }
  try {
    return use(std::get<std::string>(answer));
  } catch (const ordered_json::exception&) {
    return Fail(settings, kNotUnderstood);
  }
}

ControlRequest RequestFor(ControlCommand command) {
  ControlRequest request;
  request.command = command;
  return request;
}

int Done(bool printed) {
  return printed ? kDone : kFailed;
}

// --- keys

std::string TakerText(const ordered_json& outcome) {
  const std::string by = outcome.at("taken_by");
  if (by == "viewer") return "taken by the viewer";
  if (by != "plugin") return "taken by nobody";
  return "taken by plug-in " + outcome.at("plugin").get<std::string>() +
         (outcome.at("exclusive").get<bool>() ? ", exclusively" : "");
}

int RunKeysSend(const ControlRequest& request, const Settings& settings) {
  return Ask(request, settings, [&](const std::string& answer) {
    const ordered_json outcome = ordered_json::parse(answer);
    const std::string text = TakerText(outcome);
    return Done(settings.json ? PrintJson(outcome) : Print(Printable(text) + '\n'));
  });
}

int RunKeysList(const Settings& settings) {
  return Ask(RequestFor(ControlCommand::kPlugins), settings, [&](const std::string& answer) {
    const ordered_json owners = KeyOwners(ordered_json::parse(answer));
    return Done(settings.json ? PrintJson(owners) : Print(KeyOwnersText(owners)));
  });
}

// --- plugins

std::string KeysText(const ordered_json& keys) {
  std::string text;
  for (const auto& key : keys) text += (text.empty() ? "" : " ") + key.get<std::string>();
  return text.empty() ? "-" : text;
}

// "(KEY)": another one has it for now.
std::string ExclusiveKeysText(const ordered_json& keys) {
  std::string text;
  for (const auto& claim : keys) {
    const std::string key = claim.at("key");
    text += (text.empty() ? "" : " ") + (claim.at("owner").get<bool>() ? key : '(' + key + ')');
  }
  return text.empty() ? "-" : text;
}

std::string LayerText(const ordered_json& plugin) {
  if (plugin.at("layer").is_null()) return "-";
  const std::string layer = plugin.at("layer").dump();
  return plugin.at("visible").get<bool>() ? layer : '(' + layer + ')';
}

std::string PluginTable(const ordered_json& plugins) {
  std::vector<std::vector<std::string>> rows = {
      {"NAME", "TYPE", "LAYER", "CONNECTED", "KEYS", "EXCLUSIVE"}};
  for (const auto& plugin : plugins) {
    rows.push_back({Printable(plugin.at("name").get<std::string>()), plugin.at("type").dump(),
                    LayerText(plugin), plugin.at("connected").get<bool>() ? "yes" : "no",
                    Printable(KeysText(plugin.at("keys"))),
                    Printable(ExclusiveKeysText(plugin.at("exclusive_keys")))});
  }
  return Table(rows);
}

int RunPlugins(const Settings& settings) {
  const ControlRequest request = RequestFor(ControlCommand::kPlugins);
  return Ask(request, settings, [&](const std::string& answer) {
    const ordered_json plugins = ordered_json::parse(answer);
    const std::string table = PluginTable(plugins);
    return Done(settings.json ? PrintJson(plugins) : Print(table));
  });
}

// --- screenshot

int RunScreenshot(const std::string& file, const Settings& settings) {
  const auto answer = AskViewer(RequestFor(ControlCommand::kScreenshot), settings);
  const SavedScreenshot saved = SaveScreenshot(answer, file);
  if (!saved.failure.empty()) return Fail(settings, saved.failure);
  const ordered_json outcome = {{"ok", true}, {"file", file}, {"bytes", saved.bytes}};
  return Done(!settings.json || PrintJson(outcome));
}

void AddKeysListCommand(CLI::App& keys, CommandLine& line) {
  CLI::App* const command = keys.add_subcommand("list", "List who owns which key");
  command->footer(
      R"(OWNER has the key for itself alone; others are offered it by type and place. The viewer gets what
nobody takes. Example:
  kavrelctl keys list)");
  AddConnectionOptions(*command, line.settings);
  AddOutputOptions(*command, line.settings);
  command->callback([&line] { line.action = [&line] { return RunKeysList(line.settings); }; });
}

void AddKeysSendCommand(CLI::App& keys, CommandLine& line) {
  CLI::App* const command = keys.add_subcommand("send", "Send a key, and print who took it");
  command->footer(R"(Plug-ins come first, then the viewer. Examples:
  kavrelctl keys send XF86Red
  kavrelctl keys send XF86Red --release
  kavrelctl keys send Return --device panel)");
  const auto request = std::make_shared<ControlRequest>();
  request->command = ControlCommand::kKey;
  const auto device = std::make_shared<std::string>(kavrel_programs::kKeyDevices[0]);
  command->add_option("KEY", request->key, "The key's name, as EFL names it")
      ->type_name("")
      ->required()
      ->check(Check(&kavrel_programs::KeyMistake));
  command->add_flag("--release", request->released, "The key is released, not pressed");
  const std::vector<std::string> devices(kavrel_programs::kKeyDevices.begin(),
                                         kavrel_programs::kKeyDevices.end());
  command
      ->add_option("--device", *device,
                   "What it comes from: " + kavrel_programs::KeyDeviceList() + " [" + *device + ']')
      ->type_name("DEVICE")
      ->check(CLI::IsMember(devices));
  AddConnectionOptions(*command, line.settings);
  AddOutputOptions(*command, line.settings);
  command->callback([&line, request, device] {
    request->device = kavrel_programs::FindKeyDevice(*device).value();
    line.action = [&line, request] { return RunKeysSend(*request, line.settings); };
  });
}

}  // namespace

void AddKeysCommand(CommandLine& line) {
  CLI::App* const keys = line.app.add_subcommand(
      "keys", "Press keys of the viewer's remote control, and list who owns them");
  keys->group("Commands")->require_subcommand(1);
  AddKeysSendCommand(*keys, line);
  AddKeysListCommand(*keys, line);
}

void AddPluginsCommand(CommandLine& line) {
  CLI::App* const command = line.app.add_subcommand("plugins", "List the viewer's plug-ins");
  command->group("Commands")
      ->footer(
          R"(LAYER is that of the window, in brackets while it is hidden. An exclusive key in brackets
has gone to a later requester. Example:
  kavrelctl plugins --json)");
  AddConnectionOptions(*command, line.settings);
  AddOutputOptions(*command, line.settings);
  command->callback([&line] { line.action = [&line] { return RunPlugins(line.settings); }; });
}

void AddScreenshotCommand(CommandLine& line) {
  CLI::App* const command =
      line.app.add_subcommand("screenshot", "Take a picture of what the viewer shows");
  command->group("Commands")->footer(R"(Prints nothing when done. Example:
  kavrelctl screenshot picture.png)");
  const auto file = std::make_shared<std::string>();
  command->add_option("FILE", *file, "Where to write the PNG, in the place of what is there")
      ->type_name("")
      ->required();
  AddConnectionOptions(*command, line.settings);
  AddOutputOptions(*command, line.settings);
  command->callback([&line, file] {
    line.action = [&line, file] { return RunScreenshot(*file, line.settings); };
  });
}

}  // namespace kavrelctl
