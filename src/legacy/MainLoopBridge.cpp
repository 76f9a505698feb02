#include "MainLoopBridge.h"

#include <Ecore.h>
#include <glib.h>
#include <poll.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <new>
#include <optional>
#include <vector>

namespace kavrel {
namespace {

// EFL's three sets of one turn, any of which may be null, as entries for poll(): select() itself
// knows no descriptors from 1024 on, and GLib's may be higher.
class EflSets {
 public:
  EflSets(int count, fd_set* readable, fd_set* writable, fd_set* exceptional)
      : count_(count), readable_(readable), writable_(writable), exceptional_(exceptional) {}

  void AddTo(std::vector<GPollFD>& entries) const {
    for (int fd = 0; fd < count_; ++fd) {
      const int events = (IsIn(fd, readable_) ? G_IO_IN : 0) |
                         (IsIn(fd, writable_) ? G_IO_OUT : 0) |
                         (IsIn(fd, exceptional_) ? G_IO_PRI : 0);
      if (events != 0) entries.push_back({fd, static_cast<gushort>(events), 0});
    }
  }

  /// Leaves in the sets what is ready; returns how much that is, as select() does.
  int TakeFrom(const std::vector<GPollFD>& entries, std::size_t first) const {
    int ready = 0;
    for (std::size_t at = first; at < entries.size(); ++at) {
      const GPollFD& entry = entries[at];
      ready += Keep(entry.fd, readable_, entry, G_IO_IN | G_IO_HUP | G_IO_ERR);
      ready += Keep(entry.fd, writable_, entry, G_IO_OUT | G_IO_ERR);
      ready += Keep(entry.fd, exceptional_, entry, G_IO_PRI);
    }
    return ready;
  }

 private:
  static bool IsIn(int fd, const fd_set* set) { return set != nullptr && FD_ISSET(fd, set); }

  static int Keep(int fd, fd_set* set, const GPollFD& entry, int events) {
    if (!IsIn(fd, set)) return 0;
    if ((entry.revents & events) != 0) return 1;
    FD_CLR(fd, set);
    return 0;
  }

  int count_;
  fd_set* readable_;
  fd_set* writable_;
  fd_set* exceptional_;
};

// One turn of GLib's default context: what it waits for, and its dispatch.
class GlibTurn {
 public:
  GlibTurn()
      : context_(g_main_context_default()), owned_(g_main_context_acquire(context_) != FALSE) {}
  GlibTurn(const GlibTurn&) = delete;
  GlibTurn& operator=(const GlibTurn&) = delete;
  ~GlibTurn() {
    if (owned_) g_main_context_release(context_);
  }

  /// Puts what GLib waits for at the beginning of `entries`, and shortens `wait` to its time-out.
  void Prepare(std::vector<GPollFD>& entries, std::optional<timespec>& wait) {
    // Another thread runs the context: it is served there.
    if (!owned_) return;
    g_main_context_prepare(context_, &priority_);
    int timeout = -1;
    count_ = Query(entries, timeout);
    while (static_cast<std::size_t>(count_) > entries.size()) {
      entries.resize(static_cast<std::size_t>(count_));
      count_ = Query(entries, timeout);
    }
    entries.resize(static_cast<std::size_t>(count_));
    if (timeout >= 0) Shorten(wait, timeout);
  }

  void Dispatch(std::vector<GPollFD>& entries) {
    if (!owned_) return;
    if (g_main_context_check(context_, priority_, entries.data(), count_) != FALSE) {
      g_main_context_dispatch(context_);
    }
  }

  std::size_t Count() const { return static_cast<std::size_t>(count_); }

 private:
  int Query(std::vector<GPollFD>& entries, int& timeout) {
    return g_main_context_query(context_, priority_, &timeout, entries.data(),
                                static_cast<int>(entries.size()));
  }

  static void Shorten(std::optional<timespec>& wait, int milliseconds) {
    const timespec own{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    if (!wait || own.tv_sec < wait->tv_sec ||
        (own.tv_sec == wait->tv_sec && own.tv_nsec < wait->tv_nsec)) {
      wait = own;
    }
  }

  GMainContext* context_;
  bool owned_;
  int priority_ = 0;
  int count_ = 0;
};

int Poll(std::vector<GPollFD>& entries, const std::optional<timespec>& wait) {
  static_assert(sizeof(GPollFD) == sizeof(pollfd));
  return ::ppoll(reinterpret_cast<pollfd*>(entries.data()), entries.size(), wait ? &*wait : nullptr,
                 nullptr);
}

std::optional<timespec> Limit(const timeval* timeout) {
  if (timeout == nullptr) return std::nullopt;
  return timespec{timeout->tv_sec, timeout->tv_usec * 1000L};
}

int WaitForBoth(const EflSets& sets, std::optional<timespec> wait) {
  GlibTurn glib;
  std::vector<GPollFD> entries;
  entries.reserve(32);
  glib.Prepare(entries, wait);
  sets.AddTo(entries);
  const int result = Poll(entries, wait);
  const int error = errno;
  if (result < 0) {
    for (GPollFD& entry : entries) entry.revents = 0;
  }
  const int ready = sets.TakeFrom(entries, glib.Count());
  // A callback may run the loop again, and its own turn uses entries of its own.
  glib.Dispatch(entries);
  errno = error;
  return result < 0 ? -1 : ready;
}

// As select(). EFL calls it on the main loop's thread.
int Select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
  try {
    return WaitForBoth(EflSets(count, readable, writable, exceptional), Limit(timeout));
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

}  // namespace

void ServeGlibInEflLoop() {
  if (ecore_main_loop_select_func_get() == &::select) ecore_main_loop_select_func_set(&Select);
}

}  // namespace kavrel
