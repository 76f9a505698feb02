// What one client, and all of them together, may take from the program that shows them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_pepper {

inline constexpr int kMaxClients = 64;

// Per client. Mappings of client memory are bounded by pools and buffers, so that all clients
// together stay below the kernel's usual 65,530 mappings of a process.
inline constexpr int kMaxSurfaces = 256;
inline constexpr int kMaxPools = 128;
inline constexpr int kMaxBuffers = 512;
inline constexpr int kMaxObjects = 4096;

// A buffer's edge, and what all pictures together may need.
inline constexpr int kMaxBufferEdge = 4096;
inline constexpr std::size_t kMaxClientPixelBytes = std::size_t{128} << 20;
inline constexpr std::size_t kMaxPixelBytes = std::size_t{1} << 30;

// Beyond every display's rate with a dozen subsurfaces. A client may save up one second's worth.
inline constexpr double kCommitsPerSecond = 4000;

inline constexpr int kMaxRegionRectangles = 1024;
inline constexpr std::size_t kMaxTextBytes = 1024;

// While a client has more than this unread, pointer and touch motions are skipped for it: only the
// newest position matters. The rest of the kernel's buffer is kept for what must not be skipped.
inline constexpr int kMaxUnreadBytes = 64 << 10;

// Coordinates beyond this are cut: no picture is that far away, and sums of them cannot overflow.
inline constexpr std::int32_t kMaxCoordinate = 1 << 20;

}  // namespace kavrel_pepper
