// The plug-in: what its operations send, and what the host's messages call.
#include <stdexcept>

#include "fake_channel.h"
#include "fake_toolkit.h"
#include "journal.h"
#include "legacy/Util.h"
#include "legacy/ViewerPlugin.h"

namespace framework_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Listeners : IKeyInputListener, IViewerStateChangeListener, IViewerMessageListener {
  bool OnKeyPressed(const std::string& keyName, int device) override {
    Note("pressed " + keyName + ' ' + std::to_string(device));
    return answer;
  }
  bool OnKeyReleased(const std::string& keyName, int device) override {
    Note("released " + keyName + ' ' + std::to_string(device));
    return answer;
  }
  void OnViewerStateChanged(int state) override { Note("state " + std::to_string(state)); }
  void OnViewerMessage(CMessage& message) override { Note("message " + Show(message)); }

  bool answer = true;
};

class PluginTest : public JournalTest {
 protected:
  PluginTest() {
    Toolkit() = {};
    Channels() = {};
  }
  ~PluginTest() override { plugin_.reset(); }

  void Make(const char* host = "kavrel") {
    plugin_ = std::make_unique<CViewerPlugin>(VIEWER_PLUGIN_LEAVES_LAYER_4, "clock", host);
    TakeLines();
  }

  void Listen() {
    plugin_->RegisterKeyInputListener(&listeners_);
    plugin_->RegisterViewerStateChangeListener(&listeners_);
    plugin_->RegisterViewerMessageListener(&listeners_);
  }

  bool Hear(const std::vector<std::pair<std::string, std::string>>& pairs) {
    CMessage message = Message(pairs);
    return Channels().from_host.at("clock")(message);
  }

  static std::string Ago(long long milliseconds) {
    return std::to_string(static_cast<long long>(util::GetCurrentTimeInMillis()) - milliseconds);
  }

  /// What the listeners were told of a key event.
  std::vector<std::string> HearKey(const char* type, const std::string& time,
                                   const char* device = "IR") {
    TakeLines();
    Hear({{"key", "Red"}, {"type", type}, {"device", device}, {"time", time}});
    std::vector<std::string> told;
    for (std::string& line : TakeLines()) {
      if (!line.starts_with("4 ")) told.push_back(line);
    }
    return told;
  }

  Listeners listeners_;
  std::unique_ptr<CViewerPlugin> plugin_;
};

TEST_F(PluginTest, IsMadeAndDestroyedInOrder) {
  plugin_ = std::make_unique<CViewerPlugin>(VIEWER_PLUGIN_LEAVES_LAYER_4, "clock", "kavrel");
  EXPECT_THAT(TakeLines(),
              ElementsAre("aux client + kavrel", "aux client watch", "plug-in end + kavrel clock",
                          "announce clock 5 true", "plug-in end callback clock"));
  plugin_.reset();
  EXPECT_THAT(TakeLines(), ElementsAre("aux client watch ends", "announce clock 5 false",
                                       "aux client -", "channel - kavrel clock"));
}

