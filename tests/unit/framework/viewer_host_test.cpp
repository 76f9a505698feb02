// Creation, destruction, registry and windows of the host.
#include "host_fixture.h"

namespace framework_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(HostTest, IsMadeInOrder) {
  host_ = std::make_unique<CViewerHost>(RootWindow(), nullptr, nullptr, "kavrel");
  EXPECT_THAT(
      TakeLines(),
      ElementsAre("aux server + kavrel", "aux server callback", "raise /tmp/kavrel-host_ready",
                  "section +", "compositor + object 1 kavrel-compositor",
                  "4 CViewerHost: pepper_efl_compositor_create done(kavrel-compositor)\n",
                  "callback + object 1 add.object", "callback + object 1 del.object", "section -"));
}

TEST_F(HostTest, LivesWithoutACompositor) {
  Toolkit().compositor_fails = true;
  host_ = std::make_unique<CViewerHost>(RootWindow(), nullptr, nullptr, "kavrel");
  EXPECT_THAT(
      TakeLines(),
      ElementsAre("aux server + kavrel", "aux server callback", "raise /tmp/kavrel-host_ready",
                  "section +", "compositor + object 1 kavrel-compositor",
                  "6 CViewerHost: pepper_efl_compositor_create failed\n", "section -"));
  host_.reset();
  EXPECT_THAT(TakeLines(), ElementsAre("aux server -"));
}

TEST_F(HostTest, OfAnotherNameHasNoCompositor) {
  host_ = std::make_unique<CViewerHost>(RootWindow(), nullptr, nullptr, "other-host");
  EXPECT_THAT(TakeLines(), ElementsAre("aux server + other-host", "aux server callback",
                                       "raise /tmp/other-host-host_ready",
                                       "6 CViewerHost: host[other-host] is not kavrel!\n"));
}

TEST_F(HostTest, WithoutAWindowHasNoCompositor) {
  host_ = std::make_unique<CViewerHost>(nullptr, nullptr, nullptr, "kavrel");
  EXPECT_THAT(TakeLines(), ElementsAre("aux server + kavrel", "aux server callback",
                                       "raise /tmp/kavrel-host_ready"));
}

TEST_F(HostTest, WithoutAnAuxiliaryChannelDoesNothing) {
  Toolkit().allocations_fail = true;
  host_ = std::make_unique<CViewerHost>(RootWindow(), nullptr, nullptr, "kavrel");
  EXPECT_THAT(TakeLines(), ElementsAre("6 CViewerHost: get host auxiliary dbus failed!\n"));
}

TEST_F(HostTest, AbortsWhenPluginsCannotBeTold) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        ShowLogOnStandardError(log_);
        Toolkit().raise_result = -1;
        CViewerHost(RootWindow(), nullptr, nullptr, "kavrel");
      },
      "ViewerHost.cpp CViewerHost: failed to send event, host: kavrel not ready, may cause plugin "
      "side deadlock\n.*ViewerHost.cpp CViewerHost: Assertion failed: 0");
}

TEST_F(HostTest, IsDestroyedInOrder) {
  MakeHost();
  Add("low", 0);
  Add("high", 6);
  Appear(10, "high");
  host_->ProcessRegisteredExclusiveKey("Red", "high");
  TakeLines();
  host_.reset();
  EXPECT_THAT(
      TakeLines(),
      ElementsAre("callback - object 1 add.object", "callback - object 1 del.object",
                  "compositor -", "aux server -", "channel - kavrel low", "channel - kavrel high"));
}

TEST_F(HostTest, AddsAPlugin) {
  MakeHost();
  EXPECT_TRUE(Channels().announced("clock", 5, true));
  EXPECT_THAT(TakeLines(), ElementsAre("4 m_AuxDbusSignalCallback: notify plugin add or remove\n",
                                       "4 m_AddPlugin: add plugin, type: 5, name: clock\n",
                                       "host end + kavrel clock", "host end callback clock"));
}

TEST_F(HostTest, KeepsTheFirstChannelOfAName) {
  MakeHost();
  Add("clock", 5);
  Channels().announced("clock", 5, true);
  EXPECT_THAT(TakeLines(), ElementsAre("4 m_AuxDbusSignalCallback: notify plugin add or remove\n",
                                       "4 m_AddPlugin: add plugin, type: 5, name: clock\n",
                                       "4 m_AddPlugin: host dbus for clock already exists\n"));
  Channels().announced("clock", 4, true);
  EXPECT_THAT(TakeLines(), testing::Contains("host end + kavrel clock"));
}

