#include "lwipc.h"

#include <cerrno>
#include <chrono>
#include <new>

#include "event_place.h"
#include "event_wait.h"
#include "raised_events.h"

namespace {

// What the C functions share: the name is checked, and no exception gets out.
template <typename Act>
int WithPlaces(const char* event, Act act) {
  try {
    const auto places = lwipc::FindPlaces(event);
    return places ? act(*places) : -EINVAL;
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  } catch (...) {
    return -EIO;
  }
}

}  // namespace

int LwipcEventDone(const char* event) {
  return WithPlaces(event, lwipc::RaiseEvent);
}

int LwipcIsDone(const char* event) {
  return WithPlaces(event, lwipc::TestEvent);
}

int LwipcWaitEvent(const char* event, int timeout_ms) {
  if (timeout_ms < 0) return -EINVAL;
  const std::chrono::milliseconds limit(timeout_ms);
  return WithPlaces(
      event, [limit](const lwipc::EventPlaces& places) { return WaitForEvent(places, limit); });
}
