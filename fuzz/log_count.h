// A log service that keeps nothing but a count: it stands in for libdlog in programs that try
// decoders. Every record is formatted, as a real one would be.
#pragma once

#include <cstddef>

namespace kavrel_fuzz {

/// How many records of error priority there were. Any thread.
std::size_t ErrorCount();

}  // namespace kavrel_fuzz
