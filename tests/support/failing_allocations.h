// What allocates: operator new that can fail (see faults.h) and is counted.
#pragma once

#include <cstddef>

#include "faults.h"

namespace kavrel_test {

/// While one exists, nothing of its thread fails: a fake's own bookkeeping is not under test.
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

/// The `nth` operator new fails, once.
class FailingAllocation {
 public:
  explicit FailingAllocation(int nth) : fault_(Fault::kNew, nth) {}

  bool has_failed() const { return fault_.has_occurred(); }
  /// Allocations so far, the failed one included.
  int count() const { return fault_.count(); }

 private:
  ScopedFault fault_;
};

/// How many pieces of memory this thread has taken with operator new and not given back.
long LiveAllocations();

}  // namespace kavrel_test
