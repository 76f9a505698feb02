#include "property_names.h"

#include <printable.h>

#include <algorithm>
#include <iterator>

#include "arguments.h"

namespace kavrelctl {

using kavrel::app_api::ItemType;
using kavrel::state::kProperties;
using kavrel::state::PropertyInfo;
using kavrel::state::PropertyType;

const PropertyInfo* FindProperty(const std::string& name) {
  const auto* const found =
      std::find_if(std::begin(kProperties), std::end(kProperties),
                   [&](const PropertyInfo& property) { return property.name == name; });
  return found == std::end(kProperties) ? nullptr : found;
}

std::string PropertyNameMistake(const std::string& name) {
  if (FindProperty(name) != nullptr) return {};
  return "no property is called \"" + name + "\"; \"kavrelctl get --all\" lists them";
}

std::vector<std::string> PropertyNames() {
  std::vector<std::string> names;
  for (const PropertyInfo& property : kProperties) names.emplace_back(property.name);
  return names;
}

std::string PropertyValueMistake(const PropertyInfo& property, const std::string& text) {
  switch (property.type) {
    case PropertyType::Int:
      return ValueMistake(ItemType::Int32, text);
    case PropertyType::Bool:
      return ValueMistake(ItemType::Bool, text);
    case PropertyType::Locked:
      if (text == "locked" || text == "unlocked") return {};
      return '"' + kavrel_programs::Printable(text, 80) + "\" is neither locked nor unlocked";
    default:
      return {};
  }
}

nlohmann::ordered_json PropertyValue(const PropertyInfo& property, const std::string& text) {
  switch (property.type) {
    case PropertyType::Int:
      return ParseInt(text).value();
    case PropertyType::Bool:
      return ParseBool(text).value();
    default:
      return text;
  }
}

}  // namespace kavrelctl
