#include "request_model.h"

#include <algorithm>
#include <cstddef>

namespace kavrel_fuzz {
namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::MethodInfo;

constexpr std::int32_t kLongestList = 4096;

// How many items from `at` make one argument of that type; 0 when they are none.
std::size_t ArgumentSize(ItemType type, const Items& items, std::size_t at) {
  if (at >= items.size()) return 0;
  switch (type) {
    case ItemType::Int32:
      return std::holds_alternative<std::int32_t>(items[at]) ? 1 : 0;
    case ItemType::Bool:
      return std::holds_alternative<bool>(items[at]) ? 1 : 0;
    case ItemType::String:
      return std::holds_alternative<std::string>(items[at]) ? 1 : 0;
    default:
      break;
  }
  const auto* const count = std::get_if<Count>(&items[at]);
  if (count == nullptr || count->value < 0 || count->value > kLongestList) return 0;
  const auto elements = static_cast<std::size_t>(count->value);
  if (elements > items.size() - at - 1) return 0;
  const auto first = items.begin() + static_cast<std::ptrdiff_t>(at) + 1;
  const bool are_texts = std::all_of(first, first + count->value, [](const Item& item) {
    return std::holds_alternative<std::string>(item);
  });
  return are_texts ? 1 + elements : 0;
}

}  // namespace

std::optional<MethodCall> CallOf(const Frame& request) {
  const Items& items = request.items;
  if (items.empty() || !std::holds_alternative<std::int32_t>(items[0])) return std::nullopt;
  const MethodInfo* const method = kavrel::app_api::FindMethod(std::get<std::int32_t>(items[0]));
  if (method == nullptr) return std::nullopt;
  std::size_t at = 1;
  for (std::size_t i = 0; i < method->argument_count; ++i) {
    const std::size_t size = ArgumentSize(method->arguments[i], items, at);
    if (size == 0) return std::nullopt;
    at += size;
  }
  if (at != items.size()) return std::nullopt;
  return MethodCall{method->id, Items(items.begin() + 1, items.end())};
}

std::optional<Answer> AnswerOf(const MethodInfo& method, const Items& items) {
  Answer answer;
  if (items.size() < method.out_value_count + 1) return std::nullopt;
  for (std::size_t i = 0; i < method.out_value_count; ++i) {
    const auto* const value = std::get_if<std::int32_t>(&items[i]);
    if (value == nullptr) return std::nullopt;
    answer.out_values.push_back(*value);
  }
  const Item& result = items[method.out_value_count];
  const bool is_number = method.result == ItemType::Int32;
  if (result.index() != (is_number ? 0 : 1)) return std::nullopt;
  answer.result = is_number ? std::get<std::int32_t>(result) : std::get<bool>(result) ? 1 : 0;
  return answer;
}

Items ResultItems(const MethodInfo& method, const Answer& answer) {
  Items items = {std::int32_t{0}};
  items.insert(items.end(), answer.out_values.begin(), answer.out_values.end());
  if (method.result == ItemType::Int32) {
    items.emplace_back(answer.result);
  } else {
    items.emplace_back(answer.result != 0);
  }
  return items;
}

Answer SampleAnswer(const MethodInfo& method) {
  Answer answer;
  for (std::size_t i = 0; i < method.out_value_count; ++i) {
    answer.out_values.push_back(method.id * 10 + static_cast<std::int32_t>(i));
  }
  answer.result = method.result == ItemType::Int32 ? method.id * 10 + 9 : method.id % 2;
  return answer;
}

}  // namespace kavrel_fuzz
