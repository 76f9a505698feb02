// The callbacks that a user has added for one event.
#pragma once

#include <vector>

namespace kavrel_rpc {

/// Callbacks may add others, which are called from the next event on, and may destroy what owns the
/// list as long as its memory is kept. Guarded by its owner.
template <typename Function>
class EventList {
 public:
  void Add(Function function, void* user_data) { entries_.push_back({function, user_data}); }

  /// Calls all in order, each as `call(function, user_data)`, until that returns false.
  template <typename Call>
  void Raise(Call call) const {
    const std::size_t count = entries_.size();
    for (std::size_t i = 0; i < count; ++i) {
      const Entry entry = entries_[i];
      if (!call(entry.function, entry.user_data)) return;
    }
  }

 private:
  struct Entry {
    Function function;
    void* user_data;
  };
  std::vector<Entry> entries_;
};

}  // namespace kavrel_rpc
