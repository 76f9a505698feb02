// Steps that a recorder writes read back as the same steps.
#include "step_text.h"

#include <gtest/gtest.h>

#include "scenario_reader.h"

namespace kavrelctl {
namespace {

using nlohmann::ordered_json;

/// The step of a recorded event, as a scenario has it.
template <class Action>
Action Recorded(const ordered_json& step) {
  const std::string text = "steps:\n- " + StepText(step) + '\n';
  return std::get<Action>(ReadScenario(text).steps.at(0).action);
}

TEST(StepText, IsReadable) {
  EXPECT_EQ(
      StepText(CallStep({{"method", "TuneChannel"},
                         {"arguments", {{"a", "7"}, {"b", "Two words"}, {"c", ""}, {"d", "~"}}},
                         {"result", nullptr}})),
      R"({call: tune-channel, with: [7, Two words, "", "~"]})");
  EXPECT_EQ(StepText(CallStep({{"method", "GetWindowSize"},
                               {"arguments", ordered_json::object()},
                               {"values", {{"size", 2}}},
                               {"result", true}})),
            "{call: get-window-size, answer: {size: 2, result: true}}");
  EXPECT_EQ(StepText(KeyStep({{"key", "7"}, {"type", "pressed"}, {"device", "ir"}})),
            "{key: 7, action: press}");
  EXPECT_EQ(StepText(KeyStep({{"key", "7"}, {"type", "released"}, {"device", "vr"}})),
            "{key: 7, action: release, device: vr}");
  EXPECT_EQ(StepText(SetStep({{"property", "pip_focus"}, {"value", -1}})),
            "{set: pip_focus, to: -1}");
  EXPECT_EQ(StepText(WaitStep("visible_banners", "a,b")),
            "{wait: {property: visible_banners, is: \"a,b\"}}");
}

TEST(StepText, OddTextsReadBackAsTheyWere) {
  const std::string texts[] = {"",
                               "~",
                               "null",
                               "a: b",
                               "- a",
                               "#x",
                               "{",
                               "[a, b]",
                               "'",
                               "\"",
                               "\\",
                               "a\nb\r\n",
                               " a ",
                               "\t",
                               "&a",
                               "*a",
                               "!a",
                               "%a",
                               "@a",
                               "`a",
                               "?",
                               "\x1b[2J\x7f",
                               "yes",
                               "1e5",
                               "\xc3\xa4",
                               "\xf0\x9f\x93\xba",
                               "\xc2\x85",
                               "\xe2\x80\xa8",
                               "\xef\xbb\xbf"
                               "a",
                               "\xef\xbf\xbd",
                               std::string(5000, 'x'),
                               "a #b",
                               "a, b",
                               "---",
                               "...",
                               "a:",
                               ":a"};
  for (const std::string& text : texts) {
    const ordered_json event = {
        {"method", "ExitTTX"}, {"arguments", {{"reason", text}}}, {"result", nullptr}};
    const auto call = Recorded<CallAction>(CallStep(event));
    ASSERT_EQ(call.arguments.size(), 1U);
    EXPECT_EQ(call.arguments[0].at(0), text);
    EXPECT_EQ(Recorded<WaitAction>(WaitStep("kavrel_state", text)).within_seconds,
              kDefaultWithinSeconds);
  }
}

TEST(StepText, ListsAndRefusalsReadBack) {
  const auto call = Recorded<CallAction>(
      CallStep({{"method", "SendMbrKey"},
                {"arguments", {{"a", 1}, {"b", -2}, {"c", 3}, {"d", "K"}, {"e", {"fast", ""}}}},
                {"result", nullptr}}));
  EXPECT_EQ(call.arguments.back(), (std::vector<std::string>{"fast", ""}));
  const auto refused = Recorded<CallAction>(CallStep({{"method", "GetWindowSize"},
                                                      {"arguments", ordered_json::object()},
                                                      {"values", {{"size", 0}}},
                                                      {"result", false}}));
  EXPECT_EQ(refused.answer.dump(), R"({"result":false})");
}

TEST(StepText, WhatCannotBePlayedIsNoStep) {
  EXPECT_TRUE(CallStep({{"method", "Nothing"}}).is_null());
  EXPECT_TRUE(SetStep({{"property", "visible_banners"}, {"value", "x"}}).is_null());
  EXPECT_TRUE(SetStep({{"property", "pip_focus"}, {"value", nullptr}}).is_null());
}

}  // namespace
}  // namespace kavrelctl
