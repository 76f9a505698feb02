// The decoders of rpc-port's wire, fed with bytes: what arrives on a socket, and greetings.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_fuzz {

/// The first byte says what follows: 0 a client's greeting, 1 a service's answer, otherwise a
/// stream of parcels that arrives in pieces of that many bytes. Each frame must be taken or refused
/// as the description of the wire says, and each item read must be what lies there; a refusal has a
/// reason, a read that fails leaves its output as it was. Whether all of it decodes.
bool DecodeParcels(const std::uint8_t* data, std::size_t size);

}  // namespace kavrel_fuzz
