// The kernel's file watches, as far as they are needed here: something happened to one of the
// watched files, whatever it was.
#pragma once

#include <string>

#include "unique_fd.h"

namespace kavrel_vconf {

/// One thread at a time.
class Inotify {
 public:
  /// Watches a file for writes, for the closing of a writer, and for its removal. False with errno
  /// set when the kernel has no more watches to give.
  bool Watch(const std::string& path);

  /// Takes all pending events. True when a file was removed or replaced.
  bool Drain();

  int fd() const { return fd_.get(); }
  void Close() { fd_.Reset(); }

 private:
  kavrel_platform::UniqueFd fd_;
};

}  // namespace kavrel_vconf
