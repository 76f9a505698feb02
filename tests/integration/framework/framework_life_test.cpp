// Who comes when, and who goes how.
#include "framework_fixture.h"
#include "repetitions.h"

namespace framework_test {
namespace {

using FrameworkLifeTest = FrameworkTest;
using kavrel_test::Repetitions;

TEST_F(FrameworkLifeTest, PluginsWaitForAHostThatStartsLater) {
  const auto plain = StartPlugin({"plain", "5", "glib", "Red"});
  const auto window = StartPlugin({"window", "5", "window=112233", "Blue"});
  EXPECT_SAYS(*plain, "waiting");
  EXPECT_SAYS(*window, "waiting");
  const auto host = MakeHost();
  EXPECT_SAYS(*host, "told: show=plain");
  EXPECT_SAYS(*host, "told: show=window");
  ExpectKey(*host, "Red", *plain);
  ExpectKey(*host, "Blue", *window);
  EXPECT_SAYS(*host, "told: plugin_add=window");
}

// Whatever the scheduler makes of it: the factories let no start cross another.
TEST_F(FrameworkLifeTest, PluginAndHostThatStartAtOnceAreAlwaysReady) {
  const int starts = Repetitions(4, 10000);
  for (int start = 0; start < starts; ++start) {
    auto plugin = start % 2 == 0 ? StartPlugin({"clock", "5", "glib", "Red"}) : nullptr;
    const auto host = Start({FRAMEWORK_HOST});
    if (plugin == nullptr) plugin = StartPlugin({"clock", "5", "glib", "Red"});
    ASSERT_SAYS(*plugin, "connected");
    ASSERT_SAYS(*host, "told: show=clock");
    ExpectKey(*host, "Red", *plugin);
    plugin->process().Kill();
    host->process().Kill();
  }
}

TEST_F(FrameworkLifeTest, PluginsComeBackToARestartedHost) {
  auto host = MakeHost();
  const auto plain = MakePlugin(*host, {"plain", "5", "glib", "Red"});
  const auto exclusive = MakePlugin(*host, {"exclusive", "1", "glib", "exclusive", "Blue"});
  const int restarts = Repetitions(3, 1000);
  for (int restart = 0; restart < restarts; ++restart) {
    // Keys are under way when the viewer dies.
    plain->Tell("quiet");
    plain->Tell("count");
    EXPECT_SAYS(*plain, "count ");
    host->Tell("keys 10000 Red");
    EXPECT_SAYS(*plain, "a key has come");
    host->process().Kill();
    // For the channel, and for the host's name.
    for (int told = 0; told < 2; ++told) {
      EXPECT_SAYS(*plain, "disconnected");
      EXPECT_SAYS(*exclusive, "disconnected");
    }
    plain->Tell("send 1 any thing");
    EXPECT_SAYS(*plain, "sent 0");
    plain->Tell("talk");
    host = MakeHost();
    EXPECT_SAYS(*plain, "connected");
    EXPECT_SAYS(*exclusive, "connected");
    EXPECT_SAYS(*host, "told: show=plain");
    EXPECT_SAYS(*host, "told: show=exclusive");
    ExpectKey(*host, "Red", *plain);
    ExpectKey(*host, "Blue", *exclusive);
  }
}

// EFL ends the loop of a program whose window has lost its display, and cannot open windows on
// another one afterwards: the program runs itself anew.
TEST_F(FrameworkLifeTest, PluginWithAWindowComesBackWhenItStartsAnew) {
  auto host = MakeHost();
  const auto plugin = MakePlugin(*host, {"clock", "5", "again", "window=112233", "Red"});
  EXPECT_SAYS(*host, "told: plugin_add=clock");
  host->process().Kill();
  EXPECT_SAYS(*plugin, "left");
  host = MakeHost();
  EXPECT_SAYS(*plugin, "engine wayland");
  EXPECT_SAYS(*host, "told: show=clock");
  EXPECT_SAYS(*host, "told: plugin_add=clock");
  ExpectPixel(*host, 100, 100, "112233");
  ExpectKey(*host, "Red", *plugin);
}

TEST_F(FrameworkLifeTest, HostIsMadeAgainInOneProcess) {
  const auto host = MakeHost();
  const auto plain = MakePlugin(*host, {"plain", "4", "glib", "Red"});
  const auto window = MakePlugin(*host, {"clock", "6", "window=112233"});
  EXPECT_SAYS(*host, "told: plugin_add=clock");
  for (int round = 0; round < 2; ++round) {
    host->Tell("destroy");
    EXPECT_SAYS(*host, "destroyed");
    EXPECT_SAYS(*plain, "disconnected");
    host->Tell("create");
    EXPECT_SAYS(*host, "created");
    EXPECT_SAYS(*host, "told: show=plain");
    ExpectKey(*host, "Red", *plain);
  }
  const auto next = MakePlugin(*host, {"weather", "6", "window=112233"});
  EXPECT_SAYS(*host, "told: plugin_add=weather");
}

TEST_F(FrameworkLifeTest, HostForgetsAPluginThatLeaves) {
  const auto host = MakeHost();
  const auto plugin = MakePlugin(*host, {"clock", "5", "glib", "Red"});
  plugin->Tell("leave");
  EXPECT_SAYS(*plugin, "left");
  const auto next = MakePlugin(*host, {"clock", "5", "glib", "Blue"});
  ExpectNobodyTakes(*host, "Red");
  ExpectKey(*host, "Blue", *next);
}

// Of types 0 to 3 the place and the keys stay; who comes back under the name gets them.
TEST_F(FrameworkLifeTest, HostKeepsThePlaceOfAPluginThatStays) {
  const auto host = MakeHost();
  auto plugin = MakePlugin(*host, {"clock", "3", "glib", "Red"});
  plugin->Tell("leave");
  EXPECT_SAYS(*plugin, "left");
  EXPECT_EQ(plugin->process().WaitForExit(), 0);
  host->Tell("key Red");
  EXPECT_SAYS(*host, "key Red taken clock");
  plugin = MakePlugin(*host, {"clock", "3", "glib"});
  ExpectKey(*host, "Red", *plugin);
}

struct KilledPlugin {
  const char* name;
  std::vector<std::string> arguments;
  const char* until;    ///< what the plug-in says before it is killed
  const char* told;     ///< what the viewer is told before, if anything
  const char* command;  ///< what the plug-in does last
};

class KilledPluginTest : public FrameworkTest, public testing::WithParamInterface<KilledPlugin> {};

// The viewer and a neighbour go on, and the next one of the name is served.
TEST_P(KilledPluginTest, HarmsNobody) {
  const KilledPlugin& killed = GetParam();
  const auto host = MakeHost();
  const auto neighbour = MakePlugin(*host, {"neighbour", "6", "glib", "Blue", "Red"});
  const auto plugin = StartPlugin(killed.arguments);
  EXPECT_SAYS(*plugin, killed.until);
  if (killed.told != nullptr) {
    EXPECT_SAYS(*host, killed.told);
  }
  const bool shown =
      killed.told != nullptr && std::string(killed.told).find("_add") != std::string::npos;
  if (killed.command != nullptr) plugin->Tell(killed.command);
  plugin->process().Kill();
  if (shown) {
    EXPECT_SAYS(*host, "told: plugin_remove=victim");
  }
  ExpectKey(*host, "Blue", *neighbour);
  const auto next = StartPlugin(killed.arguments);
  EXPECT_SAYS(*next, "connected");
  next->Tell("hide");
  EXPECT_SAYS(*host, "told: hide=victim");
  ExpectKey(*host, "Red", *next);
  ExpectKey(*host, "Blue", *neighbour);
}

INSTANTIATE_TEST_SUITE_P(
    States, KilledPluginTest,
    testing::Values(
        KilledPlugin{"Starting", {"victim", "4", "glib", "Red"}, "waiting", nullptr, nullptr},
        KilledPlugin{"Made", {"victim", "4", "glib", "Red"}, "made", nullptr, nullptr},
        KilledPlugin{"Connected", {"victim", "4", "glib", "Red"}, "connected", nullptr, nullptr},
        KilledPlugin{
            "WithKeys", {"victim", "4", "glib", "Red"}, "connected", "told: show=victim", nullptr},
        KilledPlugin{"WithExclusiveKeys",
                     {"victim", "4", "glib", "exclusive", "Red"},
                     "connected",
                     "told: show=victim",
                     nullptr},
        KilledPlugin{"OfATypeThatStays",
                     {"victim", "0", "glib", "Red"},
                     "connected",
                     "told: show=victim",
                     nullptr},
        KilledPlugin{
            "OpeningAWindow", {"victim", "5", "window=112233", "Red"}, "made", nullptr, nullptr},
        KilledPlugin{"WithAWindowNotShown",
                     {"victim", "5", "window=112233", "Red"},
                     "engine",
                     nullptr,
                     nullptr},
        KilledPlugin{"WithAWindow",
                     {"victim", "5", "window=112233", "Red"},
                     "connected",
                     "told: plugin_add=victim",
                     nullptr},
        KilledPlugin{"ClosingItsWindow",
                     {"victim", "5", "window=112233", "Red"},
                     "connected",
                     "told: plugin_add=victim",
                     "close"},
        KilledPlugin{"WaitingForAnAnswer",
                     {"victim", "4", "glib", "Red"},
                     "connected",
                     "told: show=victim",
                     "send 0 any thing"},
        KilledPlugin{
            "Leaving", {"victim", "4", "glib", "Red"}, "connected", "told: show=victim", "leave"}),
    [](const auto& state) { return std::string(state.param.name); });

// Its window goes, with one notice. Its exclusive key stays its own until the viewer takes it back.
TEST_F(FrameworkLifeTest, ViewerTakesBackTheExclusiveKeyOfAKilledPlugin) {
  const auto host = MakeHost();
  const auto neighbour = MakePlugin(*host, {"neighbour", "6", "glib", "Red"});
  const int kills = Repetitions(3, 1000);
  for (int kill = 0; kill < kills; ++kill) {
    const auto plugin = MakePlugin(*host, {"victim", "5", "exclusive", "window=112233", "Red"});
    EXPECT_SAYS(*host, "told: plugin_add=victim");
    ExpectKey(*host, "Red", *plugin);
    plugin->process().Kill();
    EXPECT_SAYS(*host, "told: plugin_remove=victim");
    host->Tell("release Red victim");
    ExpectKey(*host, "Red", *neighbour);
    ASSERT_FALSE(host->Has("told: plugin_remove"));
  }
}

TEST_F(FrameworkLifeTest, SixtyFourPluginsAtOnce) {
  const auto host = MakeHost();
  std::vector<ProgramPointer> plugins;
  for (int number = 0; number < 64; ++number) {
    const std::string text = std::to_string(number);
    plugins.push_back(StartPlugin(
        {"plugin" + text, std::to_string(number % 7), "glib", "Key" + text + ".", "Common"}));
  }
  for (int number = 0; number < 64; ++number) {
    ASSERT_SAYS(*host, "told: show=plugin" + std::to_string(number) + ' ');
  }
  for (int number = 0; number < 64; ++number) {
    ExpectKey(*host, "Key" + std::to_string(number) + ".", *plugins[static_cast<unsigned>(number)]);
  }
  host->Tell("state RESUME");
  for (const auto& plugin : plugins) EXPECT_SAYS(*plugin, "state 1");
  host->Tell("key Common");
  const auto taken = host->Take("key Common taken plugin");
  ASSERT_TRUE(taken);
  EXPECT_EQ(std::stoi(taken->substr(taken->rfind('n') + 1)) % 7, 0) << *taken;
}

// In one process, so that neither end's memory is given back by an exit.
TEST_F(FrameworkLifeTest, LivesLeaveNothingBehind) {
  const int lives = Repetitions(500, 20000);
  constexpr int kAtOnce = 100;
  // The allocator and the bus's library keep some of what was once used; it does not grow with the
  // number of lives.
  constexpr int kFirst = 200;
  constexpr long kNoGrowth = 128L * 1024;
  const auto host = MakeHost();
  const auto plugin = MakePlugin(*host, {"plugin", "5", "glib"});
  Cost plugin_before;
  Cost host_before;
  Cost plugin_after;
  Cost host_after;
  for (int lived = kAtOnce; lived <= lives; lived += kAtOnce) {
    plugin->Tell("live " + std::to_string(kAtOnce));
    plugin_after = TakeCost(*plugin, "lived");
    host->Tell("cost");
    host_after = TakeCost(*host, "cost");
    if (lived != kFirst) continue;
    plugin_before = plugin_after;
    host_before = host_after;
  }
  EXPECT_EQ(plugin_after.descriptors, plugin_before.descriptors);
  EXPECT_EQ(host_after.descriptors, host_before.descriptors);
  EXPECT_LT(plugin_after.bytes, plugin_before.bytes + kNoGrowth);
  EXPECT_LT(host_after.bytes, host_before.bytes + kNoGrowth);
  RecordProperty("figures", "growth in bytes: plug-in " +
                                std::to_string(plugin_after.bytes - plugin_before.bytes) +
                                ", host " + std::to_string(host_after.bytes - host_before.bytes));
}

// With a process and a window each, half of them killed.
TEST_F(FrameworkLifeTest, ProcessesWithWindowsLeaveNothingBehind) {
  const int lives = Repetitions(8, 500);
  constexpr long kNoGrowth = 512L * 1024;
  const auto host = MakeHost();
  Cost before;
  for (int life = 0; life < lives; ++life) {
    const auto plugin = MakePlugin(*host, {"mayfly", "5", "window=112233", "Red"});
    ASSERT_SAYS(*host, "told: plugin_add=mayfly");
    ExpectKey(*host, "Red", *plugin);
    if (life % 2 == 0) {
      plugin->process().Kill();
    } else {
      plugin->Tell("leave");
      EXPECT_EQ(plugin->process().WaitForExit(), 0);
    }
    ASSERT_SAYS(*host, "told: plugin_remove=mayfly");
    if (life != lives / 2) continue;
    host->Tell("cost");
    before = TakeCost(*host, "cost");
  }
  host->Tell("cost");
  const Cost after = TakeCost(*host, "cost");
  EXPECT_EQ(after.descriptors, before.descriptors);
  EXPECT_LT(after.bytes, before.bytes + kNoGrowth);
  RecordProperty("figures", "growth in bytes: host " + std::to_string(after.bytes - before.bytes));
}

}  // namespace
}  // namespace framework_test
