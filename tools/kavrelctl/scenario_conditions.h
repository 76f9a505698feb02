// What "wait" and "expect" in a scenario are about.
#pragma once

#include "scenario.h"
#include "yaml_tree.h"

namespace kavrelctl {

/// Throws TextMistake. `what` is the step: "wait".
Condition ReadCondition(const YamlNode& node, const std::string& what);

/// The property of the name that a node holds. Throws TextMistake when there is none.
const kavrel::state::PropertyInfo& ReadPropertyName(const YamlNode& node, const std::string& what);

/// A value of the property. Throws TextMistake when the node holds none.
const std::string& ReadPropertyValue(const kavrel::state::PropertyInfo& property,
                                     const YamlNode& node, const std::string& what);

/// For people, and for a second look at what was expected: "visible_banners channel".
std::string Describe(const Condition& condition);

}  // namespace kavrelctl
