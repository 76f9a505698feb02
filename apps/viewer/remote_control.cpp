#include "remote_control.h"

#include <control_protocol.h>

#include "viewer_keys.h"

namespace viewer {

using nlohmann::ordered_json;

namespace {

const char* NameOf(RemoteControl::TakenBy by) {
  switch (by) {
    case RemoteControl::TakenBy::kPlugin:
      return "plugin";
    case RemoteControl::TakenBy::kViewer:
      return "viewer";
    case RemoteControl::TakenBy::kNobody:
      break;
  }
  return "nobody";
}

const char* NameOf(PluginHost::Press press) {
  return press == PluginHost::Press::kPressed ? "pressed" : "released";
}

std::string TextOf(const RemoteControl::Outcome& outcome) {
  if (outcome.by != RemoteControl::TakenBy::kPlugin) {
    return outcome.IsTaken() ? "the viewer's" : "nobody's";
  }
  return "to plug-in " + outcome.taker.plugin + (outcome.taker.exclusively ? ", exclusively" : "");
}

}  // namespace

RemoteControl::Outcome RemoteControl::Handle(const std::string& key, PluginHost::Press press,
                                             int device) {
  Outcome outcome;
  if (plugins_ != nullptr) outcome.taker = plugins_->Offer(key, press, device);
  if (!outcome.taker.plugin.empty()) {
    outcome.by = TakenBy::kPlugin;
  } else if (press == PluginHost::Press::kPressed && UseKey(television_, key)) {
    outcome.by = TakenBy::kViewer;
  }
  ordered_json fields = Describe(key, press, outcome);
  fields["device"] = kavrel_programs::KeyDeviceName(device);
  log_.WriteEvent("key " + key + ' ' + NameOf(press) + ", " + TextOf(outcome), "key", fields);
  if (handled_) handled_(key, press, TextOf(outcome));
  return outcome;
}

ordered_json RemoteControl::Describe(const std::string& key, PluginHost::Press press,
                                     const Outcome& outcome) {
  ordered_json plugin = nullptr;
  if (outcome.by == TakenBy::kPlugin) plugin = outcome.taker.plugin;
  return {{"key", key},
          {"type", NameOf(press)},
          {"taken_by", NameOf(outcome.by)},
          {"plugin", plugin},
          {"exclusive", outcome.taker.exclusively}};
}

}  // namespace viewer
