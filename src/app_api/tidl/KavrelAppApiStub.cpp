#include "KavrelAppApiStub.h"

#include <kavrel/tidl/KavrelAppApiMethods.h>
#include <rpc-port.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "../../common/log.h"
#include "Parcel.h"
#include "RequestDispatch.h"

#define LOG_TAG "RPC_PORT_STUB"

namespace rpc_port {
namespace KavrelAppApiStub {
namespace stub {

using kavrel::Here;
using kavrel::kLogError;
using kavrel::kLogWarning;
using kavrel::app_api::kPortName;
using kavrel::app_api::Parcel;
using kavrel::app_api::ReadItem;
using kavrel::app_api::WriteItem;

// --- Jobs and the worker that runs them

Job::IEvent::~IEvent() = default;

Job::~Job() = default;

ActiveObject::ActiveObject() {
  // Started in the body, when the queue and the flag that the worker uses exist.
  thread_ = std::thread([this] { WorkUntilDone(); });
}

// make_shared throws when memory is out, which ends the process here: the alternative is a join
// that never returns.
ActiveObject::~ActiveObject() {
  Push(std::make_shared<Job>(this));
  thread_.join();
}

void ActiveObject::Run() {
  done_ = true;
}

void ActiveObject::WorkUntilDone() {
  while (!done_) {
    std::shared_ptr<Job> job;
    queue_.WaitAndPop(job);
    if (job != nullptr) job->Run();
  }
}

// --- One client

KavrelAppApi::ServiceBase::Factory::~Factory() = default;

KavrelAppApi::ServiceBase::ServiceBase(std::string sender, std::string instance)
    : sender_(std::move(sender)),
      instance_(std::move(instance)),
      active_object_(std::make_unique<ActiveObject>()) {}

KavrelAppApi::ServiceBase::~ServiceBase() = default;

// The test is the wrong way round and stays so: viewers rely on the port being kept.
void KavrelAppApi::ServiceBase::Disconnect() {
  const int result = rpc_port_disconnect(port_);
  if (result != 0) {
    port_ = nullptr;
    return;
  }
  KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to disconnect the port(%d)", result);
}

// --- Callbacks

std::atomic<int> KavrelAppApi::CallbackBase::seq_num_{0};

KavrelAppApi::CallbackBase::CallbackBase(int id, bool once)
    : id_(id), seq_id_(seq_num_++), once_(once) {}

KavrelAppApi::CallbackBase::~CallbackBase() = default;

std::string KavrelAppApi::CallbackBase::GetTag() const {
  return std::to_string(id_) + "::" + std::to_string(seq_id_);
}

void* operator<<(void* parcel, const KavrelAppApi::CallbackBase& callback) {
  WriteItem(parcel, callback.id_);
  WriteItem(parcel, callback.seq_id_);
  WriteItem(parcel, callback.once_);
  return parcel;
}

void* operator>>(void* parcel, KavrelAppApi::CallbackBase& callback) {
  ReadItem(parcel, callback.id_);
  ReadItem(parcel, callback.seq_id_);
  ReadItem(parcel, callback.once_);
  return parcel;
}

void* operator<<(void* parcel, const std::vector<std::string>& strings) {
  WriteItem(parcel, strings);
  return parcel;
}

void* operator>>(void* parcel, std::vector<std::string>& strings) {
  strings.clear();
  ReadItem(parcel, strings);
  return parcel;
}

// --- The service

KavrelAppApi::KavrelAppApi() {
  if (rpc_port_stub_create(&stub_, kPortName) != 0) {
    KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to create stub handle");
    throw InvalidIOException();
  }
  rpc_port_stub_add_connected_event_cb(stub_, &OnConnectedCB, this);
  rpc_port_stub_add_disconnected_event_cb(stub_, &OnDisconnectedCB, this);
  rpc_port_stub_add_received_event_cb(stub_, &OnReceivedCB, this);
}

namespace {

// A service is told of its disconnection while it is still on the list, and what it does then may
// destroy the stub. So it is noted, on the stub's thread, whose disconnection is being told: the
// stub's end does not tell it twice, and the handler does not touch a stub that is gone.
class ToldDisconnection {
 public:
  ToldDisconnection(const KavrelAppApi& stub, const KavrelAppApi::ServiceBase& service)
      : stub_(&stub), service_(&service), outer_(std::exchange(innermost_, this)) {}
  ~ToldDisconnection() { innermost_ = outer_; }
  ToldDisconnection(const ToldDisconnection&) = delete;
  ToldDisconnection& operator=(const ToldDisconnection&) = delete;

  bool IsStubAlive() const { return stub_ != nullptr; }

