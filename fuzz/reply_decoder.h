// The client end of the remote interface, fed with bytes: what a service sends.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_fuzz {

/// The first byte picks a method that answers, counted in the table's order; what follows arrives
/// on the main port after its request, with sequence numbers counted from the request's. The call
/// must end as the bytes say: with the first result that answers it, or without one, with the out
/// values untouched. One more picks events: what follows arrives on the callback port, where a
/// callback must be called exactly for what names it. Whether the call has got its answer, or each
/// parcel its callback.
bool DecodeReply(const std::uint8_t* data, std::size_t size);

}  // namespace kavrel_fuzz
