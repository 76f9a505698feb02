#include "shared_connection.h"

#include <atomic>
#include <cstdlib>

#include "child_process.h"

namespace kavrel_test {
namespace {

// May run on GIO's own thread.
void NoteEnd(void* ended, GObject* /*where*/) {
  *static_cast<std::atomic<bool>*>(ended) = true;
  g_main_context_wakeup(nullptr);
}

gboolean NoteLimit(void* late) {
  *static_cast<bool*>(late) = true;
  return G_SOURCE_CONTINUE;
}

}  // namespace

void ForgetSystemBus() {
  GDBusConnection* shared = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
  if (shared == nullptr) return;
  std::atomic<bool> ended = false;
  g_dbus_connection_set_exit_on_close(shared, FALSE);
  g_object_weak_ref(G_OBJECT(shared), NoteEnd, &ended);
  g_object_unref(shared);
  bool late = false;
  const guint limit = g_timeout_add(static_cast<guint>(kGenerous.count()), NoteLimit, &late);
  while (!ended && !late) g_main_context_iteration(nullptr, TRUE);
  g_source_remove(limit);
  if (ended) return;
  g_printerr("something still holds the connection to the private bus\n");
  std::abort();
}

GDBusConnection* OpenOwnConnection() {
  char* const address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
  if (address == nullptr) return nullptr;
  GDBusConnection* const connection = g_dbus_connection_new_for_address_sync(
      address,
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
  g_free(address);
  return connection;
}

}  // namespace kavrel_test
