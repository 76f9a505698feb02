#include "glib.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kavrel::glib {
namespace {

// A piece of work on its way to the thread that runs a loop. Shared between the loop's source and
// the thread that waits, because either may be the last to look at it.
struct Errand {
  std::mutex mutex;
  std::condition_variable changed;
  const std::function<void()>* work = nullptr;
  bool done = false;
};

gboolean DoErrand(void* data) {
  Errand& errand = **static_cast<std::shared_ptr<Errand>*>(data);
  (*errand.work)();
  const std::lock_guard lock(errand.mutex);
  errand.done = true;
  errand.changed.notify_all();
  return G_SOURCE_REMOVE;
}

void ForgetErrand(void* data) {
  delete static_cast<std::shared_ptr<Errand>*>(data);
}

struct DestroySource {
  void operator()(GSource* source) const {
    g_source_destroy(source);
    g_source_unref(source);
  }
};
using Source = std::unique_ptr<GSource, DestroySource>;

bool RunHereIfFree(GMainContext* context, const std::function<void()>& work) {
  if (!g_main_context_acquire(context)) return false;
  work();
  g_main_context_release(context);
  return true;
}

void RunOnItsThread(GMainContext* context, const std::function<void()>& work) {
  // A loop may end without dispatching what is queued; its context is then free again.
  constexpr auto kLookAgain = std::chrono::milliseconds(20);
  const auto errand = std::make_shared<Errand>();
  errand->work = &work;
  const Source source(g_idle_source_new());
  g_source_set_priority(source.get(), G_PRIORITY_HIGH);
  g_source_set_callback(source.get(), DoErrand, new std::shared_ptr<Errand>(errand), ForgetErrand);
  g_source_attach(source.get(), context);
  while (true) {
    std::unique_lock lock(errand->mutex);
    if (errand->changed.wait_for(lock, kLookAgain, [&] { return errand->done; })) return;
    if (!g_main_context_acquire(context)) continue;
    g_source_destroy(source.get());
    work();
    g_main_context_release(context);
    return;
  }
}

bool IsNullOr(gboolean (*valid)(const char*), const char* text) {
  return text == nullptr || valid(text);
}

bool CanMatch(const SignalFilter& filter) {
  return IsNullOr(g_dbus_is_name, filter.sender) &&
         IsNullOr(g_dbus_is_interface_name, filter.interface) &&
         IsNullOr(g_dbus_is_member_name, filter.member) &&
         IsNullOr(g_variant_is_object_path, filter.path) &&
         (filter.arg0 == nullptr || g_utf8_validate(filter.arg0, -1, nullptr));
}

// Whether GIO would take path and interface; says in `error` which one it would not.
bool CheckAddress(const char* path, const char* interface, Error& error) {
  if (!g_variant_is_object_path(path)) {
    error.Set(
        G_IO_ERROR_INVALID_ARGUMENT,
        std::string("\"") + path + "\" is not an object path: elements are letters, digits, _");
    return false;
  }
  if (!g_dbus_is_interface_name(interface)) {
    error.Set(G_IO_ERROR_INVALID_ARGUMENT,
              std::string("\"") + interface +
                  "\" is not an interface name: elements are letters, digits, _, no digit first");
    return false;
  }
  return true;
}

}  // namespace

void RunOn(GMainContext* context, const std::function<void()>& work) {
  if (!RunHereIfFree(context, work)) RunOnItsThread(context, work);
}

bool ReleaseSubscription(GDBusConnection* connection, guint id) {
  g_dbus_connection_signal_unsubscribe(connection, id);
  return true;
}

bool ReleaseNameWatch(GDBusConnection* /*connection*/, guint id) {
  g_bus_unwatch_name(id);
  return true;
}

bool ReleaseNameOwnership(GDBusConnection* /*connection*/, guint id) {
  g_bus_unown_name(id);
  return true;
}

bool ReleaseRegistration(GDBusConnection* connection, guint id) {
  return g_dbus_connection_unregister_object(connection, id) != FALSE;
}

Subscription SubscribeToSignals(GDBusConnection* connection, const SignalFilter& filter,
                                GDBusSignalCallback callback, void* user_data) {
  if (!CanMatch(filter)) return {};
  const guint id = g_dbus_connection_signal_subscribe(
      connection, filter.sender, filter.interface, filter.member, filter.path, filter.arg0,
      G_DBUS_SIGNAL_FLAGS_NONE, callback, user_data, nullptr);
  return {id, connection};
}

NameWatch WatchName(GDBusConnection* connection, const char* name,
                    GBusNameAppearedCallback appeared, GBusNameVanishedCallback vanished,
                    void* user_data) {
  if (!g_dbus_is_name(name)) return {};
  const guint id = g_bus_watch_name_on_connection(connection, name, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                                  appeared, vanished, user_data, nullptr);
  return {id, connection};
}

NameWatch WatchNameOnSystemBus(const char* name, GBusNameAppearedCallback appeared,
                               GBusNameVanishedCallback vanished, void* user_data) {
  if (!g_dbus_is_name(name)) return {};
  const guint id = g_bus_watch_name(G_BUS_TYPE_SYSTEM, name, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                    appeared, vanished, user_data, nullptr);
  return {id, nullptr};
}

NameOwnership OwnNameOnSystemBus(const char* name, GBusAcquiredCallback acquired, void* user_data) {
  if (!g_dbus_is_name(name) || g_dbus_is_unique_name(name)) return {};
  const guint id = g_bus_own_name(G_BUS_TYPE_SYSTEM, name, G_BUS_NAME_OWNER_FLAGS_NONE, acquired,
                                  nullptr, nullptr, user_data, nullptr);
  return {id, nullptr};
}

Registration RegisterObject(GDBusConnection* connection, const char* path,
                            const GDBusNodeInfo* info, const GDBusInterfaceVTable* table,
                            void* user_data, Error& error) {
  if (info->interfaces == nullptr || info->interfaces[0] == nullptr) {
    error.Set(G_IO_ERROR_INVALID_ARGUMENT, "the introspection text describes no interface");
    return {};
  }
  if (!CheckAddress(path, info->interfaces[0]->name, error)) return {};
  const guint id = g_dbus_connection_register_object(connection, path, info->interfaces[0], table,
                                                     user_data, nullptr, error.Out());
  return {id, connection};
}

Proxy MakeProxy(GDBusConnection* connection, const char* name, const char* path,
                const char* interface, Error& error) {
  if (!CheckAddress(path, interface, error)) return nullptr;
  return Proxy(g_dbus_proxy_new_sync(connection, G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES, nullptr,
                                     name, path, interface, nullptr, error.Out()));
}

bool EmitSignal(GDBusConnection* connection, const char* destination, const char* path,
                const char* interface, const char* member, GVariant* body, Error& error) {
  if (!CheckAddress(path, interface, error)) return false;
  return g_dbus_connection_emit_signal(connection, destination, path, interface, member, body,
                                       error.Out()) != FALSE;
}

}  // namespace kavrel::glib