TEST_F(HostTest, RefusesUnknownTypes) {
  MakeHost();
  for (const int type : {7, -1, 1000}) {
    Channels().announced("clock", type, true);
    EXPECT_THAT(TakeLines(),
                ElementsAre("4 m_AuxDbusSignalCallback: notify plugin add or remove\n",
                            "6 m_AddPlugin: type " + std::to_string(type) + " is out of range\n"));
  }
}

TEST_F(HostTest, RemovesOnlyTheTypesThatLeave) {
  MakeHost();
  for (int type = 0; type <= 6; ++type) {
    const std::string name = "plugin-" + std::to_string(type);
    Add(name.c_str(), type);
    RegisterKeys(name, {name});
    Channels().announced(name.c_str(), type, false);
    const std::string removing =
        "4 m_RemovePlugin: remove plugin, type: " + std::to_string(type) + ", name: " + name + "\n";
    if (type < 4) {
      EXPECT_THAT(
          TakeLines(),
          ElementsAre("4 m_AuxDbusSignalCallback: notify plugin add or remove\n", removing,
                      "4 m_RemovePlugin: type " + std::to_string(type) + " is out of range\n"));
      EXPECT_EQ(Dispatch(name, name), name);
    } else {
      EXPECT_THAT(TakeLines(),
                  ElementsAre("4 m_AuxDbusSignalCallback: notify plugin add or remove\n", removing,
                              "channel - kavrel " + name));
      EXPECT_EQ(Dispatch(name, ""), "untouched");
    }
  }
}

TEST_F(HostTest, RemovesNobodyElse) {
  MakeHost();
  Channels().announced("clock", 5, false);
  EXPECT_THAT(TakeLines(),
              testing::Contains("4 m_RemovePlugin: plugin of type 5 does not exist\n"));
  Add("other", 5);
  Channels().announced("clock", 5, false);
  EXPECT_THAT(TakeLines(), ElementsAre("4 m_AuxDbusSignalCallback: notify plugin add or remove\n",
                                       "4 m_RemovePlugin: remove plugin, type: 5, name: clock\n"));
}

TEST_F(HostTest, IgnoresCallbacksWithoutHost) {
  MakeHost();
  Add("clock", 5);
  EXPECT_FALSE(Channels().announced_function("clock", 5, true, nullptr));
  EXPECT_THAT(TakeLines(), ElementsAre("4 m_AuxDbusSignalCallback: notify plugin add or remove\n"));
  CMessage message = Message({{"show", "clock"}});
  EXPECT_FALSE(Channels().from_plugin_function(message, nullptr));
  EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(HostTest, HoldsNoMoreThan96Plugins) {
  MakeHost();
  for (int number = 0; number < 96; ++number) {
    Add(("plugin-" + std::to_string(number)).c_str(), number % 7);
  }
  Channels().announced("one-more", 3, true);
  EXPECT_THAT(TakeLines().back(),
              "6 m_AddPlugin: plugin one-more of type 3 refused: 96 are registered, no more are "
              "allowed\n");
  Channels().announced("plugin-4", 4, false);
  Channels().announced("one-more", 3, true);
  EXPECT_THAT(TakeLines().back(), "host end callback one-more");
}

TEST_F(HostTest, RefusesANameTooLongForTheBus) {
  MakeHost();
  Channels().announced(std::string(256, 'x').c_str(), 5, true);
  EXPECT_THAT(TakeLines().back(),
              "6 m_AddPlugin: plugin refused: its name has 256 bytes, at most 255 are allowed\n");
}

TEST_F(HostTest, LayersAndShowsAWindow) {
  struct Case {
    int type;
    const char* title;
    std::vector<std::string> layer;
  };
  for (const Case& one :
       {Case{0, "zero", {}}, Case{3, "three", {}}, Case{4, "four", {}},
        Case{5, "five", {"layer object 10 4"}}, Case{5, "hbbtv", {"layer object 10 7"}},
        Case{6, "six", {"layer object 10 101"}}, Case{6, "hbbtv", {"layer object 10 101"}}}) {
    SCOPED_TRACE(one.title);
    MakeHost();
    Add(one.title, one.type);
    Appear(10, one.title);
    std::vector<std::string> expected = {
        std::string("4 m_AddObjectCB: [PEPPER] [_add_object_cb] title: ") + one.title + "\n"};
    expected.insert(expected.end(), one.layer.begin(), one.layer.end());
    expected.push_back("show object 10");
    expected.push_back(std::string("application: plugin_add=") + one.title);
    EXPECT_EQ(TakeLines(), expected);
    EXPECT_EQ(host_->GetPluginObject(one.title), Object(10));
  }
}

TEST_F(HostTest, ShowsAWindowOfNobody) {
  MakeHost();
  Toolkit().app_ids[Object(10)] = "program";
  Appear(10, "stranger");
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 m_AddObjectCB: [PEPPER] [_add_object_cb] title: stranger\n",
                          "4 m_AddObjectCB: [PEPPER] [_add_object_cb] app id: program \n",
                          "6 m_SetProperties: Plugin stranger cannot be found\n", "show object 10",
                          "application: plugin_add=stranger"));
  EXPECT_EQ(host_->GetPluginObject("stranger"), Object(10));
}

