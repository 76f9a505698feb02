// The viewer publishes what it does; kavrelctl gets, sets and watches it.
#include <gmock/gmock.h>
#include <kavrel/state_properties.h>
#include <signal.h>

#include <nlohmann/json.hpp>

#include "programs.h"

namespace kavrel_test {
namespace {

using kavrel::state::kProperties;
using kavrel::state::PropertyInfo;
using kavrel::state::PropertyType;
using nlohmann::json;
using ::testing::HasSubstr;

class State : public Programs {
 protected:
  std::string Get(const std::string& property) const {
    const Outcome outcome = Tool({"get", property});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
    return outcome.output.substr(0, outcome.output.find('\n'));
  }

  /// One-way commands are carried out when an answer to a later question is there.
  void Call(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "call");
    EXPECT_EQ(Tool(arguments).exit_code, 0);
    EXPECT_EQ(Tool({"call", "get-window-size"}).exit_code, 0);
  }

  /// A watcher that misses nothing from now on.
  std::unique_ptr<ChildProcess> Watch(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "watch");
    auto watcher = StartTool(arguments);
    EXPECT_TRUE(watcher->WaitForLine("kavrelctl: watching")) << watcher->errors();
    return watcher;
  }
};

TEST_F(State, WithoutAViewerThereIsNone) {
  const Outcome outcome = Tool({"get", "kavrel_state"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.errors, "kavrelctl: kavrel_state has no value: nobody has set it yet\n");
  const Outcome all = Tool({"get", "--all", "--json"});
  EXPECT_EQ(all.exit_code, 0);
  for (const json& property : json::parse(all.output)) EXPECT_TRUE(property["value"].is_null());
}

TEST_F(State, EveryPropertyThatCanBeSetIsReadBack) {
  for (const PropertyInfo& property : kProperties) {
    SCOPED_TRACE(property.name);
    if (!property.IsWritable()) {
      EXPECT_EQ(Tool({"set", property.name, "1"}).exit_code, 2);
      continue;
    }
    const char* const value = property.type == PropertyType::Bool  ? "true"
                              : property.type == PropertyType::Int ? "-42"
                                                                   : "a text";
    const Outcome set = Tool({"set", property.name, value});
    EXPECT_EQ(set.exit_code, 0) << set.errors;
    EXPECT_EQ(set.output + set.errors, "");
    EXPECT_EQ(Get(property.name), value);
  }
}

TEST_F(State, AllIsATableOfTheTwentyProperties) {
  const auto viewer = StartViewer();
  const Outcome table = Tool({"get", "--all"});
  EXPECT_EQ(std::count(table.output.begin(), table.output.end(), '\n'), 21);
  EXPECT_THAT(table.output, HasSubstr("\npip_focus                            int     0         "
                                      "get set watch  memory/kavrel/pip_focus\n"));
  const json all = json::parse(Tool({"get", "--all", "--json"}).output);
  ASSERT_EQ(all.size(), kavrel::state::kPropertyCount);
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i]["name"], kProperties[i].name);
    EXPECT_EQ(all[i]["key"], kProperties[i].key);
    EXPECT_EQ(all[i]["settable"], kProperties[i].IsWritable());
    EXPECT_EQ(all[i]["watchable"], kProperties[i].IsWatchable());
  }
}

