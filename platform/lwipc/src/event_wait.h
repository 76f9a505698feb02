// Waiting for an event.
#pragma once

#include <chrono>

#include "event_place.h"

namespace lwipc {

/// 1 when the event is raised at one of its places, 0 when not, a negative errno value when this
/// process lacks what it takes to look. Any thread.
int TestEvent(const EventPlaces& places);

/// 0 when the event is raised in time, -ETIMEDOUT when not, another negative errno value as
/// TestEvent. Any thread; blocks.
int WaitForEvent(const EventPlaces& places, std::chrono::milliseconds limit);

}  // namespace lwipc
