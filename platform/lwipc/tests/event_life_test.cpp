// How long an event is raised, and for whom the name stands where.
#include <lwipc.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>

#include "event_process.h"

namespace lwipc_test {
namespace {

namespace fs = std::filesystem;
using kavrel_test::ReadFile;
using kavrel_test::ScopedEnvironment;

TEST_F(EventTest, IsRaisedFromTheRaiseOn) {
  EXPECT_EQ(LwipcIsDone(kEvent), 0);
  EXPECT_EQ(LwipcEventDone(kEvent), 0);
  EXPECT_EQ(LwipcIsDone(kEvent), 1);
  EXPECT_EQ(LwipcIsDone(kOtherEvent), 0);
  EXPECT_EQ(LwipcWaitEvent(kEvent, 0), 0);
}

TEST_F(EventTest, IsSeenByOtherProcesses) {
  EventProcess raiser;
  EventProcess other;
  EXPECT_EQ(other.Ask("test /tmp/kavrel-host_ready"), 0);
  EXPECT_EQ(raiser.Ask("raise /tmp/kavrel-host_ready"), 0);
  EXPECT_EQ(other.Ask("test /tmp/kavrel-host_ready"), 1);
  EXPECT_EQ(raiser.Ask("test /tmp/kavrel-host_ready"), 1);
}

TEST_F(EventTest, MayBeRaisedAgainByTheSameProcessAndByOthers) {
  EventProcess first;
  EXPECT_EQ(first.Ask("raise /tmp/kavrel-host_ready"), 0);
  EXPECT_EQ(first.Ask("raise /tmp/kavrel-host_ready"), 0);
  EXPECT_EQ(LwipcEventDone(kEvent), 0);
  first.child().Kill();
  EXPECT_EQ(LwipcIsDone(kEvent), 1);
}

TEST_F(EventTest, EndsWhenItsRaiserIsKilled) {
  EventProcess raiser;
  ASSERT_EQ(raiser.Ask("raise /tmp/kavrel-host_ready"), 0);
  raiser.child().Kill();
  EXPECT_TRUE(fs::exists(PathOf(kEvent)));
  EXPECT_EQ(LwipcIsDone(kEvent), 0);
}

TEST_F(EventTest, EndsWhenItsRaiserExits) {
  EventProcess raiser;
  ASSERT_EQ(raiser.Ask("raise /tmp/kavrel-host_ready"), 0);
  raiser.Tell("exit");
  ASSERT_EQ(raiser.child().WaitForExit(), 0);
  EXPECT_EQ(LwipcIsDone(kEvent), 0);
}

// A plug-in that starts while the viewer is down waits for the next viewer.
TEST_F(EventTest, WaitsForTheRestartedRaiser) {
  EventProcess viewer;
  ASSERT_EQ(viewer.Ask("raise /tmp/kavrel-host_ready"), 0);
  viewer.child().Kill();

  EventProcess plugin;
  EXPECT_EQ(plugin.Ask("wait /tmp/kavrel-host_ready 1"), -ETIMEDOUT);
  plugin.Tell("wait /tmp/kavrel-host_ready 30000");
  EventProcess next_viewer;
  ASSERT_EQ(next_viewer.Ask("raise /tmp/kavrel-host_ready"), 0);
  EXPECT_EQ(plugin.Answer("wait /tmp/kavrel-host_ready 30000"), 0);
}

TEST_F(EventTest, IsNotProlongedByAForkedChild) {
  EventProcess raiser;
  ASSERT_EQ(raiser.Ask("raise /tmp/kavrel-host_ready"), 0);
  raiser.Ask("fork");
  EXPECT_EQ(LwipcIsDone(kEvent), 1);
  raiser.child().Kill();
  EXPECT_EQ(LwipcIsDone(kEvent), 0);
}

TEST_F(EventTest, IsNotProlongedByAProgramThatTheRaiserStarted) {
  EventProcess raiser;
  ASSERT_EQ(raiser.Ask("raise /tmp/kavrel-host_ready"), 0);
  raiser.Ask("exec");
  raiser.child().Kill();
  EXPECT_EQ(LwipcIsDone(kEvent), 0);
}

TEST_F(EventTest, IsMoreThanAFileOfItsName) {
  std::ofstream(PathOf(kEvent)) << PathOf(kEvent);
  EXPECT_EQ(LwipcIsDone(kEvent), 0);
}

TEST_F(EventTest, IsNotAnotherEventUnderItsName) {
  ASSERT_EQ(LwipcEventDone(kOtherEvent), 0);
  fs::create_hard_link(PathOf(kOtherEvent), PathOf(kEvent));
  EXPECT_EQ(LwipcIsDone(kEvent), 0);
  EXPECT_EQ(LwipcIsDone(kOtherEvent), 1);
}

TEST_F(EventTest, RefusesWhatIsNoName) {
  const std::string too_long = "/tmp/" + std::string(PATH_MAX, 'x');
  for (const char* name : {static_cast<const char*>(nullptr), "", "relative", "tmp/event", "/",
                           "/tmp/", "/tmp/.", "/tmp/..", too_long.c_str()}) {
    SCOPED_TRACE(name != nullptr ? name : "null");
    EXPECT_EQ(LwipcEventDone(name), -EINVAL);
    EXPECT_EQ(LwipcIsDone(name), -EINVAL);
    EXPECT_EQ(LwipcWaitEvent(name, 0), -EINVAL);
  }
}

TEST_F(EventTest, RefusesANegativeTimeOut) {
  ASSERT_EQ(LwipcEventDone(kEvent), 0);
  EXPECT_EQ(LwipcWaitEvent(kEvent, -1), -EINVAL);
}

TEST_F(EventTest, SaysWhenItCannotLook) {
  ASSERT_EQ(LwipcEventDone(kEvent), 0);
  EventProcess starved;
  EXPECT_EQ(starved.Ask("short /tmp/kavrel-host_ready"), -EMFILE);
}

TEST_F(EventTest, LeavesOneFileWithItsPath) {
  ASSERT_EQ(LwipcEventDone(kEvent), 0);
  ASSERT_EQ(LwipcEventDone(kEvent), 0);
  EXPECT_EQ(ReadFile(PathOf(kEvent)), PathOf(kEvent));
  EXPECT_EQ(std::distance(fs::directory_iterator(events_), fs::directory_iterator()), 1);
  EXPECT_EQ(fs::status(PathOf(kEvent)).permissions(), fs::perms(0644));
}

TEST_F(EventTest, MovesOnlyTheTemporaryDirectory) {
  const std::string elsewhere = "/proc/self/root" + directory_.Path("elsewhere");
  ASSERT_EQ(LwipcEventDone(elsewhere.c_str()), 0);
  EXPECT_TRUE(fs::exists(elsewhere));
  EXPECT_EQ(LwipcIsDone(elsewhere.c_str()), 1);
}

TEST_F(EventTest, FallsBackToTheRuntimeDirectoryOfTheEnvironment) {
  const ScopedEnvironment unset("KAVREL_EVENT_DIR", std::nullopt);
  ASSERT_EQ(LwipcEventDone(kEvent), 0);
  EXPECT_TRUE(fs::exists(directory_.Path("run/kavrel-host_ready")));
}

}  // namespace
}  // namespace lwipc_test
