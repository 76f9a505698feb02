// Key sets, exclusive keys and dispatch of the host.
#include <cstdlib>

#include "host_fixture.h"
#include "legacy/Util.h"

namespace framework_test {
namespace {

using testing::ElementsAre;
using testing::Not;

using HostKeysTest = HostTest;

TEST_F(HostKeysTest, ReplacesTheKeysOfAPlugin) {
  MakeHost();
  Add("clock", 5);
  RegisterKeys("clock", {"Red", "Green"});
  RegisterKeys("clock", {"Blue"});
  EXPECT_EQ(Dispatch("Blue", "clock"), "clock");
  EXPECT_EQ(Dispatch("Red", ""), "untouched");
}

TEST_F(HostKeysTest, TakesOnlyEntriesThatAreKeys) {
  MakeHost();
  Add("clock", 5);
  EXPECT_TRUE(
      Say("clock", {{"register_key", "clock"}, {"Key", "Red"}, {"", "Green"}, {"key", "Blue"}}));
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 m_HostDbusMessageCallback: msg size: 5, key: register_key\n"));
  EXPECT_EQ(Dispatch("Red", ""), "untouched");
  EXPECT_EQ(Dispatch("Green", ""), "untouched");
  EXPECT_EQ(Dispatch("Blue", "clock"), "clock");
}

TEST_F(HostKeysTest, ForgetsTheKeysOfAPlugin) {
  MakeHost();
  Add("clock", 5);
  RegisterKeys("clock", {"Red"});
  EXPECT_TRUE(Say("clock", {{"clear_key", "clock"}}));
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 m_HostDbusMessageCallback: msg size: 2, key: clear_key\n"));
  EXPECT_EQ(Dispatch("Red", ""), "untouched");
}

TEST_F(HostKeysTest, LogsKeysOfUnknownPlugins) {
  MakeHost();
  Add("clock", 5);
  Say("clock", {{"register_key", "nobody"}, {"key", "Red"}});
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 m_HostDbusMessageCallback: msg size: 3, key: register_key\n",
                          "5 m_HostDbusMessageCallback: plugin clock speaks for nobody\n",
                          "6 m_RegisterKeyRepository: pHostPluginInfo is NULL\n"));
  Say("clock", {{"clear_key", "nobody"}});
  EXPECT_THAT(TakeLines().back(), "6 m_ClearKeyRepository: pPluginHost is NULL\n");
}

TEST_F(HostKeysTest, KeepsAnEndlessListOfKeysShort) {
  MakeHost();
  Add("clock", 5);
  std::vector<std::pair<std::string, std::string>> pairs = {{"register_key", "clock"}};
  for (int number = 0; number < 60000; ++number) pairs.emplace_back("key", std::to_string(number));
  pairs.insert(pairs.begin() + 1, {"key", std::string(256, 'x')});
  Say("clock", pairs);
  EXPECT_EQ(TakeLines().back(),
            "6 m_RegisterKeyRepository: 58977 keys of plugin clock left out: at most 1024 of 255 "
            "bytes are allowed\n");
  EXPECT_EQ(Dispatch("1023", "clock"), "clock");
  EXPECT_EQ(Dispatch("1024", ""), "untouched");
}

TEST_F(HostKeysTest, PassesOnWhatItDoesNotHandle) {
  MakeHost();
  Add("clock", 5);
  const std::vector<std::vector<std::pair<std::string, std::string>>> messages = {
      {{"show", "clock"}},
      {{"hide", "clock"}},
      {{"enable", "subtitles"}, {"source", "clock"}},
      {{"disable", "subtitles"}, {"source", "clock"}},
      {{"anything", "else"}, {"more", ""}},
      {{"register_key ", "clock"}},
  };
  for (const auto& pairs : messages) {
    EXPECT_TRUE(Say("clock", pairs));
    CMessage received = Message(pairs);
    received.AddValue("name", "clock");
    EXPECT_THAT(TakeLines(),
                ElementsAre("4 m_HostDbusMessageCallback: msg size: " +
                                std::to_string(received.Size()) + ", key: " + pairs[0].first + "\n",
                            "application: " + Show(received)));
  }
  CMessage empty;
  EXPECT_TRUE(Channels().from_plugin.at("clock")(empty));
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 m_HostDbusMessageCallback: msg size: 0, key: \n", "application: "));
}

