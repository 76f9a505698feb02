// The viewer's published state, property by property.
#pragma once

#include <kavrel/state_properties.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "property_names.h"

namespace kavrelctl {

/// A value as JSON (null: none) for people: on one line, without quotes but for an empty text, "-"
/// for none.
std::string ValueText(const nlohmann::ordered_json& value);

/// What a change callback was told, as JSON.
nlohmann::ordered_json NodeValue(const valuenode_s& node);

/// The value in the state store; null when there is none of the property's type. Nothing, with a
/// message in `failure`, when the store cannot be read.
std::optional<nlohmann::ordered_json> ReadProperty(const kavrel::state::PropertyInfo& property,
                                                   std::string& failure);

/// Sets a value that has been found free of mistakes. Empty, or why it could not be set.
std::string WriteProperty(const kavrel::state::PropertyInfo& property, const std::string& text);

}  // namespace kavrelctl
