/** @file
 * rpc-port: the remote call service. A service listens on a named port of its application id; a
 * client connects to that pair of names and gets two ports, the main port (requests and results)
 * and the callback port (parcels that the service sends of its own accord). What travels are
 * parcels: a header (tag, sequence number) and typed items.
 *
 * Results: 0 on success, otherwise a negative errno value. Common to all functions:
 *
 * - -22 (EINVAL): a handle, out argument or callback is null, or a name is not one
 * - -1 (EPERM): the handle was made by the parent of this forked process; such a handle can only be
 *   destroyed, which leaves the parent's connection alone
 * - -12 (ENOMEM): out of memory
 *
 * An out argument is written on success only.
 *
 * Names (application ids and port names): 1 to 64 letters, digits, '.', '_' and '-'.
 *
 * Threads: events arrive on the GLib thread-default main context of the thread that created the
 * proxy or stub. All functions may be called from any thread; one parcel is for one thread at a
 * time. A proxy or stub may be destroyed from any thread, also inside its own callbacks; after
 * destroy has returned no callback of it begins, and none is running in another thread.
 */
#ifndef RPC_PORT_H
#define RPC_PORT_H

#include <stdbool.h>
#include <stdint.h>

/** Marks what the library exports. */
#define RPC_PORT_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/** @{ */
/** Handles, opaque: a client's end, a service's end, a port of a connection, a parcel, its header.
 * Who owns one is said where it is made. */
typedef void *rpc_port_proxy_h, *rpc_port_stub_h, *rpc_port_h, *rpc_port_parcel_h,
    *rpc_port_parcel_header_h;
/** @} */

/** The two ports of a connection. */
typedef enum {
  RPC_PORT_PORT_MAIN = 0,    /**< requests to the service, results from it */
  RPC_PORT_PORT_CALLBACK = 1 /**< parcels from the service only */
} rpc_port_port_type_e;

/* ---- Events. Texts belong to the service and are valid during the call. ---- */

/** The connection stands; both its ports can be used at once. `port` is its main port. */
typedef void (*rpc_port_proxy_connected_event_cb)(const char* endpoint, const char* port_name,
                                                  rpc_port_h port, void* user_data);
/** The connection has ended, whichever end ended it. Once for each connected event. */
typedef void (*rpc_port_proxy_disconnected_event_cb)(const char* endpoint, const char* port_name,
                                                     void* user_data);
/** The service refused the connection (or, for a connect that does not wait, it failed later). */
typedef void (*rpc_port_proxy_rejected_event_cb)(const char* endpoint, const char* port_name,
                                                 void* user_data);
/** A whole parcel has arrived on the callback port: read it with rpc_port_parcel_create_from_port.
 * One that is not read during the event is dropped. */
typedef void (*rpc_port_proxy_received_event_cb)(const char* endpoint, const char* port_name,
                                                 void* user_data);

/** A client has connected. `sender`: its application id as it states it; `instance`: unique to this
 * connection. rpc_port_disconnect in here refuses the client. */
typedef void (*rpc_port_stub_connected_event_cb)(const char* sender, const char* instance,
                                                 void* user_data);
/** A connection has ended, after all its whole requests were delivered. Its ports are valid until
 * the callback returns. Once for each connected event. */
typedef void (*rpc_port_stub_disconnected_event_cb)(const char* sender, const char* instance,
                                                    void* user_data);
/** A whole request has arrived on `port`: rpc_port_parcel_create_from_port takes exactly this one.
 * One that is not read during the event is dropped. The result is the callback's own account and
 * changes nothing; an exception ends the connection with one error line. */
typedef int (*rpc_port_stub_received_event_cb)(const char* sender, const char* instance,
                                               rpc_port_h port, void* user_data);

/* ---- Proxy: the client's end ---- */

/** Makes a proxy. The caller owns it until rpc_port_proxy_destroy. Its events arrive on the calling
 * thread's GLib main context. */
RPC_PORT_API int rpc_port_proxy_create(rpc_port_proxy_h* proxy);

/** Ends the connection, if any, without a disconnected event, and frees the proxy with all ports it
 * ever handed out. Calls that other threads have begun on its ports fail first. */
