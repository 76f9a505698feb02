#include "RequestDispatch.h"

#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <array>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#define LOG_TAG "RPC_PORT_STUB"

namespace rpc_port {
namespace KavrelAppApiStub {
namespace stub {

using kavrel::kLogError;
using kavrel::kLogInfo;
using kavrel::kLogWarning;
using kavrel::app_api::HasMoreItems;
using kavrel::app_api::ItemTypeName;
using kavrel::app_api::ItemTypeOf;
using kavrel::app_api::kFirstMethodId;
using kavrel::app_api::kInterfaceVersion;
using kavrel::app_api::kIsOutValue;
using kavrel::app_api::kResultId;
using kavrel::app_api::Parcel;
using kavrel::app_api::ReadItem;
using kavrel::app_api::WriteItem;
namespace methods = kavrel::app_api::methods;

namespace {

constexpr int kRefused = -1;

template <class Operation>
struct SignatureOf;
template <class R, class... P>
struct SignatureOf<R (Exchange::Service::*)(P...)> {
  using Type = R(P...);
};

// The operation of a row, by its name: a pointer to member would be asked at each call whether it
// is one to a virtual operation.
template <class Method>
struct OperationOf;

#define KAVREL_METHOD_OPERATION(id, method, c_name, signature, summary)                            \
  template <>                                                                                      \
  struct OperationOf<methods::method> {                                                            \
    static_assert(std::is_same_v<typename SignatureOf<decltype(&Exchange::Service::method)>::Type, \
                                 methods::method::Signature>,                                      \
                  "the operation's declaration differs from its row in the method table");         \
    template <class... P>                                                                          \
    static methods::method::Result Call(Exchange::Service& service, P&&... arguments) {            \
      return service.method(static_cast<P&&>(arguments)...);                                       \
    }                                                                                              \
  };
KAVREL_APP_API_METHODS(KAVREL_METHOD_OPERATION)
#undef KAVREL_METHOD_OPERATION

using Handler = int (*)(Exchange&);

#define KAVREL_METHOD_HANDLER(id, method, c_name, signature, summary) \
  &Exchange::Serve<methods::method, OperationOf<methods::method>>,
constexpr Handler kHandlers[] = {KAVREL_APP_API_METHODS(KAVREL_METHOD_HANDLER)};
#undef KAVREL_METHOD_HANDLER

// Where in the request an argument stands, counting from 1 after the method id; out values do not
// travel there.
template <class... P>
constexpr std::array<std::size_t, sizeof...(P)> WireNumbers() {
  constexpr std::array<bool, sizeof...(P)> kIsOut{kIsOutValue<P>...};
  std::array<std::size_t, sizeof...(P)> numbers{};
  std::size_t next = 1;
  for (std::size_t i = 0; i < numbers.size(); ++i) numbers[i] = kIsOut[i] ? 0 : next++;
  return numbers;
}

template <class Tuple, class... P, std::size_t... I>
auto OutValuesOf(const Tuple& arguments, std::index_sequence<I...> /*all*/,
                 void (* /*signature*/)(P...)) {
  std::array<int, (std::size_t{kIsOutValue<P>} + ... + 0)> values{};
  std::size_t next = 0;
  auto take = [&](auto type, const auto& argument) {
    using T = typename decltype(type)::type;
    if constexpr (kIsOutValue<T>) values[next++] = argument;
  };
  (take(std::type_identity<P>(), std::get<I>(arguments)), ...);
  return values;
}

}  // namespace

int Exchange::Run() {
  if (!PrepareResult()) return kRefused;
  int method_id = 0;
  if (!ReadItem(request_.get(), method_id)) {
    KAVREL_LOG(kLogError, LOG_TAG, where_, "Invalid request: instance(%s) has no method id",
               service_.GetInstance().c_str());
    return kRefused;
  }
  return ServeMethod(method_id);
}

// The result parcel is made for every request, also for those that nobody answers.
bool Exchange::PrepareResult() {
  int sequence = -1;
  rpc_port_parcel_header_h request_header = request_.Header();
  if (request_header != nullptr) rpc_port_parcel_header_get_seq_num(request_header, &sequence);
  KAVREL_LOG(kLogWarning, LOG_TAG, where_, "[Sequence] %d", sequence);
  result_ = Parcel::Create();
  rpc_port_parcel_header_h header = result_ ? result_.Header() : nullptr;
  if (request_header == nullptr || header == nullptr ||
      rpc_port_parcel_header_set_tag(header, kInterfaceVersion) != 0 ||
      rpc_port_parcel_header_set_seq_num(header, sequence) != 0) {
    KAVREL_LOG(kLogError, LOG_TAG, where_, "Failed to prepare the result: instance(%s)",
               service_.GetInstance().c_str());
    return false;
  }
  return true;
}

int Exchange::ServeMethod(int method_id) {
  const auto index = static_cast<std::size_t>(method_id) - kFirstMethodId;
  if (index >= std::size(kHandlers)) {
    KAVREL_LOG(kLogError, LOG_TAG, where_, "Unknown command(%d)", method_id);
    return kRefused;
  }
  return kHandlers[index](*this);
}

template <class Method, class Operation>
int Exchange::Serve(Exchange& exchange) {
  return exchange.ServeAs<Method, Operation>(static_cast<typename Method::Signature*>(nullptr));
}

template <class Method, class Operation, class... P>
int Exchange::ServeAs(typename Method::Result (* /*signature*/)(P...)) {
  using Result = typename Method::Result;
  constexpr auto kNumbers = WireNumbers<P...>();
  std::tuple<std::remove_reference_t<P>...> arguments{};

  const auto decode = [&](std::remove_reference_t<P>&... values) {
    [[maybe_unused]] std::size_t next = 0;
    return (ReadArgument<P>(Method::kInfo.name, kNumbers[next++], values) && ...);
  };
  const auto call = [&](std::remove_reference_t<P>&... values) {
    return Operation::Call(service_, static_cast<P&&>(values)...);
  };

  if (!std::apply(decode, arguments) || !ReadEnd(Method::kInfo.name)) return kRefused;
  if constexpr (std::is_void_v<Result>) {
    std::apply(call, arguments);
    return 0;
  } else {
    const Result result = std::apply(call, arguments);
    const auto out_values = OutValuesOf(arguments, std::index_sequence_for<P...>(),
                                        static_cast<void (*)(P...)>(nullptr));
    return SendResult(out_values.data(), out_values.size(), result);
  }
}

template <class T>
bool Exchange::ReadArgument(const char* method, std::size_t number,
                            std::remove_reference_t<T>& argument) {
  if constexpr (kIsOutValue<T>) {
    argument = 0;
    return true;
  } else {
    if (ReadItem(request_.get(), argument)) return true;
    KAVREL_LOG(kLogError, LOG_TAG, where_,
               "Invalid request: instance(%s) method(%s) item %zu is not a valid %s",
               service_.GetInstance().c_str(), method, number, ItemTypeName(ItemTypeOf<T>()));
    return false;
  }
}

bool Exchange::ReadEnd(const char* method) {
  if (!HasMoreItems(request_.get())) return true;
  KAVREL_LOG(kLogError, LOG_TAG, where_,
             "Invalid request: instance(%s) method(%s) has an item after the last one",
             service_.GetInstance().c_str(), method);
  return false;
}

template <class R>
int Exchange::SendResult(const int* out_values, std::size_t count, const R& result) {
  rpc_port_parcel_h parcel = result_.get();
  bool written = WriteItem(parcel, kResultId);
  for (std::size_t i = 0; i < count; ++i) written = written && WriteItem(parcel, out_values[i]);
  if (!written || !WriteItem(parcel, result)) {
    KAVREL_LOG(kLogError, LOG_TAG, where_, "Failed to write the result: instance(%s)",
               service_.GetInstance().c_str());
    return kRefused;
  }
  const int sent = rpc_port_parcel_send(parcel, port_);
  KAVREL_LOG(kLogInfo, LOG_TAG, where_, "Parcel send result(%d)", sent);
  return sent;
}

}  // namespace stub
}  // namespace KavrelAppApiStub
}  // namespace rpc_port
