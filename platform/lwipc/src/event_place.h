// Where an event's file lies.
#pragma once

#include <optional>
#include <string>

#include "unique_fd.h"

namespace lwipc {

/// A file name in a directory, and the text that the file has to hold. Immutable; any thread.
struct Place {
  std::string directory;
  std::string name;
  /// The event's full path. A file that holds another one was put here under a wrong name.
  std::string content;
};

/// The two places of one event: the path that its name says, and a substitute in this user's
/// runtime directory for a raiser whose path a stranger occupies (in a directory like /tmp nobody
/// can take a foreign file away). Whoever looks for the event looks at both.
struct EventPlaces {
  Place path;
  Place substitute;
};

/// Nothing when `event` is no name of an event.
std::optional<EventPlaces> FindPlaces(const char* event);

/// A handle of the directory for the *at() calls; invalid, with errno set, when there is none.
kavrel_platform::UniqueFd OpenDirectory(const Place& place);

}  // namespace lwipc
