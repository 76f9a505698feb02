// Stand-ins for the C library's functions that need a disk, a descriptor, a watch or a thread. Each
// asks whether it is its turn to fail, else goes on to the real one (or to a sanitizer's).
#include "next_function.h"

#ifdef KAVREL_CALLS_CAN_FAIL

#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

#include "faults.h"

namespace {

using kavrel_test::FailsNow;
using kavrel_test::Fault;
using kavrel_test::NextFunction;

bool IsFile(int fd) {
  struct stat status {};
  const int before = errno;
  const bool is_file = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
  errno = before;
  return is_file;
}

bool WritingFails(const void* caller) {
  return FailsNow(Fault::kFullDisk, caller) || FailsNow(Fault::kBrokenDisk, caller);
}

bool MakingFails(const void* caller) {
  return WritingFails(caller) || FailsNow(Fault::kReadOnly, caller);
}

bool IsForWriting(int flags) {
  return (flags & O_ACCMODE) != O_RDONLY || (flags & O_CREAT) != 0;
}

bool OpeningFails(int flags, const void* caller) {
  if (FailsNow(Fault::kDescriptors, caller)) return true;
  if ((flags & O_CREAT) != 0 && WritingFails(caller)) return true;
  return IsForWriting(flags) && FailsNow(Fault::kReadOnly, caller);
}

}  // namespace

#define CALLER __builtin_return_address(0)

#pragma GCC visibility push(default)
extern "C" {

// ---- files

ssize_t write(int fd, const void* bytes, size_t size) {
  static constinit NextFunction<ssize_t(int, const void*, size_t)> next{"write"};
  return IsFile(fd) && WritingFails(CALLER) ? -1 : next(fd, bytes, size);
}

ssize_t pwrite(int fd, const void* bytes, size_t size, off_t offset) {
  static constinit NextFunction<ssize_t(int, const void*, size_t, off_t)> next{"pwrite"};
  return WritingFails(CALLER) ? -1 : next(fd, bytes, size, offset);
}

ssize_t writev(int fd, const iovec* parts, int count) {
  static constinit NextFunction<ssize_t(int, const iovec*, int)> next{"writev"};
  return IsFile(fd) && WritingFails(CALLER) ? -1 : next(fd, parts, count);
}

ssize_t pread(int fd, void* bytes, size_t size, off_t offset) {
  static constinit NextFunction<ssize_t(int, void*, size_t, off_t)> next{"pread"};
  return FailsNow(Fault::kBrokenDisk, CALLER) ? -1 : next(fd, bytes, size, offset);
}

int fsync(int fd) {
  static constinit NextFunction<int(int)> next{"fsync"};
  return WritingFails(CALLER) ? -1 : next(fd);
}

int fdatasync(int fd) {
  static constinit NextFunction<int(int)> next{"fdatasync"};
  return WritingFails(CALLER) ? -1 : next(fd);
}

int ftruncate(int fd, off_t size) noexcept {
  static constinit NextFunction<int(int, off_t)> next{"ftruncate"};
  return WritingFails(CALLER) ? -1 : next(fd, size);
}

int renameat(int from_directory, const char* from, int to_directory, const char* to) noexcept {
  static constinit NextFunction<int(int, const char*, int, const char*)> next{"renameat"};
  return MakingFails(CALLER) ? -1 : next(from_directory, from, to_directory, to);
}

int mkdir(const char* path, mode_t mode) noexcept {
  static constinit NextFunction<int(const char*, mode_t)> next{"mkdir"};
  // As the kernel: what exists is told before what cannot be made.
  struct stat status {};
  if (::lstat(path, &status) != 0 && MakingFails(CALLER)) return -1;
  return next(path, mode);
}

int mkfifoat(int directory, const char* path, mode_t mode) noexcept {
  static constinit NextFunction<int(int, const char*, mode_t)> next{"mkfifoat"};
  return MakingFails(CALLER) ? -1 : next(directory, path, mode);
}

int open(const char* path, int flags, ...) {
  static constinit NextFunction<int(const char*, int, mode_t)> next{"open"};
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return OpeningFails(flags, CALLER) ? -1 : next(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  static constinit NextFunction<int(int, const char*, int, mode_t)> next{"openat"};
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return OpeningFails(flags, CALLER) ? -1 : next(directory, path, flags, mode);
}

// What calls without a mode become under _FORTIFY_SOURCE.
int __open_2(const char* path, int flags) {
  static constinit NextFunction<int(const char*, int, mode_t)> next{"open"};
  return OpeningFails(flags, CALLER) ? -1 : next(path, flags, 0);
}

int __openat_2(int directory, const char* path, int flags) {
  static constinit NextFunction<int(int, const char*, int, mode_t)> next{"openat"};
  return OpeningFails(flags, CALLER) ? -1 : next(directory, path, flags, 0);
}

void* mmap(void* wish, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
  static constinit NextFunction<void*(void*, size_t, int, int, int, off_t)> next{"mmap"};
  if (FailsNow(Fault::kMemory, CALLER)) return MAP_FAILED;
  return next(wish, size, protection, flags, fd, offset);
}

// ---- descriptors

int socket(int domain, int type, int protocol) noexcept {
  static constinit NextFunction<int(int, int, int)> next{"socket"};
  return FailsNow(Fault::kDescriptors, CALLER) ? -1 : next(domain, type, protocol);
}

int accept4(int fd, sockaddr* address, socklen_t* size, int flags) {
  static constinit NextFunction<int(int, sockaddr*, socklen_t*, int)> next{"accept4"};
  return FailsNow(Fault::kDescriptors, CALLER) ? -1 : next(fd, address, size, flags);
}

int epoll_create1(int flags) noexcept {
  static constinit NextFunction<int(int)> next{"epoll_create1"};
  return FailsNow(Fault::kDescriptors, CALLER) ? -1 : next(flags);
}

int inotify_init1(int flags) noexcept {
  static constinit NextFunction<int(int)> next{"inotify_init1"};
  return FailsNow(Fault::kDescriptors, CALLER) ? -1 : next(flags);
}

int eventfd(unsigned value, int flags) noexcept {
  static constinit NextFunction<int(unsigned, int)> next{"eventfd"};
  return FailsNow(Fault::kDescriptors, CALLER) ? -1 : next(value, flags);
}

int memfd_create(const char* name, unsigned flags) noexcept {
  static constinit NextFunction<int(const char*, unsigned)> next{"memfd_create"};
  return FailsNow(Fault::kDescriptors, CALLER) ? -1 : next(name, flags);
}

// ---- watches

int inotify_add_watch(int fd, const char* path, uint32_t mask) noexcept {
  static constinit NextFunction<int(int, const char*, uint32_t)> next{"inotify_add_watch"};
  return FailsNow(Fault::kWatches, CALLER) ? -1 : next(fd, path, mask);
}

int epoll_ctl(int set, int operation, int fd, epoll_event* event) noexcept {
  static constinit NextFunction<int(int, int, int, epoll_event*)> next{"epoll_ctl"};
  if (operation == EPOLL_CTL_ADD && FailsNow(Fault::kWatches, CALLER)) return -1;
  return next(set, operation, fd, event);
}

// ---- threads

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* data) noexcept {
  static constinit NextFunction<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>
      next{"pthread_create"};
  if (FailsNow(Fault::kThreads, CALLER)) return EAGAIN;
  return next(thread, attributes, start, data);
}

}  // extern "C"
#pragma GCC visibility pop

#endif  // KAVREL_CALLS_CAN_FAIL
