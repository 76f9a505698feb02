#include "step_text.h"

#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <algorithm>
#include <iterator>
#include <yaml-cpp/emitter.h>
#include <yaml-cpp/emittermanip.h>

#include "method_names.h"
#include "property_names.h"

namespace kavrelctl {
namespace {

using kavrel::app_api::kMethods;
using kavrel::app_api::MethodInfo;
using nlohmann::ordered_json;

const MethodInfo* FindByName(const std::string& name) {
  const auto* const found = std::find_if(std::begin(kMethods), std::end(kMethods),
                                         [&](const MethodInfo& m) { return m.name == name; });
  return found == std::end(kMethods) ? nullptr : found;
}

void Emit(YAML::Emitter& out, const ordered_json& value) {
  if (value.is_object()) {
    out << YAML::Flow << YAML::BeginMap;
    for (const auto& [name, field] : value.items()) {
      out << YAML::Key << name << YAML::Value;
      Emit(out, field);
    }
    out << YAML::EndMap;
  } else if (value.is_array()) {
    out << YAML::Flow << YAML::BeginSeq;
    for (const ordered_json& item : value) Emit(out, item);
    out << YAML::EndSeq;
  } else if (value.is_string()) {
    out << value.get_ref<const std::string&>();
  } else {
    out << value.dump();
  }
}

}  // namespace

ordered_json CallStep(const ordered_json& event) {
  const MethodInfo* const method = FindByName(event.value("method", ""));
  if (method == nullptr) return nullptr;
  ordered_json step = {{"call", KebabName(method->name)}};
  ordered_json with = ordered_json::array();
  for (const ordered_json& argument : event.at("arguments")) with.push_back(argument);
  if (!with.empty()) step["with"] = std::move(with);
  if (event.at("result").is_null()) return step;
  // A refused question has no values.
  const bool is_refused = event.at("result") == false;
  ordered_json answer = is_refused ? ordered_json::object() : event.at("values");
  answer["result"] = event.at("result");
  step["answer"] = std::move(answer);
  return step;
}

ordered_json KeyStep(const ordered_json& event) {
  ordered_json step = {{"key", event.at("key")},
                       {"action", event.at("type") == "released" ? "release" : "press"}};
  if (event.at("device") != "ir") step["device"] = event.at("device");
  return step;
}

ordered_json SetStep(const ordered_json& event) {
  const auto* const property = FindProperty(event.value("property", ""));
  if (property == nullptr || !property->IsWritable() || event.at("value").is_null()) return nullptr;
  return {{"set", property->name}, {"to", event.at("value")}};
}

ordered_json WaitStep(const std::string& property, const ordered_json& value) {
  return {{"wait", {{"property", property}, {"is", value}}}};
}

std::string StepText(const ordered_json& step) {
  YAML::Emitter out;
  Emit(out, step);
  return out.c_str();
}

}  // namespace kavrelctl
