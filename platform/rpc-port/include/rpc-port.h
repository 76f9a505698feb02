#ifndef RPC_PORT_H
#define RPC_PORT_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void *rpc_port_proxy_h, *rpc_port_stub_h, *rpc_port_h, *rpc_port_parcel_h, *rpc_port_parcel_header_h;
typedef enum { RPC_PORT_PORT_MAIN = 0, RPC_PORT_PORT_CALLBACK = 1 } rpc_port_port_type_e;
typedef void (*rpc_port_proxy_connected_event_cb)(const char *endpoint, const char *port_name, rpc_port_h port, void *user_data);
typedef void (*rpc_port_proxy_disconnected_event_cb)(const char *endpoint, const char *port_name, void *user_data);
typedef void (*rpc_port_proxy_rejected_event_cb)(const char *endpoint, const char *port_name, void *user_data);
typedef void (*rpc_port_proxy_received_event_cb)(const char *endpoint, const char *port_name, void *user_data);
typedef void (*rpc_port_stub_connected_event_cb)(const char *sender, const char *instance, void *user_data);
typedef void (*rpc_port_stub_disconnected_event_cb)(const char *sender, const char *instance, void *user_data);
typedef int  (*rpc_port_stub_received_event_cb)(const char *sender, const char *instance, rpc_port_h port, void *user_data);
int rpc_port_proxy_create(rpc_port_proxy_h *proxy);
int rpc_port_proxy_destroy(rpc_port_proxy_h proxy);
int rpc_port_proxy_connect(rpc_port_proxy_h proxy, const char *app_id, const char *port_name);
int rpc_port_proxy_connect_sync(rpc_port_proxy_h proxy, const char *app_id, const char *port_name);
int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h proxy, rpc_port_proxy_connected_event_cb cb, void *user_data);
int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h proxy, rpc_port_proxy_disconnected_event_cb cb, void *user_data);
int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h proxy, rpc_port_proxy_rejected_event_cb cb, void *user_data);
int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h proxy, rpc_port_proxy_received_event_cb cb, void *user_data);
int rpc_port_proxy_get_port(rpc_port_proxy_h proxy, rpc_port_port_type_e type, rpc_port_h *port);
int rpc_port_stub_create(rpc_port_stub_h *stub, const char *port_name);
int rpc_port_stub_destroy(rpc_port_stub_h stub);
int rpc_port_stub_listen(rpc_port_stub_h stub);
int rpc_port_stub_add_connected_event_cb(rpc_port_stub_h stub, rpc_port_stub_connected_event_cb cb, void *user_data);
int rpc_port_stub_add_disconnected_event_cb(rpc_port_stub_h stub, rpc_port_stub_disconnected_event_cb cb, void *user_data);
int rpc_port_stub_add_received_event_cb(rpc_port_stub_h stub, rpc_port_stub_received_event_cb cb, void *user_data);
int rpc_port_stub_get_port(rpc_port_stub_h stub, rpc_port_port_type_e type, const char *instance, rpc_port_h *port);
int rpc_port_disconnect(rpc_port_h port);
int rpc_port_parcel_create(rpc_port_parcel_h *parcel);                               /* stamps a fresh sequence number */
int rpc_port_parcel_create_from_port(rpc_port_parcel_h *parcel, rpc_port_h port);    /* blocks until one is read */
int rpc_port_parcel_send(rpc_port_parcel_h parcel, rpc_port_h port);
int rpc_port_parcel_destroy(rpc_port_parcel_h parcel);
int rpc_port_parcel_get_header(rpc_port_parcel_h parcel, rpc_port_parcel_header_h *header);
int rpc_port_parcel_header_set_tag(rpc_port_parcel_header_h header, const char *tag);
int rpc_port_parcel_header_get_tag(rpc_port_parcel_header_h header, char **tag);     /* malloc'd or NULL; the caller frees */
int rpc_port_parcel_header_set_seq_num(rpc_port_parcel_header_h header, int seq_num);
int rpc_port_parcel_header_get_seq_num(rpc_port_parcel_header_h header, int *seq_num);
int rpc_port_parcel_write_int32(rpc_port_parcel_h parcel, int32_t value);
int rpc_port_parcel_write_bool(rpc_port_parcel_h parcel, bool value);
int rpc_port_parcel_write_string(rpc_port_parcel_h parcel, const char *value);
int rpc_port_parcel_write_array_count(rpc_port_parcel_h parcel, int count);
int rpc_port_parcel_read_int32(rpc_port_parcel_h parcel, int32_t *value);
int rpc_port_parcel_read_bool(rpc_port_parcel_h parcel, bool *value);
int rpc_port_parcel_read_string(rpc_port_parcel_h parcel, char **value);             /* malloc'd; the caller frees */
int rpc_port_parcel_read_array_count(rpc_port_parcel_h parcel, int *count);

#ifdef __cplusplus
}
#endif

#endif
