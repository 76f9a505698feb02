// The viewer's published state by name, without the store.
#pragma once

#include <kavrel/state_properties.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kavrelctl {

/// The property of that name, or null.
const kavrel::state::PropertyInfo* FindProperty(const std::string& name);

/// What is wrong with `name` as a property's name; empty when nothing is.
std::string PropertyNameMistake(const std::string& name);

std::vector<std::string> PropertyNames();

/// What is wrong with `text` as a value of the property; empty when nothing is.
std::string PropertyValueMistake(const kavrel::state::PropertyInfo& property,
                                 const std::string& text);
/// The value that a text free of mistakes stands for, as the state store has it.
nlohmann::ordered_json PropertyValue(const kavrel::state::PropertyInfo& property,
                                     const std::string& text);

}  // namespace kavrelctl
