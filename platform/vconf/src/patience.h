// How long a call waits for another process that holds the store.
#pragma once

#include <pthread.h>

#include <chrono>
#include <mutex>

namespace kavrel_vconf {

/// Ten seconds, or KAVREL_VCONF_TIMEOUT_MS (100 to 60000). A writer holds the store for
/// microseconds, a durable one for as long as the disk takes: who waits this long waits for a
/// process that was stopped in mid-set.
std::chrono::milliseconds LockTimeout();

/// Takes a lock of this process within that time; otherwise the result holds nothing.
std::unique_lock<std::timed_mutex> LockPatiently(std::timed_mutex& mutex);

/// The same for a mutex that processes share. What pthread_mutex_clocklock returns.
int LockPatiently(pthread_mutex_t* mutex);

}  // namespace kavrel_vconf
