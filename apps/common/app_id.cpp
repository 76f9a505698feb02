#include "app_id.h"

#include <algorithm>

namespace kavrel_programs {
namespace {

constexpr std::size_t kLongest = 64;

// Locale-free, as the service that looks ids up.
bool IsAllowed(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-';
}

}  // namespace

std::string AppIdMistake(const std::string& text) {
  if (!text.empty() && text.size() <= kLongest &&
      std::all_of(text.begin(), text.end(), IsAllowed)) {
    return {};
  }
  return '"' + text + "\" is not an application id (1 to " + std::to_string(kLongest) +
         " letters, digits, '.', '_' and '-')";
}

}  // namespace kavrel_programs