TEST_F(PluginTest, StopsWithoutAnAuxiliaryChannel) {
  Toolkit().allocations_fail = true;
  plugin_ = std::make_unique<CViewerPlugin>(VIEWER_PLUGIN_LEAVES, "clock", "kavrel");
  Toolkit().allocations_fail = false;
  EXPECT_THAT(TakeLines(), ElementsAre("6 CViewerPlugin: Failed to create auxiliary dbus for "
                                       "plugin: clock!\n"));
  EXPECT_FALSE(plugin_->FlagConnection());
  plugin_->SetConnectionChangedCallback(nullptr, nullptr, nullptr);
  plugin_.reset();
  EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(PluginTest, SendsItsWishes) {
  Make();
  plugin_->Show();
  plugin_->Hide();
  plugin_->Enable("subtitles");
  plugin_->Disable("subtitles");
  EXPECT_TRUE(plugin_->ClearKeyRepository());
  EXPECT_TRUE(plugin_->ClearExclusiveKeyRepository());
  EXPECT_THAT(
      TakeLines(),
      ElementsAre(
          "is done /tmp/kavrel-host_ready", "send clock async 1 show=clock",
          "is done /tmp/kavrel-host_ready", "send clock async 1 hide=clock",
          "is done /tmp/kavrel-host_ready", "send clock async 1 enable=subtitles|source=clock",
          "is done /tmp/kavrel-host_ready", "send clock async 1 disable=subtitles|source=clock",
          "is done /tmp/kavrel-host_ready", "send clock async 1 clear_key=clock",
          "is done /tmp/kavrel-host_ready", "send clock async 1 clear_exclusive_key=clock"));
}

TEST_F(PluginTest, SendsKeySets) {
  Make();
  CKeyRepository keys;
  keys.AddKey("Red");
  keys.AddKey("Blue");
  EXPECT_TRUE(plugin_->RegsiterKeyRepository(keys));
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 m_SendRepositoryKey: nSize = 2\n", "is done /tmp/kavrel-host_ready",
                          "send clock async 1 register_key=clock|key=Red|key=Blue"));
  EXPECT_TRUE(plugin_->RegisterExclusiveKeyRepository(keys));
  EXPECT_EQ(TakeLines().back(), "send clock async 1 register_exclusive_key=clock|key=Red|key=Blue");
  Channels().send_result = false;
  EXPECT_FALSE(plugin_->UnregisterExclusiveKeyRepository(keys));
  EXPECT_EQ(TakeLines().back(),
            "send clock async 1 unregister_exclusive_key=clock|key=Red|key=Blue");
}

TEST_F(PluginTest, SendsNoEmptyKeySet) {
  Make();
  CKeyRepository none;
  EXPECT_FALSE(plugin_->RegsiterKeyRepository(none));
  EXPECT_THAT(TakeLines(), ElementsAre("4 m_SendRepositoryKey: nSize = 0\n",
                                       "6 m_SendRepositoryKey: Size is 0\n"));
}

TEST_F(PluginTest, SendsMessagesEitherWay) {
  Make();
  CMessage message = Message({{"page", "100"}});
  EXPECT_TRUE(plugin_->SendMessage(message, 0));
  EXPECT_TRUE(plugin_->SendMessage(message, 5));
  EXPECT_THAT(TakeLines(),
              ElementsAre("is done /tmp/kavrel-host_ready", "send clock async 0 page=100",
                          "is done /tmp/kavrel-host_ready", "send clock async 5 page=100"));
}

TEST_F(PluginTest, SendsNothingBeforeTheHostIsThere) {
  for (const int result : {0, -5}) {
    Make();
    Toolkit().is_done = result;
    EXPECT_FALSE(plugin_->ClearKeyRepository());
    EXPECT_THAT(TakeLines(), ElementsAre("is done /tmp/kavrel-host_ready",
                                         "6 SendMessage: host: kavrel is not ready\n"));
  }
}

TEST_F(PluginTest, SendsNothingBeforeTheChannelIsUp) {
  Channels().ready = false;
  Make("my-host");
  EXPECT_FALSE(plugin_->FlagConnection());
  EXPECT_FALSE(plugin_->ClearKeyRepository());
  EXPECT_THAT(TakeLines(), ElementsAre("is done /tmp/my-host-host_ready",
                                       "6 SendMessage: connection not set\n"));
}

TEST_F(PluginTest, DropsLatePressesButNoReleases) {
  Make();
  Listen();
  EXPECT_THAT(HearKey("pressed", Ago(0)), ElementsAre("pressed Red 0"));
  EXPECT_THAT(HearKey("pressed", Ago(5000)), IsEmpty());
  EXPECT_THAT(HearKey("pressed", Ago(-60000)), IsEmpty());
  EXPECT_THAT(HearKey("pressed", "-1"), IsEmpty());
  EXPECT_THAT(HearKey("released", Ago(5000)), ElementsAre("released Red 0"));
  EXPECT_THAT(HearKey("released", Ago(-60000)), ElementsAre("released Red 0"));
  EXPECT_THAT(HearKey("held", Ago(0)), IsEmpty());
}

