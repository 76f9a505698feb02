// kavrelctl record: what happens to a viewer, as a scenario that plays.
#include <gmock/gmock.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "plugin_programs.h"

namespace kavrel_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class Recording : public PluginPrograms {
 protected:
  std::unique_ptr<ChildProcess> Record(const std::string& name,
                                       const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {"record", directory_.Path(name)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    auto recorder = StartTool(arguments);
    EXPECT_TRUE(recorder->WaitForLine("kavrelctl: recording to")) << recorder->errors();
    return recorder;
  }

  /// Ends a recording and returns its lines that begin like that.
  std::vector<std::string> End(ChildProcess& recorder, const std::string& name,
                               const std::string& prefix = "- ") const {
    recorder.Signal(SIGINT);
    EXPECT_EQ(OutcomeOf(recorder).exit_code, 0) << recorder.errors();
    return Lines(name, prefix);
  }

  std::vector<std::string> Lines(const std::string& name, const std::string& prefix) const {
    std::istringstream file(ReadFile(directory_.Path(name)));
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(file, line)) {
      if (line.compare(0, prefix.size(), prefix) == 0) lines.push_back(line);
    }
    return lines;
  }

  /// Carried out when it returns.
  void Call(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "call");
    EXPECT_EQ(Tool(arguments).exit_code, 0);
    EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  }
};

TEST_F(Recording, PlaysAndIsRecordedAgainAsTheSameSteps) {
  auto viewer = StartViewer();
  auto recorder = Record("first.yaml");
  Call({"tune-channel", "7", "", "DVB-T", "two words: \"quoted\""});
  Tool({"set", "pip_focus", "5"});
  Tool({"set", "analog_clean_view_state", "on"});
  Tool({"keys", "send", "XF86Info"});
  Tool({"keys", "send", "XF86Info", "--release", "--device", "vr"});
  Call({"show-sleep-timer-popup", "1"});
  EXPECT_EQ(Tool({"call", "set-window-size", "9"}).exit_code, 1);
  Tool({"call", "send-mbr-key", "1", "2", "3", "K", "--list", "fast"});
  Call({"send-hide-banner", "all", "me"});
  Tool({"set", "db_serdes_error", "-3"});
  const std::vector<std::string> first = End(*recorder, "first.yaml");
  EXPECT_EQ(first.at(0),
            R"(- {call: tune-channel, with: [7, "", DVB-T, "two words: \"quoted\""]})");
  EXPECT_EQ(first.back(), "- {set: db_serdes_error, to: -3}");
  EXPECT_THAT(first, ::testing::Contains("- {wait: {property: visible_banners, is: channel}}"));
  EXPECT_THAT(first, ::testing::Contains("- {key: XF86Info, action: release, device: vr}"));
  EXPECT_THAT(first,
              ::testing::Contains("- {call: set-window-size, with: [9], answer: {result: false}}"));
  viewer.reset();
  Script("rm -r \"$KAVREL_RUNTIME_DIR/vconf\" \"$KAVREL_STATE_DIR\"");
  viewer = StartViewer();
  recorder = Record("second.yaml");
  const Outcome played = Tool({"run", directory_.Path("first.yaml")});
  EXPECT_EQ(played.exit_code, 0) << played.errors;
  EXPECT_EQ(End(*recorder, "second.yaml"), first);
}

TEST_F(Recording, KeepsTheOrderOfSettingsAndCalls) {
  const auto viewer = StartViewer();
  const auto recorder = Record("order.yaml");
  for (int i = 0; i < 5; ++i) {
    Tool({"set", "pip_focus", std::to_string(10 + i)});
    Tool({"call", "get-window-size"});
  }
  std::vector<std::string> expected;
  for (int i = 0; i < 5; ++i) {
    expected.push_back("- {set: pip_focus, to: " + std::to_string(10 + i) + "}");
    expected.emplace_back("- {call: get-window-size, answer: {size: 0, result: true}}");
  }
  EXPECT_EQ(End(*recorder, "order.yaml"), expected);
}

TEST_F(Recording, TellsOfPluginsAndTheBusInComments) {
  const auto viewer = StartViewer();
  const auto recorder = Record("bus.yaml");
  const auto plugin = StartListener(*viewer, "listener", {"--key", "XF86Red"});
  EXPECT_EQ(SendKey("XF86Red")["taken_by"], "plugin");
  const auto comments = [&] { return Lines("bus.yaml", "# "); };
  EXPECT_THAT(End(*recorder, "bus.yaml"), ElementsAre("- {key: XF86Red, action: press}"));
  EXPECT_THAT(comments(), ::testing::Contains("# taken by plug-in listener"));
  EXPECT_THAT(comments(), ::testing::Contains(StartsWith("# bus: ")));
  EXPECT_THAT(comments(), ::testing::Contains(HasSubstr(R"("listening")")));
}

TEST_F(Recording, EndsByItself) {
  const auto viewer = StartViewer();
  const auto counted = Record("count.yaml", {"--count", "2"});
  Tool({"keys", "send", "XF86Launch9"});
  Tool({"keys", "send", "XF86Launch8"});
  EXPECT_EQ(OutcomeOf(*counted).output, "2 steps\n");
  EXPECT_EQ(OutcomeOf(*Record("duration.yaml", {"--duration", "0.1"})).exit_code, 0);
  const auto json = Record("json.yaml", {"--json", "--count", "1"});
  Tool({"keys", "send", "XF86Launch9"});
  EXPECT_EQ(OutcomeOf(*json).output,
            "{\"key\":\"XF86Launch9\",\"action\":\"press\"}\n"
            "{\"summary\":true,\"file\":\"" +
                directory_.Path("json.yaml") + "\",\"steps\":1,\"ok\":true}\n");
}

TEST_F(Recording, SaysWhyItCannot) {
  const Outcome nobody = Tool({"record", directory_.Path("x.yaml")});
  EXPECT_EQ(nobody.exit_code, 1);
  EXPECT_THAT(nobody.errors, HasSubstr("nobody listens on its control port"));
  auto viewer = StartViewer();
  const Outcome nowhere = Tool({"record", "/proc/no/such.yaml"});
  EXPECT_EQ(nowhere.exit_code, 1);
  EXPECT_THAT(nowhere.errors, StartsWith("kavrelctl: cannot write \"/proc/no/such.yaml\": "));
  const auto recorder = Record("lost.yaml");
  Tool({"keys", "send", "XF86Launch9"});
  viewer->Kill();
  const Outcome lost = OutcomeOf(*recorder);
  EXPECT_EQ(lost.exit_code, 1);
  EXPECT_THAT(lost.errors, HasSubstr("is lost: it ended the connection\n"));
  EXPECT_THAT(Lines("lost.yaml", "- "), ElementsAre("- {key: XF86Launch9, action: press}"));
}

}  // namespace
}  // namespace kavrel_test
