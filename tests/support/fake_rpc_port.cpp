#include "fake_rpc_port.h"

#include <algorithm>
#include <cerrno>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "failing_allocations.h"
#include "fake_rpc_port_handles.h"
#include "live_texts.h"

namespace kavrel_test {

using fake_rpc::Handle;
using fake_rpc::Header;
using fake_rpc::Parcel;
using fake_rpc::Port;
using fake_rpc::Proxy;
using fake_rpc::Registration;
using fake_rpc::Stub;

namespace {

template <class... Functions>
struct Overloaded : Functions... {
  using Functions::operator()...;
};
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

bool IsOwned(const Handle& handle) {
  return dynamic_cast<const Proxy*>(&handle) != nullptr ||
         dynamic_cast<const Stub*>(&handle) != nullptr ||
         dynamic_cast<const Parcel*>(&handle) != nullptr;
}

}  // namespace

FakeRpcPort* the_fake_rpc_port = nullptr;

std::string ToText(const Item& item) {
  return std::visit(
      Overloaded{[](std::int32_t number) { return std::to_string(number); },
                 [](bool flag) { return std::string(flag ? "true" : "false"); },
                 [](const std::string& text) { return '"' + text + '"'; },
                 [](const ArrayCount& count) { return "count " + std::to_string(count.count); }},
      item);
}

std::string ToText(const Items& items) {
  std::string text;
  for (const Item& item : items) text += (text.empty() ? "" : ", ") + ToText(item);
  return text;
}

void PrintTo(const ParcelContent& content, std::ostream* out) {
  *out << "{tag " << (content.tag ? '"' + *content.tag + '"' : "none") << ", sequence "
       << content.sequence << ", items {" << ToText(content.items) << "}}";
}

void PrintTo(const SentParcel& sent, std::ostream* out) {
  *out << sent.port << ' ';
  PrintTo(sent.content, out);
}

FakeRpcPort::FakeRpcPort() {
  if (the_fake_rpc_port != nullptr) {
    throw std::logic_error("there is a fake rpc-port service already");
  }
  the_fake_rpc_port = this;
}

FakeRpcPort::~FakeRpcPort() {
  the_fake_rpc_port = nullptr;
}

// --- What happened

std::vector<std::string> FakeRpcPort::TakeCalls() {
  const std::lock_guard lock(mutex_);
  return std::exchange(calls_, {});
}

void FakeRpcPort::Observe(std::function<void(const std::string& call)> observer) {
  const std::lock_guard lock(mutex_);
  observer_ = std::move(observer);
}

std::vector<SentParcel> FakeRpcPort::TakeSent() {
  const std::lock_guard lock(mutex_);
  return std::exchange(sent_, {});
}

std::vector<std::string> FakeRpcPort::misuses() const {
  const std::lock_guard lock(mutex_);
  return misuses_;
}

std::vector<std::string> FakeRpcPort::LiveHandles() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  for (const auto& handle : handles_) {
    if (handle->alive && IsOwned(*handle)) names.push_back(handle->name);
  }
  return names;
}

std::size_t FakeRpcPort::LiveTexts() {
  return kavrel_test::LiveTexts();
}

std::string FakeRpcPort::NameOf(const void* handle) const {
  const std::lock_guard lock(mutex_);
  return NameOfLocked(handle);
}

std::string FakeRpcPort::NameOfLocked(const void* handle) const {
  if (handle == nullptr) return "null";
  const auto entry = by_address_.find(handle);
  return entry != by_address_.end() ? entry->second->name : "unknown";
}

// --- What the functions do

void FakeRpcPort::Fail(const std::string& function, int result, int nth) {
  const std::lock_guard lock(mutex_);
  failures_[function] = {result, nth, false};
}

void FakeRpcPort::FailAlways(const std::string& function, int result) {
  const std::lock_guard lock(mutex_);
  failures_[function] = {result, 1, true};
}

void FakeRpcPort::Recover(const std::string& function) {
  const std::lock_guard lock(mutex_);
  failures_.erase(function);
}

void FakeRpcPort::SetNextSequence(int sequence) {
  const std::lock_guard lock(mutex_);
  next_sequence_ = sequence;
}

void FakeRpcPort::OnSend(std::function<void(rpc_port_h port, const ParcelContent&)> handler) {
  const std::lock_guard lock(mutex_);
  on_send_ = std::move(handler);
}

void FakeRpcPort::SetSyncConnectRaisesEvent(bool raises) {
  const std::lock_guard lock(mutex_);
  sync_connect_raises_ = raises;
}

void FakeRpcPort::Queue(rpc_port_h port, ParcelContent content) {
  const std::lock_guard lock(mutex_);
  Port* const found = Find<Port>("Queue", port);
  if (found == nullptr) throw std::logic_error("no such port");
  found->incoming.push_back(std::move(content));
}

