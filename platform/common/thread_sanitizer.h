// Whether this is a build with the thread sanitizer, which sees neither fences nor the locks of
// libraries that were built without it.
#pragma once

#if defined(__SANITIZE_THREAD__)
#define KAVREL_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KAVREL_THREAD_SANITIZER 1
#endif
#endif
