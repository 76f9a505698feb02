#include "call.h"

#include "arguments.h"
#include "method_names.h"
#include "output.h"
#include "viewer_connection.h"

namespace kavrelctl {
namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::MethodInfo;
using nlohmann::ordered_json;

Argument ToArgument(ItemType type, const std::vector<std::string>& texts) {
  switch (type) {
    case ItemType::Int32:
      return ParseInt(texts.at(0)).value();
    case ItemType::Bool:
      return ParseBool(texts.at(0)).value();
    case ItemType::StringList:
      return texts;
    default:
      return texts.at(0);
  }
}

ordered_json ResultJson(const Answer& answer) {
  return std::visit(
      [](const auto& result) -> ordered_json {
        if constexpr (std::is_same_v<decltype(result), const std::monostate&>)
          return nullptr;
        else
          return result;
      },
      answer.result);
}

ordered_json ValuesJson(const MethodInfo& method, const Answer& answer) {
  ordered_json values = ordered_json::object();
  for (std::size_t i = 0; i < answer.values.size(); ++i) {
    values[std::string(method.out_value_names[i])] = answer.values[i];
  }
  return values;
}

bool PrintAnswerJson(const MethodInfo& method, const Answer& answer) {
  return PrintJson({{"method", KebabName(method.name)},
                    {"ok", !IsRefusal(answer)},
                    {"values", ValuesJson(method, answer)},
                    {"result", ResultJson(answer)}});
}

bool PrintAnswerText(const MethodInfo& method, const Answer& answer) {
  if (!method.HasReply()) return Print("sent\n");
  std::vector<std::vector<std::string>> rows;
  // A refused question has no values.
  for (std::size_t i = 0; !IsRefusal(answer) && i < answer.values.size(); ++i) {
    rows.push_back({std::string(method.out_value_names[i]), std::to_string(answer.values[i])});
  }
  rows.push_back({"result", ResultJson(answer).dump()});
  return Print(Table(rows));
}

int Fail(const MethodInfo& method, const Settings& settings, const std::string& message) {
  PrintError(message);
  if (settings.json) {
    PrintJson({{"method", KebabName(method.name)}, {"ok", false}, {"error", message}});
  }
  return kFailed;
}

}  // namespace

std::vector<Argument> ToArguments(const MethodInfo& method,
                                  const std::vector<std::vector<std::string>>& texts) {
  std::vector<Argument> arguments;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    arguments.push_back(ToArgument(method.arguments[i], texts[i]));
  }
  return arguments;
}

bool IsRefusal(const Answer& answer) {
  const bool* result = std::get_if<bool>(&answer.result);
  return result != nullptr && !*result;
}

ordered_json AnswerJson(const MethodInfo& method, const Answer& answer) {
  ordered_json all = ValuesJson(method, answer);
  all["result"] = ResultJson(answer);
  return all;
}

int RunCall(const CallableMethod& callable, const std::vector<std::vector<std::string>>& texts,
            const Settings& settings) {
  const MethodInfo& method = *callable.info;
  ViewerConnection viewer(settings);
  if (const auto failure = viewer.Connect()) return Fail(method, settings, *failure);
  std::string failure;
  const auto answer = viewer.Call(callable, ToArguments(method, texts), failure);
  if (!answer) return Fail(method, settings, failure);
  const bool printed =
      settings.json ? PrintAnswerJson(method, *answer) : PrintAnswerText(method, *answer);
  if (IsRefusal(*answer)) {
    PrintError("the viewer answered false to " + KebabName(method.name) +
               ": it refuses these values or cannot do this now");
    return kFailed;
  }
  return printed ? kDone : kFailed;
}

}  // namespace kavrelctl
