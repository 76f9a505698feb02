// The values' file of the state store, fed with bytes: whatever another process of this user, a
// broken disk or another program has left there.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_fuzz {

/// `data` is the file. What the check refuses must have a reason; what it lets through must be
/// readable to its end and changeable, and must pass the check again afterwards. Whether it is a
/// sound file of sound records.
bool DecodeStore(const std::uint8_t* data, std::size_t size);

}  // namespace kavrel_fuzz
