// Fields of maps in a scenario, each mistake with its line, its value and what is allowed.
#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "yaml_tree.h"

namespace kavrelctl {

/// `"tune"` for people, cut where it is long.
std::string QuotedValue(const std::string& value);

/// A text as QuotedValue() does, anything else as JSON.
std::string QuotedText(const nlohmann::ordered_json& value);

/// Words as most functions take them.
std::vector<std::string> Words(std::initializer_list<const char*> words);

/// "a, b, c"
std::string Listed(const std::vector<std::string>& words);

/// Throws unless `node` is a text; returns it. `what` names it: "call".
const std::string& TextOf(const YamlNode& node, const std::string& what);

/// The texts of a list. Throws when it is none.
std::vector<std::string> TextsOf(const YamlNode& node, const std::string& what);

/// Throws unless `node` is a map whose keys are all among `allowed`.
void CheckFields(const YamlNode& node, const std::string& what,
                 const std::vector<std::string>& allowed);
void CheckFields(const YamlNode& node, const std::string& what,
                 std::initializer_list<const char*> allowed);

/// Throws unless `word` is among `allowed`.
void CheckWord(const YamlNode& node, const std::string& what,
               const std::vector<std::string>& allowed);
void CheckWord(const YamlNode& node, const std::string& what,
               std::initializer_list<const char*> allowed);

/// The field of that name. Throws when there is none.
const YamlNode& Required(const YamlNode& node, const std::string& name);

/// A yes or no; `otherwise` when there is no such field.
bool FlagOf(const YamlNode& node, const std::string& name, bool otherwise);

}  // namespace kavrelctl