TEST_F(HostKeysTest, GrabsAnExclusiveKeyAndTellsTheApplication) {
  MakeHost();
  Add("clock", 5);
  EXPECT_TRUE(
      Say("clock",
          {{"register_exclusive_key", "clock"}, {"key", "Red"}, {"no", "x"}, {"key", "Blue"}}));
  EXPECT_THAT(
      TakeLines(),
      ElementsAre("4 m_HostDbusMessageCallback: msg size: 5, key: register_exclusive_key\n",
                  "6 ProcessRegisteredExclusiveKey: key: Red, requester: clock\n",
                  "grab object 1 Red 0 0 0 1024",
                  "6 ProcessRegisteredExclusiveKey: key: Blue, requester: clock\n",
                  "grab object 1 Blue 0 0 0 1024",
                  "application: register_exclusive_key=clock|key=Red|no=x|key=Blue|name=clock"));
}

TEST_F(HostKeysTest, ReleasesAnExclusiveKeyAndTellsTheApplication) {
  MakeHost();
  Add("clock", 5);
  Say("clock", {{"register_exclusive_key", "clock"}, {"key", "Red"}});
  TakeLines();
  Say("clock", {{"unregister_exclusive_key", "clock"}, {"key", "Green"}, {"key", "Red"}});
  EXPECT_THAT(
      TakeLines(),
      ElementsAre("4 m_HostDbusMessageCallback: msg size: 4, key: unregister_exclusive_key\n",
                  "4 ProcessUnregisteredExclusiveKey: keyname = Green, requester = clock\n",
                  "4 ProcessUnregisteredExclusiveKey: keyname = Red, requester = clock\n",
                  "4 ProcessUnregisteredExclusiveKey: remove requester: clock, list size: 0\n",
                  "4 ProcessUnregisteredExclusiveKey: ungrab key Red\n", "ungrab object 1 Red 0 0",
                  "application: unregister_exclusive_key=clock|key=Green|key=Red|name=clock"));
}

TEST_F(HostKeysTest, GivesAnExclusiveKeyToTheLatestAndBack) {
  MakeHost();
  Add("a", 0);
  Add("b", 6);
  Add("c", 2);
  RegisterKeys("c", {"Red"});
  host_->ProcessRegisteredExclusiveKey("Red", "a");
  host_->ProcessRegisteredExclusiveKey("Red", "b");
  EXPECT_EQ(Dispatch("Red", "b"), "untouched");
  host_->ProcessUnregisteredExclusiveKey("Red", "b");
  EXPECT_EQ(Dispatch("Red", "a"), "untouched");
  host_->ProcessUnregisteredExclusiveKey("Red", "a");
  EXPECT_THAT(TakeLines(), testing::Contains("ungrab object 1 Red 0 0"));
  EXPECT_EQ(Dispatch("Red", "c"), "c");
}

TEST_F(HostKeysTest, MovesARepeatedRequestToTheEndAndGrabsAgain) {
  MakeHost();
  Add("a", 4);
  Add("b", 4);
  host_->ProcessRegisteredExclusiveKey("Red", "a");
  host_->ProcessRegisteredExclusiveKey("Red", "b");
  TakeLines();
  host_->ProcessRegisteredExclusiveKey("Red", "a");
  EXPECT_THAT(TakeLines(), ElementsAre("6 ProcessRegisteredExclusiveKey: key: Red, requester: a\n",
                                       "grab object 1 Red 0 0 0 1024"));
  EXPECT_EQ(Dispatch("Red", "a"), "untouched");
  host_->ProcessUnregisteredExclusiveKey("Red", "a");
  EXPECT_THAT(
      TakeLines(),
      ElementsAre("4 ProcessUnregisteredExclusiveKey: keyname = Red, requester = a\n",
                  "4 ProcessUnregisteredExclusiveKey: remove requester: a, list size: 1\n"));
  EXPECT_EQ(Dispatch("Red", "b"), "untouched");
}

