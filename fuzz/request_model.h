// What the method table says about requests and answers, by other code than the two ends'.
#pragma once

#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <optional>

#include "wire_model.h"

namespace kavrel_fuzz {

struct MethodCall {
  int method = 0;
  Items arguments;  ///< as they travel: a list is its count and its elements

  bool operator==(const MethodCall&) const = default;
};

/// The call that a request asks for, or nothing when it is no request of any method.
std::optional<MethodCall> CallOf(const Frame& request);

/// What the fields of an answer look like: int32 for out values and results that are int32.
struct Answer {
  std::vector<std::int32_t> out_values;
  std::int32_t result = 0;

  bool operator==(const Answer&) const = default;
};

/// The answer in a result's items, behind the leading 0, or nothing when they do not begin with
/// the method's fields.
std::optional<Answer> AnswerOf(const kavrel::app_api::MethodInfo& method, const Items& items);

/// The items of a result.
Items ResultItems(const kavrel::app_api::MethodInfo& method, const Answer& answer);

/// An answer that differs for each method and field.
Answer SampleAnswer(const kavrel::app_api::MethodInfo& method);

}  // namespace kavrel_fuzz
