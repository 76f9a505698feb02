// Both ends of the viewer's control port, fed with bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_fuzz {

/// An even first byte: the rest is what a client sends, decoded as requests. An odd one: it is what
/// a viewer sends, read as the answer to request 0. What decodes must be what the bytes say and
/// must come out the same after it has been sent again; what does not has an error. Whether all of
/// it decodes.
bool DecodeControl(const std::uint8_t* data, std::size_t size);

}  // namespace kavrel_fuzz
