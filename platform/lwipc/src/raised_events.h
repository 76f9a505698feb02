// The events that this process has raised.
#pragma once

#include "event_place.h"

namespace lwipc {

/// Raises the event and keeps it raised until the process ends. Returns 0 or a negative errno
/// value. Any thread.
int RaiseEvent(const EventPlaces& places);

}  // namespace lwipc
