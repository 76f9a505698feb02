// The bounds of this service: constants, and those that the environment sets.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_rpc {

inline constexpr std::size_t kMaxNameLength = 64;
inline constexpr std::size_t kMaxTagLength = 255;
inline constexpr std::size_t kMaxFrameSize = std::size_t{1024} * 1024;
/// What a service keeps for a client that does not read.
inline constexpr std::size_t kMaxOutboxSize = 4 * kMaxFrameSize;
/// Sockets that have been accepted and have not said yet what they are.
inline constexpr std::size_t kMaxGuests = 256;
/// Requests of one client that are delivered before another client's turn.
inline constexpr int kMaxRequestsInARow = 64;

/// KAVREL_RPC_TIMEOUT_MS: bound of a client's connect, send and read; 0 switches it off.
std::int64_t ClientTimeoutMs();

struct ServiceLimits {
  std::size_t connections;           // KAVREL_RPC_MAX_CONNECTIONS
  std::size_t connections_per_user;  // KAVREL_RPC_MAX_CONNECTIONS_PER_USER
  // KAVREL_RPC_PARTIAL_TIMEOUT_MS: how long a client may take over one parcel or its greetings.
  std::int64_t partial_timeout_ms;
};

ServiceLimits ServiceLimitsFromEnvironment();

/// Raises this process's soft limit of descriptors to what `connections` need, as far as the hard
/// limit allows. Never lowers it.
void RaiseDescriptorLimit(std::size_t connections);

}  // namespace kavrel_rpc
