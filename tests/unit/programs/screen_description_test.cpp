// What programs are told about the screen.
#include "screen_description.h"

#include <gtest/gtest.h>

namespace viewer {
namespace {

using nlohmann::json;

TEST(ScreenDescription, TellsWhatATelevisionShowsAtItsStart) {
  const Television television;
  EXPECT_EQ(json(DescribeScreen(television)), json::parse(R"({
    "activity":"running", "viewer_state":"RESUME_FOCUS",
    "channel":{"number":"1","name":"One","source":"DVB-T","service_id":"1001"},
    "source":{"type":"DVB-T","number":"","label":""},
    "banners":[], "popups":[], "pip":null,
    "selection_window":{"shown":false,"zoom_level":0,"left":480,"top":270,"width":960,"height":540,
      "move_range":{"least_left":0,"least_top":0,"greatest_left":960,"greatest_top":540}},
    "window_size":0, "teletext":false, "language":"en_GB", "kept_keys":[]})"));
}

TEST(ScreenDescription, FollowsTheTelevision) {
  Television television;
  television.Tune("7", "", "");
  television.ChangeSource("HDMI", "2", "Player");
  television.SetBanner(Banner::kCaption, true, {"Hello"});
  television.SetBanner(Banner::kFanError, true, {});
  television.TunePip("12");
  television.Command("pip-focus", "pip");
  television.ChangeZoomLevel(4);
  television.MoveSelectionWindow({1536, 864});
  const json screen = DescribeScreen(television);
  EXPECT_EQ(screen["channel"]["name"], "News");
  EXPECT_EQ(screen["source"], json::parse(R"({"type":"HDMI","number":"2","label":"Player"})"));
  EXPECT_EQ(screen["banners"], json::parse(R"([{"name":"caption","texts":["Hello"]}])"));
  EXPECT_EQ(screen["popups"], json::parse(R"([{"name":"fan-error","texts":[]}])"));
  EXPECT_EQ(screen["pip"]["channel"]["number"], "12");
  EXPECT_EQ(screen["pip"]["focused"], true);
  EXPECT_EQ(screen["selection_window"]["shown"], true);
  EXPECT_EQ(screen["selection_window"]["left"], 1536);
  EXPECT_EQ(screen["selection_window"]["zoom_level"], 4);
  television.Initialise("");
  EXPECT_EQ(DescribeScreen(television)["selection_window"]["shown"], false);
}

}  // namespace
}  // namespace viewer
