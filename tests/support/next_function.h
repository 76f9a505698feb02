// The function of a library that a function of the program stands in for.
#pragma once

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>

// Sanitizers stand in for the same functions, some of them from the first instruction on: with one,
// only operator new can fail.
#if defined(__has_feature)
#if !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer)
#define KAVREL_CALLS_CAN_FAIL 1
#endif
#elif !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define KAVREL_CALLS_CAN_FAIL 1
#endif

namespace kavrel_test {

template <class Signature>
class NextFunction;

/// Found with the first call. Needs no constructor at run time and no memory, so that it can stand
/// behind malloc. Any thread.
template <class Result, class... Arguments>
class NextFunction<Result(Arguments...)> {
 public:
  constexpr explicit NextFunction(const char* name) : name_(name) {}

  Result operator()(Arguments... arguments) {
    void* found = found_.load(std::memory_order_relaxed);
    if (found == nullptr) {
      found = ::dlsym(RTLD_NEXT, name_);
      if (found == nullptr) std::abort();
      found_.store(found, std::memory_order_relaxed);
    }
    return reinterpret_cast<Result (*)(Arguments...)>(found)(arguments...);
  }

 private:
  const char* name_;
  std::atomic<void*> found_{nullptr};
};

}  // namespace kavrel_test
