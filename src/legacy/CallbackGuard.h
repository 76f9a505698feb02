// The edge between GLib and this library's callbacks.
#pragma once

#include <new>

#include "ChannelLog.h"

namespace kavreldbus {

/// Runs the body of a callback that GLib calls. When memory runs out in it, that is a line in the
/// log and what the callback was told of is lost: nothing unwinds through GLib. Other exceptions
/// are the program's own and stay what they are. True when the body was run to its end. Any thread.
template <class Body>
bool RunToItsEnd(kavrel::SourceLine where, Body body) {
  try {
    body();
    return true;
  } catch (const std::bad_alloc&) {
    CHANNEL_ERROR(where, "Out of memory: what was to be done is left undone\n");
    return false;
  }
}

}  // namespace kavreldbus
