#include "bus_traffic.h"

#include <printable.h>

#include <array>
#include <string_view>

namespace kavrelctl {
namespace {

using kavrel_programs::Printable;

constexpr std::string_view kPrefix = "org.zarnet.";
constexpr std::string_view kAuxiliary = ".auxiliary";
constexpr std::string_view kChannelInterface = ".DbusCommunication";
constexpr std::string_view kChannelPath = "/CommunicationChannel/";
constexpr std::int64_t kHeldMilliseconds = 1000;

std::string TextOf(const char* text) {
  return text == nullptr ? "" : text;
}

/// A handshake name taken apart.
struct Step {
  std::string host;
  std::string plugin;
  std::string step;
};

std::optional<Step> ParseStep(std::string_view name) {
  if (!name.starts_with(kPrefix)) return std::nullopt;
  name.remove_prefix(kPrefix.size());
  const auto dot = name.find('.');
  if (dot == std::string_view::npos) return std::nullopt;
  // The longest first: "_SYN_ACK" ends like "_ACK".
  for (const std::string_view step : {"SYN_ACK", "SYN", "ACK"}) {
    const std::string suffix = "_" + std::string(step);
    const std::string_view plugin = name.substr(dot + 1);
    if (plugin.size() <= suffix.size() || !plugin.ends_with(suffix)) continue;
    return Step{std::string(name.substr(0, dot)),
                std::string(plugin.substr(0, plugin.size() - suffix.size())), std::string(step)};
  }
  return std::nullopt;
}

/// The host in "org.zarnet.<host><suffix>"; empty when that is not the form.
std::string HostIn(std::string_view name, std::string_view suffix) {
  if (!name.starts_with(kPrefix) || !name.ends_with(suffix)) return "";
  if (name.size() <= kPrefix.size() + suffix.size()) return "";
  name.remove_prefix(kPrefix.size());
  return std::string(name.substr(0, name.size() - suffix.size()));
}

std::string PluginIn(std::string_view path) {
  const auto at = path.find(kChannelPath);
  return at == std::string_view::npos ? "" : std::string(path.substr(at + kChannelPath.size()));
}

std::string PairName(const std::string& host, const std::string& plugin) {
  return host + '/' + plugin;
}

bool HasType(GVariant* body, const char* type) {
  return body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE(type));
}

std::string Problem(GVariant* body, const char* type) {
  return "body of type " + (body == nullptr ? std::string("()") : g_variant_get_type_string(body)) +
         ", must be " + type;
}

void AddPairs(BusEvent& event, GVariant* body) {
  if (!HasType(body, "(a(ss))")) {
    event["problem"] = Problem(body, "(a(ss))");
    return;
  }
  BusEvent pairs = BusEvent::array();
  GVariantIter* iter = nullptr;
  const char* key = nullptr;
  const char* value = nullptr;
  g_variant_get(body, "(a(ss))", &iter);
  while (g_variant_iter_next(iter, "(&s&s)", &key, &value)) pairs.push_back({key, value});
  g_variant_iter_free(iter);
  event["pairs"] = std::move(pairs);
}

// ---- What people read

std::string Who(const BusEvent& event, const std::string& field) {
  const std::string who = Printable(event.value(field, ""));
  const std::string role = event.value(field + "_role", "");
  return role.empty() ? who : who + " (" + role + ")";
}

std::string Subject(const BusEvent& event) {
  std::string host = Printable(event.value("host", ""));
  if (!event.contains("plugin")) return host;
  return PairName(host, Printable(event.value("plugin", "")));
}

std::string PairsText(const BusEvent& event) {
  constexpr std::size_t kShown = 20;
  std::string text;
  std::size_t shown = 0;
  for (const BusEvent& pair : event.at("pairs")) {
    if (++shown > kShown) {
      return text + "  ... " + std::to_string(event.at("pairs").size()) + " pairs";
    }
    text += "  " + Printable(pair.at(0).get<std::string>()) + '=' +
            Printable(pair.at(1).get<std::string>());
  }
  return text;
}

std::string BodyText(const BusEvent& event) {
  if (event.contains("problem")) return "  dropped: " + event.value("problem", "");
  return event.contains("pairs") ? PairsText(event) : "";
}

std::string AuxiliaryText(const BusEvent& event) {
  if (event.contains("problem")) return BodyText(event);
  return "  " + Printable(event.value("text", "")) + "  " +
         std::to_string(event.value("value", 0)) +
         (event.value("flag", 0) == 1 ? "  true" : "  false");
}

}  // namespace

void BusTraffic::KnowOwner(const std::string& name, const std::string& unique_name) {
  const std::string host = HostIn(name, kAuxiliary);
  if (!host.empty()) host_owners_[host] = unique_name;
}

const char* BusTraffic::RoleOf(const std::string& who, const std::string& host) const {
  const auto owner = host_owners_.find(host);
  if (owner == host_owners_.end()) return nullptr;
  return owner->second == who ? "host" : "plugin";
}

void BusTraffic::AddRole(BusEvent& event, const char* field, const std::string& who) const {
  event[field] = who;
  const char* role = RoleOf(who, event.value("host", ""));
  if (role != nullptr && !who.empty()) event[std::string(field) + "_role"] = role;
}

std::vector<BusEvent> BusTraffic::See(GDBusMessage* message, std::int64_t now) {
  constexpr const char* kBus = "org.freedesktop.DBus";
  const std::string interface = TextOf(g_dbus_message_get_interface(message));
  const bool is_signal = g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_SIGNAL;
  if (interface == kBus) {
    // Anybody can send a signal of that name; only the bus says who it is from.
    if (!is_signal || TextOf(g_dbus_message_get_sender(message)) != kBus) return {};
    if (TextOf(g_dbus_message_get_member(message)) != "NameOwnerChanged") return {};
    return SeeOwnerChange(g_dbus_message_get_body(message), now);
  }
  const std::string host = HostIn(interface, kAuxiliary);
  if (!host.empty() && is_signal) return {SeeAuxiliary(message, host)};
  const auto event = SeeChannel(message);
  return event ? std::vector<BusEvent>{*event} : std::vector<BusEvent>{};
}

