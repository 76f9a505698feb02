#include "patience.h"

#include <time.h>

#include <cerrno>

#include "directories.h"
#include "thread_sanitizer.h"

namespace kavrel_vconf {

std::chrono::milliseconds LockTimeout() {
  static const std::chrono::milliseconds timeout{
      kavrel_platform::EnvironmentNumber("KAVREL_VCONF_TIMEOUT_MS", 10'000, 100, 60'000)};
  return timeout;
}

#if defined(KAVREL_THREAD_SANITIZER)

// The thread sanitizer does not see locks that are taken with a time limit.
namespace {

template <typename TryLock>
bool TryPatiently(TryLock try_lock) {
  const timespec pause{0, 1'000'000};
  for (auto left = LockTimeout().count(); left > 0; --left) {
    if (try_lock()) return true;
    ::nanosleep(&pause, nullptr);
  }
  return try_lock();
}

}  // namespace

std::unique_lock<std::timed_mutex> LockPatiently(std::timed_mutex& mutex) {
  std::unique_lock lock(mutex, std::defer_lock);
  TryPatiently([&] { return lock.try_lock(); });
  return lock;
}

int LockPatiently(pthread_mutex_t* mutex) {
  int result = EBUSY;
  TryPatiently([&] { return (result = ::pthread_mutex_trylock(mutex)) != EBUSY; });
  return result == EBUSY ? ETIMEDOUT : result;
}

#else

namespace {

timespec MonotonicTimeAfter(std::chrono::milliseconds wait) {
  constexpr long kSecond = 1'000'000'000;
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  time.tv_sec += wait.count() / 1000;
  time.tv_nsec += wait.count() % 1000 * 1'000'000;
  time.tv_sec += time.tv_nsec / kSecond;
  time.tv_nsec %= kSecond;
  return time;
}

}  // namespace

std::unique_lock<std::timed_mutex> LockPatiently(std::timed_mutex& mutex) {
  std::unique_lock lock(mutex, std::try_to_lock);
  if (!lock) static_cast<void>(lock.try_lock_for(LockTimeout()));
  return lock;
}

int LockPatiently(pthread_mutex_t* mutex) {
  if (const int result = ::pthread_mutex_trylock(mutex); result != EBUSY) return result;
  // The monotonic clock: televisions set the other one when they first see a broadcast.
  const timespec deadline = MonotonicTimeAfter(LockTimeout());
  return ::pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &deadline);
}

#endif

}  // namespace kavrel_vconf
