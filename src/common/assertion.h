// What ends the process when a caller broke a rule that nothing can be saved from: in every build
// type, after a line that tells where and why.
#pragma once

#include <cstdlib>

#include "log.h"

namespace kavrel {

[[noreturn]] inline void FailAssertion(SourceLine where, const char* note) {
  KAVREL_LOG(kLogError, "kavrel-api", where, "Assertion failed: %s\n", note);
  std::abort();
}

/// Aborts unless `holds`; `note` says what the caller did wrong.
inline void Assert(bool holds, SourceLine where, const char* note) {
  if (!holds) FailAssertion(where, note);
}

}  // namespace kavrel
