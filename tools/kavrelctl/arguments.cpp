#include "arguments.h"

#include <printable.h>
#include <strings.h>

#include <array>
#include <charconv>
#include <utility>

namespace kavrelctl {

using kavrel::app_api::ItemType;

std::optional<int> ParseInt(const std::string& text) {
  int value = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value);
  if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  return value;
}

std::optional<bool> ParseBool(const std::string& text) {
  constexpr std::array<std::pair<const char*, bool>, 6> kWords = {
      {{"true", true}, {"false", false}, {"1", true}, {"0", false}, {"on", true}, {"off", false}}};
  for (const auto& [word, value] : kWords) {
    if (::strcasecmp(word, text.c_str()) == 0) return value;
  }
  return std::nullopt;
}

const char* TypeLabel(ItemType type) {
  switch (type) {
    case ItemType::Int32:
      return "INT";
    case ItemType::Bool:
      return "BOOL";
    default:
      return "TEXT";
  }
}

std::string ValueMistake(ItemType type, const std::string& text) {
  constexpr std::size_t kLongest = 80;
  const std::string quoted = '"' + kavrel_programs::Printable(text, kLongest) + '"';
  if (type == ItemType::Int32 && !ParseInt(text)) {
    return quoted + " is not a whole number from -2147483648 to 2147483647";
  }
  if (type == ItemType::Bool && !ParseBool(text)) {
    return quoted + " is none of true, false, on, off, 1, 0";
  }
  return {};
}

}  // namespace kavrelctl