TEST_F(HostTest, LayersAWindowThatCameBeforeItsPlugin) {
  struct Case {
    int type;
    const char* title;
    std::vector<std::string> layer;
  };
  for (const Case& one :
       {Case{0, "zero", {}}, Case{4, "four", {}}, Case{5, "five", {"layer object 10 4"}},
        Case{5, "hbbtv", {"layer object 10 7"}}, Case{6, "six", {"layer object 10 101"}}}) {
    SCOPED_TRACE(one.title);
    MakeHost();
    Appear(10, one.title);
    Appear(11, "another");
    TakeLines();
    Channels().announced(one.title, one.type, true);
    const std::string title = one.title;
    std::vector<std::string> expected = {
        "4 m_AuxDbusSignalCallback: notify plugin add or remove\n",
        "4 m_AddPlugin: add plugin, type: " + std::to_string(one.type) + ", name: " + title + "\n",
        "host end + kavrel " + title, "host end callback " + title};
    expected.insert(expected.end(), one.layer.begin(), one.layer.end());
    EXPECT_EQ(TakeLines(), expected);
  }
}

TEST_F(HostTest, LeavesTheLayerOfAWindowWhosePluginIsKnown) {
  MakeHost();
  Add("clock", 6);
  Appear(10, "clock");
  TakeLines();
  for (const int type : {6, 5, 0}) {
    Channels().announced("clock", type, true);
    EXPECT_THAT(TakeLines(), testing::Not(testing::Contains(HasSubstr("layer object"))));
  }
}

TEST_F(HostTest, IgnoresASecondWindowOfATitle) {
  MakeHost();
  Add("clock", 5);
  Appear(10, "clock");
  TakeLines();
  Appear(11, "clock");
  EXPECT_THAT(TakeLines(), ElementsAre("4 m_AddObjectCB: [PEPPER] [_add_object_cb] title: clock\n",
                                       "4 m_AddObjectCB: object has exist\n"));
  EXPECT_EQ(host_->GetPluginObject("clock"), Object(10));
}

TEST_F(HostTest, IgnoresAWindowWithoutTitle) {
  MakeHost();
  Toolkit().Emit("add.object", Object(10));
  EXPECT_THAT(TakeLines(),
              ElementsAre("6 m_AddObjectCB: pepper_efl_object_title_get() returns NULL\n"));
}

TEST_F(HostTest, CutsLongTitlesInTheLog) {
  MakeHost();
  const std::string title(5000, 'x');
  Appear(10, title.c_str());
  for (const std::string& line : TakeLines()) {
    if (line.starts_with("application")) continue;
    EXPECT_LT(line.size(), 400U);
  }
  EXPECT_EQ(host_->GetPluginObject(title), Object(10));
}

TEST_F(HostTest, ForgetsAWindowThatGoes) {
  MakeHost();
  Appear(10, "clock");
  TakeLines();
  Toolkit().Emit("del.object", Object(10));
  EXPECT_THAT(TakeLines(), ElementsAre("4 m_DelObjectCB: [PEPPER] obj:0x1, evas_object:0xa\n",
                                       "4 m_DelObjectCB: remove service object node (clock)\n",
                                       "application: plugin_remove=clock", "delete object 10"));
  EXPECT_EQ(host_->GetPluginObject("clock"), nullptr);
}

