// Whether this is a build with a sanitizer that tells the use of memory that was given back.
#pragma once

namespace kavrel_rpc {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kMemoryIsChecked = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
inline constexpr bool kMemoryIsChecked = true;
#else
inline constexpr bool kMemoryIsChecked = false;
#endif
#else
inline constexpr bool kMemoryIsChecked = false;
#endif

}  // namespace kavrel_rpc
