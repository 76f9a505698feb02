#include "bare_bus.h"

#include <cstdlib>
#include <stdexcept>

#include "shared_connection.h"

namespace kavrel_bench {
namespace {

namespace glib = kavrel::glib;

constexpr const char* kPath = "/bare";
constexpr const char* kInterface = "org.zarnet.kavrel.DbusCommunication";

struct Served {
  const std::function<void()>& ready;
  const std::function<void()>& called;
};

void Answer(GDBusConnection* /*connection*/, const char* /*sender*/, const char* /*path*/,
            const char* /*interface*/, const char* /*method*/, GVariant* /*parameters*/,
            GDBusMethodInvocation* invocation, void* served) {
  static_cast<const Served*>(served)->called();
  g_dbus_method_invocation_return_value(invocation, g_variant_new("(b)", TRUE));
}

int AnswerWithSdBus(sd_bus_message* message, void* served, sd_bus_error* /*error*/) {
  static_cast<const Served*>(served)->called();
  return sd_bus_reply_method_return(message, "b", 1);
}

}  // namespace

GVariant* MakeBody(const Pairs& pairs) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ss)"));
  for (const auto& [key, value] : pairs) g_variant_builder_add(&builder, "(ss)", key, value);
  return g_variant_new("(a(ss))", &builder);
}

void ServeWithGDBus(const char* name, const std::function<void()>& ready,
                    const std::function<void()>& called) {
  Served served{ready, called};
  const glib::Connection connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
  const glib::NodeInfo node(g_dbus_node_info_new_for_xml(
      "<node><interface name='org.zarnet.kavrel.DbusCommunication'><method name='Send'>"
      "<arg type='a(ss)' direction='in'/><arg type='b' direction='out'/></method>"
      "</interface></node>",
      nullptr));
  const GDBusInterfaceVTable table = {&Answer, nullptr, nullptr, {}};
  glib::Error error;
  const auto registration =
      glib::RegisterObject(connection.get(), kPath, node.get(), &table, &served, error);
  const auto ownership = glib::OwnNameOnSystemBus(
      name,
      [](GDBusConnection*, const char*, void* data) {
        // Calls arrive in order: the name is owned before anybody is told of it.
        static_cast<const Served*>(data)->ready();
      },
      &served);
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

void ServeWithSdBus(const char* name, const std::function<void()>& ready,
                    const std::function<void()>& called) {
  static const sd_bus_vtable table[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_METHOD("Send", "a(ss)", "b", AnswerWithSdBus, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_VTABLE_END};
  Served served{ready, called};
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0) std::abort();
  sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, table, &served);
  if (sd_bus_request_name(bus, name, 0) < 0) std::abort();
  ready();
  while (true) {
    if (sd_bus_process(bus, nullptr) == 0) sd_bus_wait(bus, UINT64_MAX);
  }
}

GDBusCaller::GDBusCaller(const char* name) : connection_(kavrel_test::OpenOwnConnection()) {
  glib::Error error;
  proxy_ = glib::MakeProxy(connection_.get(), name, kPath, kInterface, error);
}

void GDBusCaller::Call(const Pairs& pairs) const {
  const glib::Variant reply(g_dbus_proxy_call_sync(proxy_.get(), "Send", MakeBody(pairs),
                                                   G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  if (reply == nullptr) throw std::runtime_error("a call by GDBus failed");
}

void GDBusCaller::Send(const Pairs& pairs) const {
  g_dbus_proxy_call(proxy_.get(), "Send", MakeBody(pairs), G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
                    nullptr, nullptr);
}

SdBusCaller::SdBusCaller(std::string name) : name_(std::move(name)) {
  const char* self = nullptr;
  // Asking for the own name waits for the login: until then what is sent is only put in a queue.
  if (sd_bus_open_system(&bus_) < 0 || sd_bus_get_unique_name(bus_, &self) < 0) {
    throw std::runtime_error("no bus for sd-bus");
  }
}

void SdBusCaller::Call(const Pairs& pairs) const {
  sd_bus_message* call = MakeCall(pairs);
  sd_bus_message* reply = nullptr;
  const int result = sd_bus_call(bus_, call, 0, nullptr, &reply);
  sd_bus_message_unref(reply);
  sd_bus_message_unref(call);
  if (result < 0) throw std::runtime_error("a call by sd-bus failed");
}

void SdBusCaller::Send(const Pairs& pairs) const {
  sd_bus_message* call = MakeCall(pairs);
  sd_bus_message_set_expect_reply(call, 0);
  sd_bus_send(bus_, call, nullptr);
  sd_bus_message_unref(call);
}

sd_bus_message* SdBusCaller::MakeCall(const Pairs& pairs) const {
  sd_bus_message* call = nullptr;
  sd_bus_message_new_method_call(bus_, &call, name_.c_str(), kPath, kInterface, "Send");
  sd_bus_message_open_container(call, 'a', "(ss)");
  for (const auto& [key, value] : pairs) sd_bus_message_append(call, "(ss)", key, value);
  sd_bus_message_close_container(call);
  return call;
}

}  // namespace kavrel_bench
