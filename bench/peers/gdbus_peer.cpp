// GDBus, peer to peer and through the bus daemon that DBUS_SYSTEM_BUS_ADDRESS names.
#include <filesystem>
#include <stdexcept>

#include "common/glib.h"
#include "peers/peer.h"
#include "shared_connection.h"

namespace kavrel_bench {
namespace {

namespace glib = kavrel::glib;

constexpr const char* kPath = "/viewer";
constexpr const char* kInterface = "org.zarnet.Bench";
constexpr const char* kXml =
    "<node><interface name='org.zarnet.Bench'>"
    "<method name='GetWindowSize'><arg type='i' direction='out'/><arg type='b' direction='out'/>"
    "</method><method name='Show'><arg type='i' direction='in'/><arg type='s' direction='in'/>"
    "<arg type='s' direction='in'/></method></interface></node>";

std::string BusNameOf(const std::string& address) {
  return "org.zarnet.GDBus." + std::filesystem::path(address).filename().string();
}

// ---- Who answers

void OnCall(GDBusConnection*, const char*, const char*, const char*, const char* method,
            GVariant* arguments, GDBusMethodInvocation* invocation, void*) {
  if (std::string_view(method) == "GetWindowSize") {
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(ib)", kWindowSize, TRUE));
    return;
  }
  int number = 0;
  const char* first = nullptr;
  const char* second = nullptr;
  g_variant_get(arguments, "(i&s&s)", &number, &first, &second);
  g_dbus_method_invocation_return_value(invocation, nullptr);
}

/// For as long as the process lives.
void Export(GDBusConnection* connection) {
  static const GDBusInterfaceVTable table = {&OnCall, nullptr, nullptr, {}};
  static GDBusNodeInfo* const node = g_dbus_node_info_new_for_xml(kXml, nullptr);
  g_dbus_connection_register_object(connection, kPath, node->interfaces[0], &table, nullptr,
                                    nullptr, nullptr);
}

gboolean OnConnection(GDBusServer*, GDBusConnection* connection, void*) {
  g_object_ref(connection);
  Export(connection);
  return TRUE;
}

void ServeDirectly(const std::string& address, const std::function<void()>& ready) {
  char* const guid = g_dbus_generate_guid();
  GDBusServer* const server = g_dbus_server_new_sync(
      ("unix:path=" + address).c_str(), G_DBUS_SERVER_FLAGS_NONE, guid, nullptr, nullptr, nullptr);
  g_free(guid);
  if (server == nullptr) throw std::runtime_error("cannot listen on " + address);
  g_signal_connect(server, "new-connection", G_CALLBACK(&OnConnection), nullptr);
  g_dbus_server_start(server);
  ready();
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

void ServeOnBus(const std::string& address, const std::function<void()>& ready) {
  const glib::Connection connection(kavrel_test::OpenOwnConnection());
  if (connection == nullptr) throw std::runtime_error("no bus");
  Export(connection.get());
  g_bus_own_name_on_connection(
      connection.get(), BusNameOf(address).c_str(), G_BUS_NAME_OWNER_FLAGS_NONE,
      [](GDBusConnection*, const char*, void* data) {
        (*static_cast<const std::function<void()>*>(data))();
      },
      nullptr, const_cast<std::function<void()>*>(&ready), nullptr);
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

// ---- Who calls

class GDBusCaller final : public Caller {
 public:
  /// `service` is empty where there is no daemon.
  GDBusCaller(GDBusConnection* connection, std::string service)
      : connection_(connection), service_(std::move(service)) {
    if (connection == nullptr) throw std::runtime_error("GDBus cannot connect");
  }

  void TwoWay() override {
    const glib::Variant reply(g_dbus_connection_call_sync(
        connection_.get(), Service(), kPath, kInterface, "GetWindowSize", nullptr,
        G_VARIANT_TYPE("(ib)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    if (reply == nullptr) throw std::runtime_error("GetWindowSize failed");
  }
  void OneWay(int number) override {
    g_dbus_connection_call(connection_.get(), Service(), kPath, kInterface, "Show",
                           g_variant_new("(iss)", number, kText, kText), nullptr,
                           G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
  }

 private:
  const char* Service() const { return service_.empty() ? nullptr : service_.c_str(); }

  glib::Connection connection_;
  std::string service_;
};

std::unique_ptr<Caller> ConnectDirectly(const std::string& address) {
  return std::make_unique<GDBusCaller>(
      g_dbus_connection_new_for_address_sync(("unix:path=" + address).c_str(),
                                             G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr,
                                             nullptr, nullptr),
      "");
}

std::unique_ptr<Caller> ConnectToBus(const std::string& address) {
  return std::make_unique<GDBusCaller>(kavrel_test::OpenOwnConnection(), BusNameOf(address));
}

}  // namespace

Peer GDBusDirectPeer() {
  return {"GDBus, peer to peer", Kind::kPeer, &ServeDirectly, &ConnectDirectly, false, 4'000};
}

Peer GDBusPeer() {
  return {"GDBus, bus daemon", Kind::kPeer, &ServeOnBus, &ConnectToBus, true, 4'000};
}

}  // namespace kavrel_bench
