// kavrelctl run: scenarios played against a viewer.
#include <gmock/gmock.h>
#include <signal.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "plugin_programs.h"

namespace kavrel_test {
namespace {

using nlohmann::json;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

bool IsOneLine(const std::string& text) {
  return !text.empty() && text.find('\n') == text.size() - 1;
}

class Scenarios : public Programs {
 protected:
  std::string Write(const std::string& steps, const std::string& name = "test.yaml") const {
    std::ofstream(directory_.Path(name)) << "steps:\n" << steps;
    return directory_.Path(name);
  }

  Outcome Run(const std::string& steps, const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {"run", Write(steps)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Tool(arguments);
  }

  void ExpectHolds(const std::string& steps) const {
    const Outcome outcome = Run(steps);
    EXPECT_EQ(outcome.exit_code, 0) << steps << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
  }

  /// Fails with one line that says `why` behind the step's place.
  void ExpectFails(const std::string& steps, const std::string& why) const {
    const Outcome outcome = Run(steps);
    EXPECT_EQ(outcome.exit_code, 1) << steps;
    EXPECT_TRUE(IsOneLine(outcome.errors)) << outcome.errors;
    EXPECT_THAT(outcome.errors, HasSubstr("): " + why));
  }
};

TEST_F(Scenarios, TheSampleHolds) {
  const auto viewer = StartViewer();
  for (int i = 0; i < 3; ++i) {
    const Outcome outcome =
        Tool({"run", KAVREL_SOURCE_DIR "/examples/scenarios/tune-and-check.yaml"});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_EQ(outcome.output, "17 steps: all hold\n");
    EXPECT_EQ(outcome.errors, "");
  }
}

TEST_F(Scenarios, ACallIsCarriedOutBeforeTheNextStep) {
  const auto viewer = StartViewer();
  std::string steps;
  for (int i = 0; i < 20; ++i) {
    for (const char* show : {"1", "0"}) {
      steps += "- {call: show-channel-banner, with: [" + std::string(show) +
               "]}\n- {expect: {banner: channel, shown: " + show +
               "}}\n- {expect: {property: banner_show_state, is: " + show + "}}\n";
    }
  }
  ExpectHolds(steps);
}

TEST_F(Scenarios, EveryConditionHoldsOrTellsWhatIsSeen) {
  const auto viewer = StartViewer();
  ExpectHolds(R"(
- {set: pip_focus, to: 3}
- {expect: {property: pip_focus, is: 3}}
- {set: info_banner_ttx_state, to: on}
- {wait: {property: info_banner_ttx_state, is: true}, within: 0}
- {set: db_serdes_error, to: -1}
- {wait: {property: db_serdes_error, is: -1}}
- {call: show-source-banner, with: [1, HDMI, Player, 4K]}
- {wait: {banner: source, text: Play}}
- {expect: {screen: {banners: [{name: source, texts: [HDMI, Player, 4K]}], teletext: false}}}
- {expect: {property: rating_locked, is: unlocked}}
- {key: "7", device: panel, taken-by: viewer}
- {key: XF86Launch9, taken-by: nobody}
)");
  ExpectFails("- {expect: {property: pip_focus, is: 4}}",
              "expected pip_focus 4, seen pip_focus 3\n");
  ExpectFails("- {wait: {property: pip_focus, is: 4}, within: 0.1}",
              "expected pip_focus 4 within 0.1 s, seen pip_focus 3\n");
  ExpectFails("- {wait: {banner: mts}, within: 0.1}",
              "expected mts shown within 0.1 s, seen source");
  ExpectFails("- {expect: {banner: source, text: x}}",
              "expected source shown with \"x\", seen source with [\"HDMI\",\"Player\",\"4K\"]\n");
  ExpectFails("- {expect: {screen: {channel: {number: 5}}}}",
              "expected {\"channel\":{\"number\":\"5\"}}, seen channel.number \"7\"\n");
  ExpectFails("- {call: get-window-size, answer: {size: 3}}",
              "expected answer {\"size\":3}, seen answer {\"size\":0,\"result\":true}\n");
  ExpectFails("- {call: set-window-size, with: [9]}", "expected an answer other than false");
  ExpectFails("- {key: XF86Launch9, taken-by: red}",
              "expected taken by \"red\", seen taken by \"nobody\"");
  ExpectFails("- {expect: {plugins: []}}",
              "the viewer \"org.zarnet.kavrel\" refuses: its plug-ins are off");
  ExpectFails("- {screenshot: /proc/no/such.png}", "cannot write \"/proc/no/such.png\": ");
}

TEST_F(Scenarios, WaitsForWhatOthersDo) {
  const auto viewer = StartViewer();
  for (const char* condition : {"property: visible_banners, is: sleep-timer", "banner: sleep-timer",
                                "screen: {popups: [{name: sleep-timer}]}"}) {
    const auto tool = StartTool(
        {"run", Write(std::string("- {wait: {") + condition + "}, within: 60}\n"), "--verbose"});
    // Connected and about to wait; what comes sooner would do as well.
    EXPECT_TRUE(tool->WaitForLine("kavrel_api_create("));
    Tool({"call", "show-sleep-timer-popup", "1"});
    EXPECT_EQ(OutcomeOf(*tool).exit_code, 0);
    Tool({"call", "show-sleep-timer-popup", "0"});
    Tool({"call", "get-window-size"});
  }
}

TEST_F(Scenarios, StopsAtTheFirstFailureUnlessTold) {
  const auto viewer = StartViewer();
  const std::string steps = R"(- {set: pip_focus, to: 1}
- {expect: {property: pip_focus, is: 2}}
- {set: pip_focus, to: 3}
)";
  EXPECT_EQ(Run(steps).output, "3 steps: 1 failed, 1 not played\n");
  EXPECT_EQ(Tool({"get", "pip_focus"}).output, "1\n");
  const Outcome all = Run(steps, {"--keep-going", "-v"});
  EXPECT_EQ(all.exit_code, 1);
  EXPECT_EQ(all.output,
            "ok      1  {set: pip_focus, to: 1}\n"
            "failed  2  {expect: {property: pip_focus, is: 2}}\n"
            "ok      3  {set: pip_focus, to: 3}\n"
            "3 steps: 1 failed\n");
  EXPECT_THAT(all.errors, StartsWith("kavrelctl: step 2 of 3, " + directory_.Path("test.yaml") +
                                     ":3 ({expect: {property: pip_focus, is: 2}}): expected"));
}

TEST_F(Scenarios, TellProgramsToo) {
  const auto viewer = StartViewer();
  const Outcome outcome = Run(R"(- {call: get-window-size, answer: {size: 0}}
- {expect: {property: pip_focus, is: 2}}
)",
                              {"--json"});
  EXPECT_EQ(outcome.exit_code, 1);
  std::istringstream lines(outcome.output);
  std::string line;
  std::vector<json> objects;
  while (std::getline(lines, line)) objects.push_back(json::parse(line));
  ASSERT_EQ(objects.size(), 3U);
  EXPECT_EQ(objects[0]["answer"], json::parse(R"({"size":0,"result":true})"));
  EXPECT_EQ(objects[0]["ok"], true);
  EXPECT_EQ(objects[1]["line"], 3);
  EXPECT_EQ(objects[1]["seen"], "pip_focus 0");
  objects[2].erase("scenario");
  EXPECT_EQ(objects[2], json::parse(R"({"summary":true,"steps":2,"held":1,"failed":1,
      "not_played":0,"ok":false})"));
}

TEST_F(Scenarios, MistakesAreFoundBeforeTheFirstStep) {
  const auto viewer = StartViewer();
  const Outcome outcome = Run("- {set: pip_focus, to: 5}\n- {call: tune-chanel}\n");
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "kavrelctl: " + directory_.Path("test.yaml") +
                                ":3: step 2: \"tune-chanel\" is no method (\"kavrelctl methods\" "
                                "lists them); did you mean tune-channel?\n");
  EXPECT_EQ(Tool({"get", "pip_focus"}).output, "0\n");
  for (const std::string& file :
       {directory_.path(), directory_.Path("none"), std::string("/dev/zero"), std::string()}) {
    const Outcome none = Tool({"run", file});
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_TRUE(IsOneLine(none.errors)) << none.errors;
    EXPECT_THAT(none.errors, StartsWith("kavrelctl: cannot read \"" + file + "\": "));
  }
}

