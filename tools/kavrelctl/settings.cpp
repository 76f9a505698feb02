#include "settings.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace kavrelctl {
namespace {

constexpr double kLongestTimeoutSeconds = 86400;
// That of the bundled rpc-port service, which also names the variable.
constexpr double kDefaultTimeoutSeconds = 10;
constexpr const char* kTimeoutVariable = "KAVREL_RPC_TIMEOUT_MS";

}  // namespace

std::string TimeoutMistake(const std::string& text) {
  double seconds = -1;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, seconds);
  if (parsed.ec == std::errc() && parsed.ptr == end && seconds >= 0 &&
      seconds <= kLongestTimeoutSeconds) {
    return {};
  }
  return '"' + text + "\" is not a number of seconds from 0 (no limit) to 86400";
}

void ApplyTimeout(const Settings& settings) {
  if (!settings.timeout_seconds) return;
  // Upwards: a limit that rounds to nothing must not become none.
  const long milliseconds = std::lround(std::ceil(*settings.timeout_seconds * 1000));
  ::setenv(kTimeoutVariable, std::to_string(milliseconds).c_str(), 1);
}

double EffectiveTimeoutSeconds(const Settings& settings) {
  if (settings.timeout_seconds) return *settings.timeout_seconds;
  const char* const set = std::getenv(kTimeoutVariable);
  return set != nullptr ? std::strtod(set, nullptr) / 1000 : kDefaultTimeoutSeconds;
}

double PatienceSeconds(const Settings& settings) {
  const double seconds = EffectiveTimeoutSeconds(settings);
  constexpr double kNoLimit = 1e6;
  return seconds > 0 ? seconds : kNoLimit;
}

}  // namespace kavrelctl
