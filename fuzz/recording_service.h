// A service that notes what it is called with, all its operations made from the method table.
#pragma once

#include <kavrel/tidl/KavrelAppApiMethods.h>
#include <kavrel/tidl/KavrelAppApiStub.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "request_model.h"

namespace kavrel_fuzz {

using ServiceBase = rpc_port::KavrelAppApiStub::stub::KavrelAppApi::ServiceBase;

/// For the thread of the stub's events.
class Recorder : public ServiceBase {
 public:
  Recorder(std::string sender, std::string instance, std::vector<MethodCall>& calls)
      : ServiceBase(std::move(sender), std::move(instance)), calls_(calls) {}

  void OnClientConnected() override {}
  void OnClientDisconnected() override {}

 protected:
  /// Notes a call of the method and answers with the method's sample.
  template <class R, class... P>
  R Note(const kavrel::app_api::MethodInfo& method, std::remove_reference_t<P>&... arguments) {
    const Answer answer = SampleAnswer(method);
    MethodCall& call = calls_.emplace_back(MethodCall{method.id, {}});
    std::size_t next = 0;
    const auto take = [&](auto type, auto& argument) {
      using T = typename decltype(type)::type;
      if constexpr (kavrel::app_api::kIsOutValue<T>) {
        argument = answer.out_values[next++];
      } else {
        Append(call.arguments, argument);
      }
    };
    (take(std::type_identity<P>(), arguments), ...);
    return static_cast<R>(answer.result);
  }

 private:
  template <class T>
  static void Append(Items& items, const T& value) {
    if constexpr (std::is_same_v<T, kavrel::app_api::Strings>) {
      items.emplace_back(Count{static_cast<std::int32_t>(value.size())});
      items.insert(items.end(), value.begin(), value.end());
    } else {
      items.emplace_back(value);
    }
  }

  std::vector<MethodCall>& calls_;
};

// Each row adds its operation to the class of the row before it.
template <int kId>
struct RecorderUpTo;
template <>
struct RecorderUpTo<kavrel::app_api::kFirstMethodId - 1> {
  using Type = Recorder;
};

#define KAVREL_RECORDED_OPERATION(id, method, c_name, signature, summary)                         \
  template <class Base, class Signature>                                                          \
  class method##Recorder;                                                                         \
  template <class Base, class R, class... P>                                                      \
  class method##Recorder<Base, R(P...)> : public Base {                                           \
   public:                                                                                        \
    using Base::Base;                                                                             \
    R method(P... arguments) override {                                                           \
      return this->template Note<R, P...>(kavrel::app_api::methods::method::kInfo, arguments...); \
    }                                                                                             \
  };                                                                                              \
  template <>                                                                                     \
  struct RecorderUpTo<id> {                                                                       \
    using Type = method##Recorder<typename RecorderUpTo<(id)-1>::Type,                            \
                                  kavrel::app_api::methods::method::Signature>;                   \
  };
KAVREL_APP_API_METHODS(KAVREL_RECORDED_OPERATION)
#undef KAVREL_RECORDED_OPERATION

using RecordingService = RecorderUpTo<kavrel::app_api::kLastMethodId>::Type;

}  // namespace kavrel_fuzz
