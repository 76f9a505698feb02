// The service end of the remote interface, fed with bytes: requests of all methods.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_fuzz {

/// `data` is what a client sends. An operation must be called exactly for the frames that are one
/// of its requests as the method table describes them, with exactly their arguments, and its answer
/// must be the table's; for any other frame nothing is called, nothing sent, and the log says why.
/// Whether all of it are requests.
bool DecodeRequests(const std::uint8_t* data, std::size_t size);

}  // namespace kavrel_fuzz
