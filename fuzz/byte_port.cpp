#include "byte_port.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>

#include "expect.h"
#include "frame.h"
#include "parcel.h"

namespace kavrel_fuzz {
namespace {

constexpr const char* kClient = "client";
constexpr const char* kInstance = "i1";
constexpr const char* kService = "service";
constexpr const char* kPortName = "port";

template <class Callback>
struct Event {
  Callback callback = nullptr;
  void* user_data = nullptr;
};

struct Stub {
  Event<rpc_port_stub_connected_event_cb> connected;
  Event<rpc_port_stub_received_event_cb> received;
  BytePort main_port;
  BytePort callback_port;
};

struct Proxy {
  Event<rpc_port_proxy_connected_event_cb> connected;
  Event<rpc_port_proxy_received_event_cb> received;
  BytePort main_port;
  BytePort callback_port;
};

std::unique_ptr<Stub> the_stub;
std::unique_ptr<Proxy> the_proxy;
std::vector<rpc_port_parcel_h> live_parcels;

template <class Callback>
int Keep(Event<Callback>& event, Callback callback, void* user_data) {
  event = {callback, user_data};
  return 0;
}

int NoteMade(int result, const rpc_port_parcel_h* parcel) {
  if (result == 0) live_parcels.push_back(*parcel);
  return result;
}

}  // namespace

BytePort::BytePort()
    : Port(std::make_shared<kavrel_rpc::Link>(kavrel_rpc::OwnedFd(), kavrel_rpc::OwnedFd())) {}

const char* BytePort::Take(ByteView& frame) {
  namespace frames = kavrel_rpc::frame;
  frame = {};
  if (arriving_.size() < sizeof(std::uint32_t)) return nullptr;
  const std::size_t size = frames::StatedSize(arriving_);
  if (!frames::IsSizeAllowed(size)) return "a parcel of a size that is not allowed";
  if (arriving_.size() < size) return nullptr;
  if (const char* fault = frames::FindFault(arriving_.first(size))) return fault;
  frame = arriving_.first(size);
  arriving_ = arriving_.subspan(size);
  return nullptr;
}

int BytePort::Receive(kavrel_rpc::Parcel** parcel) {
  ByteView frame;
  if (Take(frame) != nullptr) return -EBADMSG;
  if (frame.empty()) return -EPIPE;
  *parcel = kavrel_rpc::Parcel::FromFrame(frame);
  if (*parcel == nullptr) return -ENOMEM;
  if (counts_from_request_) {
    const auto stated = static_cast<std::uint32_t>((*parcel)->Sequence());
    (*parcel)->SetSequence(static_cast<std::int32_t>(stated + request_));
  }
  return 0;
}

int BytePort::DoSend(kavrel_rpc::Bytes frame) {
  sent_.emplace_back(frame.begin(), frame.end());
  request_ =
      kavrel_rpc::frame::Load<std::uint32_t>(frame.data() + kavrel_rpc::frame::kSequenceOffset);
  return 0;
}

std::vector<Bytes> BytePort::TakeSent() {
  return std::exchange(sent_, {});
}

void StubConnection::Connect() {
  the_stub->connected.callback(kClient, kInstance, the_stub->connected.user_data);
}

BytePort& StubConnection::main_port() {
  return the_stub->main_port;
}

const char* StubConnection::Deliver(ByteView bytes, const std::function<void(int result)>& served) {
  BytePort arrival;
  arrival.Give(bytes);
  for (;;) {
    ByteView frame;
    const char* const fault = arrival.Take(frame);
    if (fault != nullptr || frame.empty()) return fault;
    the_stub->main_port.Give(frame);
    served(the_stub->received.callback(kClient, kInstance, &the_stub->main_port,
                                       the_stub->received.user_data));
  }
}

BytePort& ProxyConnection::main_port() {
  return the_proxy->main_port;
}

void ProxyConnection::DeliverCallbacks(ByteView bytes, const std::function<void()>& delivered) {
  BytePort arrival;
  arrival.Give(bytes);
  for (;;) {
    ByteView frame;
    if (arrival.Take(frame) != nullptr || frame.empty()) return;
    the_proxy->callback_port.Give(frame);
    the_proxy->received.callback(kService, kPortName, the_proxy->received.user_data);
    delivered();
  }
}

std::vector<rpc_port_parcel_h> LiveParcels() {
  return live_parcels;
}

}  // namespace kavrel_fuzz

using kavrel_fuzz::Keep;
using kavrel_fuzz::live_parcels;
using kavrel_fuzz::NoteMade;
using kavrel_fuzz::the_proxy;
using kavrel_fuzz::the_stub;

