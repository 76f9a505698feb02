#include "pair.h"

#include <handover.h>

#include <algorithm>
#include <cstdlib>

namespace rpc_test {
namespace {

using Work = std::function<void()>;

gboolean RunWork(gpointer data) {
  kavrel_platform::TakeObject(data);
  (*static_cast<Work*>(data))();
  return G_SOURCE_REMOVE;
}

void DeleteWork(gpointer data) {
  delete static_cast<Work*>(data);
}

// Counts what is running, whichever way it ends.
class Running {
 public:
  explicit Running(int& count) : count_(count) { ++count_; }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  ~Running() { --count_; }

 private:
  int& count_;
};

}  // namespace

LoopThread::LoopThread()
    : context_(::g_main_context_new()), loop_(::g_main_loop_new(context_, FALSE)) {
  thread_ = std::thread([this] {
    ::g_main_context_push_thread_default(context_);
    ::g_main_loop_run(loop_);
    ::g_main_context_pop_thread_default(context_);
  });
}

LoopThread::~LoopThread() {
  Post([this] { ::g_main_loop_quit(loop_); });
  thread_.join();
  ::g_main_loop_unref(loop_);
  ::g_main_context_unref(context_);
}

void LoopThread::Post(std::function<void()> work) {
  GSource* const source = ::g_idle_source_new();
  ::g_source_set_priority(source, G_PRIORITY_DEFAULT);
  auto* const data = new Work(std::move(work));
  kavrel_platform::GiveObject(data);
  ::g_source_set_callback(source, &RunWork, data, &DeleteWork);
  ::g_source_attach(source, context_);
  ::g_source_unref(source);
}

void LoopThread::Do(const std::function<void()>& work) {
  Watched<bool> is_done;
  Post([&] {
    work();
    is_done.Update([](bool& done) { done = true; });
  });
  while (!is_done.WaitUntil([](bool done) { return done; })) continue;
}

std::string OwnAppId() {
  const char* const id = std::getenv("KAVREL_APP_ID");
  return id != nullptr ? id : "kavrel-conformance";
}

ParcelOwner::ParcelOwner() {
  if (::rpc_port_parcel_create(&parcel_) != 0) throw std::bad_alloc();
}

ParcelOwner::~ParcelOwner() {
  if (parcel_ != nullptr) ::rpc_port_parcel_destroy(parcel_);
}

int ParcelOwner::sequence() const {
  rpc_port_parcel_header_h header = nullptr;
  int sequence = -1;
  ::rpc_port_parcel_get_header(parcel_, &header);
  ::rpc_port_parcel_header_get_seq_num(header, &sequence);
  return sequence;
}

void ParcelOwner::SetSequence(int sequence) const {
  rpc_port_parcel_header_h header = nullptr;
  ::rpc_port_parcel_get_header(parcel_, &header);
  ::rpc_port_parcel_header_set_seq_num(header, sequence);
}

void ParcelOwner::SetTag(const char* tag) const {
  rpc_port_parcel_header_h header = nullptr;
  ::rpc_port_parcel_get_header(parcel_, &header);
  ::rpc_port_parcel_header_set_tag(header, tag);
}

std::optional<std::string> ParcelOwner::tag() const {
  rpc_port_parcel_header_h header = nullptr;
  char* tag = nullptr;
  ::rpc_port_parcel_get_header(parcel_, &header);
  ::rpc_port_parcel_header_get_tag(header, &tag);
  if (tag == nullptr) return std::nullopt;
  std::string copy(tag);
  std::free(tag);
  return copy;
}

ParcelOwner& ParcelOwner::Int(int value) {
  ::rpc_port_parcel_write_int32(parcel_, value);
  return *this;
}

ParcelOwner& ParcelOwner::Text(const std::string& value) {
  ::rpc_port_parcel_write_string(parcel_, value.c_str());
  return *this;
}

std::optional<int> ParcelOwner::Int() const {
  int32_t value = 0;
  if (::rpc_port_parcel_read_int32(parcel_, &value) != 0) return std::nullopt;
  return value;
}

std::optional<std::string> ParcelOwner::Text() const {
  char* value = nullptr;
  if (::rpc_port_parcel_read_string(parcel_, &value) != 0) return std::nullopt;
  std::string copy(value);
  std::free(value);
  return copy;
}

Received Receive(rpc_port_h port) {
  rpc_port_parcel_h parcel = nullptr;
  const int result = ::rpc_port_parcel_create_from_port(&parcel, port);
  return {result, ParcelOwner(parcel)};
}

TestService::TestService(const char* port_name) {
  handler_ = [](const std::string&, rpc_port_h port) { return Answer(port); };
  thread_.Do([&] {
    ::rpc_port_stub_create(&stub_, port_name);
    ::rpc_port_stub_add_connected_event_cb(stub_, &TestService::Connected, this);
    ::rpc_port_stub_add_disconnected_event_cb(stub_, &TestService::Disconnected, this);
    ::rpc_port_stub_add_received_event_cb(stub_, &TestService::Request, this);
  });
}

TestService::~TestService() {
  DestroyStub();
}

int TestService::Listen() {
  int result = 1;
  thread_.Do([&] { result = ::rpc_port_stub_listen(stub_); });
  return result;
}

void TestService::DestroyStub() {
  const auto destroy = [this] {
    if (stub_ != nullptr) ::rpc_port_stub_destroy(std::exchange(stub_, nullptr));
  };
  if (thread_.IsThisThread()) {
    destroy();
  } else {
    thread_.Do(destroy);
  }
}

rpc_port_h TestService::PortOf(const std::string& instance, rpc_port_port_type_e type) {
  rpc_port_h port = nullptr;
  return ::rpc_port_stub_get_port(stub_, type, instance.c_str(), &port) == 0 ? port : nullptr;
}

std::string TestService::Instance(std::size_t number) {
  instances_.WaitUntil([&](const auto& all) { return all.size() > number; });
  const auto all = instances_.Get();
  return all.size() > number ? all[number] : std::string();
}

bool TestService::WaitForEvent(const std::string& event) {
  return events_.WaitUntil([&](const Events& events) { return Count(events, event) > 0; });
}

int TestService::Answer(rpc_port_h port) {
  const Received request = Receive(port);
  if (request.result != 0) return request.result;
  const auto value = request.parcel.Int();
  if (!value) return -1;
  ParcelOwner answer;
  answer.SetSequence(request.parcel.sequence());
  answer.SetTag("test");
  answer.Int(*value + 1);
  return ::rpc_port_parcel_send(answer.get(), port);
}

void TestService::Note(const std::string& event) {
  events_.Update([&](Events& events) { events.push_back(event); });
}

// A callback that runs the main loop may be what runs the work of Do.
TestService::Undo::~Undo() {
  bool is_idle = false;
  while (!is_idle) {
    service_.thread_.Do([&] {
      undo_();
      is_idle = service_.running_ == 0;
    });
  }
}

void TestService::Connected(const char*, const char* instance, void* self) {
  auto& service = *static_cast<TestService*>(self);
  const std::string id(instance);
  service.instances_.Update([&](auto& all) { all.push_back(id); });
  const Running running(service.running_);
  if (const Hook hook = service.on_connected_) hook(id);
  service.Note("connected " + id);
}

void TestService::Disconnected(const char*, const char* instance, void* self) {
  auto& service = *static_cast<TestService*>(self);
  const std::string id(instance);
  const Running running(service.running_);
  if (const Hook hook = service.on_disconnected_) hook(id);
  service.Note("disconnected " + id);
}

int TestService::Request(const char*, const char* instance, rpc_port_h port, void* self) {
  auto& service = *static_cast<TestService*>(self);
  const std::string id(instance);
  const Handler handler = service.handler_;
  const Running running(service.running_);
  const int result = handler(id, port);
  service.Note("request " + id);
  return result;
}

TestClient::TestClient(LoopThread& thread) : thread_(thread) {
  thread.Do([this] {
    rpc_port_proxy_h proxy = nullptr;
    ::rpc_port_proxy_create(&proxy);
    proxy_ = proxy;
    ::rpc_port_proxy_add_connected_event_cb(proxy, &TestClient::Connected, this);
    ::rpc_port_proxy_add_disconnected_event_cb(proxy, &TestClient::Disconnected, this);
    ::rpc_port_proxy_add_rejected_event_cb(proxy, &TestClient::Rejected, this);
    ::rpc_port_proxy_add_received_event_cb(proxy, &TestClient::ReceivedEvent, this);
  });
}

TestClient::~TestClient() {
  Destroy();
  // A callback that destroyed the proxy itself may still be on its way out.
  thread_.Do([] {});
}

int TestClient::Destroy() {
  const rpc_port_proxy_h proxy = proxy_.exchange(nullptr);
  return proxy != nullptr ? ::rpc_port_proxy_destroy(proxy) : 0;
}

int TestClient::ConnectSync(const char* port_name) {
  return ::rpc_port_proxy_connect_sync(proxy_, OwnAppId().c_str(), port_name);
}

int TestClient::Connect(const char* port_name) {
  return ::rpc_port_proxy_connect(proxy_, OwnAppId().c_str(), port_name);
}

void TestClient::OnEvent(const std::string& event, Hook hook) {
  hooks_.emplace_back(event, std::move(hook));
}

bool TestClient::WaitForEvent(const std::string& event) {
  return events_.WaitUntil([&](const Events& events) { return Count(events, event) > 0; });
}

int TestClient::Send(int value) const {
  ParcelOwner request;
  request.Int(value);
  return ::rpc_port_parcel_send(request.get(), port_);
}

std::optional<int> TestClient::Call(int value) const {
  ParcelOwner request;
  request.Int(value);
  if (::rpc_port_parcel_send(request.get(), port_) != 0) return std::nullopt;
  const Received answer = Receive(port_);
  if (answer.result != 0 || answer.parcel.sequence() != request.sequence()) return std::nullopt;
  return answer.parcel.Int();
}

void TestClient::Note(const std::string& event) {
  for (const auto& [name, hook] : hooks_) {
    if (name == event) hook(*this);
  }
  events_.Update([&](Events& events) { events.push_back(event); });
}

void TestClient::Connected(const char*, const char*, rpc_port_h port, void* self) {
  auto& client = *static_cast<TestClient*>(self);
  client.port_ = port;
  ::rpc_port_proxy_get_port(client.proxy_, RPC_PORT_PORT_CALLBACK, &client.callback_port_);
  client.Note("connected");
}

void TestClient::Disconnected(const char*, const char*, void* self) {
  static_cast<TestClient*>(self)->Note("disconnected");
}

void TestClient::Rejected(const char*, const char*, void* self) {
  static_cast<TestClient*>(self)->Note("rejected");
}

void TestClient::ReceivedEvent(const char*, const char*, void* self) {
  static_cast<TestClient*>(self)->Note("received");
}

std::size_t Count(const Events& events, const std::string& event) {
  return static_cast<std::size_t>(std::count(events.begin(), events.end(), event));
}

}  // namespace rpc_test

// GLib allocates and frees under locks that the thread sanitizer does not see.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
  return "called_from_lib:libglib-2.0.so.0\n";
}
