// The sleeping side of a wake-up.
//
// A store's wake file is a FIFO that nobody reads for its content. Writers put a byte into it;
// every watcher holds it open in an epoll set that reports edges, so that one write wakes all of
// them, however many, and costs the kernel no memory for any. What inotify would do as well, it
// does for 128 processes of a user only.
//
// inotify is used for what needs it: the kernel closes the descriptors of a writer that is killed
// between its commit and the wake-up, and tells of that; and of removed files. Without it, when the
// user has no instance left, those two are found by a look every second.
#pragma once

#include <map>
#include <string>

#include "unique_fd.h"

namespace kavrel_vconf {

/// One thread at a time.
class WakeListener {
 public:
  /// What a listener can be relied on for.
  enum class Reach {
    kEverything,
    kWakeUps,  // not the ends of writers nor the removal of files
    kNothing,
  };

  /// Listens to the wake file at `path`, in place of an earlier one.
  Reach Listen(const std::string& path);

  /// Ends all listening but keeps what is slow to close: the kernel stops a process that closes an
  /// inotify instance for 15 ms and more.
  void Forget();

  struct Events {
    bool any = false;
    bool removed = false;  // a file was removed or replaced
  };
  /// Takes what has happened.
  Events Drain();

  /// Readable when something has happened; negative before the first Listen.
  int fd() const { return epoll_.get(); }

  void Close();

 private:
  struct WakeFile {
    kavrel_platform::UniqueFd fifo;
    int watch = -1;
  };

  bool Open();
  bool OpenFifo(const std::string& path, WakeFile* file);
  bool Add(int fd, unsigned events);
  bool DrainInotify();

  kavrel_platform::UniqueFd epoll_;
  kavrel_platform::UniqueFd inotify_;
  std::map<std::string, WakeFile> files_;
};

}  // namespace kavrel_vconf
