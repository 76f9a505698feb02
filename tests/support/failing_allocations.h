// Lets an allocation fail, to see what is left behind. Works in programs that link the target
// kavrel_failing_allocations, which replaces operator new.
#pragma once

#include <cstddef>

namespace kavrel_test {

/// While one exists, allocations of its thread succeed: a fake's own bookkeeping is not under test.
class FakeAtWork {
 public:
  FakeAtWork() { ++depth_; }
  FakeAtWork(const FakeAtWork&) = delete;
  FakeAtWork& operator=(const FakeAtWork&) = delete;
  ~FakeAtWork() { --depth_; }

  static bool Any() { return depth_ > 0; }

 private:
  static inline thread_local int depth_ = 0;
};

/// From its making to its end the `nth` allocation of this thread fails, once; with 0 none does,
/// and they are counted.
class FailingAllocation {
 public:
  explicit FailingAllocation(int nth);
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
  ~FailingAllocation();

  bool has_failed() const;
  /// Allocations so far, the failed one included.
  int count() const;
};

/// How many pieces of memory this thread has taken with operator new and not given back.
long LiveAllocations();

}  // namespace kavrel_test
