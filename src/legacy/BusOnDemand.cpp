// GIO, loaded when the library first calls it.
//
// Only host and plug-in talk over the bus; commanding a viewer and following its state do not.
// Linked in the usual way, GIO and what it brings along (GObject and six more libraries) would
// still be loaded into each such program: a third of its start-up time and a quarter of its memory.
// GLib itself stays linked, as the platform services need it in every program.
//
// Tests link the library's objects without this file, with GIO itself.
#include <gio/gio.h>

#include "../common/on_demand.h"

namespace {

// With GIO comes the GObject that it was built for: functions of both are found through it.
constexpr kavrel::LibraryOnDemand kGio{"libgio-2.0.so.0", kavrel::Loading::kAllowed};

}  // namespace

extern "C" {

// Objects

KAVREL_ON_DEMAND(kGio, gpointer, g_object_ref, (gpointer object), (object))
KAVREL_ON_DEMAND(kGio, void, g_object_unref, (gpointer object), (object))
KAVREL_ON_DEMAND(kGio, gpointer, g_object_get_data, (GObject * object, const gchar* key),
                 (object, key))
KAVREL_ON_DEMAND(kGio, void, g_object_set_data, (GObject * object, const gchar* key, gpointer data),
                 (object, key, data))
KAVREL_ON_DEMAND(kGio, gulong, g_signal_connect_data,
                 (gpointer instance, const gchar* signal, GCallback handler, gpointer data,
                  GClosureNotify destroy, GConnectFlags flags),
                 (instance, signal, handler, data, destroy, flags))
KAVREL_ON_DEMAND(kGio, void, g_signal_handler_disconnect, (gpointer instance, gulong handler),
                 (instance, handler))
KAVREL_ON_DEMAND(kGio, GTypeInstance*, g_type_check_instance_cast,
                 (GTypeInstance * instance, GType type), (instance, type))
KAVREL_ON_DEMAND(kGio, void, g_weak_ref_init, (GWeakRef * reference, gpointer object),
                 (reference, object))
KAVREL_ON_DEMAND(kGio, gpointer, g_weak_ref_get, (GWeakRef * reference), (reference))
KAVREL_ON_DEMAND(kGio, void, g_weak_ref_set, (GWeakRef * reference, gpointer object),
                 (reference, object))
KAVREL_ON_DEMAND(kGio, GCancellable*, g_cancellable_new, (), ())
KAVREL_ON_DEMAND(kGio, void, g_cancellable_cancel, (GCancellable * cancellable), (cancellable))
KAVREL_ON_DEMAND(kGio, GQuark, g_io_error_quark, (), ())
KAVREL_ON_DEMAND(kGio, GQuark, g_dbus_error_quark, (), ())

// Names

KAVREL_ON_DEMAND(kGio, gboolean, g_dbus_is_interface_name, (const gchar* name), (name))
KAVREL_ON_DEMAND(kGio, gboolean, g_dbus_is_member_name, (const gchar* name), (name))
KAVREL_ON_DEMAND(kGio, gboolean, g_dbus_is_name, (const gchar* name), (name))
KAVREL_ON_DEMAND(kGio, gboolean, g_dbus_is_unique_name, (const gchar* name), (name))
KAVREL_ON_DEMAND(kGio, guint, g_bus_own_name,
                 (GBusType bus, const gchar* name, GBusNameOwnerFlags flags,
                  GBusAcquiredCallback on_bus, GBusNameAcquiredCallback on_name,
                  GBusNameLostCallback on_loss, gpointer data, GDestroyNotify destroy),
                 (bus, name, flags, on_bus, on_name, on_loss, data, destroy))
KAVREL_ON_DEMAND(kGio, void, g_bus_unown_name, (guint id), (id))
KAVREL_ON_DEMAND(kGio, guint, g_bus_watch_name,
                 (GBusType bus, const gchar* name, GBusNameWatcherFlags flags,
                  GBusNameAppearedCallback appeared, GBusNameVanishedCallback vanished,
                  gpointer data, GDestroyNotify destroy),
                 (bus, name, flags, appeared, vanished, data, destroy))
KAVREL_ON_DEMAND(kGio, guint, g_bus_watch_name_on_connection,
                 (GDBusConnection * connection, const gchar* name, GBusNameWatcherFlags flags,
                  GBusNameAppearedCallback appeared, GBusNameVanishedCallback vanished,
                  gpointer data, GDestroyNotify destroy),
                 (connection, name, flags, appeared, vanished, data, destroy))
KAVREL_ON_DEMAND(kGio, void, g_bus_unwatch_name, (guint id), (id))

// Connections

KAVREL_ON_DEMAND(kGio, GDBusConnection*, g_bus_get_sync,
                 (GBusType bus, GCancellable* cancellable, GError** error),
                 (bus, cancellable, error))
KAVREL_ON_DEMAND(kGio, GType, g_dbus_connection_get_type, (), ())
KAVREL_ON_DEMAND(kGio, const gchar*, g_dbus_connection_get_unique_name,
                 (GDBusConnection * connection), (connection))
KAVREL_ON_DEMAND(kGio, gboolean, g_dbus_connection_is_closed, (GDBusConnection * connection),
                 (connection))
KAVREL_ON_DEMAND(kGio, void, g_dbus_connection_set_exit_on_close,
                 (GDBusConnection * connection, gboolean exit), (connection, exit))
KAVREL_ON_DEMAND(kGio, guint, g_dbus_connection_add_filter,
                 (GDBusConnection * connection, GDBusMessageFilterFunction filter, gpointer data,
                  GDestroyNotify destroy),
                 (connection, filter, data, destroy))
KAVREL_ON_DEMAND(kGio, gboolean, g_dbus_connection_flush_sync,
                 (GDBusConnection * connection, GCancellable* cancellable, GError** error),
                 (connection, cancellable, error))
KAVREL_ON_DEMAND(kGio, GVariant*, g_dbus_connection_call_sync,
                 (GDBusConnection * connection, const gchar* name, const gchar* path,
                  const gchar* interface, const gchar* method, GVariant* parameters,
                  const GVariantType* reply_type, GDBusCallFlags flags, gint timeout,
                  GCancellable* cancellable, GError** error),
                 (connection, name, path, interface, method, parameters, reply_type, flags, timeout,
                  cancellable, error))
KAVREL_ON_DEMAND(kGio, gboolean, g_dbus_connection_emit_signal,
                 (GDBusConnection * connection, const gchar* destination, const gchar* path,
                  const gchar* interface, const gchar* signal, GVariant* parameters,
                  GError** error),
                 (connection, destination, path, interface, signal, parameters, error))
KAVREL_ON_DEMAND(kGio, guint, g_dbus_connection_signal_subscribe,
                 (GDBusConnection * connection, const gchar* sender, const gchar* interface,
                  const gchar* member, const gchar* path, const gchar* arg0, GDBusSignalFlags flags,
                  GDBusSignalCallback callback, gpointer data, GDestroyNotify destroy),
                 (connection, sender, interface, member, path, arg0, flags, callback, data,
                  destroy))
KAVREL_ON_DEMAND(kGio, void, g_dbus_connection_signal_unsubscribe,
                 (GDBusConnection * connection, guint id), (connection, id))
KAVREL_ON_DEMAND(kGio, guint, g_dbus_connection_register_object,
                 (GDBusConnection * connection, const gchar* path, GDBusInterfaceInfo* interface,
                  const GDBusInterfaceVTable* table, gpointer data, GDestroyNotify destroy,
                  GError** error),
                 (connection, path, interface, table, data, destroy, error))
KAVREL_ON_DEMAND(kGio, gboolean, g_dbus_connection_unregister_object,
                 (GDBusConnection * connection, guint id), (connection, id))

// Messages, methods and proxies

KAVREL_ON_DEMAND(kGio, GDBusMessageType, g_dbus_message_get_message_type, (GDBusMessage * message),
                 (message))
KAVREL_ON_DEMAND(kGio, guint32, g_dbus_message_get_serial, (GDBusMessage * message), (message))
KAVREL_ON_DEMAND(kGio, guint32, g_dbus_message_get_reply_serial, (GDBusMessage * message),
                 (message))
KAVREL_ON_DEMAND(kGio, const gchar*, g_dbus_message_get_sender, (GDBusMessage * message), (message))
KAVREL_ON_DEMAND(kGio, const gchar*, g_dbus_message_get_interface, (GDBusMessage * message),
                 (message))
KAVREL_ON_DEMAND(kGio, const gchar*, g_dbus_message_get_member, (GDBusMessage * message), (message))
KAVREL_ON_DEMAND(kGio, const gchar*, g_dbus_message_get_signature, (GDBusMessage * message),
                 (message))
KAVREL_ON_DEMAND(kGio, const gchar*, g_dbus_message_get_arg0, (GDBusMessage * message), (message))
KAVREL_ON_DEMAND(kGio, const gchar*, g_dbus_message_get_error_name, (GDBusMessage * message),
                 (message))
KAVREL_ON_DEMAND(kGio, void, g_dbus_method_invocation_return_value,
                 (GDBusMethodInvocation * invocation, GVariant* parameters),
                 (invocation, parameters))
KAVREL_ON_DEMAND(kGio, void, g_dbus_method_invocation_return_error_literal,
                 (GDBusMethodInvocation * invocation, GQuark domain, gint code,
                  const gchar* message),
                 (invocation, domain, code, message))
KAVREL_ON_DEMAND(kGio, GDBusNodeInfo*, g_dbus_node_info_new_for_xml,
                 (const gchar* xml, GError** error), (xml, error))
KAVREL_ON_DEMAND(kGio, void, g_dbus_node_info_unref, (GDBusNodeInfo * info), (info))
KAVREL_ON_DEMAND(kGio, GDBusProxy*, g_dbus_proxy_new_sync,
                 (GDBusConnection * connection, GDBusProxyFlags flags, GDBusInterfaceInfo* info,
                  const gchar* name, const gchar* path, const gchar* interface,
                  GCancellable* cancellable, GError** error),
                 (connection, flags, info, name, path, interface, cancellable, error))
KAVREL_ON_DEMAND(kGio, void, g_dbus_proxy_call,
                 (GDBusProxy * proxy, const gchar* method, GVariant* parameters,
                  GDBusCallFlags flags, gint timeout, GCancellable* cancellable,
                  GAsyncReadyCallback done, gpointer data),
                 (proxy, method, parameters, flags, timeout, cancellable, done, data))
KAVREL_ON_DEMAND(kGio, GVariant*, g_dbus_proxy_call_sync,
                 (GDBusProxy * proxy, const gchar* method, GVariant* parameters,
                  GDBusCallFlags flags, gint timeout, GCancellable* cancellable, GError** error),
                 (proxy, method, parameters, flags, timeout, cancellable, error))

}  // extern "C"
