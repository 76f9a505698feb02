// The edges of what host, plug-ins and factories promise, between processes, with the log.
#include <ctime>

#include "framework_fixture.h"

namespace framework_test {
namespace {

const Environment kTalkative = {{"KAVREL_LOG_LEVEL", "info"}};

/// The clock that key events carry.
std::string MillisecondsAgo(long age) {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return std::to_string(now.tv_sec * 1000 + now.tv_nsec / 1000000 - age);
}

class FrameworkEdgeTest : public FrameworkTest {
 protected:
  ProgramPointer MakeTalkativeHost() const { return MakeHost({}, kTalkative); }

  ProgramPointer MakeTalkativePlugin(Program& host, std::vector<std::string> arguments) const {
    auto plugin = StartPlugin(std::move(arguments), kTalkative);
    EXPECT_SAYS(*plugin, "connected");
    EXPECT_SAYS(host, "told: show=");
    return plugin;
  }
};

TEST_F(FrameworkEdgeTest, SecondAnnouncementChangesNothing) {
  const auto host = MakeTalkativeHost();
  const auto plugin = MakePlugin(*host, {"clock", "5", "glib", "Red"});
  EXPECT_TRUE(Logs(*host, "add plugin, type: 5, name: clock"));
  plugin->process().Kill();
  const auto next = MakePlugin(*host, {"clock", "5", "glib"});
  EXPECT_TRUE(Logs(*host, "host dbus for clock already exists"));
  ExpectKey(*host, "Red", *next);
}

TEST_F(FrameworkEdgeTest, LowTypesAreNotRemoved) {
  const auto host = MakeTalkativeHost();
  const auto plugin = MakePlugin(*host, {"clock", "3", "glib", "Red"});
  plugin->Tell("leave");
  EXPECT_TRUE(Logs(*host, "remove plugin, type: 3, name: clock"));
  EXPECT_TRUE(Logs(*host, "type 3 is out of range"));
  host->Tell("key Red");
  EXPECT_SAYS(*host, "key Red taken clock");
}

TEST_F(FrameworkEdgeTest, ConsumerIsNamedUnlessTheKeyIsExclusive) {
  const auto host = MakeTalkativeHost();
  const auto plugin = MakePlugin(*host, {"clock", "5", "glib", "Red"});
  host->Tell("key Red");
  EXPECT_SAYS(*host, "key Red taken clock");
  EXPECT_TRUE(Logs(*host, "Red key of type 0 is consumed by clock"));
  for (int twice = 0; twice < 2; ++twice) {
    plugin->Tell("exclusive Red");
    EXPECT_SAYS(*host, "told: register_exclusive_key=clock key=Red");
  }
  host->Tell("key Red");
  EXPECT_SAYS(*host, "key Red taken -");
  EXPECT_TRUE(Logs(*host, "Red key of type 0 is consumed by clock through grabbing"));
  plugin->Tell("unexclusive Red");
  EXPECT_TRUE(Logs(*host, "remove requester: clock, list size: 0"));
  EXPECT_TRUE(Logs(*host, "ungrab key Red"));
  EXPECT_SAYS(*host, "told: unregister_exclusive_key=clock");
  host->Tell("key Red");
  EXPECT_SAYS(*host, "key Red taken clock");
}

TEST_F(FrameworkEdgeTest, SecondWindowOfATitleIsNotListed) {
  const auto host = MakeTalkativeHost();
  host->Tell("window clock");
  EXPECT_SAYS(*host, "window clock none");
  const auto plugin = MakeWindow(*host, "clock", "5", "ff0000");
  plugin->Tell("window 00ff00");
  EXPECT_TRUE(Logs(*host, "object has exist"));
  plugin->Tell("close");  // the second one
  EXPECT_TRUE(Logs(*host, "[PEPPER] obj:"));
  host->Tell("window clock");
  EXPECT_SAYS(*host, "window clock 4");
  EXPECT_FALSE(host->Has("told: plugin_"));
  ExpectPixel(*host, 100, 100, "ff0000");
}

TEST_F(FrameworkEdgeTest, LatePressesAreDroppedAndReleasesAreNot) {
  const auto host = MakeHost();
  const auto plugin = MakeTalkativePlugin(*host, {"clock", "5", "glib"});
  const auto send = [&](const std::string& type, long age) {
    host->Tell("send clock 1 key Red type " + type + " device IR time " + MillisecondsAgo(age));
  };
  send("pressed", 1001);
  EXPECT_TRUE(Logs(*plugin, "skipping key, keytype: pressed"));
  send("pressed", -60000);
  EXPECT_TRUE(Logs(*plugin, "skipping key, keytype: pressed"));
  send("released", 5000);
  EXPECT_SAYS(*plugin, "released Red 0");
  EXPECT_FALSE(plugin->Has("pressed Red"));
  host->Tell("send clock 1 key Red type released time " + MillisecondsAgo(0));
  EXPECT_SAYS(*plugin, "released Red -1");
}

// Inside the group everybody may speak for everybody; the log has both names, and who was spoken
// for registers its keys again.
TEST_F(FrameworkEdgeTest, PluginMayTakeAnothersKeysAwayAndTheLogTellsBoth) {
  const auto host = MakeTalkativeHost();
  const auto robbed = MakePlugin(*host, {"robbed", "5", "glib", "Red"});
  const auto robber = MakePlugin(*host, {"robber", "5", "glib", "Blue"});
  ExpectKey(*host, "Red", *robbed);
  robber->Tell("send 0 clear_key robbed");
  EXPECT_SAYS(*robber, "sent 1");
  EXPECT_TRUE(Logs(*host, "plugin robber speaks for robbed"));
  ExpectNobodyTakes(*host, "Red");
  ExpectKey(*host, "Blue", *robber);
  robbed->Tell("keys Red");
  robbed->Tell("hide");
  EXPECT_SAYS(*host, "told: hide=robbed");
  ExpectKey(*host, "Red", *robbed);
}

TEST_F(FrameworkEdgeTest, EmptyKeySetIsNotSent) {
  const auto host = MakeHost();
  const auto plugin = MakeTalkativePlugin(*host, {"clock", "5", "glib", "Red"});
  for (const char* command : {"keys", "exclusive", "unexclusive"}) {
    plugin->Tell(command);
    EXPECT_SAYS(*plugin, "asked 0");
    EXPECT_TRUE(Logs(*plugin, "Size is 0"));
  }
  ExpectKey(*host, "Red", *plugin);
}

// Keys are for the plug-ins of every host, states and messages only for the viewer's.
TEST_F(FrameworkEdgeTest, HostOfAnotherNameHasKeysOnly) {
  const auto host = MakeHost({"host=other-host"});
  const auto plugin = MakePlugin(*host, {"clock", "5", "host=other-host", "glib", "Red"});
  host->Tell("state PAUSE");
  host->Tell("send clock 0 page 100");
  EXPECT_SAYS(*host, "sent 1");
  ExpectKey(*host, "Red", *plugin);
  EXPECT_FALSE(plugin->Has("state"));
  EXPECT_FALSE(plugin->Has("message"));
  plugin->Tell("window ff0000");
  EXPECT_SAYS(*plugin, "no window");
}

TEST_F(FrameworkEdgeTest, UnknownTypeIsRefusedBeforeAnyWait) {
  const auto plugin = StartPlugin({"clock", "7", "glib"}, kTalkative);
  EXPECT_TRUE(Logs(*plugin, "invalid plugin type!"));
  EXPECT_SAYS(*plugin, "no host");
}

TEST_F(FrameworkEdgeTest, NothingIsSentWhileThereIsNoHost) {
  auto host = MakeHost();
  const auto plugin = MakeTalkativePlugin(*host, {"clock", "5", "glib"});
  host->process().Kill();
  EXPECT_SAYS(*plugin, "disconnected");
  plugin->Tell("send 0 any thing");
  EXPECT_SAYS(*plugin, "sent 0");
  EXPECT_TRUE(Logs(*plugin, "host: kavrel is not ready"));
}

}  // namespace
}  // namespace framework_test