// Records the call; the result that the test wants instead of what the function does, or 0.
int FakeRpcPort::Begin(const std::string& function, const std::vector<std::string>& arguments) {
  std::string call = function + '(';
  for (const std::string& argument : arguments) {
    if (!call.ends_with('(')) call += ", ";
    call += argument;
  }
  call += ')';
  if (observer_) observer_(call);
  calls_.push_back(std::move(call));
  const auto failure = failures_.find(function);
  if (failure == failures_.end() || --failure->second.countdown > 0) return 0;
  const int result = failure->second.result;
  if (!failure->second.always) failures_.erase(failure);
  return result;
}

Parcel* FakeRpcPort::NewParcel(ParcelContent content) {
  Parcel* const parcel = Add<Parcel>("p");
  parcel->content = std::move(content);
  parcel->header = Add<Header>("h");
  parcel->header->parcel = parcel;
  return parcel;
}

// The main port of two new ones.
Port* FakeRpcPort::NewConnection() {
  Port* const main = Add<Port>("main");
  main->other = Add<Port>("callback");
  main->other->other = main;
  return main;
}

void FakeRpcPort::End(Port* main) {
  if (main == nullptr) return;
  main->ended = true;
  main->other->ended = true;
}

// --- The client's side

rpc_port_proxy_h FakeRpcPort::proxy() const {
  const std::lock_guard lock(mutex_);
  return proxy_;
}

rpc_port_h FakeRpcPort::main_port() const {
  const std::lock_guard lock(mutex_);
  return proxy_ != nullptr ? proxy_->main : nullptr;
}

rpc_port_h FakeRpcPort::callback_port() const {
  const std::lock_guard lock(mutex_);
  return proxy_ != nullptr && proxy_->main != nullptr ? proxy_->main->other : nullptr;
}

void* FakeRpcPort::ProxyUserData() const {
  const std::lock_guard lock(mutex_);
  return proxy_->connected.at(0).user_data;
}

// Events run without the lock: what they call comes back in.
void FakeRpcPort::RaiseConnected() {
  std::unique_lock lock(mutex_);
  proxy_->main = NewConnection();
  Port* const main = proxy_->main;
  const Proxy proxy = *proxy_;
  lock.unlock();
  for (const auto& one : proxy.connected) {
    one.callback(proxy.app_id.c_str(), proxy.port_name.c_str(), main, one.user_data);
  }
}

void FakeRpcPort::RaiseDisconnected() {
  std::unique_lock lock(mutex_);
  End(proxy_->main);
  const Proxy proxy = *proxy_;
  lock.unlock();
  for (const auto& one : proxy.disconnected) {
    one.callback(proxy.app_id.c_str(), proxy.port_name.c_str(), one.user_data);
  }
}

void FakeRpcPort::RaiseRejected() {
  std::unique_lock lock(mutex_);
  const Proxy proxy = *proxy_;
  lock.unlock();
  for (const auto& one : proxy.rejected) {
    one.callback(proxy.app_id.c_str(), proxy.port_name.c_str(), one.user_data);
  }
}

void FakeRpcPort::RaiseReceived() {
  std::unique_lock lock(mutex_);
  const Proxy proxy = *proxy_;
  lock.unlock();
  for (const auto& one : proxy.received) {
    one.callback(proxy.app_id.c_str(), proxy.port_name.c_str(), one.user_data);
  }
}

// --- The service's side

rpc_port_stub_h FakeRpcPort::stub() const {
  const std::lock_guard lock(mutex_);
  return stub_;
}

void FakeRpcPort::RaiseClientConnected(const std::string& sender, const std::string& instance) {
  std::unique_lock lock(mutex_);
  stub_->connections.emplace_back(instance, NewConnection());
  const auto callbacks = stub_->connected;
  lock.unlock();
  for (const auto& one : callbacks) one.callback(sender.c_str(), instance.c_str(), one.user_data);
}

// The ports are gone when the event has returned, which may have destroyed the stub.
void FakeRpcPort::RaiseClientDisconnected(const std::string& sender, const std::string& instance) {
  std::unique_lock lock(mutex_);
  const auto is_meant = [&](const auto& connection) { return connection.first == instance; };
  Stub& stub = *stub_;
  const auto found = std::find_if(stub.connections.begin(), stub.connections.end(), is_meant);
  if (found != stub.connections.end()) End(found->second);
  const auto callbacks = stub.disconnected;
  lock.unlock();
  for (const auto& one : callbacks) one.callback(sender.c_str(), instance.c_str(), one.user_data);
  lock.lock();
  std::erase_if(stub.connections, is_meant);
}

// What the event's callbacks allocate may fail, what the fake does for it may not.
int FakeRpcPort::RaiseRequest(const std::string& sender, const std::string& instance,
                              ParcelContent request) {
  auto at_work = std::make_optional<FakeAtWork>();
  std::unique_lock lock(mutex_);
  Port* main = nullptr;
  for (const auto& [name, port] : stub_->connections) {
    if (name == instance) main = port;
  }
  if (main == nullptr) main = NewConnection();
  main->incoming.push_back(std::move(request));
  const auto callbacks = stub_->received;
  lock.unlock();
  at_work.reset();
  int result = 0;
  for (const auto& one : callbacks) {
    result = one.callback(sender.c_str(), instance.c_str(), main, one.user_data);
  }
  return result;
}

}  // namespace kavrel_test
