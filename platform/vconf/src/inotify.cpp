#include "inotify.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstring>

namespace kavrel_vconf {
namespace {

constexpr std::uint32_t kChanges = IN_MODIFY | IN_CLOSE_WRITE;
constexpr std::uint32_t kRemovals = IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;

}  // namespace

bool Inotify::Watch(const std::string& path) {
  if (!fd_) fd_.Reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  return fd_ && ::inotify_add_watch(fd_.get(), path.c_str(), kChanges | kRemovals) >= 0;
}

bool Inotify::Drain() {
  alignas(inotify_event) std::array<char, 4096> buffer;
  bool removed = false;
  for (;;) {
    const ssize_t size = ::read(fd_.get(), buffer.data(), buffer.size());
    if (size <= 0) return removed;
    for (ssize_t offset = 0; offset < size;) {
      inotify_event event;
      std::memcpy(&event, buffer.data() + offset, sizeof event);
      if ((event.mask & (kRemovals | IN_IGNORED | IN_Q_OVERFLOW)) != 0) removed = true;
      offset += static_cast<ssize_t>(sizeof event + event.len);
    }
    // Events are merged while nobody reads them: a buffer that is not full was all.
    if (static_cast<std::size_t>(size) < buffer.size() / 2) return removed;
  }
}

}  // namespace kavrel_vconf
