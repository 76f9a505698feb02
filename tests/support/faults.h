// Lets what a function asks of the system fail, to see what is left behind: memory, room on the
// disk, descriptors, threads. Works in programs that link the target kavrel_faults, which stands in
// for operator new and for the C library's functions.
//
// Only what this project's code and the libraries that it answers for (the C++ library, LMDB, the
// Wayland server library) ask for can fail. GLib and EFL end the process when memory runs out, by
// their own design, so a fault in them would say nothing about us.
#pragma once

namespace kavrel_test {

enum class Fault {
  kNew,          ///< operator new
  kMemory,       ///< operator new, malloc and its kin, mmap: ENOMEM
  kFullDisk,     ///< what writes to a file, or makes one: ENOSPC
  kBrokenDisk,   ///< what reads or writes a file, or makes one: EIO
  kReadOnly,     ///< what opens a file for writing, or makes one, and only that: EROFS
  kDescriptors,  ///< what makes a descriptor: EMFILE
  kWatches,      ///< what adds a watch to inotify or epoll: ENOSPC
  kThreads,      ///< pthread_create: EAGAIN
};

/// From its making to its end the `nth` such request of this thread fails; with `lasting` also all
/// that follow. With 0 none does, and they are counted. One at a time on a thread.
class ScopedFault {
 public:
  explicit ScopedFault(Fault fault, int nth, bool lasting = false);
  ScopedFault(const ScopedFault&) = delete;
  ScopedFault& operator=(const ScopedFault&) = delete;
  ~ScopedFault();

  bool has_occurred() const;
  /// Requests so far, the failed ones included.
  int count() const;
};

/// Whether the request that `caller` makes now fails; errno tells why then. For the stand-ins.
bool FailsNow(Fault fault, const void* caller);

}  // namespace kavrel_test