std::vector<BusEvent> BusTraffic::SeeOwnerChange(GVariant* body, std::int64_t now) {
  if (!HasType(body, "(sss)")) return {};
  const char* name = nullptr;
  const char* before = nullptr;
  const char* after = nullptr;
  g_variant_get(body, "(&s&s&s)", &name, &before, &after);
  if (name[0] == ':') return *after == '\0' ? SeeDeparture(name) : std::vector<BusEvent>{};
  const auto event = SeeWellKnown(name, before, after, now);
  return event ? std::vector<BusEvent>{*event} : std::vector<BusEvent>{};
}

std::optional<BusEvent> BusTraffic::SeeWellKnown(const std::string& name, const std::string& before,
                                                 const std::string& after, std::int64_t now) {
  const std::string host = HostIn(name, kAuxiliary);
  if (!host.empty()) {
    host_owners_.erase(host);
    if (!after.empty()) host_owners_[host] = after;
    return BusEvent{{"event", after.empty() ? "host_down" : "host_up"},
                    {"host", host},
                    {"who", after.empty() ? before : after}};
  }
  const auto step = ParseStep(name);
  if (!step) return std::nullopt;
  held_.erase(name);
  if (!after.empty()) {
    held_[name] = {after, now, false};
    return std::nullopt;
  }
  pairs_[before].insert(PairName(step->host, step->plugin));
  BusEvent event = {
      {"event", "handshake"}, {"host", step->host}, {"plugin", step->plugin}, {"step", step->step}};
  AddRole(event, "who", before);
  return event;
}

std::vector<BusEvent> BusTraffic::SeeDeparture(const std::string& who) {
  std::vector<BusEvent> events;
  const auto spoke = pairs_.find(who);
  if (spoke == pairs_.end()) return events;
  for (const std::string& pair : spoke->second) {
    const auto slash = pair.find('/');
    BusEvent event = {
        {"event", "left"}, {"host", pair.substr(0, slash)}, {"plugin", pair.substr(slash + 1)}};
    AddRole(event, "who", who);
    events.push_back(std::move(event));
  }
  pairs_.erase(spoke);
  return events;
}

std::optional<BusEvent> BusTraffic::SeeChannel(GDBusMessage* message) {
  const std::string host = HostIn(TextOf(g_dbus_message_get_interface(message)), kChannelInterface);
  const GDBusMessageType type = g_dbus_message_get_message_type(message);
  const bool is_call = type == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
  if (host.empty() || (!is_call && type != G_DBUS_MESSAGE_TYPE_SIGNAL)) return std::nullopt;
  BusEvent event = {{"event", is_call ? "message" : "notification"},
                    {"host", host},
                    {"plugin", PluginIn(TextOf(g_dbus_message_get_path(message)))}};
  AddRole(event, "from", TextOf(g_dbus_message_get_sender(message)));
  AddRole(event, "to", TextOf(g_dbus_message_get_destination(message)));
  if (is_call) {
    const auto no_answer = G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED;
    event["waits"] = (g_dbus_message_get_flags(message) & no_answer) == 0;
  }
  AddPairs(event, g_dbus_message_get_body(message));
  return event;
}

BusEvent BusTraffic::SeeAuxiliary(GDBusMessage* message, const std::string& host) const {
  BusEvent event = {{"event", "auxiliary"}, {"host", host}};
  AddRole(event, "from", TextOf(g_dbus_message_get_sender(message)));
  GVariant* body = g_dbus_message_get_body(message);
  if (!HasType(body, "(sii)")) {
    event["problem"] = Problem(body, "(sii)");
    return event;
  }
  const char* text = nullptr;
  gint32 value = 0;
  gint32 flag = 0;
  g_variant_get(body, "(&sii)", &text, &value, &flag);
  event["text"] = text;
  event["value"] = value;
  event["flag"] = flag;
  return event;
}

std::vector<BusEvent> BusTraffic::HeldNames(std::int64_t now) {
  std::vector<BusEvent> events;
  for (auto& [name, holding] : held_) {
    if (holding.told || now - holding.since < kHeldMilliseconds) continue;
    holding.told = true;
    const auto step = ParseStep(name);
    BusEvent event = {
        {"event", "held"}, {"host", step->host}, {"plugin", step->plugin}, {"step", step->step}};
    AddRole(event, "who", holding.who);
    events.push_back(std::move(event));
  }
  return events;
}

std::string EventText(const BusEvent& event) {
  const std::string kind = event.value("event", "");
  const std::string head = Subject(event) + "  ";
  if (kind == "handshake") return head + Who(event, "who") + "  " + event.value("step", "");
  if (kind == "held") {
    return head + Who(event, "who") + "  holds " + event.value("step", "") +
           ": nobody else can say it";
  }
  if (kind == "left") return head + Who(event, "who") + "  has left the bus";
  if (kind == "host_up") return head + Who(event, "who") + "  is host";
  if (kind == "host_down") return head + Who(event, "who") + "  is host no more";
  if (kind == "auxiliary") {
    return head + Who(event, "from") + "  auxiliary" + AuxiliaryText(event);
  }
  const std::string way = Who(event, "from") + " -> " + Who(event, "to");
  const char* const waits = event.value("waits", false) ? " and waits" : "";
  return head + way + "  " + kind + waits + BodyText(event);
}

}  // namespace kavrelctl