TEST_F(HostKeysTest, ClearsAllExclusiveKeysOfOne) {
  MakeHost();
  Add("a", 4);
  Add("b", 4);
  host_->ProcessRegisteredExclusiveKey("Red", "a");
  host_->ProcessRegisteredExclusiveKey("Green", "b");
  host_->ProcessRegisteredExclusiveKey("Green", "a");
  TakeLines();
  Say("a", {{"clear_exclusive_key", "a"}});
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 m_HostDbusMessageCallback: msg size: 2, key: clear_exclusive_key\n",
                          "4 m_ClearExclusiveKey: remove a for key Red\n",
                          "ungrab object 1 Red 0 0", "application: clear_exclusive_key=a|name=a"));
  EXPECT_EQ(Dispatch("Green", "b"), "untouched");
  EXPECT_EQ(Dispatch("Red", ""), "untouched");
}

TEST_F(HostKeysTest, LeavesKeysOfTheViewerToIt) {
  MakeHost();
  Add("clock", 0);
  RegisterKeys("clock", {"Red"});
  host_->ProcessRegisteredExclusiveKey("Red", "kavrel");
  TakeLines();
  std::string consumer = "untouched";
  EXPECT_FALSE(host_->DispatchInput("Red", 0, 0, consumer));
  EXPECT_EQ(consumer, "untouched");
  EXPECT_THAT(TakeLines(), ElementsAre("4 DispatchInput:  plugin: kavrel, key: Red,type:0\n"));
}

TEST_F(HostKeysTest, SkipsAnOwnerThatIsNotRegistered) {
  MakeHost();
  Add("clock", 5);
  Add("gone", 5);
  RegisterKeys("clock", {"Red"});
  host_->ProcessRegisteredExclusiveKey("Red", "gone");
  EXPECT_EQ(Dispatch("Red", "gone"), "untouched");
  Channels().announced("gone", 5, false);
  EXPECT_EQ(Dispatch("Red", "clock"), "clock");
}

TEST_F(HostKeysTest, OffersAKeyByTypeThenByAge) {
  MakeHost();
  Add("six", 6);
  Add("two-old", 2);
  Add("two-new", 2);
  for (const char* name : {"six", "two-new", "two-old"}) RegisterKeys(name, {"Red"});
  EXPECT_EQ(Dispatch("Red", "two-old"), "two-old");
  Say("two-old", {{"clear_key", "two-old"}});
  EXPECT_EQ(Dispatch("Red", "two-new"), "two-new");
  Say("two-new", {{"clear_key", "two-new"}});
  EXPECT_EQ(Dispatch("Red", "six"), "six");
}

TEST_F(HostKeysTest, FindsANameInItsLowestType) {
  MakeHost();
  Add("clock", 6);
  Add("clock", 1);
  RegisterKeys("clock", {"Red"});
  Channels().announced("clock", 6, false);
  EXPECT_EQ(Dispatch("Red", "clock"), "clock");
}

TEST_F(HostKeysTest, LogsTheWayOfAKey) {
  MakeHost();
  Add("clock", 5);
  RegisterKeys("clock", {"Red"});
  std::string consumer;
  EXPECT_TRUE(host_->DispatchInput("Red", 3, 1, consumer));
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 DispatchInput:  plugin: , key: Red,type:3\n",
                          "send clock async 1 key=Red|type=released|device=PANEL_KEY|time=*",
                          "4 DispatchInput: Red key of type 3 is consumed by clock\n"));
  host_->ProcessRegisteredExclusiveKey("Red", "clock");
  TakeLines();
  EXPECT_TRUE(host_->DispatchInput("Red", 0, 0, consumer));
  EXPECT_THAT(
      TakeLines(),
      ElementsAre("4 DispatchInput:  plugin: clock, key: Red,type:0\n",
                  "send clock async 1 key=Red|type=pressed|device=IR|time=*",
                  "4 DispatchInput: Red key of type 0 is consumed by clock through grabbing\n"));
  EXPECT_FALSE(host_->DispatchInput("Blue", 0, 0, consumer));
  EXPECT_THAT(TakeLines(), ElementsAre("4 DispatchInput:  plugin: , key: Blue,type:0\n",
                                       "4 DispatchInput: no plugin consumed\n"));
}

TEST_F(HostKeysTest, CountsAFailedSendAsConsumed) {
  MakeHost();
  Add("clock", 5);
  RegisterKeys("clock", {"Red"});
  Channels().send_result = false;
  EXPECT_EQ(Dispatch("Red", "clock"), "clock");
}

