// Plug-ins in the reference viewer: who gets a key, who learns of a state, and the same viewer
// without plug-ins.
#include <chrono>

#include "plugin_programs.h"

namespace kavrel_test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

// A press that takes more than a second is dropped, as on a busy machine: whether a key arrives is
// looked for in its release.
class Plugins : public PluginPrograms {};

TEST_F(Plugins, GetTheKeysThatTheyWant) {
  const auto viewer = StartViewer({"--headless"});
  const auto first = StartListener(*viewer, "first", {"--key", "XF86Green", "--key", "Return"});
  const auto second = StartListener(*viewer, "second", {"--key", "XF86Green", "--key", "XF86Red"});
  EXPECT_EQ(SendKey("XF86Green"), json::parse(R"({"key":"XF86Green","type":"pressed",
      "taken_by":"plugin","plugin":"first","exclusive":false})"));
  SendKey("XF86Green", {"--release"});
  Expect(*first, "released XF86Green");
  EXPECT_EQ(SendKey("XF86Red", {"--release", "--device", "panel"})["plugin"], "second");
  Expect(*second, "released XF86Red");
  EXPECT_EQ(SendKey("XF86Tools")["taken_by"], "nobody");
  EXPECT_EQ(second->output().find("XF86Green"), std::string::npos);
}

TEST_F(Plugins, GiveAnExclusiveKeyToTheLatestAndBack) {
  const auto viewer = StartViewer();
  const auto first = StartListener(*viewer, "first", {"--exclusive", "XF86Blue"});
  const auto second = StartListener(*viewer, "second", {"--exclusive", "XF86Blue"});
  json taken = SendKey("XF86Blue", {"--release"});
  EXPECT_EQ(taken["plugin"], "second");
  EXPECT_EQ(taken["exclusive"], true);
  Expect(*second, "released XF86Blue");
  EXPECT_EQ(Tool({"plugins"}).output,
            "NAME    TYPE  LAYER  CONNECTED  KEYS  EXCLUSIVE\n"
            "first   4     -      yes        -     (XF86Blue)\n"
            "second  4     -      yes        -     XF86Blue\n");
  second->Signal(SIGTERM);
  EXPECT_EQ(OutcomeOf(*second).exit_code, 0);
  Expect(*viewer, "plug-in second: says clear_exclusive_key");
  taken = SendKey("XF86Blue", {"--release"});
  EXPECT_EQ(taken["plugin"], "first");
  EXPECT_EQ(taken["exclusive"], true);
  Expect(*first, "released XF86Blue");
  EXPECT_EQ(Tool({"keys", "send", "XF86Blue"}).output, "taken by plug-in first, exclusively\n");
}

TEST_F(Plugins, LearnTheViewersState) {
  const auto viewer = StartViewer();
  const auto panel = StartPanel(*viewer, "hbbtv", "5", "207040");
  const auto listener = StartListener(*viewer, "listener", {});
  Expect(*panel, "state RESUME_FOCUS");
  const auto expect_state = [&](const std::vector<std::string>& call, const char* state) {
    std::vector<std::string> command = {"call"};
    command.insert(command.end(), call.begin(), call.end());
    EXPECT_EQ(Tool(command).exit_code, 0);
    Expect(*panel, std::string("state ") + state);
    Expect(*listener, std::string("state ") + state);
  };
  expect_state({"show-nosignal-banner", "1", ""}, "PAUSE");
  expect_state({"show-nosignal-banner", "0", ""}, "RESUME_FOCUS");
  expect_state({"show-sleep-timer-popup", "1"}, "RESUME");
  expect_state({"set-window-size", "2"}, "BACKGROUND");
  Expect(*viewer, "window size 2; plug-ins told BACKGROUND");
}

TEST_F(Plugins, AreListedAsConnectedWhileTheyAre) {
  const auto viewer = StartViewer();
  const auto listener = StartListener(*viewer, "listener", {});
  EXPECT_EQ(ListPlugins()[0]["connected"], true);
  listener->Kill();
  const auto limit = std::chrono::steady_clock::now() + kGenerous;
  while (ListPlugins()[0]["connected"] == true && std::chrono::steady_clock::now() < limit) {
  }
  EXPECT_EQ(ListPlugins()[0]["connected"], false);
}

TEST_F(Plugins, GetTheCommandsOfClients) {
  const auto viewer = StartViewer();
  ChildProcess plugin(Options(KAVREL_COMMANDED_PLUGIN, {"clock", "4", "glib"}));
  Expect(*viewer, "plug-in clock: shown");
  Tool({"call", "plugin-cmd", "clock", "alarm"});
  Expect(plugin, "message command=alarm");
  Expect(*viewer, R"(PluginCmd("clock", "alarm"): command "alarm" given to plug-in clock)");
  Tool({"call", "plugin-cmd", "nobody", "alarm"});
  Expect(*viewer, R"(PluginCmd("nobody", "alarm"): refused: plug-in "nobody" cannot be reached)");
}

