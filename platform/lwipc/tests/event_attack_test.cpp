// What others may have put at an event's path.
#include <fcntl.h>
#include <lwipc.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "event_process.h"

namespace lwipc_test {
namespace {

namespace fs = std::filesystem;
using kavrel_test::ReadFile;

// Users that need not exist; only root can take them on.
constexpr const char* kViewer = "61001";
constexpr const char* kStranger = "61002";

// Everything that can lie at a path, made by the user whose number is given.
struct Obstacle {
  const char* name;
  void (*make)(const std::string& path, const std::string& target);
};

const Obstacle kObstacles[] = {
    {"File", [](const std::string& path, const std::string&) { std::ofstream(path) << "old"; }},
    {"Link",
     [](const std::string& path, const std::string& target) { fs::create_symlink(target, path); }},
    {"DanglingLink", [](const std::string& path,
                        const std::string& target) { fs::create_symlink(target + "-no", path); }},
    {"HardLink", [](const std::string& path,
                    const std::string& target) { fs::create_hard_link(target, path); }},
    {"Fifo", [](const std::string& path, const std::string&) { ::mkfifo(path.c_str(), 0666); }},
    {"Directory", [](const std::string& path, const std::string&) { ::mkdir(path.c_str(), 0777); }},
    {"FullDirectory",
     [](const std::string& path, const std::string&) {
       ::mkdir(path.c_str(), 0777);
       std::ofstream(path + "/content") << "x";
     }},
    {"Loop", [](const std::string& path, const std::string&) { fs::create_symlink(path, path); }},
};

class ObstacleTest : public EventTest, public testing::WithParamInterface<Obstacle> {
 protected:
  ObstacleTest() { std::ofstream(target_) << "precious"; }

  void Put() { GetParam().make(PathOf(kEvent), target_); }
  void PutAs(const char* user) {
    Put();
    const auto number = static_cast<uid_t>(std::stoi(user));
    ASSERT_EQ(::lchown(PathOf(kEvent).c_str(), number, number), 0);
  }

  std::string target_ = directory_.Path("target");
};

INSTANTIATE_TEST_SUITE_P(All, ObstacleTest, testing::ValuesIn(kObstacles),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_P(ObstacleTest, IsNoEvent) {
  Put();
  EXPECT_EQ(LwipcIsDone(kEvent), 0);
  EXPECT_NE(LwipcWaitEvent(kEvent, 1), 0);
}

TEST_P(ObstacleTest, IsNeitherFollowedNorInTheWay) {
  Put();
  EXPECT_EQ(LwipcEventDone(kEvent), 0);
  EXPECT_EQ(LwipcIsDone(kEvent), 1);
  EXPECT_EQ(ReadFile(target_), "precious");
  EXPECT_FALSE(fs::exists(target_ + "-no"));
}

// In a directory like /tmp a user cannot take a stranger's file away.
TEST_P(ObstacleTest, OfAStrangerStopsNobody) {
  if (::geteuid() != 0) GTEST_SKIP() << "other users can only be taken on by root";
  PutAs(kStranger);
  EventProcess viewer(kViewer);
  EXPECT_EQ(viewer.Ask("raise /tmp/kavrel-host_ready"), 0);
  EXPECT_EQ(viewer.Ask("test /tmp/kavrel-host_ready"), 1);
  EventProcess plugin(kViewer);
  EXPECT_EQ(plugin.Ask("wait /tmp/kavrel-host_ready 0"), 0);
  EXPECT_EQ(ReadFile(target_), "precious");
}

class UserTest : public EventTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "other users can only be taken on by root";
  }
};

TEST_F(UserTest, AStrangersEventDoesNotCount) {
  EventProcess stranger(kStranger);
  EventProcess plugin(kViewer);
  ASSERT_EQ(stranger.Ask("raise /tmp/kavrel-host_ready"), 0);
  EXPECT_EQ(stranger.Ask("test /tmp/kavrel-host_ready"), 1);
  EXPECT_EQ(plugin.Ask("test /tmp/kavrel-host_ready"), 0);
  EXPECT_NE(plugin.Ask("wait /tmp/kavrel-host_ready 1"), 0);
  EXPECT_EQ(LwipcIsDone(kEvent), 0);
}

TEST_F(UserTest, RootsEventCountsForEverybody) {
  EventProcess stranger(kStranger);
  ASSERT_EQ(stranger.Ask("raise /tmp/kavrel-host_ready"), 0);
  ASSERT_EQ(LwipcEventDone(kEvent), 0);
  EventProcess plugin(kViewer);
  EXPECT_EQ(plugin.Ask("test /tmp/kavrel-host_ready"), 1);
}

// A lock that only needs permission to read neither keeps a dead event alive nor a new one away.
TEST_F(UserTest, AStrangersLocksChangeNothing) {
  EventProcess viewer(kViewer);
  ASSERT_EQ(viewer.Ask("raise /tmp/kavrel-host_ready"), 0);
  const kavrel_test::Descriptor file(::open(PathOf(kEvent).c_str(), O_RDONLY | O_CLOEXEC));
  viewer.child().Kill();
  struct flock lock {};
  lock.l_type = F_RDLCK;
  ASSERT_EQ(::fcntl(file.get(), F_OFD_SETLK, &lock), 0);
  EventProcess next(kViewer);
  EXPECT_EQ(next.Ask("test /tmp/kavrel-host_ready"), 0);
  EXPECT_EQ(next.Ask("raise /tmp/kavrel-host_ready"), 0);
  EXPECT_EQ(next.Ask("test /tmp/kavrel-host_ready"), 1);
}

TEST_F(EventTest, FailsWhenThereIsNoPlaceAtAll) {
  const kavrel_test::ScopedEnvironment events("KAVREL_EVENT_DIR", "/proc");
  const kavrel_test::ScopedEnvironment run("KAVREL_RUNTIME_DIR", "/proc/none");
  EXPECT_LT(LwipcEventDone(kEvent), 0);
}

}  // namespace
}  // namespace lwipc_test