TEST_F(HostKeysTest, NamesTypesAndDevices) {
  MakeHost();
  Add("clock", 5);
  RegisterKeys("clock", {"Red"});
  const std::pair<int, const char*> devices[] = {{0, "IR"}, {1, "PANEL_KEY"}, {2, "SR"},
                                                 {3, "VR"}, {4, "OTHERS"},    {-1, "OTHERS"}};
  for (const auto& [device, text] : devices) {
    std::string consumer;
    host_->DispatchInput("Red", 0, device, consumer);
    EXPECT_THAT(TakeLines()[1],
                std::string("send clock async 1 key=Red|type=pressed|device=") + text + "|time=*");
  }
}

TEST_F(HostKeysTest, LimitsExclusiveClaims) {
  MakeHost();
  Add("clock", 5);
  for (int number = 0; number < 128; ++number) {
    host_->ProcessRegisteredExclusiveKey("Red", "r" + std::to_string(number));
  }
  TakeLines();
  host_->ProcessRegisteredExclusiveKey("Red", "one-more");
  EXPECT_THAT(
      TakeLines(),
      ElementsAre("6 ProcessRegisteredExclusiveKey: key: Red, requester: one-more\n",
                  "6 ProcessRegisteredExclusiveKey: exclusive key Red refused: 1024 keys of "
                  "128 requesters each are allowed\n"));
  host_->ProcessRegisteredExclusiveKey("Red", "r5");
  EXPECT_EQ(TakeLines().back(), "grab object 1 Red 0 0 0 1024");
  for (int number = 1; number < 1024; ++number) {
    host_->ProcessRegisteredExclusiveKey("k" + std::to_string(number), "clock");
  }
  EXPECT_EQ(TakeLines().back(), "grab object 1 k1023 0 0 0 1024");
  host_->ProcessRegisteredExclusiveKey("k1024", "clock");
  EXPECT_THAT(TakeLines().back(), testing::HasSubstr("refused"));
  host_->ProcessRegisteredExclusiveKey("Red", std::string(256, 'x'));
  EXPECT_THAT(TakeLines().back(), testing::HasSubstr("refused: a name has more than 255 bytes"));
}

TEST_F(HostKeysTest, ListsPluginsAndExclusiveKeys) {
  MakeHost();
  Add("news", 6);
  Add("clock", 5);
  RegisterKeys("clock", {"Red", "Blue"});
  host_->ProcessRegisteredExclusiveKey("Menu", "clock");
  host_->ProcessRegisteredExclusiveKey("Menu", "kavrel");
  host_->ProcessRegisteredExclusiveKey("Exit", "news");
  IViewerHost& host = *host_;
  const auto* const list = dynamic_cast<const IPluginList*>(&host);
  ASSERT_NE(list, nullptr);
  const auto plugins = list->Plugins();
  ASSERT_EQ(plugins.size(), 2u);
  EXPECT_EQ(plugins[0].name, "clock");
  EXPECT_EQ(plugins[0].type, VIEWER_PLUGIN_LEAVES_LAYER_4);
  EXPECT_EQ(plugins[0].keys.Size(), 2);
  EXPECT_EQ(plugins[0].keys.GetKey(1), "Blue");
  EXPECT_EQ(plugins[1].name, "news");
  EXPECT_EQ(plugins[1].keys.Size(), 0);
  const auto keys = list->ExclusiveKeys();
  ASSERT_EQ(keys.size(), 2u);
  EXPECT_EQ(keys[0].key, "Exit");
  EXPECT_THAT(keys[0].requesters, ElementsAre("news"));
  EXPECT_EQ(keys[1].key, "Menu");
  EXPECT_THAT(keys[1].requesters, ElementsAre("clock", "kavrel"));
}

TEST_F(HostKeysTest, GrabsNothingWithoutAWindow) {
  MakeHost(nullptr, "other");
  Add("clock", 5);
  TakeLines();
  host_->ProcessRegisteredExclusiveKey("Red", "clock");
  EXPECT_THAT(TakeLines(), Not(testing::Contains(testing::HasSubstr("grab object"))));
  EXPECT_EQ(Dispatch("Red", "clock"), "untouched");
  host_->ProcessUnregisteredExclusiveKey("Red", "clock");
  EXPECT_THAT(TakeLines(), Not(testing::Contains(testing::HasSubstr("grab object"))));
  EXPECT_EQ(Dispatch("Red", ""), "untouched");
}

}  // namespace
}  // namespace framework_test
