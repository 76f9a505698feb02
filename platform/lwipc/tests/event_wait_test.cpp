// Waiting: no wake-up is lost, whatever the order and whatever is missing.
#include <dlfcn.h>
#include <lwipc.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "event_process.h"
#include "repetitions.h"

namespace {

constexpr int kLimit = 30000;

// What inotify does in this program, so that a test can come in between or take it away.
struct Interposed {
  std::function<void()> before_watch;
  std::function<void()> after_watch;
  int instance_error = 0;
  int watch_error = 0;
};
Interposed g_inotify;

void CallOnce(std::function<void()>& action) {
  if (const auto once = std::exchange(action, nullptr)) once();
}

template <typename Function>
Function Next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int inotify_init1(int flags) noexcept {
  if (g_inotify.instance_error == 0) return Next<int (*)(int)>("inotify_init1")(flags);
  errno = g_inotify.instance_error;
  return -1;
}

__attribute__((visibility("default"))) int inotify_add_watch(int fd, const char* path,
                                                             uint32_t mask) noexcept {
  CallOnce(g_inotify.before_watch);
  int watch = -1;
  if (g_inotify.watch_error == 0) {
    watch = Next<int (*)(int, const char*, uint32_t)>("inotify_add_watch")(fd, path, mask);
  } else {
    errno = g_inotify.watch_error;
  }
  CallOnce(g_inotify.after_watch);
  return watch;
}

}  // extern "C"

namespace lwipc_test {
namespace {

void Raise() {
  EXPECT_EQ(LwipcEventDone(kEvent), 0);
}

class WaitTest : public EventTest {
 protected:
  WaitTest() { g_inotify = {}; }
  ~WaitTest() override { g_inotify = {}; }

  /// On a thread of its own, as soon as somebody watches.
  void DoAfterTheWatch(std::function<void()> action) {
    g_inotify.after_watch = [this, action = std::move(action)] { raiser_ = std::jthread(action); };
  }

 private:
  std::jthread raiser_;
};

TEST_F(WaitTest, TimesOut) {
  EXPECT_EQ(LwipcWaitEvent(kEvent, 0), -ETIMEDOUT);
  EXPECT_EQ(LwipcWaitEvent(kEvent, 1), -ETIMEDOUT);
}

TEST_F(WaitTest, SeesARaiseBetweenTheFirstLookAndTheWatch) {
  g_inotify.before_watch = Raise;
  EXPECT_EQ(LwipcWaitEvent(kEvent, kLimit), 0);
}

TEST_F(WaitTest, SeesARaiseBetweenTheWatchAndTheSecondLook) {
  g_inotify.after_watch = Raise;
  EXPECT_EQ(LwipcWaitEvent(kEvent, kLimit), 0);
}

TEST_F(WaitTest, WakesWhenTheEventComes) {
  DoAfterTheWatch(Raise);
  EXPECT_EQ(LwipcWaitEvent(kEvent, kLimit), 0);
}

TEST_F(WaitTest, LooksNowAndThenWithoutAnInotifyInstance) {
  g_inotify.instance_error = EMFILE;
  const std::jthread raiser(Raise);
  EXPECT_EQ(LwipcWaitEvent(kEvent, kLimit), 0);
}

TEST_F(WaitTest, LooksNowAndThenWithoutAWatch) {
  g_inotify.watch_error = ENOSPC;
  DoAfterTheWatch(Raise);
  EXPECT_EQ(LwipcWaitEvent(kEvent, kLimit), 0);
  EXPECT_EQ(LwipcWaitEvent(kOtherEvent, 50), -ETIMEDOUT);
}

TEST_F(WaitTest, WaitsForADirectoryThatComesLater) {
  std::filesystem::remove(events_);
  DoAfterTheWatch([this] {
    ::mkdir(events_.c_str(), 0700);
    Raise();
  });
  EXPECT_EQ(LwipcWaitEvent(kEvent, kLimit), 0);
}

TEST_F(WaitTest, FollowsADirectoryThatIsMadeAnew) {
  DoAfterTheWatch([this] {
    std::filesystem::remove(events_);
    ::mkdir(events_.c_str(), 0700);
    Raise();
  });
  EXPECT_EQ(LwipcWaitEvent(kEvent, kLimit), 0);
}

TEST_F(WaitTest, WakesInTheSubstituteDirectory) {
  ::mkdir(PathOf(kEvent).c_str(), 0700);
  DoAfterTheWatch(Raise);
  EXPECT_EQ(LwipcWaitEvent(kEvent, kLimit), 0);
}

TEST_F(WaitTest, WakesInABusyDirectory) {
  std::jthread noise([this](const std::stop_token& stop) {
    for (int round = 0; !stop.stop_requested(); ++round) {
      const std::string name = events_ + "/noise-" + std::to_string(round % 100);
      std::ofstream(name) << round;
      std::filesystem::rename(name, name + "-moved");
    }
  });
  EXPECT_EQ(LwipcWaitEvent(kEvent, 50), -ETIMEDOUT);
  DoAfterTheWatch(Raise);
  EXPECT_EQ(LwipcWaitEvent(kEvent, kLimit), 0);
}

TEST_F(WaitTest, EndsInEachOfManyRaces) {
  const int rounds = kavrel_test::Repetitions(300, 100000);
  EventProcess raiser;
  for (int round = 0; round < rounds; ++round) {
    const std::string event = "/tmp/event-" + std::to_string(round % 200);
    std::filesystem::remove(PathOf(event));
    raiser.Tell("raise " + event);
    ASSERT_EQ(LwipcWaitEvent(event.c_str(), kLimit), 0) << round;
    ASSERT_EQ(raiser.Answer("raise " + event), 0);
  }
}

}  // namespace
}  // namespace lwipc_test