  static bool IsTold(const KavrelAppApi::ServiceBase& service) {
    for (const auto* told = innermost_; told != nullptr; told = told->outer_) {
      if (told->service_ == &service) return true;
    }
    return false;
  }
  static void NoteEndOf(const KavrelAppApi& stub) {
    for (auto* told = innermost_; told != nullptr; told = told->outer_) {
      if (told->stub_ == &stub) told->stub_ = nullptr;
    }
  }

 private:
  static thread_local ToldDisconnection* innermost_;
  const KavrelAppApi* stub_;
  const KavrelAppApi::ServiceBase* service_;
  ToldDisconnection* outer_;
};

thread_local ToldDisconnection* ToldDisconnection::innermost_ = nullptr;

}  // namespace

KavrelAppApi::~KavrelAppApi() {
  for (const auto& service : services_) {
    if (!ToldDisconnection::IsTold(*service)) service->OnClientDisconnected();
  }
  ToldDisconnection::NoteEndOf(*this);
  if (stub_ != nullptr) rpc_port_stub_destroy(stub_);
}

void KavrelAppApi::Listen(std::shared_ptr<ServiceBase::Factory> factory) {
  constexpr int kInvalidParameter = -22;
  constexpr int kInputOutputError = -5;
  factory_ = std::move(factory);
  const int result = rpc_port_stub_listen(stub_);
  if (result == 0) return;
  KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to listen stub");
  if (result == kInvalidParameter || result == kInputOutputError) throw InvalidIOException();
}

std::shared_ptr<KavrelAppApi::ServiceBase> KavrelAppApi::FindService(
    const std::string& instance) const {
  const auto found =
      std::find_if(services_.begin(), services_.end(),
                   [&instance](const auto& service) { return service->GetInstance() == instance; });
  return found != services_.end() ? *found : nullptr;
}

namespace {

using Service = KavrelAppApi::ServiceBase;

// A factory that cannot make a service - no thread for its worker, say - loses this client, not the
// viewer.
std::unique_ptr<Service> MakeService(Service::Factory* factory, const char* sender,
                                     const char* instance, kavrel::SourceLine where) {
  const char* reason = "no service made";
  try {
    if (factory == nullptr) {
      reason = "nobody listens";
    } else if (auto service = factory->MakeService(sender, instance)) {
      return service;
    }
    KAVREL_LOG(kLogError, LOG_TAG, where, "Failed to make a service for %s(%s): %s", sender,
               instance, reason);
  } catch (const std::exception& error) {
    KAVREL_LOG(kLogError, LOG_TAG, where, "Failed to make a service for %s(%s): %s", sender,
               instance, error.what());
  }
  return nullptr;
}

}  // namespace

void KavrelAppApi::OnConnectedCB(const char* sender, const char* instance, void* user_data) {
  auto* self = static_cast<KavrelAppApi*>(user_data);
  std::shared_ptr<Service> service = MakeService(self->factory_.get(), sender, instance, Here());
  rpc_port_h port = nullptr;
  const int result = rpc_port_stub_get_port(self->stub_, RPC_PORT_PORT_CALLBACK, instance, &port);
  if (result != 0) {
    KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to get the port(%d)", result);
    return;
  }
  if (service == nullptr) {
    rpc_port_disconnect(port);
    return;
  }
  service->SetPort(port);
  service->OnClientConnected();
  self->services_.push_back(std::move(service));
}

void KavrelAppApi::OnDisconnectedCB(const char* /*sender*/, const char* instance, void* user_data) {
  auto* self = static_cast<KavrelAppApi*>(user_data);
  const std::shared_ptr<Service> service = self->FindService(instance);
  if (service == nullptr) return;
  const ToldDisconnection told(*self, *service);
  service->OnClientDisconnected();
  if (told.IsStubAlive()) self->services_.remove(service);
}

int KavrelAppApi::OnReceivedCB(const char* /*sender*/, const char* instance, void* port,
                               void* user_data) {
  auto* self = static_cast<KavrelAppApi*>(user_data);
  // Held to the end: a disconnection during the operation must not destroy its object.
  const std::shared_ptr<Service> service = self->FindService(instance);
  if (service == nullptr) {
    KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to find KavrelAppApi context(%s)", instance);
    return -1;
  }
  rpc_port_h callback_port = nullptr;
  if (rpc_port_stub_get_port(self->stub_, RPC_PORT_PORT_CALLBACK, instance, &callback_port) != 0) {
    KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to get callback port");
  }
  rpc_port_parcel_h handle = nullptr;
  const int result = rpc_port_parcel_create_from_port(&handle, port);
  if (result != 0) {
    KAVREL_LOG(kLogError, LOG_TAG, Here(), "Failed to create parcel from port");
    return result;
  }
  return Exchange(*service, port, Parcel::Adopt(handle), Here()).Run();
}

}  // namespace stub
}  // namespace KavrelAppApiStub
}  // namespace rpc_port
