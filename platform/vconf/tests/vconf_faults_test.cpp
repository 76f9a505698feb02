// What happens when the system fails: system calls and allocations that go wrong at every possible
// place, and processes killed at the worst one. The functions below stand in for the C library's.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <vconf.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vconf-ext.h>

#include "fresh_store.h"
#include "loop.h"

namespace {

// What the next calls do. Each process has its own copy.
struct Plan {
  int error = 0;           // what failing disk operations report; 0: none fails
  int countdown = 0;       // the first one that fails: 1 is the next
  bool sticky = false;     // and all behind it
  bool failed = false;     // whether one did
  bool read_only = false;  // nothing can be opened for writing or made
  bool kill_in_wake = false;
  int stop_in_write = 0;  // the n-th write of a set stops the process
  int watch_error = 0;    // of inotify
  int poll_error = 0;     // of epoll
  long allocations = -1;  // so many succeed, then one fails; negative: all succeed
} plan;

bool FailsNow() {
  if (plan.error == 0) return false;
  if (--plan.countdown > 0 || (plan.countdown < 0 && !plan.sticky)) return false;
  plan.failed = true;
  errno = plan.error;
  return true;
}

bool IsRefused(int flags) {
  if (!plan.read_only || ((flags & O_ACCMODE) == O_RDONLY && (flags & O_CREAT) == 0)) return false;
  errno = EROFS;
  return true;
}

}  // namespace

#pragma GCC visibility push(default)  // for LMDB to find them, too
extern "C" {

ssize_t pwrite(int fd, const void* bytes, size_t size, off_t offset) {
  if (plan.stop_in_write > 0 && --plan.stop_in_write == 0) (void)::raise(SIGSTOP);
  return FailsNow() ? -1 : ::syscall(SYS_pwrite64, fd, bytes, size, offset);
}

ssize_t writev(int fd, const iovec* parts, int count) {
  return FailsNow() ? -1 : ::syscall(SYS_writev, fd, parts, count);
}

int fdatasync(int fd) {
  return FailsNow() ? -1 : static_cast<int>(::syscall(SYS_fdatasync, fd));
}

int ftruncate(int fd, off_t size) noexcept {
  return FailsNow() ? -1 : static_cast<int>(::syscall(SYS_ftruncate, fd, size));
}

ssize_t write(int fd, const void* bytes, size_t size) {
  if (plan.kill_in_wake && size == 1 && *static_cast<const char*>(bytes) == '!') {
    (void)::raise(SIGKILL);
  }
  return ::syscall(SYS_write, fd, bytes, size);
}

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  if (IsRefused(flags)) return -1;
  return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  if (IsRefused(flags)) return -1;
  return static_cast<int>(::syscall(SYS_openat, directory, path, flags, mode));
}

// What calls without a mode become under _FORTIFY_SOURCE.
int __open_2(const char* path, int flags) {
  return open(path, flags, 0);
}
int __openat_2(int directory, const char* path, int flags) {
  return openat(directory, path, flags, 0);
}

int mkdir(const char* path, mode_t mode) noexcept {
  if (!plan.read_only) return static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, path, mode));
  // As the kernel: what exists is told before what cannot be made.
  errno = ::access(path, F_OK) == 0 ? EEXIST : EROFS;
  return -1;
}

int inotify_init1(int flags) noexcept {
  if (plan.watch_error == 0) return static_cast<int>(::syscall(SYS_inotify_init1, flags));
  errno = plan.watch_error;
  return -1;
}

int epoll_create1(int flags) noexcept {
  if (plan.poll_error == 0) return static_cast<int>(::syscall(SYS_epoll_create1, flags));
  errno = plan.poll_error;
  return -1;
}

}  // extern "C"
#pragma GCC visibility pop

// Not inlined: the compiler would see malloc behind new and free behind delete, and complain.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (plan.allocations == 0) {
    plan.allocations = -1;
    throw std::bad_alloc();
  }
  if (plan.allocations > 0) --plan.allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using kavrel_test::Loop;
using kavrel_vconf_test::Forked;
using kavrel_vconf_test::FreshStoreTest;
using kavrel_vconf_test::Shared;

int IntOf(const std::string& key) {
  int value = 0;
  const int error = vconf_get_int(key.c_str(), &value);
  return error != 0 ? error : value;
}

int Set(const std::string& key, int value) {
  return vconf_set_int(key.c_str(), value);
}

void Count(keynode_t*, void* user_data) {
  ++*static_cast<int*>(user_data);
}

class FailingDisk : public FreshStoreTest, public testing::WithParamInterface<const char*> {
 protected:
  const std::string key_ = std::string(GetParam()) + "/kavrel_test/value";

