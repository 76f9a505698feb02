// Tells a forked child from the process that made an object: what the parent's other threads had
// locked stays locked in the child for ever.
#pragma once

#include <atomic>

namespace kavrel {

/// How many forks lie between this process and the one that loaded the library. Any thread.
extern std::atomic<unsigned> fork_count;

/// Member of what no forked child may use. Any thread.
class MadeHere {
 public:
  /// False in a child that was forked after the object was made.
  explicit operator bool() const { return count_ == fork_count.load(std::memory_order_relaxed); }

 private:
  unsigned count_ = fork_count.load(std::memory_order_relaxed);
};

}  // namespace kavrel
