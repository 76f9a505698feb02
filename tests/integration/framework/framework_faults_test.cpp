// A viewer, its plug-ins and their bus, stopped or killed at moments that nobody chose.
#include <csignal>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "framework_fixture.h"
#include "random_moments.h"
#include "repetitions.h"

namespace framework_test {
namespace {

using kavrel_test::RandomMoments;
using kavrel_test::Repetitions;
using kavrel_test::Times;

// Keys come in bursts of releases: a press that a stop delays is dropped for its age.
constexpr int kBurst = 20;

class FrameworkFaultsTest : public FrameworkTest {
 protected:
  static void Burst(const Program& host, const std::string& key) {
    host.Tell("keys " + std::to_string(kBurst) + ' ' + key);
  }
  static void ExpectBurst(Program& host, const std::string& key) {
    ASSERT_SAYS(host, "keys " + key + ' ' + std::to_string(kBurst));
  }
  /// A quiet plug-in counts; it has got this many keys sooner or later.
  static void ExpectCount(Program& plugin, int keys) {
    const std::string wanted = "count " + std::to_string(keys);
    for (std::optional<std::string> count; count != wanted;) {
      plugin.Tell("count");
      count = plugin.Take("count ");
      ASSERT_TRUE(count) << plugin.Everything();
      ASSERT_LE(std::stoi(count->substr(6)), keys);
    }
  }
  ProgramPointer MakeCounter(Program& host, const std::string& name, const std::string& key) const {
    auto plugin = MakePlugin(host, {name, "4", "glib", key});
    plugin->Tell("quiet");
    return plugin;
  }
  static Cost CostOf(Program& host) {
    host.Tell("cost");
    return TakeCost(host, "cost");
  }