TEST_F(Plugins, LeaveToTheViewerWhatItKeeps) {
  const auto viewer = StartViewer();
  const auto listener = StartListener(*viewer, "listener", {"--key", "XF86Back", "--key", "7"});
  Tool({"call", "show-sleep-timer-popup", "1"});
  EXPECT_EQ(SendKey("XF86Back")["taken_by"], "viewer");
  Expect(*viewer, "sleep-timer pop-up hidden");
  EXPECT_EQ(SendKey("XF86Back")["plugin"], "listener");
  Tool({"call", "send-command", "keep-key", "7"});
  EXPECT_EQ(SendKey("7")["taken_by"], "viewer");
  Tool({"call", "send-command", "leave-key", "7"});
  EXPECT_EQ(SendKey("7")["plugin"], "listener");
}

TEST_F(Plugins, LearnThatTheViewerIsPausedOrInTheBackground) {
  const auto viewer = StartViewer();
  const auto listener = StartListener(*viewer, "listener", {});
  for (const auto& [key, state] : {std::pair("XF86AudioPlay", "PAUSE"),
                                   {"XF86AudioPlay", "RESUME_FOCUS"},
                                   {"XF86HomePage", "BACKGROUND"},
                                   {"XF86HomePage", "RESUME_FOCUS"}}) {
    EXPECT_EQ(SendKey(key)["taken_by"], "viewer");
    Expect(*listener, std::string("state ") + state);
  }
}

TEST_F(Plugins, AreMissedAndTheViewerGoesOn) {
  const auto viewer = StartViewer();
  const auto panel = StartPanel(*viewer, "hbbtv", "5", "207040", {"--key", "XF86Red"});
  const auto listener = StartListener(*viewer, "listener", {"--key", "XF86Green"});
  panel->Kill();
  Expect(*viewer, "plug-in hbbtv: window gone");
  EXPECT_EQ(SendKey("XF86Green", {"--release"})["plugin"], "listener");
  Expect(*listener, "released XF86Green");
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  EXPECT_EQ(ListPlugins()[0]["layer"], nullptr);
}

TEST_F(Plugins, ComeBackToARestartedViewer) {
  auto viewer = StartViewer();
  const auto listener = StartListener(*viewer, "listener", {"--key", "XF86Green"});
  Expect(*listener, "connected");
  viewer->Kill();
  Expect(*listener, "disconnected");
  viewer = StartViewer();
  // It may have come back while the viewer was still saying that it serves.
  const std::string back = "plug-in listener: says listening=listener";
  if (viewer->output().find(back) == std::string::npos) Expect(*viewer, back);
  EXPECT_EQ(SendKey("XF86Green", {"--release"})["plugin"], "listener");
  Expect(*listener, "released XF86Green");
}

TEST_F(Plugins, ComeBackWithTheirWindowsToo) {
  auto viewer = StartViewer();
  const auto panel = StartPanel(*viewer, "hbbtv", "5", "204080", {"--key", "XF86Red"});
  for (int round = 0; round < 2; ++round) {
    viewer->Kill();
    Expect(*panel, "left");
    viewer = StartViewer();
    AwaitPanel(*viewer, *panel, "hbbtv");
    EXPECT_EQ(ListPlugins()[0]["layer"], 7);
    EXPECT_EQ(SendKey("XF86Red", {"--release"})["plugin"], "hbbtv");
    Expect(*panel, "released XF86Red");
  }
  panel->Signal(SIGTERM);
  EXPECT_EQ(panel->WaitForExit(), 0) << panel->errors();
}

// What is lost are the plug-ins: the viewer says so, and serves its clients and its own keys.
TEST_F(Plugins, AreLostWithTheBusAndTheViewerGoesOn) {
  const auto viewer = StartViewer();
  const auto listener = StartListener(*viewer, "listener", {"--key", "XF86Green"});
  bus_.Kill();
  Expect(*listener, "disconnected");
  EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  EXPECT_EQ(SendKey("7")["taken_by"], "viewer");
  EXPECT_EQ(ListPlugins()[0]["connected"], false);
  Expect(*viewer, "Connection to the system bus lost");
  viewer->Signal(SIGTERM);
  EXPECT_EQ(OutcomeOf(*viewer).exit_code, 0);
}

// Nothing that the viewer does for its clients waits for a bus that stands still.
TEST_F(Plugins, AreWaitedForByNobodyWhileTheBusIsStopped) {
  const auto viewer = StartViewer();
  const auto listener = StartListener(*viewer, "listener", {"--key", "XF86Green"});
  bus_.Stop();
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(SendKey("XF86Green", {"--release", "--timeout", "5"})["plugin"], "listener");
    EXPECT_EQ(Tool({"call", "get-window-size", "--timeout", "5"}).exit_code, 0);
  }
  bus_.Continue();
  for (int i = 0; i < 100; ++i) Expect(*listener, "released XF86Green");
}

