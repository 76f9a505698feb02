// Time for deadlines. The coarse clock is a few milliseconds behind at most and costs a few
// nanoseconds, which lets every call be bounded.
#pragma once

#include <time.h>

#include <cstdint>
#include <limits>

namespace kavrel_rpc {

inline constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

inline std::int64_t NowMs() {
  struct timespec now {};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

/// The moment `timeout_ms` from now; a time-out of 0 is switched off.
inline std::int64_t DeadlineAfter(std::int64_t timeout_ms) {
  return timeout_ms == 0 ? kNever : NowMs() + timeout_ms;
}

}  // namespace kavrel_rpc