// The clock goes on while the event is handled: whichever difference was logged decides.
TEST_F(PluginTest, DropsPressesOverOneSecondOld) {
  Make();
  Listen();
  bool delivered = false;
  bool dropped = false;
  for (int age = 990; age <= 1001; ++age) {
    TakeLines();
    EXPECT_TRUE(Hear({{"key", "Red"}, {"type", "pressed"}, {"time", Ago(age)}}));
    const std::vector<std::string> lines = TakeLines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "4 HandleMessage: key\n");
    unsigned long long difference = 0;
    ASSERT_EQ(std::sscanf(lines[1].c_str(), "4 HandleMessage: timediff : %llu\n", &difference), 1);
    EXPECT_EQ(lines[2], difference <= 1000 ? "pressed Red -1"
                                           : "4 HandleMessage: skipping key, keytype: pressed\n");
    delivered = delivered || difference <= 1000;
    dropped = dropped || difference > 1000;
  }
  EXPECT_TRUE(delivered);
  EXPECT_TRUE(dropped);
}

TEST_F(PluginTest, AnswersWhatTheListenerAnswers) {
  Make();
  Listen();
  for (const bool answer : {true, false}) {
    listeners_.answer = answer;
    EXPECT_EQ(Hear({{"key", "Red"}, {"type", "pressed"}, {"time", Ago(0)}}), answer);
    EXPECT_EQ(Hear({{"key", "Red"}, {"type", "released"}, {"time", Ago(0)}}), answer);
  }
  listeners_.answer = true;
  EXPECT_FALSE(Hear({{"key", "Red"}, {"type", "other"}, {"time", Ago(0)}}));
}

TEST_F(PluginTest, TranslatesDevices) {
  Make();
  Listen();
  const std::pair<const char*, int> devices[] = {
      {"IR", 0}, {"SR", 1}, {"VR", 2}, {"PANEL_KEY", 3}, {"OTHERS", 4}, {"ir", 4}, {"", -1}};
  for (const auto& [text, code] : devices) {
    EXPECT_THAT(HearKey("released", Ago(0), text),
                ElementsAre("released Red " + std::to_string(code)));
  }
}

TEST_F(PluginTest, ThrowsOnATimeThatIsNone) {
  Make();
  Listen();
  const auto thrown = [this](const std::string& time) -> std::string {
    try {
      Hear({{"key", "Red"}, {"type", "pressed"}, {"time", time}});
    } catch (const std::invalid_argument& error) {
      return std::string("invalid ") + error.what();
    } catch (const std::out_of_range& error) {
      return std::string("range ") + error.what();
    }
    return "nothing";
  };
  EXPECT_EQ(thrown("soon"), "invalid stoull");
  EXPECT_EQ(thrown(""), "invalid stoull");
  EXPECT_EQ(thrown("18446744073709551616"), "range stoull");
  EXPECT_EQ(thrown("  12 o'clock"), "nothing");
}

TEST_F(PluginTest, TranslatesStates) {
  Make();
  Listen();
  const std::pair<const char*, int> states[] = {{"BACKGROUND", 0},   {"RESUME", 1},
                                                {"RESUME_FOCUS", 2}, {"PAUSE", 3},
                                                {"pause", -1},       {"anything", -1}};
  for (const auto& [text, code] : states) {
    TakeLines();
    EXPECT_TRUE(Hear({{"state", text}}));
    EXPECT_THAT(TakeLines(), ElementsAre("4 HandleMessage: viewer state change\n",
                                         "state " + std::to_string(code)));
  }
}

