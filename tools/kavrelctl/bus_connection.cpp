#include "bus_connection.h"

#include <algorithm>

namespace kavrelctl {
namespace {

int LimitMilliseconds(double seconds) {
  return seconds <= 0 ? G_MAXINT : static_cast<int>(std::min(seconds * 1000, 1e9));
}

/// An asynchronous call of GIO that is waited for.
struct Waiting {
  Owned<GAsyncResult> result;

  static void Done(GObject* /*source*/, GAsyncResult* result, void* waiting) {
    static_cast<Waiting*>(waiting)->result.reset(static_cast<GAsyncResult*>(g_object_ref(result)));
  }
};

}  // namespace

std::string TextOf(const GError* error) {
  return error != nullptr ? error->message : "no reason given";
}

// Connecting itself knows no limit.
Owned<GDBusConnection> ConnectToBus(const std::string& address, double limit_seconds,
                                    Owned<GError>& error) {
  const Owned<GCancellable> cancellable(g_cancellable_new());
  const guint limit = g_timeout_add(
      static_cast<guint>(LimitMilliseconds(limit_seconds)),
      [](void* late) -> gboolean {
        g_cancellable_cancel(static_cast<GCancellable*>(late));
        return G_SOURCE_CONTINUE;
      },
      cancellable.get());
  Waiting waiting;
  g_dbus_connection_new_for_address(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, cancellable.get(), &Waiting::Done, &waiting);
  while (waiting.result == nullptr) g_main_context_iteration(nullptr, TRUE);
  g_source_remove(limit);
  GError* failure = nullptr;
  Owned<GDBusConnection> bus(
      g_dbus_connection_new_for_address_finish(waiting.result.get(), &failure));
  error.reset(failure);
  return bus;
}

Owned<GVariant> CallBus(GDBusConnection& bus, const char* interface, const char* method,
                        GVariant* arguments, double limit_seconds, Owned<GError>& error) {
  GError* failure = nullptr;
  Owned<GVariant> answer(g_dbus_connection_call_sync(
      &bus, kBusInterface, "/org/freedesktop/DBus", interface, method, arguments, nullptr,
      G_DBUS_CALL_FLAGS_NONE, LimitMilliseconds(limit_seconds), nullptr, &failure));
  error.reset(failure);
  return answer;
}

}  // namespace kavrelctl