TEST_F(Scenarios, NobodyListens) {
  const Outcome outcome = Run("- {key: a}\n");
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.output, "1 step: 0 failed, 1 not played\n");
  EXPECT_TRUE(IsOneLine(outcome.errors));
  EXPECT_THAT(outcome.errors, HasSubstr("cannot reach the viewer \"org.zarnet.kavrel\": nobody"));
}

class ScenarioUnderWay : public Scenarios {
 protected:
  /// A tool that waits for what never comes, in its second step.
  std::unique_ptr<ChildProcess> Wait(const std::string& condition,
                                     const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {
        "run", Write("- {set: pip_focus, to: 1}\n- {wait: {" + condition + "}, within: 600}\n"),
        "-v"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    auto tool = StartTool(arguments);
    EXPECT_TRUE(tool->WaitForLine("ok      1")) << tool->errors();
    return tool;
  }
};

TEST_F(ScenarioUnderWay, TheViewerIsLost) {
  for (const char* condition : {"property: pip_focus, is: 7", "banner: mts"}) {
    auto viewer = StartViewer();
    const auto tool = Wait(condition);
    viewer->Kill();
    const Outcome outcome = OutcomeOf(*tool);
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_TRUE(IsOneLine(outcome.errors)) << outcome.errors;
    EXPECT_THAT(outcome.errors, HasSubstr("step 2 of 2"));
    EXPECT_THAT(outcome.errors, EndsWith("is lost: it ended the connection\n"));
  }
}

TEST_F(ScenarioUnderWay, ThePersonInterrupts) {
  const auto viewer = StartViewer();
  for (const auto& [signal, code] : {std::pair{SIGINT, 130}, std::pair{SIGTERM, 143}}) {
    const auto tool = Wait("banner: mts");
    tool->Signal(signal);
    const Outcome outcome = OutcomeOf(*tool);
    EXPECT_EQ(outcome.exit_code, code);
    EXPECT_THAT(outcome.errors, StartsWith("kavrelctl: interrupted at step "));
    EXPECT_TRUE(IsOneLine(outcome.errors)) << outcome.errors;
  }
}

TEST_F(ScenarioUnderWay, TheViewerHangs) {
  const auto viewer = StartViewer();
  viewer->Signal(SIGSTOP);
  const Outcome outcome = Run("- {call: get-window-size}\n", {"--timeout", "0.3"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(IsOneLine(outcome.errors)) << outcome.errors;
  EXPECT_THAT(outcome.errors, HasSubstr("(limit 0.3 s)"));
}

class PluginScenarios : public PluginPrograms {};

TEST_F(PluginScenarios, WaitForPlugins) {
  const auto viewer = StartViewer();
  std::ofstream(directory_.Path("plugins.yaml")) << R"(steps:
- {expect: {plugins: []}}
- {wait: {plugin: listener}, within: 60}
- {expect: {plugins: [listener]}}
)";
  const auto tool = StartTool({"run", directory_.Path("plugins.yaml"), "-v"});
  EXPECT_TRUE(tool->WaitForLine("ok      1"));
  const auto plugin = StartListener(*viewer, "listener", {});
  const Outcome outcome = OutcomeOf(*tool);
  EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, EndsWith("3 steps: all hold\n"));
}

}  // namespace
}  // namespace kavrel_test
