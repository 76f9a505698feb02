// The viewer's published state, property by property.
#pragma once

#include <kavrel/state_properties.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace kavrelctl {

/// The property of that name, or null.
const kavrel::state::PropertyInfo* FindProperty(const std::string& name);

/// What is wrong with `name` as a property's name; empty when nothing is.
std::string PropertyNameMistake(const std::string& name);

/// A value as JSON (null: none) for people: on one line, without quotes but for an empty text, "-"
/// for none.
std::string ValueText(const nlohmann::ordered_json& value);

/// What a change callback was told, as JSON.
nlohmann::ordered_json NodeValue(const valuenode_s& node);

/// The value in the state store; null when there is none of the property's type. Nothing, with a
/// message in `failure`, when the store cannot be read.
std::optional<nlohmann::ordered_json> ReadProperty(const kavrel::state::PropertyInfo& property,
                                                   std::string& failure);

/// What is wrong with `text` as a value for a property that can be set; empty when nothing is.
std::string PropertyValueMistake(const kavrel::state::PropertyInfo& property,
                                 const std::string& text);

/// Sets a value that has been found free of mistakes. Empty, or why it could not be set.
std::string WriteProperty(const kavrel::state::PropertyInfo& property, const std::string& text);

}  // namespace kavrelctl
