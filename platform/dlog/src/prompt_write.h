// Writing without waiting to a descriptor that is not ours to change: its O_NONBLOCK flag belongs
// to everybody who shares the terminal or pipe.
#pragma once

#include <cstddef>
#include <string_view>

namespace kavrel_dlog {

/// A pipe takes this much wholly or not at all, and never mixed with another writer's bytes.
inline constexpr std::size_t kAtomicWrite = 4096;

/// Writes once, without waiting for a reader and without raising a signal; any thread. Returns
/// the bytes written or a negative errno value (EAGAIN: nobody reads).
long WritePromptly(int fd, std::string_view bytes) noexcept;

/// Whether `fd` can be full: everything but a regular file.
bool CanBeFull(int fd) noexcept;

/// The two ways left for descriptors that know no single write without waiting, here for tests:
/// through a description of our own, and, where the system refuses one, after asking for room.
/// The caller holds back the signals of a failed write.
long WriteThroughOwnDescription(int fd, std::string_view bytes) noexcept;
long WriteWhenReady(int fd, std::string_view bytes) noexcept;

}  // namespace kavrel_dlog
