#include "method_call.h"

#include <kavrel/app_api.h>

#include <tuple>
#include <type_traits>

namespace kavrelctl {
namespace {

namespace methods = kavrel::app_api::methods;
using kavrel::app_api::kIsOutValue;
using kavrel::app_api::Strings;

// An out value is a non-const reference; inputs come by value, by const reference or as C text.
template <class T>
inline constexpr bool kIsOut = kIsOutValue<T> && !std::is_const_v<std::remove_reference_t<T>>;

/// Hands the arguments and the places for out values to a C function, one parameter after the
/// other.
class Feeder {
 public:
  Feeder(const std::vector<Argument>& arguments, std::vector<int>& values)
      : next_argument_(arguments.begin()), next_value_(values.begin()) {}

  template <class Parameter>
  Parameter Next() {
    if constexpr (kIsOut<Parameter>) {
      return *next_value_++;
    } else if constexpr (std::is_same_v<Parameter, const char*>) {
      return std::get<std::string>(*next_argument_++).c_str();
    } else {
      return std::get<std::remove_cvref_t<Parameter>>(*next_argument_++);
    }
  }

 private:
  std::vector<Argument>::const_iterator next_argument_;
  std::vector<int>::iterator next_value_;
};

template <auto kFunction>
struct Forward;

template <class R, class... P, R (*kFunction)(kavrel_api_h, P...)>
struct Forward<kFunction> {
  static Answer Call(kavrel_api_h handle, const std::vector<Argument>& arguments) {
    Answer answer;
    answer.values.resize((std::size_t{kIsOut<P>} + ... + 0));
    Feeder feeder(arguments, answer.values);
    // Braces, because only they promise the order from left to right.
    const std::tuple<kavrel_api_h, P...> parameters{handle, feeder.Next<P>()...};
    if constexpr (std::is_void_v<R>) {
      std::apply(kFunction, parameters);
    } else {
      answer.result = std::apply(kFunction, parameters);
    }
    return answer;
  }
};

}  // namespace

const std::vector<CallableMethod>& CallableMethods() {
#define KAVRELCTL_CALLABLE(id, method, c_name, signature, summary) \
  {&methods::method::kInfo, &Forward<&kavrel_api_##c_name>::Call},
  static const std::vector<CallableMethod> all = {KAVREL_APP_API_METHODS(KAVRELCTL_CALLABLE)};
#undef KAVRELCTL_CALLABLE
  return all;
}

}  // namespace kavrelctl
