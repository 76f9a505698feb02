// Scenarios as text: what is read, and what is said about mistakes.
#include "scenario_reader.h"

#include <gtest/gtest.h>

#include "scenario_conditions.h"

namespace kavrelctl {
namespace {

using nlohmann::ordered_json;

/// "line: message", or "none" for a scenario that is read.
std::string MistakeIn(const std::string& text) {
  try {
    ReadScenario(text);
    return "none";
  } catch (const TextMistake& mistake) {
    return std::to_string(mistake.line) + ": " + mistake.what();
  }
}

template <class T>
const T& ActionOf(const Scenario& scenario, std::size_t step = 0) {
  return std::get<T>(scenario.steps.at(step).action);
}

TEST(ScenarioReader, ReadsEveryStep) {
  const Scenario scenario = ReadScenario(R"(# A comment
scenario: All there is
steps:
  - call: tune-channel
    with: [7, News, DVB-T, "me"]
  - call: tune-channel
    with: {number: 7, name: "", source: x, caller: y}
  - call: get-window-size
    answer: {size: 0, result: true}
  - call: send-mbr-key
    with: [1, 2, 3, K, [fast, quiet]]
  - {set: pip_focus, to: 1}
  - {key: XF86Red}
  - {key: XF86Red, action: release, device: vr, taken-by: nobody}
  - {wait: {property: kavrel_state, is: running}, within: 0.5}
  - wait: {banner: channel}
  - {wait: {banner: sleep-timer, shown: off}}
  - {wait: {plugin: red}}
  - {"expect": {"plugin": "red", "present": false}}
  - expect: {plugins: [red, blue]}
  - expect: {screen: {channel: {number: 7}, pip: ~, banners: [{name: channel}]}}
  - screenshot: picture.png
)");
  EXPECT_EQ(scenario.title, "All there is");
  ASSERT_EQ(scenario.steps.size(), 15U);
  EXPECT_EQ(scenario.steps[0].line, 4);
  EXPECT_EQ(scenario.steps[0].text, "call: tune-channel");
  using Texts = std::vector<std::vector<std::string>>;
  EXPECT_EQ(ActionOf<CallAction>(scenario, 0).arguments,
            (Texts{{"7"}, {"News"}, {"DVB-T"}, {"me"}}));
  EXPECT_EQ(ActionOf<CallAction>(scenario, 1).arguments, (Texts{{"7"}, {""}, {"x"}, {"y"}}));
  EXPECT_EQ(ActionOf<CallAction>(scenario, 2).answer.dump(), R"({"size":0,"result":true})");
  EXPECT_EQ(ActionOf<CallAction>(scenario, 3).arguments.back(),
            (std::vector<std::string>{"fast", "quiet"}));
  EXPECT_EQ(ActionOf<SetAction>(scenario, 4).value, "1");
  EXPECT_EQ(ActionOf<KeyAction>(scenario, 5).kind, KeyAction::Kind::kTap);
  EXPECT_EQ(ActionOf<KeyAction>(scenario, 6).kind, KeyAction::Kind::kRelease);
  EXPECT_EQ(ActionOf<KeyAction>(scenario, 6).device, 3);
  EXPECT_EQ(ActionOf<WaitAction>(scenario, 7).within_seconds, 0.5);
  EXPECT_EQ(ActionOf<WaitAction>(scenario, 8).within_seconds, kDefaultWithinSeconds);
  EXPECT_EQ(Describe(ActionOf<WaitAction>(scenario, 9).condition), "sleep-timer not shown");
  EXPECT_EQ(Describe(ActionOf<ExpectAction>(scenario, 12).condition), "plug-ins [red, blue]");
  EXPECT_EQ(Describe(ActionOf<ExpectAction>(scenario, 13).condition),
            R"({"channel":{"number":"7"},"pip":null,"banners":[{"name":"channel"}]})");
  EXPECT_EQ(ActionOf<ScreenshotAction>(scenario, 14).file, "picture.png");
}

TEST(ScenarioReader, DescribesConditions) {
  const Scenario scenario = ReadScenario(R"(steps:
  - wait: {banner: channel-2, text: 7 News}
  - wait: {plugin: red}
  - wait: {plugin: red, present: false}
  - wait: {property: pip_focus, is: 1}
  - {key: XF86Red, action: press}
  - {key: XF86Red, action: tap}
)");
  const auto text = [&](std::size_t step) {
    return Describe(ActionOf<WaitAction>(scenario, step).condition);
  };
  EXPECT_EQ(text(0), "channel-2 shown with \"7 News\"");
  EXPECT_EQ(text(1), "plug-in \"red\"");
  EXPECT_EQ(text(2), "plug-in \"red\" gone");
  EXPECT_EQ(text(3), "pip_focus 1");
  EXPECT_EQ(ActionOf<KeyAction>(scenario, 4).kind, KeyAction::Kind::kPress);
  EXPECT_EQ(ActionOf<KeyAction>(scenario, 5).kind, KeyAction::Kind::kTap);
}

TEST(ScenarioReader, TakesJson) {
  const Scenario scenario =
      ReadScenario(R"({"scenario": "j", "steps": [{"set": "pip_focus", "to": "1"}]})");
  EXPECT_EQ(ActionOf<SetAction>(scenario).value, "1");
  EXPECT_EQ(scenario.steps[0].line, 1);
}

struct Wrong {
  const char* step;
  const char* message;  ///< behind "2: step 1: "
};

const Wrong kWrong[] = {
    {"call: tune-chanel",
     R"("tune-chanel" is no method ("kavrelctl methods" lists them); did you mean tune-channel?)"},
    {"call: [a]", "call: a text is wanted, not a list"},
    {"call: tune-channel",
     "with: 0 arguments; tune-channel takes NUMBER:string NAME:string "
     "SOURCE:string CALLER:string"},
    {"{call: set-window-size, with: [big]}",
     "with: size: \"big\" is not a whole number from -2147483648 to 2147483647"},
    {"{call: set-window-size, with: {sise: 1}}",
     R"("sise" does not belong to with, which has size; did you mean size?)"},
    {"{call: set-window-size, with: {}}",
     R"(with: "size" is missing; set-window-size takes SIZE:int)"},
    {"{call: set-window-size, with: 1}", "with: a text; set-window-size takes SIZE:int"},
    {"{call: exit-ttx, with: [~]}",
     "with: reason: a text is wanted, not nothing (an empty text is \"\")"},
    {"{call: exit-ttx, with: [x], answer: {result: true}}", "answer: exit-ttx is not answered"},
    {"{call: get-window-size, answer: {sice: 1}}",
     R"("sice" does not belong to answer, which has size, result; did you mean size?)"},
    {"{call: get-window-size, answer: {result: 7}}",
     "answer: result: \"7\" is none of true, false, on, off, 1, 0"},
    {"{call: get-window-size, wiht: []}",
     R"("wiht" does not belong to call, which has call, with, answer; did you mean with?)"},
    {"{set: pip_focs, to: 1}",
     R"("pip_focs" is no property ("kavrelctl get --all" lists them); did you mean pip_focus?)"},
    {"{set: visible_banners, to: x}", R"(set: "visible_banners" is set by the viewer alone)"},
    {"{set: pip_focus}", R"("to" is missing)"},
    {"{set: pip_focus, to: x}",
     "pip_focus: \"x\" is not a whole number from -2147483648 to 2147483647"},
    {"{key: 'a b'}", R"(key: "a b" is not a key (1 to 64 letters, digits, '_', '-' and '+'))"},
    {R"({key: "\e[2J0123456789012345678901234567890123456789012345678901234567890123456789"})",
     "key: \"\\x1b[2J012345678901234567890123456789012345678901234567890123456789...\" is not a "
     "key "
     "(1 to 64 letters, digits, '_', '-' and '+')"},
    {"{key: a, action: pres}",
     R"(action: "pres" is none of tap, press, release; did you mean press?)"},
    {"{key: a, device: moon}", R"(device: "moon" is none of ir, panel, sr, vr, other)"},
    {"wait: {property: pip_focus}", R"("is" is missing)"},
    {"wait: {property: rating_locked, is: open}",
     R"(rating_locked: "open" is neither locked nor unlocked)"},
    {"{wait: {banner: x}, within: -1}",
     R"(within: "-1" is not a number of seconds from 0 to 3600)"},
    {"{wait: {banner: x}, within: nan}",
     R"(within: "nan" is not a number of seconds from 0 to 3600)"},
    {"wait: {banner: 'A B'}",
     R"(banner: "A B" is no name of a banner or pop-up (1 to 64 small letters, digits and '-'))"},
    {"wait: {banner: x, shown: off, text: y}", "text: a banner that is not shown has none"},
    {"{call: get-window-size, with: [1]}", "with: 1 arguments; get-window-size takes nothing"},
    {"{wait: {plugin: red, present: maybe}}",
     "present: \"maybe\" is none of true, false, on, off, 1, 0"},
    {"wait: {banner: \"\"}",
     "banner: \"\" is no name of a banner or pop-up (1 to 64 small letters, digits and '-')"},
    {"wait: {banner: a~}",
     "banner: \"a~\" is no name of a banner or pop-up (1 to 64 small letters, digits and '-')"},
    {"wait: {banner: A1}",
     "banner: \"A1\" is no name of a banner or pop-up (1 to 64 small letters, digits and '-')"},
    {"{wait: {plugin: red}, within: -1}",
     "within: \"-1\" is not a number of seconds from 0 to 3600"},
    {"{wait: {plugin: red}, within: 3601}",
     "within: \"3601\" is not a number of seconds from 0 to 3600"},
    {"{wait: {plugin: red}, within: 1s}",
     "within: \"1s\" is not a number of seconds from 0 to 3600"},
    {"{wait: {plugin: red}, within: s}", "within: \"s\" is not a number of seconds from 0 to 3600"},
    {"wait: {}", "wait: one of property, banner, screen, plugin, plugins is wanted"},
    {"wait: 5",
     "wait: a map {...} with property, banner, screen, plugin, plugins is wanted, not "
     "a text"},
    {"expect: {plugins: x}", "plugins: a list [...] of texts is wanted, not a text"},
    {"expect: {screen: {chanel: 1}}",
     R"("chanel" does not belong to screen, which has activity, viewer_state, channel, source, )"
     R"(banners, popups, pip, selection_window, window_size, teletext, language, kept_keys; did you mean channel?)"},
    {"expect: {screen: {pip: {channel: {nmae: x}}}}",
     R"("nmae" does not belong to pip.channel, which has number, name, source, service_id; did you mean name?)"},
    {"expect: {screen: {language: {a: b}}}", "language: a text is wanted, not a map"},
    {"screenshot: ''", R"(screenshot: "" is no file's name)"},
    {"wiat: {banner: x}",
     R"("wiat" is no step; a step is one of call, set, key, wait, expect, screenshot; did you mean wait?)"},
    {"frobnicate",
     "a map with one of call, set, key, wait, expect, screenshot is wanted, not a text"},
    {"{set: pip_focus, to: 1, call: exit-ttx}",
     R"("set" does not belong to call, which has call, with, answer)"},
};

TEST(ScenarioReader, ExplainsEveryMistake) {
  for (const Wrong& wrong : kWrong) {
    EXPECT_EQ(MistakeIn(std::string("steps:\n- ") + wrong.step + '\n'),
              std::string("2: step 1: ") + wrong.message);
  }
}

TEST(ScenarioReader, NamesTheLineInsideAStep) {
  EXPECT_EQ(MistakeIn("steps:\n- {key: a}\n- call: exit-ttx\n  with:\n   - [x]\n"),
            "5: step 2: with: reason: a text is wanted, not a list");
}

TEST(ScenarioReader, RefusesWhatIsNoScenario) {
  EXPECT_EQ(MistakeIn(""), "0: nothing in it; a scenario is a map with steps");
  EXPECT_EQ(MistakeIn("# only a comment\n"), "0: nothing in it; a scenario is a map with steps");
  EXPECT_EQ(MistakeIn("[]"),
            "1: a scenario: a map {...} with scenario, steps is wanted, not a list");
  EXPECT_EQ(MistakeIn("steps: []"), "1: steps: a list with at least one step is wanted");
  EXPECT_EQ(MistakeIn("scenario: x"), "1: \"steps\" is missing");
  EXPECT_EQ(MistakeIn("stebs: []"),
            "1: \"stebs\" does not belong to a scenario, which has "
            "scenario, steps; did you mean steps?");
}

TEST(ScenarioReader, RefusesHostileTexts) {
  EXPECT_EQ(MistakeIn("steps: &a\n- {key: a}\n"), "1: anchors (&name) are not allowed");
  EXPECT_EQ(MistakeIn("steps: [*a]"), "1: not YAML: the referenced anchor is not defined");
  EXPECT_EQ(MistakeIn("steps: !!str x"), "1: tags (!name) are not allowed");
  EXPECT_EQ(MistakeIn("steps: {a: 1, a: 2}"), "1: \"a\" comes twice in the same place");
  EXPECT_EQ(MistakeIn("steps: {[a]: 1}"), "1: a key has to be a text, not a list");
  EXPECT_EQ(MistakeIn("steps: 1\n---\nsteps: 2\n"), "2: a second document begins; one is allowed");
  EXPECT_EQ(MistakeIn("steps: \n- {key: \"\xff\"}"), "2: a byte that is not UTF-8 text");
  EXPECT_EQ(MistakeIn(std::string("steps: [\0]", 10)), "1: a byte that is not UTF-8 text");
  EXPECT_EQ(MistakeIn("steps: [\"\\0\"]"), "1: an escape that stands for no character");
  EXPECT_EQ(MistakeIn("steps: {a: [}"), "1: not YAML: illegal flow end");
  EXPECT_EQ(MistakeIn(std::string(100000, '[')),
            "1: more than 16 lists and maps inside each other");
  EXPECT_EQ(MistakeIn(std::string(kLargestScenario + 1, '#')),
            "0: 1048577 bytes; at most 1048576 are allowed");
  std::string steps = "steps:\n";
  for (std::size_t i = 0; i <= kMostSteps; ++i) steps += "- {key: a}\n";
  EXPECT_EQ(MistakeIn(steps), "2: 10001 steps; at most 10000 are allowed");
  std::string keys = "{";
  for (int i = 0; i < 65; ++i) keys += "k" + std::to_string(i) + ": 1, ";
  EXPECT_EQ(MistakeIn(keys + "}"), "1: more than 64 keys in one place");
}

TEST(ScenarioReader, ShowsHostileValuesOnOneLine) {
  EXPECT_EQ(MistakeIn("steps:\n- {call: \"a\\n\\e[2J" + std::string(200, 'x') + "\"}"),
            "2: step 1: \"a\\x0a\\x1b[2J" + std::string(74, 'x') +
                "...\" is no method (\"kavrelctl methods\" lists them)");
}

}  // namespace
}  // namespace kavrelctl
