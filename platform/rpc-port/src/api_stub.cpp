// The C functions of stubs.
#include <rpc-port.h>

#include "address.h"
#include "guard.h"
#include "service.h"

using kavrel_rpc::CheckHandle;
using kavrel_rpc::Guard;
using kavrel_rpc::Service;

namespace {

// What a handle points to; it owns its share of the service until destroy.
struct StubHandle {
  std::shared_ptr<Service> service;
  bool IsForeign() const { return service->IsForeign(); }
};

StubHandle* AsHandle(rpc_port_stub_h handle) {
  return static_cast<StubHandle*>(handle);
}

template <typename Callback>
int Add(rpc_port_stub_h handle, Callback callback, void* user_data,
        void (Service::*add)(Callback, void*), const char* function) {
  if (const int result = CheckHandle(AsHandle(handle), function); result != 0) return result;
  if (callback == nullptr) return -EINVAL;
  return Guard(function, [&] {
    (*AsHandle(handle)->service.*add)(callback, user_data);
    return 0;
  });
}

}  // namespace

int rpc_port_stub_create(rpc_port_stub_h* stub, const char* port_name) {
  if (stub == nullptr || port_name == nullptr || !kavrel_rpc::IsName(port_name)) return -EINVAL;
  return Guard(__func__, [&] {
    std::string app_id = kavrel_rpc::OwnApplicationId();
    if (app_id.empty()) return -EINVAL;
    *stub = new StubHandle{std::make_shared<Service>(std::move(app_id), port_name)};
    return 0;
  });
}

int rpc_port_stub_destroy(rpc_port_stub_h stub) {
  if (stub == nullptr) return -EINVAL;
  // In a forked child the locks may be held by threads that are not there. Its descriptors were
  // closed by the fork; the rest is memory.
  if (AsHandle(stub)->IsForeign()) return 0;
  return Guard(__func__, [&] {
    const std::unique_ptr<StubHandle> handle(AsHandle(stub));
    handle->service->Destroy();
    return 0;
  });
}

int rpc_port_stub_listen(rpc_port_stub_h stub) {
  if (const int result = CheckHandle(AsHandle(stub), __func__); result != 0) return result;
  return Guard(__func__, [&] { return AsHandle(stub)->service->Listen(); });
}

int rpc_port_stub_add_connected_event_cb(rpc_port_stub_h stub, rpc_port_stub_connected_event_cb cb,
                                         void* user_data) {
  return Add(stub, cb, user_data, &Service::AddConnected, __func__);
}

int rpc_port_stub_add_disconnected_event_cb(rpc_port_stub_h stub,
                                            rpc_port_stub_disconnected_event_cb cb,
                                            void* user_data) {
  return Add(stub, cb, user_data, &Service::AddDisconnected, __func__);
}

int rpc_port_stub_add_received_event_cb(rpc_port_stub_h stub, rpc_port_stub_received_event_cb cb,
                                        void* user_data) {
  return Add(stub, cb, user_data, &Service::AddReceived, __func__);
}

int rpc_port_stub_get_port(rpc_port_stub_h stub, rpc_port_port_type_e type, const char* instance,
                           rpc_port_h* port) {
  if (const int result = CheckHandle(AsHandle(stub), __func__); result != 0) return result;
  if (instance == nullptr || port == nullptr) return -EINVAL;
  return Guard(__func__, [&] { return AsHandle(stub)->service->GetPort(type, instance, port); });
}
