// Objects that one thread gives to another through GLib (the data of a source, for example).
//
// GLib's own locks order the two threads. The thread sanitizer does not see them, as GLib is not
// built with it, and has to be told; in all other builds these functions are nothing.
#pragma once

#include "thread_sanitizer.h"

#ifdef KAVREL_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace kavrel_platform {

/// Before the object is given away, and when a thread is done with it for now.
inline void GiveObject([[maybe_unused]] void* object) {
#ifdef KAVREL_THREAD_SANITIZER
  __tsan_release(object);
#endif
}

/// When a thread has got the object.
inline void TakeObject([[maybe_unused]] void* object) {
#ifdef KAVREL_THREAD_SANITIZER
  __tsan_acquire(object);
#endif
}

}  // namespace kavrel_platform
