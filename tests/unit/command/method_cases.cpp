#include "method_cases.h"

#include <cstddef>
#include <limits>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <utility>

namespace kavrel_test {
namespace {

using kavrel::app_api::kIsOutValue;
using kavrel::app_api::Strings;

template <class T>
T Sample(std::size_t position, int round) {
  const int number = static_cast<int>(position);
  if constexpr (std::is_same_v<T, int>) {
    return round == 0   ? 100 + number
           : round == 1 ? std::numeric_limits<int>::min() + number
                        : std::numeric_limits<int>::max() - number;
  } else if constexpr (std::is_same_v<T, bool>) {
    return round != 1;
  } else if constexpr (std::is_same_v<T, std::string>) {
    return round == 0   ? "text " + std::to_string(number)
           : round == 1 ? std::string()
                        : std::string(70000, static_cast<char>('a' + number)) + "%s\n\xff\xc3\xa4";
  } else {
    static_assert(std::is_same_v<T, Strings>);
    return round == 0 ? Strings{"one", "", "three"} : Strings(round == 1 ? 0 : 4096, "element");
  }
}

/// How a value is given to a function that takes Q.
template <class Q, class T>
decltype(auto) As(T& value) {
  if constexpr (std::is_same_v<Q, const char*>) {
    return value.c_str();
  } else {
    return (value);
  }
}

template <class Signature>
struct Call;

template <class R, class... P>
struct Call<R(P...)> {
  using Arguments = std::tuple<std::decay_t<P>...>;

  static Arguments Samples(int round) { return SamplesAt(round, std::index_sequence_for<P...>()); }

  static Items Request(int id, int round) {
    Items items = {id};
    ForEach(Samples(round), [&](auto type, const auto& value) {
      using T = typename decltype(type)::type;
      if constexpr (!kIsOutValue<T>) AppendItems(items, value);
    });
    return items;
  }

  static Items Fields(int round) {
    Items items;
    std::size_t position = 10;
    ForEach(Samples(round), [&](auto type, const auto&) {
      using T = typename decltype(type)::type;
      if constexpr (kIsOutValue<T>) AppendItems(items, Sample<int>(++position, round));
    });
    if constexpr (!std::is_void_v<R>) AppendItems(items, Sample<R>(20, round));
    return items;
  }

  static Items Nothing() {
    Items items = Got(Samples(0));
    if constexpr (!std::is_void_v<R>) AppendItems(items, R());
    return items;
  }

  /// Calls `function` with the round's samples; what the caller got.
  template <class Function>
  static Items Make(const Function& function, int round) {
    Arguments arguments = Samples(round);
    if constexpr (std::is_void_v<R>) {
      std::apply(function, arguments);
      return {};
    } else {
      const R result = std::apply(function, arguments);
      Items items = Got(arguments);
      AppendItems(items, result);
      return items;
    }
  }

 private:
  template <std::size_t... I>
  static Arguments SamplesAt(int round, std::index_sequence<I...>) {
    return Arguments{SampleOf<P>(I + 1, round)...};
  }

  template <class T>
  static std::decay_t<T> SampleOf(std::size_t position, int round) {
    if constexpr (kIsOutValue<T>) {
      return kUntouched;
    } else {
      return Sample<std::decay_t<T>>(position, round);
    }
  }

  static Items Got(const Arguments& arguments) {
    Items items;
    ForEach(arguments, [&](auto type, const auto& value) {
      using T = typename decltype(type)::type;
      if constexpr (kIsOutValue<T>) AppendItems(items, value);
    });
    return items;
  }

  template <class Action>
  static void ForEach(const Arguments& arguments, const Action& action) {
    std::apply([&](const auto&... values) { (action(std::type_identity<P>(), values), ...); },
               arguments);
  }
};

template <class Signature, class R, class... P, class... Q>
MethodCase MakeCase(const kavrel::app_api::MethodInfo& info, R (MethodCase::Proxy::*method)(P...),
                    R (*function)(kavrel_api_h, Q...)) {
  using ThisCall = Call<Signature>;
  return {info,
          [id = info.id](int round) { return ThisCall::Request(id, round); },
          [](int round) { return ThisCall::Fields(round); },
          ThisCall::Nothing(),
          [method](MethodCase::Proxy& proxy, int round) {
            return ThisCall::Make([&](auto&... values) { return (proxy.*method)(values...); },
                                  round);
          },
          [function](kavrel_api_h handle, int round) {
            return ThisCall::Make(
                [&](auto&... values) { return function(handle, As<Q>(values)...); }, round);
          }};
}

}  // namespace

void AppendItems(Items& items, int value) {
  items.emplace_back(value);
}

void AppendItems(Items& items, bool value) {
  items.emplace_back(value);
}

void AppendItems(Items& items, const std::string& value) {
  items.emplace_back(value);
}

void AppendItems(Items& items, const std::vector<std::string>& value) {
  items.emplace_back(ArrayCount{static_cast<int>(value.size())});
  for (const std::string& element : value) items.emplace_back(element);
}

const std::vector<MethodCase>& AllMethods() {
#define KAVREL_METHOD_CASE(id, method, c_name, signature, summary) \
  MakeCase<kavrel::app_api::methods::method::Signature>(           \
      kavrel::app_api::methods::method::kInfo, &MethodCase::Proxy::method, &kavrel_api_##c_name),
  static const std::vector<MethodCase> cases = {KAVREL_APP_API_METHODS(KAVREL_METHOD_CASE)};
#undef KAVREL_METHOD_CASE
  return cases;
}

const MethodCase& Method(const std::string& name) {
  for (const MethodCase& method : AllMethods()) {
    if (name == method.info.name) return method;
  }
  throw std::logic_error("no method " + name);
}

}  // namespace kavrel_test
