// Steps as a recorder writes them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kavrelctl {

/// {"call": ..., "with": [...]} of an event "call" of the viewer; null when it names no method.
nlohmann::ordered_json CallStep(const nlohmann::ordered_json& event);

/// {"key": ..., "action": "press"} of an event "key".
nlohmann::ordered_json KeyStep(const nlohmann::ordered_json& event);

/// {"set": ..., "to": ...} of an event "set"; null when only the viewer sets that property, or when
/// it has no value any more.
nlohmann::ordered_json SetStep(const nlohmann::ordered_json& event);

/// {"wait": {"property": ..., "is": ...}}
nlohmann::ordered_json WaitStep(const std::string& property, const nlohmann::ordered_json& value);

/// A step as one line of YAML: "{call: exit-ttx, with: [x]}". Reads back as the same step.
std::string StepText(const nlohmann::ordered_json& step);

}  // namespace kavrelctl
