// What a viewer is made of: the stub, its services and their workers. Constructors throw.
#include <glib.h>
#include <kavrel/app_api.h>
#include <kavrel/tidl/KavrelAppApiStub.h>
#include <rpc-port.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "null_service.h"
#include "process_setting.h"
#include "trial.h"
#include "viewer_process.h"

namespace faults_test {
namespace {

namespace stub = rpc_port::KavrelAppApiStub::stub;
using kavrel_test::FunctionFactory;
using kavrel_test::NullService;
using kavrel_test::Stub;

constexpr const char* kAppId = "org.zarnet.faults";

std::unique_ptr<Stub::ServiceBase> MakeService(std::string sender, std::string instance) {
  return std::make_unique<NullService>(std::move(sender), std::move(instance));
}

void MakeWorker(Trial& trial) {
  const ProcessSetting setting;
  std::optional<stub::ActiveObject> worker;
  trial.Call([&] { worker.emplace(); });
  EXPECT_EQ(worker.has_value(), trial.end() == End::kReturned);
  if (!trial.occurred()) {
    EXPECT_TRUE(worker.has_value());
  }
  worker.reset();
  worker.emplace();
}

// Its own end is a job: without memory for it the process ends, with a message and not in a wait
// without end.
void DestroyWorker(Trial& trial) {
  const ProcessSetting setting;
  auto worker = std::make_unique<stub::ActiveObject>();
  std::set_terminate([] { ::_exit(kTerminatedAsDocumented); });
  trial.Call([&] { worker.reset(); });
  EXPECT_FALSE(trial.occurred() && trial.fault() == Fault::kMemory);
}

class CountingJob final : public stub::Job::IEvent {
 public:
  void Run() override { done_.set_value(); }
  void Wait() { done_.get_future().wait(); }

 private:
  std::promise<void> done_;
};

void PushJob(Trial& trial) {
  const ProcessSetting setting;
  CountingJob event;
  stub::ActiveObject worker;
  trial.Call([&] { worker.Push(std::make_shared<stub::Job>(&event)); });
  if (trial.end() != End::kReturned) worker.Push(std::make_shared<stub::Job>(&event));
  event.Wait();
}

void MakeAService(Trial& trial) {
  const ProcessSetting setting;
  const std::string name(100, 'n');
  std::unique_ptr<Stub::ServiceBase> service;
  trial.Call([&] { service = MakeService(name, name); });
  EXPECT_EQ(service != nullptr, trial.end() == End::kReturned);
  service = MakeService(name, name);
}

// Without a port, as before the first request.
void DisconnectService(Trial& trial) {
  const ProcessSetting setting;
  const auto service = MakeService("sender", "instance");
  trial.Call([&] { service->Disconnect(); });
  EXPECT_EQ(trial.end(), End::kReturned);
}

void ListenWithStub(Trial& trial) {
  const ProcessSetting setting;
  ::setenv("KAVREL_APP_ID", kAppId, 1);
  trial.Call([] {
    Stub service;
    service.Listen(std::make_shared<FunctionFactory>(&MakeService));
  });
  EXPECT_TRUE(trial.end() == End::kReturned || trial.occurred());
  Stub next;
  next.Listen(std::make_shared<FunctionFactory>(&MakeService));
}

/// A client on a thread of its own, on which nothing fails.
template <class Function>
class Client {
 public:
  explicit Client(Function function)
      : thread_([this, function] {
          function();
          is_done_ = true;
          g_main_context_wakeup(nullptr);
        }) {}
  bool IsDone() const { return is_done_; }

