// Publishes the television's state in the state store, where any program reads and watches it.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <variant>

#include "television.h"

namespace viewer {

/// Writes each property that this viewer answers for when its value has changed since it was last
/// written. A store that refuses is logged by the library; the value is tried again with the next
/// change. Belongs to the viewer's main thread. The television outlives it, but is not commanded
/// any more after its end.
class StatePublisher {
 public:
  /// Publishes everything at once, so that nothing of an earlier viewer is left. `window_number` is
  /// 0 for a viewer without a window of its display's.
  StatePublisher(Television& television, int window_number);
  StatePublisher(const StatePublisher&) = delete;
  StatePublisher& operator=(const StatePublisher&) = delete;
  /// Leaves word that no viewer runs any more: no banners, state "stopped".
  ~StatePublisher();

  /// `listener` is told the key of each value that is written, until the destructor begins: it may
  /// be gone by then.
  void OnWrite(std::function<void(const char* key)> listener) { written_ = std::move(listener); }

 private:
  using Value = std::variant<int, std::string>;
  using NumberSetter = int (*)(int value);
  using TextSetter = int (*)(const char* value);

  void Publish();
  void PublishBanners();
  void PublishServices();
  void PublishSignal();
  void Text(const char* key, const char* value, TextSetter set);
  void Number(const char* key, int value, NumberSetter set);
  void OwnNumber(const char* key, int value);
  void OwnText(const char* key, const std::string& value);
  template <class Write>
  void Update(const char* key, Value value, const Write& write);

  const Television& television_;
  std::function<void(const char* key)> written_;
  int earlier_losses_ = 0;
  std::map<std::string, Value> published_;  // by key
};

}  // namespace viewer
