#include "allocations.h"

#include <atomic>
#include <cstddef>

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* memory, std::size_t size);

namespace {

std::atomic<long> allocations = 0;
std::atomic<long> allocated_bytes = 0;

void Count(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  allocated_bytes.fetch_add(static_cast<long>(size), std::memory_order_relaxed);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) {
  Count(size);
  return __libc_malloc(size);
}
extern "C" __attribute__((visibility("default"))) void* calloc(std::size_t count,
                                                               std::size_t size) {
  Count(count * size);
  return __libc_calloc(count, size);
}
extern "C" __attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size) {
  Count(size);
  return __libc_realloc(memory, size);
}

namespace kavrel_bench {

long Allocations() {
  return allocations;
}

long AllocatedBytes() {
  return allocated_bytes;
}

}  // namespace kavrel_bench