  // Fails the n-th disk operation of the second set, for every n that there is.
  void FailEachOperationOfASet(int error, bool sticky) {
    for (int n = 1;; ++n) {
      SCOPED_TRACE("operation " + std::to_string(n));
      bool failed = false;
      Shared<bool> shared;
      Run([&] {
        EXPECT_EQ(Set(key_, 1), 0);
        EXPECT_EQ(Set(key_ + "2", 1), 0);
        plan = Plan();
        plan.error = error;
        plan.countdown = n;
        plan.sticky = sticky;
        const int result = Set(key_, 2);
        *shared = plan.failed;
        plan = Plan();
        EXPECT_EQ(result, *shared ? -error : 0);
        EXPECT_EQ(IntOf(key_), result == 0 ? 2 : 1);
        Run([&] { EXPECT_EQ(IntOf(key_), result == 0 ? 2 : 1); });
        EXPECT_EQ(Set(key_, 3), 0);
        EXPECT_EQ(IntOf(key_), 3);
        EXPECT_EQ(IntOf(key_ + "2"), 1);
      });
      Run([&] { EXPECT_EQ(IntOf(key_), 3); });
      failed = *shared;
      if (!failed) {
        EXPECT_GT(n, 2);
        return;
      }
    }
  }
};

TEST_P(FailingDisk, FullOnce) {
  FailEachOperationOfASet(ENOSPC, false);
}
TEST_P(FailingDisk, FullForAWhile) {
  FailEachOperationOfASet(ENOSPC, true);
}
TEST_P(FailingDisk, BrokenOnce) {
  FailEachOperationOfASet(EIO, false);
}
TEST_P(FailingDisk, BrokenForAWhile) {
  FailEachOperationOfASet(EIO, true);
}

TEST_P(FailingDisk, FullWhileTheStoreIsMade) {
  for (int n = 1;; ++n) {
    SCOPED_TRACE("operation " + std::to_string(n));
    Shared<bool> failed;
    Run([&] {
      plan.error = ENOSPC;
      plan.countdown = n;
      plan.sticky = true;
      const int result = Set(key_, 1);
      *failed = plan.failed;
      plan = Plan();
      EXPECT_EQ(result, *failed ? -ENOSPC : 0);
      EXPECT_EQ(Set(key_, 2), 0);
      EXPECT_EQ(IntOf(key_), 2);
    });
    Run([&] { EXPECT_EQ(IntOf(key_), 2); });
    if (!*failed) break;
    for (const char* suffix : {".mdb", ".mdb-lock", ".control", ".wake"}) {
      ::unlink(MemoryFile(suffix).c_str());
      ::unlink(DurableFile(suffix).c_str());
    }
  }
}

TEST_P(FailingDisk, ReadOnlyWithValues) {
  Run([&] { EXPECT_EQ(Set(key_, 1), 0); });
  Run([&] {
    plan.read_only = true;
    EXPECT_EQ(IntOf(key_), 1);
    EXPECT_EQ(Set(key_, 2), -EROFS);
    EXPECT_EQ(IntOf(key_), 1);
    EXPECT_EQ(IntOf(key_ + "2"), -ENOENT);
    Loop loop;
    int calls = 0;
    EXPECT_EQ(vconf_notify_key_changed(key_.c_str(), Count, &calls), 0);
    loop.RunReady();
    EXPECT_EQ(vconf_ignore_key_changed(key_.c_str(), Count), 0);
    // Mounted for writing again.
    plan.read_only = false;
    EXPECT_EQ(Set(key_, 3), 0);
    EXPECT_EQ(IntOf(key_), 3);
  });
}

TEST_P(FailingDisk, ReadOnlyWithoutAStore) {
  Run([&] {
    plan.read_only = true;
    EXPECT_EQ(IntOf(key_), -ENOENT);
    EXPECT_EQ(Set(key_, 2), -EROFS);
    EXPECT_EQ(IntOf(key_), -ENOENT);
  });
}

INSTANTIATE_TEST_SUITE_P(Families, FailingDisk, testing::Values("memory", "db"),
                         [](const auto& family) { return std::string(family.param); });

constexpr char kKey[] = "memory/kavrel_test/value";

using FailingMemory = FreshStoreTest;

// Every call with its n-th allocation failing: a documented failure, and nothing half done.
TEST_F(FailingMemory, IsAnErrorAndNothingElse) {
  const auto exhaust = [](const std::function<int()>& call) {
    for (long n = 0;; ++n) {
      plan.allocations = n;
      const int result = call();
      const bool failed = plan.allocations < 0;
      plan.allocations = -1;
      if (!failed) return result;
      EXPECT_EQ(result, -ENOMEM) << "allocation " << n;
      if (result != -ENOMEM) return result;
    }
  };
  Run([&] {
    Loop loop;
    int calls = 0;
    EXPECT_EQ(exhaust([] { return vconf_set_str(kKey, "text"); }), 0);
    EXPECT_EQ(exhaust([] {
                char* text = vconf_get_str(kKey);
                std::free(text);
                return text != nullptr ? 0 : -errno;
              }),
              0);
    EXPECT_EQ(exhaust([&] { return vconf_notify_key_changed(kKey, Count, &calls); }), 0);
    EXPECT_EQ(exhaust([] { return vconf_set_int(kKey, 1); }), 0);
    EXPECT_TRUE(loop.RunUntil([&] { return calls == 1; }));
    plan.allocations = 0;  // nobody can be left registered for want of memory
    EXPECT_EQ(vconf_ignore_key_changed(kKey, Count), 0);
    plan.allocations = -1;
    EXPECT_EQ(vconf_ignore_key_changed(kKey, Count), -ENOENT);
    EXPECT_EQ(exhaust([] {
                const auto visit = [](const char*, const vconf_ext_value*, void*) { return 0; };
                return vconf_ext_list("", visit, nullptr);
              }),
              0);
  });
}