TEST_F(State, FollowsWhatTheViewerIsTold) {
  const auto viewer = StartViewer();
  EXPECT_EQ(Get("kavrel_state"), "running");
  EXPECT_EQ(Get("visible_banners"), "\"\"");
  EXPECT_EQ(Get("rating_locked"), "unlocked");
  EXPECT_EQ(Get("window_id"), "0");
  Call({"show-channel-banner", "1"});
  Call({"show-sleep-timer-popup", "1"});
  EXPECT_EQ(Get("visible_banners"), "channel,sleep-timer");
  EXPECT_EQ(Get("visible_video_banners"), "channel");
  EXPECT_EQ(Get("banner_show_state"), "1");
  EXPECT_EQ(Get("use_4_direction_key"), "1");
  Call({"send-hide-banner", "all", "me"});
  EXPECT_EQ(Get("banner_show_state"), "0");
  EXPECT_EQ(Get("use_4_direction_key"), "0");
  Call({"show-rating-banner", "1", "18", "violence"});
  EXPECT_EQ(Get("rating_locked"), "locked");
  EXPECT_EQ(Get("kavrel_state"), "locked");
  Call({"show-nosignal-banner", "1", "no cable"});
  EXPECT_EQ(Get("mainscreen_signal_state"), "0");
  Call({"tune-channel-main", "7", "me"});
  EXPECT_EQ(Get("kavrel_state"), "running");
  EXPECT_EQ(Get("mainscreen_signal_state"), "1");
  EXPECT_EQ(Get("info_banner_ttx_state"), "true");
  EXPECT_EQ(Get("info_banner_caption_state"), "true");
  EXPECT_EQ(Get("date_service_available"), "1");
  Call({"change-source", "HDMI", "1", "Player", "me"});
  EXPECT_EQ(Get("info_banner_ttx_state"), "false");
  EXPECT_EQ(Get("date_service_available"), "0");
  Call({"tune-channel-pip", "12", "me"});
  Call({"send-command", "pip-focus", "pip"});
  EXPECT_EQ(Get("pip_focus"), "1");
  Call({"set-window-size", "1"});
  EXPECT_EQ(Get("bg_executable"), "1");
}

TEST_F(State, ANewViewerLeavesNothingOfAKilledOne) {
  auto viewer = StartViewer();
  Call({"show-channel-banner", "1"});
  viewer->Kill();
  EXPECT_EQ(Get("visible_banners"), "channel");
  viewer = StartViewer();
  EXPECT_EQ(Get("visible_banners"), "\"\"");
}

TEST_F(State, WatchShowsOldValueNewValueAndKey) {
  const auto viewer = StartViewer();
  const auto watcher = Watch({"pip_focus", "--count", "1"});
  Tool({"set", "pip_focus", "1"});
  const Outcome outcome = OutcomeOf(*watcher);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.output, "pip_focus: 0 -> 1  (memory/kavrel/pip_focus)\n");
  EXPECT_EQ(outcome.errors, "kavrelctl: watching 1 property; Ctrl-C ends\n");
}

TEST_F(State, WatchFollowsCalls) {
  const auto viewer = StartViewer();
  const auto watcher = Watch({});
  EXPECT_THAT(watcher->errors(), HasSubstr("watching 17 properties"));
  Tool({"call", "show-channel-banner", "1"});
  EXPECT_EQ(watcher->WaitForLine("visible_banners: "),
            "visible_banners: \"\" -> channel  (memory/kavrel/visible_banners)");
  Tool({"call", "show-rating-banner", "1", "18", "x"});
  EXPECT_EQ(watcher->WaitForLine("rating_locked: "),
            "rating_locked: unlocked -> locked  (memory/kavrel/rating_locked)");
  watcher->Signal(SIGINT);
  EXPECT_EQ(OutcomeOf(*watcher).exit_code, 0);
}

TEST_F(State, WatchTellsProgramsToo) {
  const auto watcher = Watch({"info_banner_ttx_state", "pip_focus", "--json", "--count", "2"});
  Tool({"set", "info_banner_ttx_state", "on"});
  EXPECT_EQ(watcher->WaitForLine("ttx"),
            R"({"name":"info_banner_ttx_state","key":"memory/kavrel/infobanner/ttx",)"
            R"("old":null,"new":true})");
  Tool({"set", "pip_focus", "7"});
  EXPECT_EQ(watcher->WaitForLine("pip"),
            R"({"name":"pip_focus","key":"memory/kavrel/pip_focus","old":null,"new":7})");
  EXPECT_EQ(OutcomeOf(*watcher).exit_code, 0);
}

TEST_F(State, WatchTellsWhenItIsReady) {
  ChildProcess watcher(Options(
      "/bin/sh", {"-c", "exec \"$KAVRELCTL\" watch pip_focus --count 1 --ready-fd 3 3>&1 2>&-"}));
  ASSERT_EQ(watcher.WaitForLine(""), "");
  Tool({"set", "pip_focus", "1"});
  EXPECT_EQ(OutcomeOf(watcher).exit_code, 0);
}

TEST_F(State, WatchEndsWithASignalAtAnyTime) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const auto watcher = Watch({});
    watcher->Signal(signal);
    EXPECT_EQ(OutcomeOf(*watcher).exit_code, 0);
  }
}

}  // namespace
}  // namespace kavrel_test
