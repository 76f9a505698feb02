// A scenario: what to do with a viewer, and what has to be true then. docs/scenarios.md describes
// the files.
#pragma once

#include <kavrel/state_properties.h>
#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kavrelctl {

/// How long a step waits that does not say it, in seconds.
inline constexpr double kDefaultWithinSeconds = 5;

// The JSON library says of its move that it does not throw; the check sees a list that it may fill.
// NOLINTNEXTLINE(bugprone-exception-escape)
struct CallAction {
  const kavrel::app_api::MethodInfo* method = nullptr;
  std::vector<std::vector<std::string>> arguments;  ///< one text each, a list any number
  nlohmann::ordered_json answer;  ///< expected values by name, "result" too; null: none stated
};

struct SetAction {
  const kavrel::state::PropertyInfo* property = nullptr;
  std::string value;
};

struct KeyAction {
  enum class Kind { kTap, kPress, kRelease };
  std::string key;
  Kind kind = Kind::kTap;
  int device = 0;
  std::optional<std::string> taken_by;  ///< "viewer", "nobody" or a plug-in's name
};

struct ScreenshotAction {
  std::string file;
};

struct PropertyCondition {
  const kavrel::state::PropertyInfo* property = nullptr;
  nlohmann::ordered_json value;
};

/// Of a banner or pop-up.
struct BannerCondition {
  std::string name;
  bool shown = true;
  std::optional<std::string> text;  ///< that one of its texts holds
};

/// What is on the screen, as far as it is stated; numbers and words as texts.
struct ScreenCondition {
  nlohmann::ordered_json part;
};

struct PluginCondition {
  std::string name;
  bool present = true;
};

/// All plug-ins there are, in any order.
struct PluginListCondition {
  std::vector<std::string> names;
};

using Condition = std::variant<PropertyCondition, BannerCondition, ScreenCondition, PluginCondition,
                               PluginListCondition>;

struct WaitAction {
  Condition condition;
  double within_seconds = kDefaultWithinSeconds;
};

struct ExpectAction {
  Condition condition;
};

using Action =
    std::variant<CallAction, SetAction, KeyAction, WaitAction, ExpectAction, ScreenshotAction>;

struct Step {
  int line = 0;
  std::string text;  ///< the file's line, without what surrounds it
  Action action;
};

struct Scenario {
  std::string title;
  std::vector<Step> steps;
};

}  // namespace kavrelctl