TEST_F(PluginTest, GivesTheRestToTheMessageListener) {
  Make();
  Listen();
  EXPECT_TRUE(Hear({{"page", "100"}, {"state", ""}}));
  EXPECT_THAT(TakeLines(), ElementsAre("4 HandleMessage: viewer msg\n", "message page=100|state="));
  plugin_->UnregisterKeyInputListener();
  plugin_->UnregisterViewerStateChangeListener();
  EXPECT_TRUE(Hear({{"key", "Red"}, {"time", "no number"}, {"state", "PAUSE"}}));
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 HandleMessage: viewer msg\n", "message key=Red|time=*|state=PAUSE"));
  plugin_->UnregisterViewerMessageListener();
  EXPECT_TRUE(Hear({{"page", "100"}}));
  EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(PluginTest, PrefersTheKeyOverTheState) {
  Make();
  Listen();
  Hear({{"state", "PAUSE"}, {"key", "Red"}, {"type", "released"}, {"time", Ago(0)}});
  EXPECT_EQ(TakeLines().back(), "released Red -1");
}

TEST_F(PluginTest, OfAnotherHostGetsOnlyKeys) {
  Make("other");
  Listen();
  EXPECT_TRUE(Hear({{"state", "PAUSE"}}));
  EXPECT_TRUE(Hear({{"page", "100"}}));
  EXPECT_THAT(TakeLines(), IsEmpty());
  EXPECT_THAT(HearKey("pressed", Ago(0)), ElementsAre("pressed Red 0"));
}

TEST_F(PluginTest, AnnouncesItselfToAHostThatAppears) {
  Make();
  Channels().name_appeared("org.zarnet.kavrel.auxiliary");
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 m_AuxDbusNameAppearedCallback: dbus name "
                          "org.zarnet.kavrel.auxiliary acquired\n",
                          "4 m_AuxDbusNameAppearedCallback: clock\n", "announce clock 5 true"));
}

TEST_F(PluginTest, TellsOfAHostThatVanishes) {
  Make();
  Channels().name_vanished("name");
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 m_AuxDbusNameVanishedCallback: dbus name name vanished\n"));
  const auto lost = [](void* data) { Note(std::string("lost ") + static_cast<char*>(data)); };
  char data[] = "data";
  plugin_->SetConnectionChangedCallback(nullptr, lost, data);
  EXPECT_THAT(TakeLines(), ElementsAre("connection callbacks clock"));
  Channels().name_vanished("name");
  EXPECT_THAT(TakeLines(), ElementsAre("4 m_AuxDbusNameVanishedCallback: dbus name name vanished\n",
                                       "lost data"));
}

TEST_F(PluginTest, MayBeDestroyedByItsListener) {
  Make();
  struct Destroyer : IViewerMessageListener {
    void OnViewerMessage(CMessage&) override { plugin->reset(); }
    std::unique_ptr<CViewerPlugin>* plugin = nullptr;
  } destroyer;
  destroyer.plugin = &plugin_;
  plugin_->RegisterViewerMessageListener(&destroyer);
  EXPECT_TRUE(Hear({{"page", "100"}}));
  EXPECT_EQ(plugin_, nullptr);
}

TEST_F(PluginTest, AbortsOnBrokenRules) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto prepare = [this](bool with_channel) {
    ShowLogOnStandardError(log_);
    Toolkit().allocations_fail = !with_channel;
    Make();
    Toolkit().allocations_fail = false;
  };
  CMessage message;
  EXPECT_DEATH((prepare(true), plugin_->RegisterKeyInputListener(nullptr)),
               "ViewerPlugin.cpp RegisterKeyInputListener: Assertion failed: listener is NULL");
  EXPECT_DEATH((prepare(true), plugin_->RegisterViewerStateChangeListener(nullptr)),
               "RegisterViewerStateChangeListener: Assertion failed: listener is NULL");
  EXPECT_DEATH((prepare(true), plugin_->RegisterViewerMessageListener(nullptr)),
               "RegisterViewerMessageListener: Assertion failed: listener is NULL");
  EXPECT_DEATH((prepare(false), plugin_->Show()), "Show: Assertion failed: m_ePluginType is NULL");
  EXPECT_DEATH((prepare(false), plugin_->Hide()), "Hide: Assertion failed: m_ePluginType is NULL");
  EXPECT_DEATH((prepare(false), plugin_->Enable("x")),
               "Enable: Assertion failed: m_ePluginType is NULL");
  EXPECT_DEATH((prepare(false), plugin_->Disable("x")),
               "Disable: Assertion failed: m_ePluginType is NULL");
  EXPECT_DEATH((prepare(false), plugin_->SendMessage(message, 1)),
               "SendMessage: Assertion failed: m_ePluginType is NULL");
}

}  // namespace
}  // namespace framework_test
