// Memory that is left allocated on purpose, said so to the leak checker: what is not marked here is
// a leak.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KAVREL_HAS_LEAK_CHECKER 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define KAVREL_HAS_LEAK_CHECKER 1
#endif

#ifdef KAVREL_HAS_LEAK_CHECKER
#include <sanitizer/lsan_interface.h>
#endif

namespace kavrel {

/// Gives up `object` and all that only it leads to, for the rest of the process.
inline void Abandon([[maybe_unused]] const void* object) {
#ifdef KAVREL_HAS_LEAK_CHECKER
  __lsan_ignore_object(object);
#endif
}

}  // namespace kavrel
