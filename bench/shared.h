// What processes that are forked from one have in common: memory, and a pipe to wait on.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <new>
#include <stdexcept>

namespace kavrel_bench {

/// Memory that the processes which are forked from now on have in common.
template <class T>
T* MakeShared() {
  void* const memory =
      // cppcheck-suppress invalidFunctionArg ; memory without a file has none to name
      mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  return new (memory) T();
}

/// One process waits until another has told it something, so many times. Any process that was
/// forked from the one that made it.
class Signal {
 public:
  Signal() {
    if (pipe(ends_.data()) != 0) throw std::runtime_error("no pipe");
  }

  void Tell() const {
    if (write(ends_[1], "x", 1) != 1) std::abort();
  }
  void Wait(int times = 1) const {
    char byte = 0;
    for (int i = 0; i < times; ++i) {
      if (read(ends_[0], &byte, 1) != 1) std::abort();
    }
  }

 private:
  std::array<int, 2> ends_{};
};

}  // namespace kavrel_bench
