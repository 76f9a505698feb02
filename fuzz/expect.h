// What a decoder that is tried with bytes must keep to.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace kavrel_fuzz {

/// Ends the process when `holds` is false: a fuzzer keeps the input then, a test fails.
inline void Expect(bool holds, const char* rule) {
  if (holds) return;
  (void)std::fprintf(stderr, "a decoder breaks its rule: %s\n", rule);
  std::abort();
}

}  // namespace kavrel_fuzz