class MissingMechanism : public FreshStoreTest {
 protected:
  // A watcher that has to do without something hears of other processes' changes all the same.
  static void ExpectDeliveries(const std::function<void()>& take_away) {
    Run([&] {
      take_away();
      Loop loop;
      int calls = 0;
      ASSERT_EQ(vconf_notify_key_changed(kKey, Count, &calls), 0);
      loop.RunReady();
      for (int value = 1; value <= 3; ++value) {
        Run([&] { EXPECT_EQ(Set(kKey, value), 0); });
        ASSERT_TRUE(loop.RunUntil([&] { return calls == value; }));
      }
      // A writer killed before it could wake anybody.
      Forked killed([] {
        plan.kill_in_wake = true;
        return Set(kKey, 9);
      });
      EXPECT_TRUE(loop.RunUntil([&] { return IntOf(kKey) == 9 && calls == 4; }));
      EXPECT_EQ(killed.Wait(), -SIGKILL);
    });
  }
};

TEST_F(MissingMechanism, None) {
  ExpectDeliveries([] {});
}

TEST_F(MissingMechanism, NoInotifyInstanceLeft) {
  ExpectDeliveries([] { plan.watch_error = EMFILE; });
}

TEST_F(MissingMechanism, NoEpollSetLeft) {
  ExpectDeliveries([] { plan.poll_error = EMFILE; });
}

using KilledInMidSet = FreshStoreTest;

// The worst moment: stored, and nobody woken. The kernel closes the killed writer's files, also
// when it has a forked child that lives on.
TEST_F(KilledInMidSet, StoredButNotNotified) {
  Run([] {
    Loop loop;
    int calls = 0;
    ASSERT_EQ(vconf_notify_key_changed(kKey, Count, &calls), 0);
    loop.RunReady();
    for (const bool leaves_child : {false, true}) {
      const int before = calls;
      Shared<std::atomic<pid_t>> child;
      Forked killed([&] {
        // Opens all its files and wakes nobody.
        if (vconf_ext_unset("memory/kavrel_test/missing") != -ENOENT) return 1;
        if (leaves_child) {
          const pid_t pid = ::fork();
          if (pid == 0) {
            for (;;) ::pause();
          }
          *child = pid;
        }
        plan.kill_in_wake = true;
        return Set(kKey, before + 1);
      });
      EXPECT_EQ(killed.Wait(), -SIGKILL);
      EXPECT_TRUE(loop.RunUntil([&] { return calls == before + 1; })) << leaves_child;
      if (*child > 0) ::kill(*child, SIGKILL);
    }
    EXPECT_EQ(vconf_ignore_key_changed(kKey, Count), 0);
  });
}

using StoppedInMidSet = FreshStoreTest;

// A process stopped inside a set holds the store. Other writers fail after the stated time, readers
// do not wait at all, and everything works again when it is killed or goes on.
TEST_F(StoppedInMidSet, BlocksWritersForAStatedTimeAndReadersNever) {
  const kavrel_test::ScopedEnvironment timeout("KAVREL_VCONF_TIMEOUT_MS", "300");
  Run([] {
    ASSERT_EQ(vconf_set_int(kKey, 1), 0);
    int stops = 0;
    for (int write = 1; write <= 3; ++write) {
      for (const bool is_killed : {true, false}) {
        Forked stopped([&] {
          plan.stop_in_write = write;
          return vconf_set_int("memory/kavrel_test/other", write);
        });
        if (!stopped.WaitUntilStopped()) continue;  // the set has fewer writes
        ++stops;
        Run([] { EXPECT_EQ(IntOf(kKey), 1); });
        EXPECT_EQ(vconf_set_int(kKey, 2), -ETIMEDOUT);
        EXPECT_EQ(IntOf(kKey), 1);
        if (is_killed) {
          stopped.Kill();
        } else {
          stopped.Continue();
          EXPECT_EQ(stopped.Wait(), 0);
          EXPECT_EQ(IntOf("memory/kavrel_test/other"), write);
        }
        EXPECT_EQ(vconf_set_int(kKey, 1), 0);
      }
    }
    EXPECT_GE(stops, 2);
  });
}

}  // namespace
