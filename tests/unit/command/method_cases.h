// All methods of the table as test cases: what a call of each looks like, what must travel, and how
// to make the call through the proxy and through the C API.
#pragma once

#include <kavrel/app_api.h>
#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <functional>
#include <string>
#include <vector>

#include "app_api/tidl/KavrelAppApiProxy.h"
#include "fake_rpc_port.h"

namespace kavrel_test {

/// Sets of arguments: ordinary ones, the least ones (empty texts and lists, INT_MIN, false), and
/// long and odd ones.
inline constexpr int kRounds = 3;

/// What out values hold before a call.
inline constexpr int kUntouched = -77;

struct MethodCase {
  using Proxy = rpc_port::KavrelAppApiProxy::proxy::KavrelAppApi;

  kavrel::app_api::MethodInfo info;
  /// The items of the request: the id, then the arguments.
  std::function<Items(int round)> request;
  /// The fields of the result, without the leading 0; empty for a one-way method.
  std::function<Items(int round)> fields;
  /// What a caller gets who gets nothing: out values untouched, then false or 0.
  Items nothing;
  /// Makes the call and returns what the caller got: out values, then the return value.
  std::function<Items(Proxy& proxy, int round)> call_proxy;
  std::function<Items(kavrel_api_h handle, int round)> call_api;

  std::string api_name() const { return std::string("kavrel_api_") + info.c_name; }
  bool is_show() const { return info.id >= 11 && info.id <= 32; }
};

/// One a row of the table, in its order.
const std::vector<MethodCase>& AllMethods();

/// The case of a method by its name.
const MethodCase& Method(const std::string& name);

/// Items as they travel for a value: a list is its count and its elements.
void AppendItems(Items& items, int value);
void AppendItems(Items& items, bool value);
void AppendItems(Items& items, const std::string& value);
void AppendItems(Items& items, const std::vector<std::string>& value);

}  // namespace kavrel_test
