// Counts every allocation of the program it is linked into, those of libraries too.
#pragma once

namespace kavrel_bench {

/// So far, by all threads.
long Allocations();
long AllocatedBytes();

}  // namespace kavrel_bench