RPC_PORT_API int rpc_port_proxy_destroy(rpc_port_proxy_h proxy);

/** Begins to connect to the port `port_name` of the application `app_id`. 0: under way; the
 * connected or the rejected event follows on the proxy's main context.
 *
 * -5: nobody listens there; -13: a socket or directory that is not to be trusted, or not
 * permitted; -106: connected already; -114: a connect is under way. */
RPC_PORT_API int rpc_port_proxy_connect(rpc_port_proxy_h proxy, const char* app_id,
                                        const char* port_name);

/** Connects and waits, at most KAVREL_RPC_TIMEOUT_MS. The connected event is raised on the calling
 * thread before the function returns. Failures as above, and: -13 or -5 when the service refuses
 * (after the rejected event, on the calling thread), -110: no answer in time. A proxy that was
 * disconnected may connect again; its earlier ports stay valid handles whose use fails. */
RPC_PORT_API int rpc_port_proxy_connect_sync(rpc_port_proxy_h proxy, const char* app_id,
                                             const char* port_name);

/** @{ */
/** Add a callback for an event; several are called in the order in which they were added. */
RPC_PORT_API int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h proxy,
                                                       rpc_port_proxy_connected_event_cb cb,
                                                       void* user_data);
RPC_PORT_API int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h proxy,
                                                          rpc_port_proxy_disconnected_event_cb cb,
                                                          void* user_data);
RPC_PORT_API int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h proxy,
                                                      rpc_port_proxy_rejected_event_cb cb,
                                                      void* user_data);
RPC_PORT_API int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h proxy,
                                                      rpc_port_proxy_received_event_cb cb,
                                                      void* user_data);
/** @} */

/** Gives a port of the latest connection. The proxy owns it: the handle is valid until the proxy is
 * destroyed, its use fails once the connection has ended. -107: never connected. */
RPC_PORT_API int rpc_port_proxy_get_port(rpc_port_proxy_h proxy, rpc_port_port_type_e type,
                                         rpc_port_h* port);

/* ---- Stub: the service's end ---- */

/** Makes a stub for the port `port_name` of this process's application id; the caller owns it until
 * rpc_port_stub_destroy. Nobody can connect before rpc_port_stub_listen. Its events arrive on the
 * calling thread's GLib main context. -22 also when KAVREL_APP_ID is not a name. */
RPC_PORT_API int rpc_port_stub_create(rpc_port_stub_h* stub, const char* port_name);

/** Gives up the address, ends all connections without disconnected events, frees stub and ports. */
RPC_PORT_API int rpc_port_stub_destroy(rpc_port_stub_h stub);

/** Takes the address and begins to accept clients. The address of a service that has died is taken
 * over; -5: another stub listens on it, or a system error; -13: not permitted. A stub that listens
 * already: 0. */
RPC_PORT_API int rpc_port_stub_listen(rpc_port_stub_h stub);

/** @{ */
/** Add a callback for an event; several are called in the order in which they were added. */
RPC_PORT_API int rpc_port_stub_add_connected_event_cb(rpc_port_stub_h stub,
                                                      rpc_port_stub_connected_event_cb cb,
                                                      void* user_data);
RPC_PORT_API int rpc_port_stub_add_disconnected_event_cb(rpc_port_stub_h stub,
                                                         rpc_port_stub_disconnected_event_cb cb,
                                                         void* user_data);
RPC_PORT_API int rpc_port_stub_add_received_event_cb(rpc_port_stub_h stub,
                                                     rpc_port_stub_received_event_cb cb,
                                                     void* user_data);
/** @} */

/** Gives a port of the connection `instance`. The stub owns it: valid until the connection's
 * disconnected event has returned. -2: no such connection. */
RPC_PORT_API int rpc_port_stub_get_port(rpc_port_stub_h stub, rpc_port_port_type_e type,
                                        const char* instance, rpc_port_h* port);

/* ---- Ports ---- */

/** Ends the connection that `port` belongs to, both ports of it. The disconnected event follows on
 * the main context at this end and at the other. -32: it has ended already. */
