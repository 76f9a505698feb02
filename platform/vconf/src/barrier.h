// Memory barriers between words that processes share and what LMDB does on its own.
#pragma once

#include <atomic>

#include "thread_sanitizer.h"

namespace kavrel_vconf {

#if defined(KAVREL_THREAD_SANITIZER)
// The thread sanitizer knows no fences, and sees neither LMDB nor the other processes that these
// are for. An exchange orders as much on the machines that it runs on.
inline void FullBarrier() {
  static std::atomic<int> any;
  any.exchange(0, std::memory_order_seq_cst);
}
inline void AcquireBarrier() {
  FullBarrier();
}
#else
inline void FullBarrier() {
  std::atomic_thread_fence(std::memory_order_seq_cst);
}
inline void AcquireBarrier() {
  std::atomic_thread_fence(std::memory_order_acquire);
}
#endif

}  // namespace kavrel_vconf
