// The names of lwipc's events and what lies in their files, fed with bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_fuzz {

/// `data` is an event's name, a NUL, and the content of a file. A name must have places exactly
/// when it is a path of a file, both of which can be told back to it. Where the name lies directly
/// in /tmp (moved to a directory of this process), a locked file there raises it exactly when it
/// holds the event's path. Whether that is so.
bool DecodeEvent(const std::uint8_t* data, std::size_t size);

}  // namespace kavrel_fuzz
