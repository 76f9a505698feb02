// Waiting on the main context for something, no longer than stated.
#pragma once

#include <functional>

namespace kavrelctl {

struct WaitLimits {
  double seconds = 0;
  bool looks_often = false;  ///< asks `is_over` from time to time though nothing has arrived
};

/// Runs the calling thread's main context until `is_over` says so, which is asked first, and after
/// everything that arrives. False when the time was up before. Main thread.
bool WaitUntil(const WaitLimits& limits, const std::function<bool()>& is_over);

}  // namespace kavrelctl
