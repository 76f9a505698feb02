#include "request_decoder.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "byte_port.h"
#include "expect.h"
#include "log_count.h"
#include "recording_service.h"
#include "request_model.h"

namespace kavrel_fuzz {
namespace {

using Stub = rpc_port::KavrelAppApiStub::stub::KavrelAppApi;

class RecordingFactory final : public ServiceBase::Factory {
 public:
  explicit RecordingFactory(std::vector<MethodCall>& calls) : calls_(calls) {}

  std::unique_ptr<ServiceBase> MakeService(std::string sender, std::string instance) override {
    return std::make_unique<RecordingService>(std::move(sender), std::move(instance), calls_);
  }

 private:
  std::vector<MethodCall>& calls_;
};

// A stub with one client, for the life of the process.
class Service {
 public:
  static Service& Instance() {
    static Service service;
    return service;
  }

  // Serves the bytes and compares what each frame led to with what it says.
  bool Serve(ByteView bytes) {
    const Stream expected = ParseStream(bytes);
    std::size_t next = 0;
    bool are_requests = true;
    errors_ = ErrorCount();
    const char* const fault = StubConnection::Deliver(bytes, [&](int result) {
      Expect(next < expected.frames.size(), "no frame but those that are well-formed");
      are_requests = Compare(expected.frames[next++].content, result) && are_requests;
    });
    Expect(next == expected.frames.size(), "every well-formed frame is delivered");
    Expect((fault != nullptr) == expected.has_fault, "a client is dropped for a fault, only");
    Expect(fault == nullptr || *fault != '\0', "a client is dropped for a reason");
    return are_requests && next > 0 && fault == nullptr && expected.rest.empty();
  }

 private:
  Service() {
    stub_.Listen(std::make_shared<RecordingFactory>(calls_));
    StubConnection::Connect();
  }

  bool Compare(const Frame& request, int result) {
    const auto call = CallOf(request);
    const auto calls = std::exchange(calls_, {});
    const auto sent = StubConnection::main_port().TakeSent();
    const std::size_t errors = std::exchange(errors_, ErrorCount());
    Expect(LiveParcels().empty(), "no parcel is left over");
    if (!call) {
      Expect(calls.empty() && sent.empty() && result == -1, "what is no request does nothing");
      Expect(errors_ > errors, "a refusal is logged");
      return false;
    }
    Expect(calls == std::vector{*call} && result == 0, "a request is called as it stands");
    Expect(errors_ == errors, "a call is no error");
    CompareAnswer(request, *kavrel::app_api::FindMethod(call->method), sent);
    return true;
  }

  static void CompareAnswer(const Frame& request, const kavrel::app_api::MethodInfo& method,
                            const std::vector<Bytes>& sent) {
    if (!method.HasReply()) return Expect(sent.empty(), "a one-way method is not answered");
    const Frame answer{request.sequence, kavrel::app_api::kInterfaceVersion,
                       ResultItems(method, SampleAnswer(method))};
    Expect(sent == std::vector<Bytes>{BuildFrame(answer)}, "the answer is the operation's");
  }

  std::vector<MethodCall> calls_;
  std::size_t errors_ = 0;
  Stub stub_;
};

}  // namespace

bool DecodeRequests(const std::uint8_t* data, std::size_t size) {
  // Exactly as large as the input, so that one byte beyond it is noticed.
  const Bytes bytes(data, data + size);
  return Service::Instance().Serve(bytes);
}

}  // namespace kavrel_fuzz
