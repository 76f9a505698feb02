// The decoder of messages, fed with bytes: as they come off the bus, and as a body of its type.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_fuzz {

/// Decodes `data` both ways. What decodes must encode again, to the same pairs, or be too large to
/// be sent; aborts otherwise. Whether it is a message off the bus that decodes.
bool DecodeMessage(const std::uint8_t* data, std::size_t size);

}  // namespace kavrel_fuzz
