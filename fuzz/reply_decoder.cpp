#include "reply_decoder.h"

#include <memory>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "app_api/tidl/KavrelAppApiProxy.h"
#include "byte_port.h"
#include "expect.h"
#include "log_count.h"
#include "request_model.h"

namespace rpc_port::KavrelAppApiProxy::proxy {

/// Callbacks come from derived interfaces, of which there is none yet.
struct ProxyTestAccess {
  static void Add(KavrelAppApi& proxy, std::unique_ptr<KavrelAppApi::CallbackBase> callback) {
    proxy.callbacks_.push_back(std::move(callback));
  }
};

}  // namespace rpc_port::KavrelAppApiProxy::proxy

namespace kavrel_fuzz {
namespace {

namespace proxy = rpc_port::KavrelAppApiProxy::proxy;
using Proxy = proxy::KavrelAppApi;

constexpr int kUntouched = -77;
constexpr int kCallbackIds = 7;
constexpr int kCallbacks = 2;

class Listener final : public Proxy::IEventListener {
 public:
  void OnConnected() override {}
  void OnDisconnected() override {}
  void OnRejected() override {}
};

/// Which callbacks were called since the last time, by their seq ids.
using Called = std::vector<int>;

class NotedCallback final : public Proxy::CallbackBase {
 public:
  explicit NotedCallback(Called& called) : CallbackBase(kCallbackIds, false), called_(called) {}

  void OnCallbackReceived(rpc_port_parcel_h /*parcel*/) override { called_.push_back(GetSeqId()); }

 private:
  Called& called_;
};

// --- Calls

// Calls the operation; nothing when the call ended without an answer.
template <class R, class... P>
std::optional<Answer> CallWith(Proxy& proxy, R (Proxy::*operation)(P...)) {
  std::tuple<std::decay_t<P>...> arguments{};
  const auto each = [&](const auto& act) {
    std::apply([&](auto&... values) { (act(std::type_identity<P>(), values), ...); }, arguments);
  };
  each([](auto type, auto& value) {
    using T = typename decltype(type)::type;
    if constexpr (kavrel::app_api::kIsOutValue<T>) value = kUntouched;
  });
  Answer answer;
  bool is_answered = true;
  try {
    const auto call = [&](auto&... values) { return (proxy.*operation)(values...); };
    answer.result = static_cast<std::int32_t>(std::apply(call, arguments));
  } catch (const proxy::InvalidProtocolException&) {
    is_answered = false;
  }
  each([&](auto type, const auto& value) {
    using T = typename decltype(type)::type;
    if constexpr (kavrel::app_api::kIsOutValue<T>) answer.out_values.push_back(value);
  });
  if (is_answered) return answer;
  for (const int value : answer.out_values) {
    Expect(value == kUntouched, "a call without an answer leaves its out values as they were");
  }
  return std::nullopt;
}

struct Call {
  kavrel::app_api::MethodInfo method;
  std::optional<Answer> (*make)(Proxy& proxy);
};

template <class Method, auto kOperation>
void AppendCall(std::vector<Call>& calls) {
  if constexpr (Method::kInfo.HasReply()) {
    calls.push_back({Method::kInfo, [](Proxy& proxy) { return CallWith(proxy, kOperation); }});
  }
}

std::vector<Call> CallsWithReply() {
  std::vector<Call> calls;
#define KAVREL_CALL_WITH_REPLY(id, method, c_name, signature, summary) \
  AppendCall<kavrel::app_api::methods::method, &Proxy::method>(calls);
  KAVREL_APP_API_METHODS(KAVREL_CALL_WITH_REPLY)
#undef KAVREL_CALL_WITH_REPLY
  return calls;
}

// --- What has to come of the bytes

bool BeginsWith(const Items& items, std::int32_t number) {
  return !items.empty() && items[0] == Item(number);
}

// The answer of the first result that the request's number or a missing tag makes its own.
std::optional<Answer> ExpectedAnswer(const Stream& stream,
                                     const kavrel::app_api::MethodInfo& method) {
  for (const Stream::Entry& frame : stream.frames) {
    const Frame& content = frame.content;
    if (!BeginsWith(content.items, kavrel::app_api::kResultId)) continue;
    if (content.tag && !content.tag->empty() && content.sequence != 0) continue;
    return AnswerOf(method, Items(content.items.begin() + 1, content.items.end()));
  }
  return std::nullopt;
}

// The callback that a parcel names, or none.
Called ExpectedCalled(const Frame& frame, int first_seq_id) {
  const Items& items = frame.items;
  const bool is_callback = items.size() >= 4 && BeginsWith(items, kavrel::app_api::kCallbackId) &&
                           items[1] == Item(kCallbackIds) && std::holds_alternative<bool>(items[3]);
  const auto* const seq_id = is_callback ? std::get_if<std::int32_t>(&items[2]) : nullptr;
  if (seq_id == nullptr || *seq_id < first_seq_id || *seq_id >= first_seq_id + kCallbacks) {
    return {};
  }
  return {*seq_id};
}

// A connected proxy with some callbacks, for the life of the process.
class Client {
 public:
  static Client& Instance() {
    static Client client;
    return client;
  }

