// One call of a method, from texts to what is printed about the answer.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "method_call.h"
#include "settings.h"

namespace kavrelctl {

/// Texts free of mistakes - one each, a list any number - as the method's arguments.
std::vector<Argument> ToArguments(const kavrel::app_api::MethodInfo& method,
                                  const std::vector<std::vector<std::string>>& texts);

/// Whether the viewer has answered false.
bool IsRefusal(const Answer& answer);

/// Out values by name, and "result".
nlohmann::ordered_json AnswerJson(const kavrel::app_api::MethodInfo& method, const Answer& answer);

/// Connects, calls, prints. `texts` are the arguments as typed, free of mistakes: one text each, a
/// list any number. Returns an exit code.
int RunCall(const CallableMethod& method, const std::vector<std::vector<std::string>>& texts,
            const Settings& settings);

}  // namespace kavrelctl