RPC_PORT_API int rpc_port_disconnect(rpc_port_h port);

/* ---- Parcels ---- */

/** Makes an empty parcel with a fresh sequence number and no tag; the caller owns it until
 * rpc_port_parcel_destroy. */
RPC_PORT_API int rpc_port_parcel_create(rpc_port_parcel_h* parcel);

/** Reads the next parcel from a port into a new parcel that the caller owns.
 *
 * On the main port of a proxy it waits until one has arrived. All reads that follow one send share
 * one deadline, KAVREL_RPC_TIMEOUT_MS after the send: -110 when it has passed (what arrives later
 * is left for the next read). -32: the connection has ended; -74: what came is not a parcel, and
 * the connection is ended.
 *
 * Elsewhere it takes the parcel of the event being delivered and never waits: -11 without one. */
RPC_PORT_API int rpc_port_parcel_create_from_port(rpc_port_parcel_h* parcel, rpc_port_h port);

/** Sends a parcel, which stays the caller's and may be sent again.
 *
 * From a client: waits while the service's buffer is full, at most KAVREL_RPC_TIMEOUT_MS: -110.
 * After one such time-out sends do not wait until one succeeds.
 *
 * From a service: never waits; what the client does not take is queued up to 4 MiB, then the
 * client is dropped.
 *
 * -32: the connection has ended; -90: an earlier write to this parcel went over its size limit;
 * -22 also for the callback port of a proxy. */
RPC_PORT_API int rpc_port_parcel_send(rpc_port_parcel_h parcel, rpc_port_h port);

/** Frees a parcel with its header. */
RPC_PORT_API int rpc_port_parcel_destroy(rpc_port_parcel_h parcel);

/** Gives the parcel's header, which belongs to the parcel. */
RPC_PORT_API int rpc_port_parcel_get_header(rpc_port_parcel_h parcel,
                                            rpc_port_parcel_header_h* header);

/** Sets the tag, at most 255 bytes; null removes it. */
RPC_PORT_API int rpc_port_parcel_header_set_tag(rpc_port_parcel_header_h header, const char* tag);

/** Gives a copy of the tag that the caller frees with free(), or null when there is none. */
RPC_PORT_API int rpc_port_parcel_header_get_tag(rpc_port_parcel_header_h header, char** tag);

/** @{ */
/** Set and get the sequence number. A new parcel has a fresh one; a service copies that of the
 * request into its result. */
RPC_PORT_API int rpc_port_parcel_header_set_seq_num(rpc_port_parcel_header_h header, int seq_num);
RPC_PORT_API int rpc_port_parcel_header_get_seq_num(rpc_port_parcel_header_h header, int* seq_num);
/** @} */

/** @{ */
/** Append an item. -90: the parcel would grow beyond 1 MiB; it is then refused by send as well. */
RPC_PORT_API int rpc_port_parcel_write_int32(rpc_port_parcel_h parcel, int32_t value);
RPC_PORT_API int rpc_port_parcel_write_bool(rpc_port_parcel_h parcel, bool value);
RPC_PORT_API int rpc_port_parcel_write_string(rpc_port_parcel_h parcel, const char* value);
RPC_PORT_API int rpc_port_parcel_write_array_count(rpc_port_parcel_h parcel, int count);
/** @} */

/** @{ */
/** Read the next item. -61: there is none; -74: it is of another type. A failed read changes
 * neither the out argument nor the position. A string is a copy that the caller frees with free().
 * An array count is given as it was sent: negative and absurd counts are the reader's to refuse. */
RPC_PORT_API int rpc_port_parcel_read_int32(rpc_port_parcel_h parcel, int32_t* value);
RPC_PORT_API int rpc_port_parcel_read_bool(rpc_port_parcel_h parcel, bool* value);
RPC_PORT_API int rpc_port_parcel_read_string(rpc_port_parcel_h parcel, char** value);
RPC_PORT_API int rpc_port_parcel_read_array_count(rpc_port_parcel_h parcel, int* count);
/** @} */

#ifdef __cplusplus
}
#endif

#undef RPC_PORT_API

#endif
