#include "scenario_conditions.h"

#include <algorithm>
#include <array>

#include "edit_distance.h"
#include "property_names.h"
#include "scenario_fields.h"

namespace kavrelctl {
namespace {

using kavrel::state::PropertyInfo;
using nlohmann::ordered_json;

// What the viewer tells about its screen (apps/common/control_protocol.h). Elements of a list count
// as parts of the list.
constexpr std::array kScreenParts = {
    "activity",
    "viewer_state",
    "channel",
    "channel.number",
    "channel.name",
    "channel.source",
    "channel.service_id",
    "source",
    "source.type",
    "source.number",
    "source.label",
    "banners",
    "banners.name",
    "banners.texts",
    "popups",
    "popups.name",
    "popups.texts",
    "pip",
    "pip.channel",
    "pip.channel.number",
    "pip.channel.name",
    "pip.channel.source",
    "pip.channel.service_id",
    "pip.focused",
    "selection_window",
    "selection_window.shown",
    "selection_window.zoom_level",
    "selection_window.left",
    "selection_window.top",
    "selection_window.width",
    "selection_window.height",
    "selection_window.move_range",
    "selection_window.move_range.least_left",
    "selection_window.move_range.least_top",
    "selection_window.move_range.greatest_left",
    "selection_window.move_range.greatest_top",
    "window_size",
    "teletext",
    "language",
    "kept_keys",
};

std::vector<std::string> PartsBelow(const std::string& prefix) {
  std::vector<std::string> parts;
  for (const std::string part : kScreenParts) {
    if (part.size() <= prefix.size() || part.compare(0, prefix.size(), prefix) != 0) continue;
    const std::string rest = part.substr(prefix.size());
    if (rest.find('.') == std::string::npos) parts.push_back(rest);
  }
  return parts;
}

ordered_json ReadScreenPart(const YamlNode& node, const std::string& prefix) {
  ordered_json part;
  switch (node.kind) {
    case YamlNode::Kind::kNothing:
      return nullptr;
    case YamlNode::Kind::kText:
      return node.text;
    case YamlNode::Kind::kList:
      part = ordered_json::array();
      for (const YamlNode& item : node.items) part.push_back(ReadScreenPart(item, prefix));
      return part;
    case YamlNode::Kind::kMap:
      break;
  }
  const std::vector<std::string> allowed = PartsBelow(prefix);
  const std::string name = prefix.empty() ? "screen" : prefix.substr(0, prefix.size() - 1);
  if (allowed.empty()) throw TextMistake(node.line, name + ": a text is wanted, not a map");
  CheckFields(node, name, allowed);
  part = ordered_json::object();
  for (const YamlField& field : node.fields) {
    part[field.name] = ReadScreenPart(field.value, prefix + field.name + '.');
  }
  return part;
}

ScreenCondition ReadScreen(const YamlNode& node) {
  CheckFields(node, "screen", PartsBelow(""));
  return {ReadScreenPart(node, "")};
}

PropertyCondition ReadProperty(const YamlNode& node, const std::string& what) {
  const PropertyInfo& property = ReadPropertyName(Required(node, "property"), what);
  const std::string& value = ReadPropertyValue(property, Required(node, "is"), "is");
  return {&property, PropertyValue(property, value)};
}

// The viewer's own list of banners may grow; a name that no viewer can know is refused.
std::string ReadBannerName(const YamlNode& node) {
  const std::string& name = TextOf(node, "banner");
  const auto allowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
  };
  if (!name.empty() && name.size() <= 64 && std::all_of(name.begin(), name.end(), allowed)) {
    return name;
  }
  throw TextMistake(node.line, "banner: " + QuotedValue(name) +
                                   " is no name of a banner or pop-up (1 to 64 small letters, "
                                   "digits and '-')");
}

BannerCondition ReadBanner(const YamlNode& node) {
  BannerCondition banner;
  banner.name = ReadBannerName(Required(node, "banner"));
  banner.shown = FlagOf(node, "shown", true);
  const YamlNode* const text = node.Find("text");
  if (text == nullptr) return banner;
  if (!banner.shown) {
    throw TextMistake(text->line, "text: a banner that is not shown has none");
  }
  banner.text = TextOf(*text, "text");
  return banner;
}

struct Describer {
  std::string operator()(const PropertyCondition& condition) const {
    return std::string(condition.property->name) + ' ' + QuotedText(condition.value);
  }
  std::string operator()(const BannerCondition& condition) const {
    const std::string shown = condition.name + (condition.shown ? " shown" : " not shown");
    if (!condition.text) return shown;
    return shown + " with " + QuotedValue(*condition.text);
  }
  std::string operator()(const ScreenCondition& condition) const { return condition.part.dump(); }
  std::string operator()(const PluginCondition& condition) const {
    return "plug-in " + QuotedValue(condition.name) + (condition.present ? "" : " gone");
  }
  std::string operator()(const PluginListCondition& condition) const {
    return "plug-ins [" + Listed(condition.names) + ']';
  }
};

}  // namespace

const PropertyInfo& ReadPropertyName(const YamlNode& node, const std::string& what) {
  const std::string& name = TextOf(node, what);
  const PropertyInfo* const property = FindProperty(name);
  if (property != nullptr) return *property;
  throw TextMistake(node.line, QuotedValue(name) +
                                   " is no property (\"kavrelctl get --all\" lists "
                                   "them)" +
                                   DidYouMean(name, PropertyNames()));
}

const std::string& ReadPropertyValue(const PropertyInfo& property, const YamlNode& node,
                                     const std::string& what) {
  const std::string& value = TextOf(node, what);
  const std::string mistake = PropertyValueMistake(property, value);
  if (mistake.empty()) return value;
  throw TextMistake(node.line, std::string(property.name) + ": " + mistake);
}

Condition ReadCondition(const YamlNode& node, const std::string& what) {
  static constexpr std::initializer_list<const char*> kKinds = {"property", "banner", "screen",
                                                                "plugin", "plugins"};
  if (node.kind == YamlNode::Kind::kMap) {
    if (node.Find("property") != nullptr) {
      CheckFields(node, what, {"property", "is"});
      return ReadProperty(node, what);
    }
    if (node.Find("banner") != nullptr) {
      CheckFields(node, what, {"banner", "shown", "text"});
      return ReadBanner(node);
    }
    if (node.Find("plugin") != nullptr) {
      CheckFields(node, what, {"plugin", "present"});
      return PluginCondition{TextOf(Required(node, "plugin"), "plugin"),
                             FlagOf(node, "present", true)};
    }
  }
  CheckFields(node, what, kKinds);
  if (node.fields.size() != 1) {
    throw TextMistake(node.line, what + ": one of " + Listed(Words(kKinds)) + " is wanted");
  }
  const YamlNode& value = node.fields.front().value;
  if (node.fields.front().name == "screen") return ReadScreen(value);
  return PluginListCondition{TextsOf(value, "plugins")};
}

std::string Describe(const Condition& condition) {
  return std::visit(Describer(), condition);
}

}  // namespace kavrelctl
