// Memory of objects that are made and destroyed all the time.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>

namespace kavrel_rpc {

/// Keeps a few blocks of one size for whoever needs one next, on whichever thread; what is in them
/// means nothing. Waits for nobody, so that a forked child can go on with what it has inherited.
/// Blocks that are kept at the end of the program stay. Any thread.
template <std::size_t kCount>
class SpareBlocks {
 public:
  constexpr SpareBlocks() = default;
  SpareBlocks(const SpareBlocks&) = delete;
  SpareBlocks& operator=(const SpareBlocks&) = delete;

  /// A block, now the caller's; null when none is kept.
  void* Take() {
    for (std::atomic<void*>& place : places_) {
      if (place.load(std::memory_order_relaxed) == nullptr) continue;
      if (void* const block = place.exchange(nullptr, std::memory_order_acquire)) return block;
    }
    return nullptr;
  }

  /// Takes `block` over; false, and it stays the caller's, when all places are taken.
  bool Keep(void* block) {
    for (std::atomic<void*>& place : places_) {
      void* nothing = nullptr;
      if (place.load(std::memory_order_relaxed) == nullptr &&
          place.compare_exchange_strong(nothing, block, std::memory_order_release,
                                        std::memory_order_relaxed)) {
        return true;
      }
    }
    return false;
  }

 private:
  std::array<std::atomic<void*>, kCount> places_{};
};

}  // namespace kavrel_rpc