 private:
  std::atomic<bool> is_done_{false};
  std::jthread thread_;
};

void AskAndLeave() {
  const kavrel_api_h handle = kavrel_api_create(kAppId);
  if (handle == nullptr) return;
  int size = 0;
  kavrel_api_get_window_size(handle, size);
  kavrel_api_send_mbr_key(handle, 1, 2, 3, "key", {std::string(100, 'o')});
  kavrel_api_destroy(handle);
}

void ServeUntilDone() {
  const Client client(&AskAndLeave);
  while (!client.IsDone()) g_main_context_iteration(nullptr, TRUE);
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

// A client may be lost, the viewer not: the next one is served.
void Serve(Trial& trial) {
  const ProcessSetting setting;
  ::setenv("KAVREL_APP_ID", kAppId, 1);
  ::setenv("KAVREL_RPC_TIMEOUT_MS", "2000", 1);
  std::set_terminate([] { ::_exit(kTerminatedAsDocumented); });
  Stub service;
  service.Listen(std::make_shared<FunctionFactory>(&MakeService));
  {
    const Client client(&AskAndLeave);
    trial.Call([&] {
      while (!client.IsDone()) g_main_context_iteration(nullptr, TRUE);
      while (g_main_context_iteration(nullptr, FALSE)) {
      }
    });
  }
  EXPECT_EQ(trial.end(), End::kReturned) << "an exception went through GLib";
  ServeUntilDone();
}

class Callback final : public Stub::CallbackBase {
 public:
  Callback() : CallbackBase(12, true) {}
};

// Of parcels: what does not fit is left out.
void TransferTexts(Trial& trial) {
  const ProcessSetting setting;
  rpc_port_parcel_h parcel = nullptr;
  EXPECT_EQ(rpc_port_parcel_create(&parcel), 0);
  const std::vector<std::string> texts(3, std::string(2000, 't'));
  std::vector<std::string> read;
  Callback callback;
  trial.Call([&] {
    using stub::operator<<;
    using stub::operator>>;
    parcel << callback;
    parcel << texts;
    parcel >> callback;
    parcel >> read;
  });
  if (!trial.occurred()) {
    EXPECT_EQ(read, texts);
    EXPECT_EQ(callback.GetId(), 12);
  }
  EXPECT_TRUE(trial.end() == End::kReturned || trial.end() == End::kBadAlloc);
  EXPECT_EQ(rpc_port_parcel_destroy(parcel), 0);
}

void NameCallback(Trial& trial) {
  const ProcessSetting setting;
  trial.Call([] {
    const Callback callback;
    return callback.GetTag().size();
  });
  EXPECT_TRUE(trial.end() == End::kReturned || trial.end() == End::kBadAlloc);
}

constexpr const char* kScope = "rpc_port::KavrelAppApiStub::stub::";

std::vector<std::string> InStub(std::vector<std::string> names) {
  for (std::string& name : names) name.insert(0, kScope);
  return names;
}

}  // namespace

Rows ServiceRows() {
  return {
      {"make_worker", InStub({"ActiveObject::ActiveObject", "ActiveObject::WorkUntilDone"}),
       MakeWorker},
      {"destroy_worker", InStub({"ActiveObject::~ActiveObject", "ActiveObject::Run"}),
       DestroyWorker},
      {"push_job", InStub({"Job::~Job", "Job::IEvent::~IEvent"}), PushJob},
      {"make_service",
       InStub(
           {"KavrelAppApi::ServiceBase::ServiceBase", "KavrelAppApi::ServiceBase::~ServiceBase"}),
       MakeAService},
      {"disconnect", InStub({"KavrelAppApi::ServiceBase::Disconnect"}), DisconnectService},
      {"listen",
       InStub({"KavrelAppApi::KavrelAppApi", "KavrelAppApi::Listen", "KavrelAppApi::~KavrelAppApi",
               "KavrelAppApi::ServiceBase::Factory::~Factory"}),
       ListenWithStub},
      {"serve",
       InStub({"KavrelAppApi::OnConnectedCB", "KavrelAppApi::OnReceivedCB",
               "KavrelAppApi::OnDisconnectedCB", "KavrelAppApi::FindService"}),
       Serve},
      {"transfer_texts", InStub({"operator<<", "operator>>"}), TransferTexts},
      {"name_callback",
       InStub({"KavrelAppApi::CallbackBase::CallbackBase", "KavrelAppApi::CallbackBase::GetTag",
               "KavrelAppApi::CallbackBase::~CallbackBase"}),
       NameCallback},
  };
}

}  // namespace faults_test
