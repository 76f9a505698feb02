#include "method_list.h"

#include <cstdio>
#include <string_view>

#include "method_names.h"

namespace kavrelctl {
namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::ItemTypeName;
using kavrel::app_api::kMethods;
using kavrel::app_api::MethodInfo;
using nlohmann::ordered_json;

ordered_json Typed(std::string_view name, ItemType type) {
  return {{"name", name}, {"type", ItemTypeName(type)}};
}

ordered_json MethodJson(const MethodInfo& method) {
  ordered_json arguments = ordered_json::array();
  for (std::size_t i = 0; i < method.argument_count; ++i) {
    arguments.push_back(Typed(method.argument_names[i], method.arguments[i]));
  }
  ordered_json values = ordered_json::array();
  for (std::size_t i = 0; i < method.out_value_count; ++i) {
    values.push_back(Typed(method.out_value_names[i], ItemType::Int32));
  }
  return {{"id", method.id},
          {"method", method.name},
          {"command", KebabName(method.name)},
          {"arguments", arguments},
          {"values", values},
          {"result", method.HasReply() ? ordered_json(ItemTypeName(method.result)) : nullptr},
          {"summary", method.summary},
          {"function", std::string("kavrel_api_") + method.c_name}};
}

std::string MethodText(const MethodInfo& method) {
  char id[8];
  (void)std::snprintf(id, sizeof id, "%3d  ", method.id);
  std::string text = id + KebabName(method.name);
  if (method.argument_count > 0) text += ' ' + ArgumentSynopsis(method);
  if (method.HasReply()) text += "  ->  " + AnswerSynopsis(method);
  return text + "\n       " + method.summary + "; kavrel_api_" + method.c_name + "()\n";
}

}  // namespace

std::string MethodListText() {
  std::string text;
  for (const MethodInfo& method : kMethods) text += MethodText(method);
  return text +
         "\nCall one: kavrelctl call COMMAND ARGUMENTS; what stands behind -> is the answer.\n";
}

ordered_json MethodListJson() {
  ordered_json all = ordered_json::array();
  for (const MethodInfo& method : kMethods) all.push_back(MethodJson(method));
  return all;
}

}  // namespace kavrelctl
