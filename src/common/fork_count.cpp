#include "fork_count.h"

#include <pthread.h>

namespace kavrel {

std::atomic<unsigned> fork_count{0};

namespace {

// As the library is loaded, before it can have made anything.
[[maybe_unused]] const int counts_forks =
    ::pthread_atfork(nullptr, nullptr, [] { fork_count.fetch_add(1, std::memory_order_relaxed); });

}  // namespace
}  // namespace kavrel
