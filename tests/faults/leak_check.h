// Asks the leak checker, in builds that have one.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define KAVREL_CHECKS_LEAKS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KAVREL_CHECKS_LEAKS 1
#endif
#endif

#ifdef KAVREL_CHECKS_LEAKS
#include <sanitizer/lsan_interface.h>
#endif

namespace faults_test {

/// Whether memory was lost in this process; the checker says which on standard error.
inline bool HasLeaked() {
#ifdef KAVREL_CHECKS_LEAKS
  return __lsan_do_recoverable_leak_check() != 0;
#else
  return false;
#endif
}

}  // namespace faults_test
