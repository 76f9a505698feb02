#include "property_commands.h"

#include <memory>

#include "output.h"
#include "properties.h"
#include "watch.h"

namespace kavrelctl {
namespace {

using kavrel::state::kProperties;
using kavrel::state::PropertyInfo;
using kavrel::state::PropertyTypeName;
using nlohmann::ordered_json;

ordered_json PropertyJson(const PropertyInfo& property, const ordered_json& value) {
  return {{"name", property.name},
          {"key", property.key},
          {"type", PropertyTypeName(property.type)},
          {"value", value},
          {"settable", property.IsWritable()},
          {"watchable", property.IsWatchable()},
          {"meaning", property.meaning}};
}

std::string Abilities(const PropertyInfo& property) {
  std::string abilities = "get";
  if (property.IsWritable()) abilities += " set";
  if (property.IsWatchable()) abilities += " watch";
  return abilities;
}

int Fail(const std::string& message) {
  PrintError(message);
  return kFailed;
}

// --- get

int GetAll(bool json) {
  ordered_json all = ordered_json::array();
  std::vector<std::vector<std::string>> rows = {{"PROPERTY", "TYPE", "VALUE", "CAN", "KEY"}};
  for (const PropertyInfo& property : kProperties) {
    std::string failure;
    const auto value = ReadProperty(property, failure);
    if (!value) return Fail("cannot read " + std::string(property.name) + ": " + failure);
    all.push_back(PropertyJson(property, *value));
    rows.push_back({property.name, PropertyTypeName(property.type), ValueText(*value),
                    Abilities(property), property.key});
  }
  return (json ? PrintJson(all) : Print(Table(rows))) ? kDone : kFailed;
}

int GetOne(const PropertyInfo& property, bool json) {
  std::string failure;
  const auto value = ReadProperty(property, failure);
  if (!value) return Fail("cannot read " + std::string(property.name) + ": " + failure);
  if (json && !PrintJson(PropertyJson(property, *value))) return kFailed;
  if (value->is_null()) {
    return Fail(std::string(property.name) + " has no value: nobody has set it yet");
  }
  return json || Print(ValueText(*value) + '\n') ? kDone : kFailed;
}

struct GetArguments {
  std::string name;
  bool all = false;
};

int RunGet(const GetArguments& arguments, const Settings& settings) {
  return arguments.all ? GetAll(settings.json)
                       : GetOne(*FindProperty(arguments.name), settings.json);
}

// --- set

struct SetArguments {
  std::string name;
  std::string value;
};

int RunSet(const SetArguments& arguments, const Settings& settings) {
  const PropertyInfo& property = *FindProperty(arguments.name);
  const std::string failure = WriteProperty(property, arguments.value);
  if (!failure.empty()) return Fail("cannot set " + arguments.name + ": " + failure);
  if (!settings.json) return kDone;
  std::string ignored;
  const auto value = ReadProperty(property, ignored);
  return PrintJson(PropertyJson(property, value.value_or(nullptr))) ? kDone : kFailed;
}

// What only both arguments together tell.
void CheckSet(const SetArguments& arguments) {
  const PropertyInfo& property = *FindProperty(arguments.name);
  const std::string mistake = PropertyValueMistake(property, arguments.value);
  if (!mistake.empty()) throw CLI::ValidationError("VALUE", mistake);
}

std::string SettablePropertyMistake(const std::string& name) {
  const PropertyInfo* const property = FindProperty(name);
  if (property == nullptr) return PropertyNameMistake(name);
  return property->IsWritable() ? "" : '"' + name + "\" is set by the viewer alone";
}

std::string WatchablePropertyMistake(const std::string& name) {
  const PropertyInfo* const property = FindProperty(name);
  if (property == nullptr) return PropertyNameMistake(name);
  return property->IsWatchable() ? "" : '"' + name + "\" cannot be watched; it can be got";
}

}  // namespace

void AddGetCommand(CommandLine& line) {
  CLI::App* const command = line.app.add_subcommand("get", "Show a property of the viewer's state");
  command->group("Commands")->footer(R"(Examples:
  kavrelctl get pip_focus
  kavrelctl get --all)");
  const auto arguments = std::make_shared<GetArguments>();
  CLI::Option* const name = command->add_option("PROPERTY", arguments->name, "The property's name")
                                ->type_name("")
                                ->check(Check(&PropertyNameMistake));
  command->add_flag("--all", arguments->all, "Show all properties: type, value, what may be done")
      ->excludes(name);
  for (const PropertyInfo& property : kProperties) line.choices[name].push_back(property.name);
  AddOutputOptions(*command, line.settings);
  command->callback([&line, arguments] {
    if (arguments->name.empty() && !arguments->all) {
      throw CLI::RequiredError("PROPERTY or --all");
    }
    line.action = [&line, arguments] { return RunGet(*arguments, line.settings); };
  });
}

void AddSetCommand(CommandLine& line) {
  CLI::App* const command = line.app.add_subcommand("set", "Set a property of the viewer's state");
  command->group("Commands")->footer(R"(Prints nothing when done. Example:
  kavrelctl set pip_focus 1)");
  const auto arguments = std::make_shared<SetArguments>();
  CLI::Option* const name = command->add_option("PROPERTY", arguments->name, "The property's name")
                                ->type_name("")
                                ->required()
                                ->check(Check(&SettablePropertyMistake));
  command->add_option("VALUE", arguments->value, "The new value, of the property's type")
      ->type_name("")
      ->required();
  for (const PropertyInfo& property : kProperties) {
    if (property.IsWritable()) line.choices[name].push_back(property.name);
  }
  AddOutputOptions(*command, line.settings);
  command->callback([&line, arguments] {
    CheckSet(*arguments);
    line.action = [&line, arguments] { return RunSet(*arguments, line.settings); };
  });
}

void AddWatchCommand(CommandLine& line) {
  CLI::App* const command =
      line.app.add_subcommand("watch", "Print changes of the viewer's state as they happen");
  command->group("Commands")->footer(R"(Prints the old value, the new value and the key. Examples:
  kavrelctl watch
  kavrelctl watch visible_banners pip_focus --json
  kavrelctl watch kavrel_state --count 1)");
  const auto arguments = std::make_shared<WatchArguments>();
  CLI::Option* const names =
      command->add_option("PROPERTY", arguments->names, "Properties to watch; none: all")
          ->type_name("")
          ->check(Check(&WatchablePropertyMistake));
  for (const PropertyInfo& property : kProperties) {
    if (property.IsWatchable()) line.choices[names].push_back(property.name);
  }
  AddFollowOptions(*command, "changes", arguments->count, arguments->ready_fd);
  AddOutputOptions(*command, line.settings);
  command->callback([&line, arguments] {
    line.action = [&line, arguments] { return RunWatch(*arguments, line.settings.json); };
  });
}

}  // namespace kavrelctl