TEST_F(Plugins, BelongToTheFirstViewerOfABus) {
  const auto first = StartViewer();
  const auto listener = StartListener(*first, "listener", {});  // the host is on the bus by then
  const auto second = StartViewer({"--app-id", "org.zarnet.second"});
  EXPECT_THAT(second->errors(), HasSubstr("kavrel-viewer: plug-ins are off: another viewer on this "
                                          "bus is their host\n"));
  EXPECT_EQ(Tool({"call", "get-window-size", "--app-id", "org.zarnet.second"}).exit_code, 0);
  EXPECT_EQ(Tool({"plugins"}).exit_code, 0);
}

TEST_F(Plugins, AreToldInJsonToo) {
  const auto viewer = StartViewer({"--json"});
  const auto listener =
      std::make_unique<ChildProcess>(Options(KAVREL_LISTENER_PROGRAM, {"--name", "listener"}));
  const auto said = viewer->WaitForLine("\"listening\"");
  EXPECT_EQ(json::parse(said.value_or("{}")), json::parse(R"({"event":"message",
      "plugin":"listener","pairs":[["listening","listener"]]})"));
  SendKey("7");
  EXPECT_EQ(json::parse(viewer->WaitForLine("\"key\"").value_or("{}")),
            json::parse(R"({"event":"key","key":"7","type":"pressed","taken_by":"viewer",
      "plugin":null,"exclusive":false,"device":"ir","effects":["channel 7 News on DVB-T",
      "channel banner shown: 7 News"]})"));
}

TEST_F(Plugins, ExplainWrongUsage) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--name", "a-b"}, {"--name", "1st"}, {"--type", "7"}, {"extra"}}) {
    ChildProcess plugin(Options(KAVREL_PANEL_PROGRAM, arguments));
    const Outcome outcome = OutcomeOf(plugin);
    EXPECT_EQ(outcome.exit_code, 2) << arguments.back();
    EXPECT_THAT(outcome.errors, HasSubstr("Try kavrel-plugin-panel --help.\n"));
  }
  for (const char* program : {KAVREL_PANEL_PROGRAM, KAVREL_LISTENER_PROGRAM}) {
    ChildProcess plugin(Options(program, {"--help"}));
    const Outcome outcome = OutcomeOf(plugin);
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_THAT(outcome.output, HasSubstr("--exclusive KEY"));
  }
}

// The viewer without plug-ins: neither bus nor display.
class NoPlugins : public PluginPrograms {
 protected:
  NoPlugins() { bus_address_ = "unix:path=" + directory_.Path("no-bus"); }
};

TEST_F(NoPlugins, LeaveKeysToTheViewer) {
  const auto viewer = StartViewer();
  EXPECT_THAT(viewer->errors(), HasSubstr("plug-ins are off: no system bus: "));
  EXPECT_EQ(Tool({"keys", "send", "7"}).output, "taken by the viewer\n");
  Expect(*viewer, "key 7 pressed, the viewer's: channel 7 News on DVB-T");
  EXPECT_EQ(Tool({"keys", "send", "XF86ChannelUp"}).output, "taken by the viewer\n");
  Expect(*viewer, "channel 11 Sport on DVB-S");
  EXPECT_EQ(Tool({"keys", "send", "7", "--release"}).output, "taken by nobody\n");
  for (int i = 0; i < 4; ++i) SendKey("XF86ChannelUp");
  Expect(*viewer, "channel 1 One on DVB-T");
  SendKey("XF86ChannelDown");
  Expect(*viewer, "channel 99 Test Card on DVB-T");
  SendKey("XF86Back");
  Expect(*viewer, "all banners hidden");
  EXPECT_EQ(SendKey("XF86Back")["taken_by"], "nobody");
  SendKey("XF86Info");
  Expect(*viewer, "channel banner shown: 99 Test Card");
  const Outcome outcome = Tool({"plugins"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(
      outcome.errors,
      "kavrelctl: the viewer \"org.zarnet.kavrel\" refuses: its plug-ins are off; it said why "
      "when it started\n");
}

TEST_F(NoPlugins, FailWithoutAViewer) {
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"plugins"}, {"keys", "send", "7"}, {"screenshot", "x.png"}}) {
    const Outcome outcome = Tool(command);
    EXPECT_EQ(outcome.exit_code, 1) << command.front();
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, HasSubstr("cannot reach the viewer \"org.zarnet.kavrel\": nobody "
                                          "listens on its control port"));
  }
  const Outcome outcome = Tool({"plugins", "--json"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(json::parse(outcome.output)["ok"], false);
}

TEST_F(NoPlugins, LeaveWrongUsageExplained) {
  EXPECT_THAT(Tool({"keys", "send", "a b"}).errors,
              HasSubstr("KEY: \"a b\" is not a key (1 to 64 "));
  EXPECT_EQ(Tool({"keys", "send", "7", "--device", "nose"}).exit_code, 2);
  EXPECT_EQ(Tool({"screenshot"}).exit_code, 2);
}

TEST_F(NoPlugins, LeaveAFrozenViewerBounded) {
  const auto viewer = StartViewer();
  viewer->Signal(SIGSTOP);
  const Outcome outcome = Tool({"plugins", "--timeout", "0.3"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("it does not answer (limit 0.3 s)"));
  viewer->Signal(SIGCONT);
}

}  // namespace
}  // namespace kavrel_test
