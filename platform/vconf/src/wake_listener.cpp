#include "wake_listener.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kavrel_vconf {
namespace {

constexpr std::uint32_t kRemovals = IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr int kMostEvents = 4;  // two wake files and inotify

}  // namespace

bool WakeListener::Add(int fd, unsigned events) {
  epoll_event event{};
  event.events = events;
  event.data.fd = fd;
  return ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) == 0;
}

bool WakeListener::Open() {
  if (!epoll_) epoll_.Reset(::epoll_create1(EPOLL_CLOEXEC));
  if (!epoll_) return false;
  if (inotify_) return true;
  inotify_.Reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (inotify_ && !Add(inotify_.get(), EPOLLIN)) inotify_.Reset();
  return true;
}

bool WakeListener::OpenFifo(const std::string& path, WakeFile* file) {
  file->fifo.Reset(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  if (file->fifo && !Add(file->fifo.get(), EPOLLIN | EPOLLET)) file->fifo.Reset();
  return file->fifo.valid();
}

WakeListener::Reach WakeListener::Listen(const std::string& path) {
  if (!Open()) return Reach::kNothing;
  WakeFile& file = files_[path];
  const bool wakes = OpenFifo(path, &file);
  if (inotify_)
    file.watch = ::inotify_add_watch(inotify_.get(), path.c_str(), IN_CLOSE_WRITE | kRemovals);
  if (!wakes) return Reach::kNothing;
  return inotify_ && file.watch >= 0 ? Reach::kEverything : Reach::kWakeUps;
}

void WakeListener::Forget() {
  for (const auto& [path, file] : files_) {
    if (file.watch >= 0) ::inotify_rm_watch(inotify_.get(), file.watch);
  }
  files_.clear();
  if (epoll_) Drain();
}

WakeListener::Events WakeListener::Drain() {
  std::array<epoll_event, kMostEvents> events;
  const int count = ::epoll_wait(epoll_.get(), events.data(), kMostEvents, 0);
  Events result;
  result.any = count > 0;
  for (int index = 0; index < count; ++index) {
    const bool is_inotify = events[static_cast<std::size_t>(index)].data.fd == inotify_.get();
    if (is_inotify) result.removed = DrainInotify();
  }
  return result;
}

bool WakeListener::DrainInotify() {
  alignas(inotify_event) std::array<char, 4096> buffer;
  bool removed = false;
  const ssize_t size = ::read(inotify_.get(), buffer.data(), buffer.size());
  for (ssize_t offset = 0; offset < size;) {
    inotify_event event;
    std::memcpy(&event, buffer.data() + offset, sizeof event);
    if ((event.mask & (kRemovals | IN_Q_OVERFLOW)) != 0) removed = true;
    offset += static_cast<ssize_t>(sizeof event + event.len);
  }
  return removed;
}

void WakeListener::Close() {
  files_.clear();
  inotify_.Reset();
  epoll_.Reset();
}

}  // namespace kavrel_vconf
