// What goes between a viewer and its plug-ins: keys, states, messages.
#include <csignal>

#include "framework_fixture.h"

namespace framework_test {
namespace {

TEST_F(FrameworkTest, CarriesKeysBothWays) {
  const auto host = MakeHost();
  const auto plugin = MakePlugin(*host, {"clock", "5", "Red"});
  host->Tell("key Red");
  EXPECT_SAYS(*host, "key Red taken clock");
  EXPECT_SAYS(*plugin, "pressed Red 1");
  host->Tell("key Red released 1");
  EXPECT_SAYS(*plugin, "released Red 3");
  host->Tell("key Red released 3");
  EXPECT_SAYS(*plugin, "released Red 2");
  host->Tell("key Red pressed 0");
  EXPECT_SAYS(*plugin, "pressed Red 0");
  host->Tell("key Red pressed 77");
  EXPECT_SAYS(*plugin, "pressed Red 4");
  ExpectNobodyTakes(*host, "Blue");
}

TEST_F(FrameworkTest, ReplacesAndForgetsKeys) {
  const auto host = MakeHost();
  const auto plugin = MakePlugin(*host, {"clock", "5", "Red", "Green"});
  plugin->Tell("keys Blue");
  plugin->Tell("hide");
  EXPECT_SAYS(*host, "told: hide=clock name=clock");
  ExpectNobodyTakes(*host, "Red");
  ExpectKey(*host, "Blue", *plugin);
  plugin->Tell("clear");
  plugin->Tell("hide");
  EXPECT_SAYS(*host, "told: hide=clock name=clock");
  ExpectNobodyTakes(*host, "Blue");
}

TEST_F(FrameworkTest, OffersAKeyByTypeThenByAge) {
  const auto host = MakeHost();
  const auto high = MakePlugin(*host, {"high", "6", "glib", "Red"});
  const auto older = MakePlugin(*host, {"older", "2", "glib", "Red"});
  const auto newer = MakePlugin(*host, {"newer", "2", "glib", "Red"});
  ExpectKey(*host, "Red", *older);
  older->Tell("clear");
  older->Tell("hide");
  EXPECT_SAYS(*host, "told: hide=older");
  ExpectKey(*host, "Red", *newer);
  newer->Tell("clear");
  newer->Tell("hide");
  EXPECT_SAYS(*host, "told: hide=newer");
  ExpectKey(*host, "Red", *high);
}

TEST_F(FrameworkTest, GivesExclusiveKeysToTheLatestAndBack) {
  const auto host = MakeHost();
  const auto wants = MakePlugin(*host, {"wants", "1", "glib", "Red"});
  const auto first = MakePlugin(*host, {"first", "4", "glib", "exclusive", "Red"});
  const auto second = MakePlugin(*host, {"second", "4", "glib", "exclusive", "Red"});
  ExpectKey(*host, "Red", *second);
  host->Tell("grab Red");
  ExpectNobodyTakes(*host, "Red");
  host->Tell("release Red");
  ExpectKey(*host, "Red", *second);
  second->Tell("unexclusive Red");
  EXPECT_SAYS(*host, "told: unregister_exclusive_key=second key=Red");
  ExpectKey(*host, "Red", *first);
  first->Tell("exclusive Blue");
  EXPECT_SAYS(*host, "told: register_exclusive_key=first key=Blue");
  ExpectKey(*host, "Blue", *first);
  first->Tell("clearexclusive");
  EXPECT_SAYS(*host, "told: clear_exclusive_key=first");
  ExpectNobodyTakes(*host, "Blue");
  ExpectKey(*host, "Red", *wants);
}

TEST_F(FrameworkTest, TellsEveryPluginTheViewersState) {
  const auto host = MakeHost();
  std::vector<ProgramPointer> plugins;
  for (const char* type : {"0", "5", "6"}) {
    plugins.push_back(MakePlugin(*host, {std::string("plugin") + type, type, "glib"}));
  }
  const std::pair<const char*, const char*> states[] = {
      {"BACKGROUND", "0"}, {"RESUME", "1"}, {"RESUME_FOCUS", "2"}, {"PAUSE", "3"}, {"ELSE", "-1"}};
  for (const auto& [state, code] : states) {
    host->Tell(std::string("state ") + state);
    for (const auto& plugin : plugins) EXPECT_SAYS(*plugin, std::string("state ") + code);
  }
}

TEST_F(FrameworkTest, CarriesMessagesBothWays) {
  const auto host = MakeHost();
  const auto plugin = MakePlugin(*host, {"clock", "5", "glib"});
  for (const char* way : {"0", "1"}) {
    host->Tell(std::string("send clock ") + way + " page 100");
    EXPECT_SAYS(*host, "sent 1");
    EXPECT_SAYS(*plugin, "message page=100");
    plugin->Tell(std::string("send ") + way + " volume 7");
    EXPECT_SAYS(*plugin, "sent 1");
    EXPECT_SAYS(*host, "told: volume=7 name=clock");
  }
  host->Tell("send nobody 1 page 100");
  EXPECT_SAYS(*host, "sent 0");
  plugin->Tell("enable subtitles");
  EXPECT_SAYS(*host, "told: enable=subtitles source=clock name=clock");
  plugin->Tell("disable subtitles");
  EXPECT_SAYS(*host, "told: disable=subtitles source=clock name=clock");
}

TEST_F(FrameworkTest, ServesAPluginWithoutWindowOnGlibsLoop) {
  const auto host = MakeHost();
  const auto plugin = MakePlugin(*host, {"clock", "5", "glib", "Red"});
  ExpectKey(*host, "Red", *plugin);
}

// The plug-in is there before: it must not find half a host.
TEST_F(FrameworkTest, ServesAHostThatASecondThreadHasMade) {
  const auto plugin = StartPlugin({"clock", "5", "window=112233", "Red"});
  EXPECT_SAYS(*plugin, "waiting");
  const auto host = MakeHost({"thread"});
  EXPECT_SAYS(*host, "told: show=clock");
  ExpectKey(*host, "Red", *plugin);
  EXPECT_SAYS(*host, "told: plugin_add=clock");
  ExpectPixel(*host, 100, 100, "112233");
  host->Tell("quit");
  EXPECT_SAYS(*host, "ended");
}

// Presses are not lost to others, and calls that nobody answers do not add up: the bus would refuse
// the 129th. Releases: presses would be dropped for their age.
TEST_F(FrameworkTest, LosesNothingToAFrozenPlugin) {
  const auto host = MakeHost();
  const auto frozen = MakePlugin(*host, {"frozen", "4", "glib", "Red"});
  std::vector<ProgramPointer> others;
  for (const char* key : {"Green", "Yellow", "Blue"}) {
    others.push_back(MakePlugin(*host, {key, "4", "glib", key}));
  }
  frozen->process().Signal(SIGSTOP);
  for (int round = 0; round < 10; ++round) {
    host->Tell("keys 100 Red");
    host->Tell("state PAUSE");
    for (const char* key : {"Green", "Yellow", "Blue"}) host->Tell(std::string("key ") + key);
  }
  for (const auto& other : others) {
    for (int round = 0; round < 10; ++round) {
      EXPECT_SAYS(*other, "pressed ");
      EXPECT_SAYS(*other, "state 3");
    }
  }
  for (int round = 0; round < 10; ++round) EXPECT_SAYS(*host, "keys Red 100");
  frozen->process().Signal(SIGCONT);
  for (int round = 0; round < 10; ++round) EXPECT_SAYS(*frozen, "state 3");
  frozen->Tell("count");
  EXPECT_SAYS(*frozen, "count 1000");
  ExpectKey(*host, "Red", *frozen);
}

// The exception that comes of it leaves the plug-in's callback: nobody but the viewer sends keys.
TEST_F(FrameworkTest, EndsAPluginByAKeyWhoseTimeIsNoNumber) {
  const auto host = MakeHost();
  const auto other = MakePlugin(*host, {"other", "5", "glib", "Blue"});
  const auto plugin = MakePlugin(*host, {"clock", "5", "glib"});
  host->Tell("send clock 1 key Red type released device IR time 18446744073709551615");
  EXPECT_SAYS(*plugin, "released Red 0");
  host->Tell("send clock 1 key Red type released device IR time soon");
  EXPECT_EQ(plugin->process().WaitForExit(), -SIGABRT);
  ExpectKey(*host, "Blue", *other);
}

// It shuts EFL down as a program should, and EFL leaves a lot behind: no leak checker there.
TEST_F(FrameworkTest, ShowsTheExampleInTheDocuments) {
  const auto host = MakeHost();
  const auto example = Start({KAVREL_EXAMPLE_PLUGIN}, {{"ASAN_OPTIONS", "detect_leaks=0"}});
  EXPECT_SAYS(*host, "told: plugin_add=keys");
  EXPECT_SAYS(*host, "told: show=keys");
  host->Tell("key XF86Red");
  EXPECT_SAYS(*host, "key XF86Red taken keys");
  EXPECT_SAYS(*example, "XF86Red");
  example->process().Signal(SIGTERM);
  EXPECT_EQ(example->process().WaitForExit(), 0);
  EXPECT_SAYS(*host, "told: plugin_remove=keys");
  ExpectNobodyTakes(*host, "XF86Red");
}

}  // namespace
}  // namespace framework_test