// The functions of parcels are wrapped by the linker: only to know which parcels exist.
extern "C" {

int __real_rpc_port_parcel_create(rpc_port_parcel_h* parcel);
int __real_rpc_port_parcel_create_from_port(rpc_port_parcel_h* parcel, rpc_port_h port);
int __real_rpc_port_parcel_destroy(rpc_port_parcel_h parcel);

int __wrap_rpc_port_parcel_create(rpc_port_parcel_h* parcel);
int __wrap_rpc_port_parcel_create_from_port(rpc_port_parcel_h* parcel, rpc_port_h port);
int __wrap_rpc_port_parcel_destroy(rpc_port_parcel_h parcel);

int __wrap_rpc_port_parcel_create(rpc_port_parcel_h* parcel) {
  return NoteMade(__real_rpc_port_parcel_create(parcel), parcel);
}

int __wrap_rpc_port_parcel_create_from_port(rpc_port_parcel_h* parcel, rpc_port_h port) {
  return NoteMade(__real_rpc_port_parcel_create_from_port(parcel, port), parcel);
}

int __wrap_rpc_port_parcel_destroy(rpc_port_parcel_h parcel) {
  const auto found = std::find(live_parcels.begin(), live_parcels.end(), parcel);
  kavrel_fuzz::Expect(found != live_parcels.end(), "only parcels that exist are destroyed");
  live_parcels.erase(found);
  return __real_rpc_port_parcel_destroy(parcel);
}
}

// --- Stubs

int rpc_port_stub_create(rpc_port_stub_h* stub, const char* /*port_name*/) {
  the_stub = std::make_unique<kavrel_fuzz::Stub>();
  *stub = the_stub.get();
  return 0;
}

int rpc_port_stub_destroy(rpc_port_stub_h /*stub*/) {
  the_stub.reset();
  return 0;
}

int rpc_port_stub_listen(rpc_port_stub_h /*stub*/) {
  return 0;
}

int rpc_port_stub_add_connected_event_cb(rpc_port_stub_h /*stub*/,
                                         rpc_port_stub_connected_event_cb callback,
                                         void* user_data) {
  return Keep(the_stub->connected, callback, user_data);
}

int rpc_port_stub_add_disconnected_event_cb(rpc_port_stub_h /*stub*/,
                                            rpc_port_stub_disconnected_event_cb /*callback*/,
                                            void* /*user_data*/) {
  return 0;
}

int rpc_port_stub_add_received_event_cb(rpc_port_stub_h /*stub*/,
                                        rpc_port_stub_received_event_cb callback, void* user_data) {
  return Keep(the_stub->received, callback, user_data);
}

int rpc_port_stub_get_port(rpc_port_stub_h /*stub*/, rpc_port_port_type_e type,
                           const char* /*instance*/, rpc_port_h* port) {
  *port = type == RPC_PORT_PORT_MAIN ? &the_stub->main_port : &the_stub->callback_port;
  return 0;
}

// --- Proxies

int rpc_port_proxy_create(rpc_port_proxy_h* proxy) {
  the_proxy = std::make_unique<kavrel_fuzz::Proxy>();
  *proxy = the_proxy.get();
  return 0;
}

int rpc_port_proxy_destroy(rpc_port_proxy_h /*proxy*/) {
  the_proxy.reset();
  return 0;
}

int rpc_port_proxy_connect(rpc_port_proxy_h proxy, const char* app_id, const char* port_name) {
  return rpc_port_proxy_connect_sync(proxy, app_id, port_name);
}

int rpc_port_proxy_connect_sync(rpc_port_proxy_h /*proxy*/, const char* app_id,
                                const char* port_name) {
  the_proxy->connected.callback(app_id, port_name, &the_proxy->main_port,
                                the_proxy->connected.user_data);
  return 0;
}

int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h /*proxy*/,
                                          rpc_port_proxy_connected_event_cb callback,
                                          void* user_data) {
  return Keep(the_proxy->connected, callback, user_data);
}

int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h /*proxy*/,
                                             rpc_port_proxy_disconnected_event_cb /*callback*/,
                                             void* /*user_data*/) {
  return 0;
}

int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h /*proxy*/,
                                         rpc_port_proxy_rejected_event_cb /*callback*/,
                                         void* /*user_data*/) {
  return 0;
}

int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h /*proxy*/,
                                         rpc_port_proxy_received_event_cb callback,
                                         void* user_data) {
  return Keep(the_proxy->received, callback, user_data);
}

int rpc_port_proxy_get_port(rpc_port_proxy_h /*proxy*/, rpc_port_port_type_e type,
                            rpc_port_h* port) {
  *port = type == RPC_PORT_PORT_MAIN ? &the_proxy->main_port : &the_proxy->callback_port;
  return 0;
}
