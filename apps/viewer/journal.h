// What happens in the viewer, as it happens, for those who follow it on the control port: calls
// with what they changed in the published state, keys, plug-ins, and what others set in that state.
#pragma once

#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "operation_log.h"
#include "television.h"

namespace viewer {

/// Costs nothing while nobody follows. Belongs to the main thread, and lives shorter than log and
/// television; the television is not commanded any more after its end.
///
/// An event is an object with "sequence" (1, 2, ...), "event" and more:
///     call      "client", "method", "arguments", "values", "result", "effects", "state"
///     set       "property", "value": somebody else than this viewer has set it
///     screen    something on the screen has changed
///     state     what the viewer has published of its own accord, as "state"
///     key, ...  what the operation log tells programs, and "state"
/// "state" holds the properties that the viewer has published meanwhile, by name. What others set
/// before an event is told before it, so that the order is the one in which things took effect.
class Journal {
 public:
  using Follower = std::function<void(const nlohmann::ordered_json& event)>;

  Journal(OperationLog& log, Television& television);
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;
  ~Journal() { End(); }

  /// `follower` is told everything from now on, instead of an earlier one.
  void Begin(Follower follower);
  void End();

  /// Tells what others have set since the last event. Returns the number of the last event.
  unsigned Look();

  /// The viewer has published a value under that key.
  void Published(const char* key) { published_.insert(key); }

 private:
  using Values = std::map<std::string, nlohmann::ordered_json>;

  void TellOperation(const nlohmann::ordered_json& event);
  /// Tells what others have set; returns what this viewer has published.
  nlohmann::ordered_json TellChanges();
  void Tell(nlohmann::ordered_json event);
  static Values ReadAll();

  OperationLog& log_;
  Follower follower_;
  unsigned sequence_ = 0;
  Values values_;                    // of the properties, by name, as far as they were told
  std::set<std::string> published_;  // keys since the last look
};

}  // namespace viewer
