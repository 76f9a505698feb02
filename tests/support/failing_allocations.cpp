#include "failing_allocations.h"

#include <cstdlib>
#include <new>

#include "next_function.h"

namespace kavrel_test {
namespace {

thread_local long live_allocations = 0;

#ifndef KAVREL_CALLS_CAN_FAIL
void* RealMalloc(std::size_t size) {
  return std::malloc(size);
}
#else
void* RealMalloc(std::size_t size) {
  static constinit NextFunction<void*(std::size_t)> next{"malloc"};
  return next(size);
}
#endif

void* TryToAllocate(std::size_t size, const void* caller) {
  if (FailsNow(Fault::kNew, caller) || FailsNow(Fault::kMemory, caller)) return nullptr;
  void* const memory = RealMalloc(size > 0 ? size : 1);
  if (memory != nullptr) ++live_allocations;
  return memory;
}

void Free(void* memory) {
  if (memory == nullptr) return;
  --live_allocations;
  std::free(memory);
}

}  // namespace

long LiveAllocations() {
  return live_allocations;
}

}  // namespace kavrel_test

using kavrel_test::Fault;
using kavrel_test::NextFunction;

#pragma GCC visibility push(default)

// Not inlined: the compiler would see malloc behind new and free behind delete, and complain.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (void* const memory = kavrel_test::TryToAllocate(size, __builtin_return_address(0))) {
    return memory;
  }
  throw std::bad_alloc();
}

// The library's own calls the one above; a sanitizer's does not.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return kavrel_test::TryToAllocate(size, __builtin_return_address(0));
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
  kavrel_test::Free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
  kavrel_test::Free(memory);
}

#ifdef KAVREL_CALLS_CAN_FAIL
extern "C" {

void* malloc(std::size_t size) {
  static constinit NextFunction<void*(std::size_t)> next{"malloc"};
  return FailsNow(Fault::kMemory, __builtin_return_address(0)) ? nullptr : next(size);
}

void* realloc(void* memory, std::size_t size) {
  static constinit NextFunction<void*(void*, std::size_t)> next{"realloc"};
  return FailsNow(Fault::kMemory, __builtin_return_address(0)) ? nullptr : next(memory, size);
}

// The C library's own calls malloc from inside itself, which is nobody's of ours.
char* strdup(const char* text) {
  static constinit NextFunction<char*(const char*)> next{"strdup"};
  return FailsNow(Fault::kMemory, __builtin_return_address(0)) ? nullptr : next(text);
}

}  // extern "C"
#endif

#pragma GCC visibility pop
