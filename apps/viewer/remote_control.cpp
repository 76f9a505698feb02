#include "remote_control.h"

#include <control_protocol.h>

namespace viewer {

using nlohmann::ordered_json;

namespace {

bool IsChannelDigit(const std::string& key) {
  return key.size() == 1 && key[0] >= '1' && key[0] <= '9';
}

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
  } else if (press == PluginHost::Press::kPressed && Use(key)) {
    outcome.by = TakenBy::kViewer;
  }
  ordered_json fields = Describe(key, press, outcome);
  fields["device"] = kavrel_programs::KeyDeviceName(device);
  log_.WriteEvent("key " + key + ' ' + NameOf(press) + ", " + TextOf(outcome), "key", fields);
  return outcome;
}

// What the television itself does with a key that no plug-in wants.
bool RemoteControl::Use(const std::string& key) {
  if (IsChannelDigit(key)) {
    television_.Tune(key, "", "");
  } else if (key == "XF86ChannelUp" || key == "XF86ChannelDown") {
    television_.TuneNext(key == "XF86ChannelUp" ? 1 : -1);
  } else if (key == "XF86Info") {
    television_.SetBanner(Banner::kChannel, !television_.banners().IsShown(Banner::kChannel));
  } else if (key == "XF86Back" && !television_.banners().shown().empty()) {
    television_.HideBanner("all");
  } else {
    return false;
  }
  return true;
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