  bool MakeCall(std::size_t number, ByteView bytes) {
    const Call& call = calls_[number];
    const auto expected = ExpectedAnswer(ParseStream(bytes), call.method);
    const std::size_t errors = ErrorCount();
    BytePort& port = ProxyConnection::main_port();
    port.Give(bytes);
    const auto got = call.make(proxy_);
    Expect(got == expected, "a call ends as the bytes that answer it say");
    Expect(got || ErrorCount() > errors, "a call without an answer is logged");
    const auto sent = port.TakeSent();
    const auto request = sent.size() == 1 ? ParseFrame(sent[0]) : std::nullopt;
    Expect(request && CallOf(*request) && CallOf(*request)->method == call.method.id,
           "a call is one request");
    DestroyAbandoned(got.has_value());
    return got.has_value();
  }

  bool Receive(ByteView bytes) {
    const Stream expected = ParseStream(bytes);
    std::size_t next = 0;
    bool all_called = true;
    ProxyConnection::DeliverCallbacks(bytes, [&] {
      const Called called = std::exchange(called_, {});
      Expect(next < expected.frames.size(), "no frame but those that are well-formed");
      const Frame& frame = expected.frames[next++].content;
      Expect(called == ExpectedCalled(frame, first_seq_id_),
             "the callback that is named is called");
      Expect(LiveParcels().empty(), "no parcel is left over");
      all_called = all_called && !called.empty();
    });
    return all_called && next > 0 && expected.rest.empty();
  }

  std::size_t calls() const { return calls_.size(); }

 private:
  Client() {
    proxy_.Connect(true);
    ProxyConnection::main_port().CountFromRequest();
    for (int i = 0; i < kCallbacks; ++i) {
      auto callback = std::make_unique<NotedCallback>(called_);
      if (i == 0) first_seq_id_ = callback->GetSeqId();
      proxy::ProxyTestAccess::Add(proxy_, std::move(callback));
    }
  }

  // The request of a call that found no result stays allocated, by contract with rpc-port.
  static void DestroyAbandoned(bool is_answered) {
    const auto left = LiveParcels();
    Expect(left.size() <= (is_answered ? 0 : 1), "no parcel is left over but a lost request");
    for (const rpc_port_parcel_h parcel : left) rpc_port_parcel_destroy(parcel);
  }

  const std::vector<Call> calls_ = CallsWithReply();
  Listener listener_;
  Proxy proxy_{&listener_, "viewer"};
  Called called_;
  int first_seq_id_ = 0;
};

}  // namespace

bool DecodeReply(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return false;
  Client& client = Client::Instance();
  const std::size_t number = data[0] % (client.calls() + 1);
  // Exactly as large as the input, so that one byte beyond it is noticed.
  const Bytes bytes(data + 1, data + size);
  return number < client.calls() ? client.MakeCall(number, bytes) : client.Receive(bytes);
}

}  // namespace kavrel_fuzz
