// The file that says that an event is raised.
//
// A raised event is a regular file, owned by its raiser, that holds the event's path and on which
// the raiser holds a write lock until it ends, however it ends. Strangers can neither make such a
// file (owner), nor pass off another one (content), nor prolong its life (a write lock needs write
// permission), nor prevent it (it is made under a name of its own, locked, and then put into place
// in one step).
#pragma once

#include "event_place.h"
#include "unique_fd.h"

namespace lwipc {

/// Makes the event's file at the place and locks it. The event is raised while the descriptor is
/// open. Invalid, with errno set, on failure.
kavrel_platform::UniqueFd MakeEventFile(const Place& place);

/// 1 when the event is raised at the place, 0 when not, a negative errno value when this process
/// lacks what it takes to look. Never blocks.
int TestEventFile(const Place& place);

}  // namespace lwipc