  RandomMoments moments_;
};

// While it starts, while it gets keys: the neighbour gets its own, and the next of its name is
// served.
TEST_F(FrameworkFaultsTest, PluginKilledAtAnyMomentHarmsNobody) {
  RandomMoments moments(40000);
  const auto host = MakeHost();
  const auto neighbour = MakeCounter(*host, "neighbour", "Blue");
  const auto live_properly = [&] {
    const auto plugin = MakePlugin(*host, {"victim", "4", "glib", "Red"});
    ExpectKey(*host, "Red", *plugin);
    plugin->Tell("leave");
    ASSERT_SAYS(*plugin, "left");
    for (bool has_gone = false; !has_gone;) {
      host->Tell("key Red");
      const auto pressed = host->Take("key Red ");
      ASSERT_TRUE(pressed) << host->Everything();
      has_gone = *pressed == "key Red left -";
    }
  };
  live_properly();
  const Cost before = CostOf(*host);
  const int kills = Repetitions(5, 1000);
  for (int kill = 1; kill <= kills; ++kill) {
    const auto plugin = StartPlugin({"victim", "4", "glib", "Red"});
    moments.Wait();
    Burst(*host, "Red");
    moments_.Wait();
    plugin->process().Kill();
    Burst(*host, "Blue");
    ExpectBurst(*host, "Blue");
    ExpectCount(*neighbour, kill * kBurst);
    ASSERT_TRUE(host->Take("keys Red "));
  }
  live_properly();
  EXPECT_EQ(CostOf(*host).descriptors, before.descriptors);
}

TEST_F(FrameworkFaultsTest, PluginStoppedAtAnyMomentGetsAllKeysAndKeepsNobodyFromTheirs) {
  const auto host = MakeHost();
  const auto neighbour = MakeCounter(*host, "neighbour", "Blue");
  const auto plugin = MakeCounter(*host, "stopped", "Red");
  const int stops = Repetitions(10, 1000);
  for (int stop = 1; stop <= stops; ++stop) {
    Burst(*host, "Red");
    moments_.Wait();
    plugin->process().Signal(SIGSTOP);
    Burst(*host, "Blue");
    ExpectBurst(*host, "Red");
    ExpectBurst(*host, "Blue");
    ExpectCount(*neighbour, stop * kBurst);
    plugin->process().Signal(SIGCONT);
    ExpectCount(*plugin, stop * kBurst);
  }
}

// Both ways: keys on their way to the plug-in, messages on their way to the host.
TEST_F(FrameworkFaultsTest, HostStoppedAtAnyMomentLosesNothing) {
  const auto host = MakeHost();
  const auto plugin = MakeCounter(*host, "plugin", "Red");
  const int stops = Repetitions(10, 1000);
  for (int stop = 1; stop <= stops; ++stop) {
    const std::string number = std::to_string(stop);
    Burst(*host, "Red");
    moments_.Wait();
    host->process().Signal(SIGSTOP);
    plugin->Tell("send 1 number " + number);
    EXPECT_SAYS(*plugin, "sent 1");
    host->process().Signal(SIGCONT);
    ExpectBurst(*host, "Red");
    ASSERT_SAYS(*host, "told: number=" + number + ' ');
    ExpectCount(*plugin, stop * kBurst);
  }
}

TEST_F(FrameworkFaultsTest, BusStoppedAtAnyMomentLosesNothing) {
  const auto host = MakeHost();
  const auto plugin = MakeCounter(*host, "plugin", "Red");
  const int stops = Repetitions(10, 1000);
  for (int stop = 1; stop <= stops; ++stop) {
    const std::string number = std::to_string(stop);
    Burst(*host, "Red");
    plugin->Tell("send 1 number " + number);
    moments_.Wait();
    bus_.Stop();
    moments_.Wait();
    bus_.Continue();
    ExpectBurst(*host, "Red");
    ASSERT_SAYS(*host, "told: number=" + number + ' ');
    ExpectCount(*plugin, stop * kBurst);
  }
}

// No process dies with it; what is made again on the next one finds its partner.
TEST_F(FrameworkFaultsTest, BusKilledAtAnyMomentEndsNoProcessAndLeavesNothing) {
  const auto host = MakeHost();
  auto plugin = MakeCounter(*host, "plugin", "Red");
  Cost before;
  Times until_served;
  const int kills = Repetitions(3, 1000);
  for (int kill = 1; kill <= kills; ++kill) {
    Burst(*host, "Red");
    moments_.Wait();
    bus_.Kill();
    ASSERT_TRUE(host->Take("keys Red "));
    ASSERT_SAYS(*plugin, "disconnected");
    plugin->Tell("leave");
    ASSERT_SAYS(*plugin, "left");
    host->Tell("destroy");
    ASSERT_SAYS(*host, "destroyed");
    bus_.Start();
    const auto begin = Times::Clock::now();
    host->Tell("create");
    ASSERT_SAYS(*host, "created");
    plugin = MakeCounter(*host, "plugin", "Red");
    Burst(*host, "Red");
    ExpectBurst(*host, "Red");
    ExpectCount(*plugin, kBurst);
    until_served.AddSince(begin);
    if (kill == 2) before = CostOf(*host);
  }
  EXPECT_EQ(CostOf(*host).descriptors, before.descriptors);
  until_served.Record("new bus to a key at the plug-in");
}

// The files of the killed one do not add up, and the plug-in is served again.
TEST_F(FrameworkFaultsTest, HostKilledAtAnyMomentIsReplaced) {
  auto host = MakeHost();
  const auto plugin = MakeCounter(*host, "plugin", "Red");
  Times until_served;
  const auto files = [&] {
    const std::filesystem::recursive_directory_iterator all(directory_.path());
    return std::distance(begin(all), end(all));
  };
  const auto before = files();
  const int kills = Repetitions(3, 1000);
  for (int kill = 1; kill <= kills; ++kill) {
    Burst(*host, "Red");
    plugin->Tell("send 1 number 1");
    moments_.Wait();
    host->process().Kill();
    const auto begin = Times::Clock::now();
    ASSERT_SAYS(*plugin, "disconnected");
    host = MakeHost();
    ASSERT_SAYS(*plugin, "connected");
    ASSERT_SAYS(*host, "told: show=plugin");
    plugin->Tell("talk");
    ExpectKey(*host, "Red", *plugin);
    until_served.AddSince(begin);
    plugin->Tell("quiet");
  }
  EXPECT_EQ(files(), before);
  until_served.Record("kill to a key from the next host");
}

}  // namespace
}  // namespace framework_test
