#include "event_wait.h"

#include <poll.h>
#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "event_file.h"
#include "unique_fd.h"

namespace lwipc {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// How often to look where nothing tells of changes: no inotify instance or watch left, or the
// directory is missing.
constexpr milliseconds kPollingPeriod(20);
// Also what is watched is looked at now and then: some file systems tell of no foreign changes.
constexpr milliseconds kWatchedPeriod(1000);

// Watches an event's two directories. One thread.
class Watcher {
 public:
  explicit Watcher(const EventPlaces& places)
      : watches_{Watch{places.path, -1}, Watch{places.substitute, -1}},
        inotify_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

  // Has to come before the test: what changes in between is then remembered.
  void AddMissingWatches() {
    for (Watch& watch : watches_) {
      if (inotify_ && watch.descriptor < 0) {
        watch.descriptor = ::inotify_add_watch(inotify_.get(), watch.place.directory.c_str(),
                                               IN_MOVED_TO | IN_ONLYDIR);
      }
    }
  }

  /// Returns when one of the files may have come, or after `limit`.
  void WaitForChange(milliseconds limit) {
    const Clock::time_point deadline = Clock::now() + std::min(limit, Period());
    while (WaitForNotices(deadline)) {
      if (ReadNotices()) return;
    }
  }

 private:
  struct Watch {
    const Place& place;
    int descriptor;
  };

  milliseconds Period() const {
    const auto watched = [](const Watch& watch) { return watch.descriptor >= 0; };
    return std::all_of(watches_.begin(), watches_.end(), watched) ? kWatchedPeriod : kPollingPeriod;
  }

  bool WaitForNotices(Clock::time_point deadline) const {
    pollfd wanted{inotify_.get(), POLLIN, 0};
    while (true) {
      const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
      const int ready = ::poll(&wanted, 1, static_cast<int>(std::max<long>(left.count(), 0)));
      if (ready >= 0 || errno != EINTR) return ready > 0;
    }
  }

  // Directories like /tmp are busy with others' files; only notices that concern the event count.
  bool ReadNotices() {
    alignas(inotify_event) std::array<char, 16384> bytes;
    const ssize_t size = ::read(inotify_.get(), bytes.data(), bytes.size());
    bool concerned = false;
    for (ssize_t at = 0; at < size;) {
      const auto* notice =
          reinterpret_cast<const inotify_event*>(bytes.data() + static_cast<std::size_t>(at));
      concerned = Concerns(*notice) || concerned;
      at += static_cast<ssize_t>(sizeof(inotify_event) + notice->len);
    }
    return concerned;
  }

  bool Concerns(const inotify_event& notice) {
    if ((notice.mask & IN_Q_OVERFLOW) != 0) return true;
    for (Watch& watch : watches_) {
      if (watch.descriptor != notice.wd) continue;
      if ((notice.mask & IN_IGNORED) != 0) {
        watch.descriptor = -1;
        return true;
      }
      if (notice.len > 0 && watch.place.name == notice.name) return true;
    }
    return false;
  }

  std::array<Watch, 2> watches_;
  kavrel_platform::UniqueFd inotify_;
};

}  // namespace

int TestEvent(const EventPlaces& places) {
  const int at_path = TestEventFile(places.path);
  if (at_path == 1) return 1;
  const int at_substitute = TestEventFile(places.substitute);
  return at_substitute != 0 ? at_substitute : at_path;
}

int WaitForEvent(const EventPlaces& places, milliseconds limit) {
  const Clock::time_point deadline = Clock::now() + limit;
  const int at_once = TestEvent(places);
  if (at_once < 0) return at_once;
  if (at_once == 1) return 0;
  if (limit == milliseconds(0)) return -ETIMEDOUT;
  Watcher watcher(places);
  while (true) {
    watcher.AddMissingWatches();
    if (TestEvent(places) == 1) return 0;
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    if (left <= milliseconds(0)) return -ETIMEDOUT;
    watcher.WaitForChange(left);
  }
}

}  // namespace lwipc
