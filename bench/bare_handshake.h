// The channel's handshake in bare GDBus calls and nothing else: what two ends cannot do without,
// between two processes, as the reference of what the channel's own ends take for it.
#pragma once

#include <gio/gio.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "common/glib.h"

namespace kavrel_bench {

/// Calls the bus itself and waits; throws when it does not answer with a number.
inline void AskBus(GDBusConnection* connection, const char* method, GVariant* arguments) {
  constexpr const char* kBus = "org.freedesktop.DBus";
  const kavrel::glib::Variant reply(g_dbus_connection_call_sync(
      connection, kBus, "/org/freedesktop/DBus", kBus, method, arguments, G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  if (reply == nullptr) throw std::runtime_error(std::string(method) + " failed");
}

/// One end. Belongs to the main thread, whose main context delivers everything.
class BareEnd {
 public:
  explicit BareEnd(const std::string& pair)
      : connection_(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr)),
        self_(g_dbus_connection_get_unique_name(connection_.get())),
        base_("org.zarnet.bare." + pair),
        path_("/org/zarnet/bare/" + pair) {
    Export();
    syn_ = Listen("_SYN", &BareEnd::OnSyn);
    syn_ack_ = Listen("_SYN_ACK", &BareEnd::OnSynAck);
    ack_ = Listen("_ACK", &BareEnd::OnAck);
    Say("_SYN");
  }
  BareEnd(const BareEnd&) = delete;
  BareEnd& operator=(const BareEnd&) = delete;

  bool ready() const { return ready_; }

 private:
  static constexpr const char* kInterface = "org.zarnet.bare.DbusCommunication";

  void Export() {
    node_.reset(g_dbus_node_info_new_for_xml(
        "<node><interface name='org.zarnet.bare.DbusCommunication'><method name='Send'>"
        "<arg type='a(ss)' direction='in'/><arg type='b' direction='out'/></method>"
        "</interface></node>",
        nullptr));
    static constexpr GDBusInterfaceVTable kNothing{};
    kavrel::glib::Error error;
    object_ = kavrel::glib::RegisterObject(connection_.get(), path_.c_str(), node_.get(), &kNothing,
                                           this, error);
  }

  kavrel::glib::Subscription Listen(const char* step, GDBusSignalCallback callback) {
    const std::string name = base_ + step;
    return kavrel::glib::SubscribeToSignals(connection_.get(),
                                            {.sender = "org.freedesktop.DBus",
                                             .interface = "org.freedesktop.DBus",
                                             .member = "NameOwnerChanged",
                                             .path = "/org/freedesktop/DBus",
                                             .arg0 = name.c_str()},
                                            callback, this);
  }

  void Say(const char* step) const {
    const std::string name = base_ + step;
    AskBus(connection_.get(), "RequestName", g_variant_new("(su)", name.c_str(), 4U));
    AskBus(connection_.get(), "ReleaseName", g_variant_new("(s)", name.c_str()));
  }

  /// Who has released the name; null for anything else.
  const char* Speaker(GVariant* change) const {
    const char* before = nullptr;
    const char* after = nullptr;
    g_variant_get(change, "(&s&s&s)", nullptr, &before, &after);
    return *after == '\0' && self_ != before ? before : nullptr;
  }

  bool TakeOn(GVariant* change) {
    const char* const who = Speaker(change);
    if (who == nullptr || watch_) return false;
    watch_ = kavrel::glib::WatchName(connection_.get(), who, nullptr, nullptr, nullptr);
    kavrel::glib::Error error;
    proxy_ = kavrel::glib::MakeProxy(connection_.get(), who, path_.c_str(), kInterface, error);
    signals_ = kavrel::glib::SubscribeToSignals(
        connection_.get(), {.sender = who, .interface = kInterface, .path = path_.c_str()},
        [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*, void*) {
        },
        nullptr);
    return true;
  }

  static void OnSyn(GDBusConnection*, const char*, const char*, const char*, const char*,
                    GVariant* change, void* end) {
    auto& self = *static_cast<BareEnd*>(end);
    if (self.TakeOn(change)) self.Say("_SYN_ACK");
  }
  static void OnSynAck(GDBusConnection*, const char*, const char*, const char*, const char*,
                       GVariant* change, void* end) {
    auto& self = *static_cast<BareEnd*>(end);
    if (!self.TakeOn(change)) return;
    self.Say("_ACK");
    self.ready_ = true;
  }
  static void OnAck(GDBusConnection*, const char*, const char*, const char*, const char*,
                    GVariant* change, void* end) {
    auto& self = *static_cast<BareEnd*>(end);
    if (self.Speaker(change) != nullptr) self.ready_ = true;
  }

  kavrel::glib::Connection connection_;
  std::string self_;
  std::string base_;
  std::string path_;
  kavrel::glib::NodeInfo node_;
  kavrel::glib::Registration object_;
  kavrel::glib::Subscription syn_;
  kavrel::glib::Subscription syn_ack_;
  kavrel::glib::Subscription ack_;
  kavrel::glib::NameWatch watch_;
  kavrel::glib::Proxy proxy_;
  kavrel::glib::Subscription signals_;
  bool ready_ = false;
};

}  // namespace kavrel_bench
