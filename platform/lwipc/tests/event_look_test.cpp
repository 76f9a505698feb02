// Looking at an event while the system fails, or while the file is exchanged under the look.
#include <fcntl.h>
#include <lwipc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

#include "event_process.h"
#include "next_function.h"

namespace {

// What a call in this program fails with; 0: it does not.
struct Failing {
  int directory = 0;  // opening the event's directory
  int file = 0;       // opening its file
  int status = 0;     // asking what has been opened
  int content = 0;    // reading it
  bool is_fifo = false;
  uid_t user = 0;  // whom the program takes itself for; 0: as it is
};
Failing g_failing;

constinit kavrel_test::NextFunction<int(const char*, int, mode_t)> real_open("open");
constinit kavrel_test::NextFunction<int(int, const char*, int, mode_t)> real_openat("openat");
constinit kavrel_test::NextFunction<int(int, struct stat*)> real_fstat("fstat");
constinit kavrel_test::NextFunction<ssize_t(int, void*, size_t, off_t)> real_pread("pread");
constinit kavrel_test::NextFunction<uid_t()> real_geteuid("geteuid");

bool Fails(int error) {
  if (error != 0) errno = error;
  return error != 0;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  if ((flags & O_PATH) != 0 && Fails(g_failing.directory)) return -1;
  return real_open(path, flags, mode);
}

__attribute__((visibility("default"))) int openat(int directory, const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  if (Fails(g_failing.file)) return -1;
  return real_openat(directory, path, flags, mode);
}

__attribute__((visibility("default"))) int fstat(int fd, struct stat* status) noexcept {
  if (Fails(g_failing.status)) return -1;
  const int result = real_fstat(fd, status);
  if (g_failing.is_fifo) status->st_mode = S_IFIFO;
  return result;
}

__attribute__((visibility("default"))) ssize_t pread(int fd, void* bytes, size_t size,
                                                     off_t offset) {
  return Fails(g_failing.content) ? -1 : real_pread(fd, bytes, size, offset);
}

__attribute__((visibility("default"))) uid_t geteuid() noexcept {
  return g_failing.user != 0 ? g_failing.user : real_geteuid();
}

}  // extern "C"

namespace lwipc_test {
namespace {

class LookTest : public EventTest {
 protected:
  LookTest() { EXPECT_EQ(LwipcEventDone(kEvent), 0); }
  ~LookTest() override { g_failing = {}; }

  static int LookWith(const Failing& failing) {
    g_failing = failing;
    const int result = LwipcIsDone(kEvent);
    g_failing = {};
    return result;
  }
};

TEST_F(LookTest, SaysWhatTheSystemIsShortOf) {
  ASSERT_EQ(LookWith({}), 1);
  for (const int shortage : {EMFILE, ENFILE, ENOMEM}) {
    Failing failing;
    failing.directory = shortage;
    EXPECT_EQ(LookWith(failing), -shortage);
    failing = {};
    failing.file = shortage;
    EXPECT_EQ(LookWith(failing), -shortage);
  }
}

TEST_F(LookTest, SaysThatTheFileCannotBeRead) {
  Failing failing;
  failing.content = EIO;
  EXPECT_EQ(LookWith(failing), -EIO);
}

TEST_F(LookTest, FindsNoEventInWhatCannotBeOpened) {
  Failing failing;
  failing.directory = EACCES;
  EXPECT_EQ(LookWith(failing), 0);
  failing = {};
  failing.file = ELOOP;
  EXPECT_EQ(LookWith(failing), 0);
}

TEST_F(LookTest, FindsNoEventInAFileExchangedMeanwhile) {
  Failing failing;
  failing.is_fifo = true;
  EXPECT_EQ(LookWith(failing), 0);
  failing = {};
  failing.status = EIO;
  EXPECT_EQ(LookWith(failing), 0);
}

TEST_F(LookTest, TrustsRootsFilesToo) {
  Failing failing;
  failing.user = 54321;
  EXPECT_EQ(LookWith(failing), ::getuid() == 0 ? 1 : 0);
}

TEST_F(LookTest, DoesNotMoveEventsWithoutADirectoryForThem) {
  const kavrel_test::ScopedEnvironment no_directory("KAVREL_EVENT_DIR", "");
  const kavrel_test::ScopedEnvironment no_runtime("KAVREL_RUNTIME_DIR", "");
  const std::string event = "/tmp/kavrel-no-such-event-" + std::to_string(::getpid());
  EXPECT_EQ(LwipcIsDone(event.c_str()), 0);
}

}  // namespace
}  // namespace lwipc_test
