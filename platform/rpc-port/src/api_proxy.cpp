// The C functions of proxies.
#include <rpc-port.h>

#include "address.h"
#include "guard.h"
#include "proxy.h"

using kavrel_rpc::CheckHandle;
using kavrel_rpc::Guard;
using kavrel_rpc::Proxy;

namespace {

// What a handle points to; it owns its share of the proxy until destroy.
struct ProxyHandle {
  std::shared_ptr<Proxy> proxy;
  bool IsForeign() const { return proxy->IsForeign(); }
};

ProxyHandle* AsHandle(rpc_port_proxy_h handle) {
  return static_cast<ProxyHandle*>(handle);
}

using ConnectOperation = int (Proxy::*)(const std::string&, const std::string&);

int Connect(rpc_port_proxy_h handle, const char* app_id, const char* port_name,
            ConnectOperation operation, const char* function) {
  if (const int result = CheckHandle(AsHandle(handle), function); result != 0) return result;
  if (app_id == nullptr || port_name == nullptr) return -EINVAL;
  if (!kavrel_rpc::IsName(app_id) || !kavrel_rpc::IsName(port_name)) return -EINVAL;
  return Guard(function, [&] {
    const auto proxy = AsHandle(handle)->proxy;  // a callback may destroy the handle
    return (*proxy.*operation)(app_id, port_name);
  });
}

template <typename Callback>
int Add(rpc_port_proxy_h handle, Callback callback, void* user_data,
        void (Proxy::*add)(Callback, void*), const char* function) {
  if (const int result = CheckHandle(AsHandle(handle), function); result != 0) return result;
  if (callback == nullptr) return -EINVAL;
  return Guard(function, [&] {
    (*AsHandle(handle)->proxy.*add)(callback, user_data);
    return 0;
  });
}

}  // namespace

int rpc_port_proxy_create(rpc_port_proxy_h* proxy) {
  if (proxy == nullptr) return -EINVAL;
  return Guard(__func__, [&] {
    *proxy = new ProxyHandle{Proxy::Create()};
    return 0;
  });
}

int rpc_port_proxy_destroy(rpc_port_proxy_h proxy) {
  if (proxy == nullptr) return -EINVAL;
  // In a forked child the locks may be held by threads that are not there. Its descriptors were
  // closed by the fork; the rest is memory.
  if (AsHandle(proxy)->IsForeign()) return 0;
  return Guard(__func__, [&] {
    const std::unique_ptr<ProxyHandle> handle(AsHandle(proxy));
    handle->proxy->Destroy();
    return 0;
  });
}

int rpc_port_proxy_connect(rpc_port_proxy_h proxy, const char* app_id, const char* port_name) {
  return Connect(proxy, app_id, port_name, &Proxy::Connect, __func__);
}

int rpc_port_proxy_connect_sync(rpc_port_proxy_h proxy, const char* app_id, const char* port_name) {
  return Connect(proxy, app_id, port_name, &Proxy::ConnectSync, __func__);
}

int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h proxy,
                                          rpc_port_proxy_connected_event_cb cb, void* user_data) {
  return Add(proxy, cb, user_data, &Proxy::AddConnected, __func__);
}

int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h proxy,
                                             rpc_port_proxy_disconnected_event_cb cb,
                                             void* user_data) {
  return Add(proxy, cb, user_data, &Proxy::AddDisconnected, __func__);
}

int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h proxy,
                                         rpc_port_proxy_rejected_event_cb cb, void* user_data) {
  return Add(proxy, cb, user_data, &Proxy::AddRejected, __func__);
}

int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h proxy,
                                         rpc_port_proxy_received_event_cb cb, void* user_data) {
  return Add(proxy, cb, user_data, &Proxy::AddReceived, __func__);
}

int rpc_port_proxy_get_port(rpc_port_proxy_h proxy, rpc_port_port_type_e type, rpc_port_h* port) {
  if (const int result = CheckHandle(AsHandle(proxy), __func__); result != 0) return result;
  if (port == nullptr) return -EINVAL;
  return Guard(__func__, [&] { return AsHandle(proxy)->proxy->GetPort(type, port); });
}
