#include "condition_check.h"

#include <algorithm>
#include <vector>

#include "properties.h"
#include "scenario_fields.h"

namespace kavrelctl {
namespace {

using kavrel_programs::ControlCommand;
using nlohmann::ordered_json;

Verdict Failed(const std::string& failure) {
  return {false, {}, failure};
}

bool EqualsText(const ordered_json& value, const ordered_json& text) {
  if (value.is_string() || value.is_null() || text.is_null()) return value == text;
  return value.is_primitive() && value.dump() == text.get_ref<const std::string&>();
}

std::string At(const std::string& path, const ordered_json& value) {
  return (path.empty() ? "" : path + ' ') + QuotedText(value);
}

/// Checks one condition; the answers of the viewer may be anything that is JSON.
class Checker {
 public:
  explicit Checker(ControlConnection* control) : control_(control) {}

  Verdict operator()(const PropertyCondition& condition) const {
    std::string failure;
    const auto value = ReadProperty(*condition.property, failure);
    if (!value) return Failed(failure);
    const std::string seen = value->is_null() ? "no value" : QuotedText(*value);
    return {*value == condition.value, std::string(condition.property->name) + ' ' + seen, {}};
  }

  Verdict operator()(const BannerCondition& condition) const {
    return Ask(ControlCommand::kScreen,
               [&](const ordered_json& screen) { return CheckBanner(condition, screen); });
  }

  Verdict operator()(const ScreenCondition& condition) const {
    return Ask(ControlCommand::kScreen, [&](const ordered_json& screen) -> Verdict {
      const auto difference = FirstDifference(condition.part, screen);
      return {!difference, difference.value_or(""), {}};
    });
  }

  Verdict operator()(const PluginCondition& condition) const {
    return Ask(ControlCommand::kPlugins, [&](const ordered_json& plugins) -> Verdict {
      const std::vector<std::string> names = NamesOf(plugins);
      const bool present = std::find(names.begin(), names.end(), condition.name) != names.end();
      return {present == condition.present, "plug-ins [" + Listed(names) + ']', {}};
    });
  }

  Verdict operator()(const PluginListCondition& condition) const {
    return Ask(ControlCommand::kPlugins, [&](const ordered_json& plugins) -> Verdict {
      std::vector<std::string> names = NamesOf(plugins);
      std::vector<std::string> expected = condition.names;
      std::sort(names.begin(), names.end());
      std::sort(expected.begin(), expected.end());
      return {names == expected, "plug-ins [" + Listed(names) + ']', {}};
    });
  }

 private:
  template <class Use>
  Verdict Ask(ControlCommand command, const Use& use) const {
    const auto answer = control_->AskJson(command);
    if (const auto* failure = std::get_if<ControlFailure>(&answer)) return Failed(failure->message);
    try {
      return use(std::get<ordered_json>(answer));
    } catch (const ordered_json::exception&) {
      return Failed(kNotUnderstood);
    }
  }

  static std::vector<std::string> NamesOf(const ordered_json& entries) {
    std::vector<std::string> names;
    for (const ordered_json& entry : entries) names.push_back(entry.at("name"));
    return names;
  }

  static Verdict CheckBanner(const BannerCondition& condition, const ordered_json& screen) {
    std::vector<std::string> names;
    const ordered_json* found = nullptr;
    for (const char* list : {"banners", "popups"}) {
      for (const ordered_json& shown : screen.at(list)) {
        names.push_back(shown.at("name"));
        if (names.back() == condition.name) found = &shown;
      }
    }
    const std::string seen = names.empty() ? "nothing shown" : Listed(names) + " shown";
    if ((found != nullptr) != condition.shown) return {false, seen, {}};
    if (found == nullptr || !condition.text) return {true, seen, {}};
    const ordered_json& texts = found->at("texts");
    const bool holds = std::any_of(texts.begin(), texts.end(), [&](const ordered_json& text) {
      return text.get<std::string>().find(*condition.text) != std::string::npos;
    });
    return {holds, condition.name + " with " + QuotedText(texts), {}};
  }

  ControlConnection* control_;
};

}  // namespace

Verdict Check(const Condition& condition, ControlConnection* control) {
  return std::visit(Checker(control), condition);
}

bool NeedsControl(const Condition& condition) {
  return !std::holds_alternative<PropertyCondition>(condition);
}

bool HasNoEvents(const Condition& condition) {
  if (const auto* property = std::get_if<PropertyCondition>(&condition)) {
    return !property->property->IsWatchable();
  }
  // A plug-in may come without a word to the viewer's own log.
  return std::holds_alternative<PluginCondition>(condition) ||
         std::holds_alternative<PluginListCondition>(condition);
}

std::optional<std::string> FirstDifference(const ordered_json& part, const ordered_json& whole,
                                           const std::string& path) {
  const std::string prefix = path.empty() ? "" : path + '.';
  if (part.is_object()) {
    if (!whole.is_object()) return At(path, whole);
    for (const auto& [name, value] : part.items()) {
      if (!whole.contains(name)) return prefix + name + " is not told";
      if (auto difference = FirstDifference(value, whole.at(name), prefix + name))
        return difference;
    }
    return std::nullopt;
  }
  if (part.is_array()) {
    if (!whole.is_array() || whole.size() != part.size()) return At(path, whole);
    for (std::size_t i = 0; i < part.size(); ++i) {
      if (auto difference = FirstDifference(part[i], whole[i], prefix + std::to_string(i))) {
        return difference;
      }
    }
    return std::nullopt;
  }
  if (EqualsText(whole, part)) return std::nullopt;
  return At(path, whole);
}

}  // namespace kavrelctl
