#include "plugin_host.h"

#include <Evas.h>
#include <kavrel/IPluginList.h>
#include <kavrel/KavrelAPI.h>

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "viewer_state.h"

namespace viewer {

using nlohmann::ordered_json;

namespace {

constexpr const char* kHostName = "kavrel";

const IPluginList* ListOf(const IViewerHost* host) {
  return dynamic_cast<const IPluginList*>(host);
}

ordered_json KeysOf(const CKeyRepository& repository) {
  ordered_json keys = ordered_json::array();
  for (int i = 0; i < repository.Size(); ++i) keys.push_back(repository.GetKey(i));
  return keys;
}

ordered_json ExclusiveKeysOf(const std::vector<IPluginList::ExclusiveKey>& keys,
                             const std::string& plugin) {
  ordered_json claims = ordered_json::array();
  for (const auto& [key, requesters] : keys) {
    if (std::find(requesters.begin(), requesters.end(), plugin) == requesters.end()) continue;
    claims.push_back({{"key", key}, {"owner", requesters.back() == plugin}});
  }
  return claims;
}

// Who really sent a message: the library appends it; a plug-in's own pairs come before.
std::string SenderOf(const CMessage& message) {
  return message.GetValue(message.Size() - 1);
}

}  // namespace

PluginHost::PluginHost(const Window& window, Television& television, OperationLog& log)
    : television_(television),
      log_(log),
      windows_(window,
               [this](const std::string& title, int layer) {
                 Write(title, "window on layer " + std::to_string(layer), "window_added",
                       {{"layer", layer}});
               }),
      state_(ViewerState(television)) {
  if (!KavrelAPI::CreateViewerHost(window.root(), &host_, &PluginHost::Receive, this, kHostName)) {
    throw std::runtime_error("no host for plug-ins can be made; the log tells why");
  }
  television.AddListener([this](const Change& /*change*/) {
    TellState();
    KeepKeys();
  });
  television.SetPluginMessenger([this](const std::string& plugin, const std::string& command) {
    CMessage message;
    message.AddValue("command", command.c_str());
    return host_->SendMessage(plugin, message, 1) != 0;
  });
}

PluginHost::~PluginHost() {
  television_.SetPluginMessenger(nullptr);
  KavrelAPI::DestroyViewerHost();
}

// --- Keys

PluginHost::Taker PluginHost::Offer(const std::string& key, Press press, int device) {
  const std::string owner = ExclusiveOwner(key);
  Taker taker;
  if (!host_->DispatchInput(key, static_cast<int>(press), device, taker.plugin)) return {};
  // The consumer is left alone on the exclusive path.
  if (taker.plugin.empty()) taker = {owner, true};
  return taker;
}

std::string PluginHost::ExclusiveOwner(const std::string& key) const {
  const IPluginList* const list = ListOf(host_);
  if (list == nullptr) return "?";
  for (const auto& exclusive : list->ExclusiveKeys()) {
    if (exclusive.key == key) return exclusive.requesters.back();
  }
  return {};
}

// --- What plug-ins say. Nothing may be thrown into the library.

void PluginHost::Receive(CMessage& message, void* self) {
  try {
    static_cast<PluginHost*>(self)->Act(message);
  } catch (const std::exception&) {
    // A message that does not fit into memory is lost.
  }
}

void PluginHost::Act(const CMessage& message) {
  const std::string what = message.GetKey(0);
  const std::string value = message.GetValue(0);
  if (what == "plugin_add") return WindowCame(value);
  if (what == "plugin_remove") return WindowWent(value);
  const std::string plugin = SenderOf(message);
  if (what == "show" || what == "hide") return Show(plugin, what == "show");
  if (what == "enable" || what == "disable") return SetBanner(plugin, value, what == "enable");
  ordered_json pairs = ordered_json::array();
  std::string text = "says";
  for (int i = 0; i + 1 < message.Size() && i < 16; ++i) {
    text += ' ' + message.GetKey(i) + '=' + message.GetValue(i);
    pairs.push_back({message.GetKey(i), message.GetValue(i)});
  }
  Write(plugin, text, "message", {{"pairs", pairs}});
}

void PluginHost::WindowCame(const std::string& title) {
  if (Evas_Object* const object = host_->GetPluginObject(title)) windows_.Add(title, object);
}

void PluginHost::WindowWent(const std::string& title) {
  windows_.Remove(host_->GetPluginObject(title));
  Write(title, "window gone", "window_removed");
}

void PluginHost::Show(const std::string& plugin, bool shown) {
  if (Evas_Object* const object = host_->GetPluginObject(plugin)) {
    shown ? evas_object_show(object) : evas_object_hide(object);
  }
  Write(plugin, shown ? "shown" : "hidden", shown ? "shown" : "hidden");
  if (!shown) return;
  CMessage message;
  message.AddValue("state", state_.c_str());
  host_->SendMessage(plugin, message, 1);
}

void PluginHost::SetBanner(const std::string& plugin, const std::string& banner, bool enabled) {
  enabled ? television_.EnableBanner(banner) : television_.DisableBanner(banner);
  const std::string what = enabled ? "enable" : "disable";
  Write(plugin, what + ' ' + banner, what, {{"banner", banner}});
}

// --- What plug-ins are told

void PluginHost::TellState() {
  const std::string state = ViewerState(television_);
  if (state == state_) return;
  state_ = state;
  host_->BroadcastViewerState(state);
  log_.AddEffect("plug-ins told " + state);
}

// The viewer asks for keys as plug-ins do, under its own name: what it has asked for last is
// offered to nobody.
void PluginHost::KeepKeys() {
  const std::set<std::string> wanted = television_.kept_keys();
  if (wanted == kept_keys_) return;
  for (const std::string& key : kept_keys_) {
    if (!wanted.contains(key)) host_->ProcessUnregisteredExclusiveKey(key, kHostName);
  }
  for (const std::string& key : wanted) {
    if (!kept_keys_.contains(key)) host_->ProcessRegisteredExclusiveKey(key, kHostName);
  }
  kept_keys_ = wanted;
}

// --- What others are told

bool PluginHost::HasCompositor() const {
  const IPluginList* const list = ListOf(host_);
  return list == nullptr || list->HasCompositor();
}

ordered_json PluginHost::Plugins() const {
  ordered_json rows = ordered_json::array();
  const IPluginList* const list = ListOf(host_);
  if (list == nullptr) return rows;
  const auto exclusive = list->ExclusiveKeys();
  for (const IPluginList::Plugin& plugin : list->Plugins()) {
    const Evas_Object* const object = host_->GetPluginObject(plugin.name);
    const bool visible = object != nullptr && evas_object_visible_get(object) == EINA_TRUE;
    rows.push_back({{"name", plugin.name},
                    {"type", static_cast<int>(plugin.type)},
                    {"connected", plugin.connected},
                    {"layer", nullptr},
                    {"visible", visible},
                    {"keys", KeysOf(plugin.keys)},
                    {"exclusive_keys", ExclusiveKeysOf(exclusive, plugin.name)}});
    if (object != nullptr) rows.back()["layer"] = evas_object_layer_get(object);
  }
  return rows;
}

void PluginHost::Write(const std::string& plugin, const std::string& what, const std::string& event,
                       const ordered_json& fields) {
  ordered_json all = {{"plugin", plugin}};
  all.update(fields);
  log_.WriteEvent("plug-in " + plugin + ": " + what, event, all);
}

}  // namespace viewer