TEST_F(HostTest, DeletesAlsoAWindowItDoesNotKnow) {
  MakeHost();
  Appear(10, "clock");
  TakeLines();
  Toolkit().Emit("del.object", Object(11));
  EXPECT_THAT(TakeLines(), ElementsAre("4 m_DelObjectCB: [PEPPER] obj:0x1, evas_object:0xb\n",
                                       "delete object 11"));
  Toolkit().Emit("del.object", nullptr);
  EXPECT_THAT(TakeLines(), ElementsAre("6 m_DelObjectCB: no event info, return\n"));
  EXPECT_EQ(host_->GetPluginObject("clock"), Object(10));
}

TEST_F(HostTest, WorksWithoutAnApplicationsCallback) {
  MakeHost(RootWindow(), "kavrel", nullptr);
  Add("clock", 5);
  Appear(10, "clock");
  Toolkit().Emit("del.object", Object(10));
  EXPECT_TRUE(Say("clock", {{"show", "clock"}}));
  EXPECT_EQ(host_->GetPluginObject("clock"), nullptr);
}

TEST_F(HostTest, MayBeDestroyedByTheNoticeOfANewWindow) {
  MakeHost();
  destroy_in_callback_ = true;
  Appear(10, "clock");
  EXPECT_EQ(host_, nullptr);
}

TEST_F(HostTest, MayBeDestroyedByTheNoticeOfAWindowThatGoes) {
  MakeHost();
  Appear(10, "clock");
  destroy_in_callback_ = true;
  Toolkit().Emit("del.object", Object(10));
  EXPECT_EQ(host_, nullptr);
  EXPECT_EQ(TakeLines().back(), "delete object 10");
}

TEST_F(HostTest, MayBeDestroyedByAMessage) {
  MakeHost();
  Add("clock", 5);
  destroy_in_callback_ = true;
  EXPECT_TRUE(Say("clock", {{"register_exclusive_key", "clock"}, {"key", "Red"}}));
  EXPECT_EQ(host_, nullptr);
}

TEST_F(HostTest, AbortsOnCallbacksThatMissTheirData) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto emit = [this](const char* event, bool with_host, Evas_Object* object) {
    ShowLogOnStandardError(log_);
    MakeHost();
    Toolkit().titles[Object(10)] = "clock";
    if (!with_host) Toolkit().callbacks[event].data = nullptr;
    Toolkit().Emit(event, object);
  };
  EXPECT_DEATH(emit("add.object", true, nullptr),
               "ViewerHost.cpp m_AddObjectCB: Assertion failed: no event info");
  EXPECT_DEATH(emit("add.object", false, Object(10)),
               "ViewerHost.cpp m_AddObjectCB: Assertion failed: t_pluginType is NULL");
  EXPECT_DEATH(emit("del.object", false, Object(10)),
               "ViewerHost.cpp m_DelObjectCB: Assertion failed: data is NULL");
}

TEST_F(HostTest, SendsTheApplicationsMessages) {
  MakeHost();
  Add("clock", 5);
  CMessage message = Message({{"page", "100"}});
  EXPECT_EQ(host_->SendMessage("clock", message, 0), 1);
  EXPECT_THAT(TakeLines(), ElementsAre("send clock async 0 page=100"));
  Channels().send_result = false;
  EXPECT_EQ(host_->SendMessage("clock", message, 1), 0);
  EXPECT_THAT(TakeLines(), ElementsAre("send clock async 1 page=100"));
  EXPECT_EQ(host_->SendMessage("unknown", message, 1), 0);
  EXPECT_THAT(TakeLines(), ElementsAre("4 SendMessage: Plugin unknown cannot be found\n"));
}

TEST_F(HostTest, TellsEveryPluginTheState) {
  MakeHost();
  Add("later", 6);
  Add("first", 1);
  Add("second", 1);
  host_->BroadcastViewerState("PAUSE");
  EXPECT_THAT(TakeLines(), ElementsAre("send first async 1 state=PAUSE",
                                       "4 BroadcastViewerState: send msg PAUSE to first,\n",
                                       "send second async 1 state=PAUSE",
                                       "4 BroadcastViewerState: send msg PAUSE to second,\n",
                                       "send later async 1 state=PAUSE",
                                       "4 BroadcastViewerState: send msg PAUSE to later,\n"));
}

}  // namespace
}  // namespace framework_test
