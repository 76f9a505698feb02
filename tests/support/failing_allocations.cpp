#include "failing_allocations.h"

#include <cstdlib>
#include <new>

namespace kavrel_test {
namespace {

struct Plan {
  bool armed = false;
  int failing = 0;  // which one fails
  int count = 0;
};

thread_local Plan the_plan;
thread_local long live_allocations = 0;

bool ThisOneFails() {
  if (!the_plan.armed || FakeAtWork::Any()) return false;
  return ++the_plan.count == the_plan.failing;
}

}  // namespace

FailingAllocation::FailingAllocation(int nth) {
  the_plan = {true, nth, 0};
}

FailingAllocation::~FailingAllocation() {
  the_plan.armed = false;
}

bool FailingAllocation::has_failed() const {
  return the_plan.failing != 0 && the_plan.count >= the_plan.failing;
}

int FailingAllocation::count() const {
  return the_plan.count;
}

long LiveAllocations() {
  return live_allocations;
}

namespace {

void* TryToAllocate(std::size_t size) {
  if (ThisOneFails()) return nullptr;
  void* const memory = std::malloc(size > 0 ? size : 1);
  if (memory != nullptr) ++live_allocations;
  return memory;
}

void* Allocate(std::size_t size) {
  if (void* const memory = TryToAllocate(size)) return memory;
  throw std::bad_alloc();
}

void Free(void* memory) {
  if (memory == nullptr) return;
  --live_allocations;
  std::free(memory);
}

}  // namespace

}  // namespace kavrel_test

void* operator new(std::size_t size) {
  return kavrel_test::Allocate(size);
}

// The library's own calls the one above; a sanitizer's does not.
void* operator new(std::size_t size, const std::nothrow_t& /*nothrow*/) noexcept {
  return kavrel_test::TryToAllocate(size);
}

void operator delete(void* memory) noexcept {
  kavrel_test::Free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  kavrel_test::Free(memory);
}
