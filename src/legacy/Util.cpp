#include "Util.h"

#include <algorithm>
#include <chrono>
#include <string_view>

#include "ChannelLog.h"

namespace util {
namespace {

// Not isalnum(): that depends on the locale.
bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
}

}  // namespace

unsigned long long GetCurrentTimeInMillis() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
  return static_cast<unsigned long long>(nanoseconds) / 1'000'000;
}

bool CheckNameValidity(const char* name) {
  if (name == nullptr || *name == '\0') {
    CHANNEL_ERROR(kavrel::Here(), "name is null!\n");
    return false;
  }
  const std::string_view text(name);
  return std::all_of(text.begin(), text.end(), IsNameCharacter);
}

std::string CombinateFormatedString(std::string format, std::string value, bool removeDash) {
  if (removeDash) std::erase(value, '-');
  constexpr std::string_view kPlace = "%s";
  const auto place = format.find(kPlace);
  if (place != std::string::npos) format.replace(place, kPlace.size(), value);
  return format;
}

}  // namespace util
