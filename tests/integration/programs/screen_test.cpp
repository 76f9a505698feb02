// What the viewer shows, looked at pixel by pixel.
#include <algorithm>
#include <chrono>

#include "plugin_programs.h"

namespace kavrel_test {
namespace {

using ::testing::HasSubstr;

constexpr unsigned kBlack = 0x000000;
constexpr unsigned kBanner = 0x10284c;
constexpr unsigned kPopup = 0x2b1d12;
constexpr unsigned kWhite = 0xffffff;
constexpr unsigned kLayer4 = 0x804020;
constexpr unsigned kLayer7 = 0x207040;
constexpr unsigned kLayer101 = 0x602080;

struct Spot {
  int x;
  int y;
  unsigned colour;
};

class Screen : public PluginPrograms {
 protected:
  Screen() : viewer_(StartViewer({"--headless"})) {}

  /// Takes pictures until all spots are as they should be. A plug-in's toolkit draws some frames
  /// while its window gets its size, in which the window is not filled yet.
  void ExpectSpots(const std::vector<Spot>& spots) const {
    const auto limit = std::chrono::steady_clock::now() + kGenerous;
    const auto is_right = [](const Pixels& pixels, const Spot& spot) {
      return pixels.At(spot.x, spot.y) == spot.colour;
    };
    for (;;) {
      const Pixels pixels = Screenshot();
      const auto wrong = std::find_if(spots.begin(), spots.end(),
                                      [&](const Spot& spot) { return !is_right(pixels, spot); });
      if (wrong == spots.end()) return;
      if (std::chrono::steady_clock::now() < limit) continue;
      ADD_FAILURE() << std::hex << pixels.At(wrong->x, wrong->y) << " at " << std::dec << wrong->x
                    << ',' << wrong->y << ", not " << std::hex << wrong->colour;
      return;
    }
  }

  std::unique_ptr<ChildProcess> viewer_;
};

TEST_F(Screen, HasTheSizeOfAPicture) {
  const Pixels pixels = Screenshot();
  EXPECT_EQ(pixels.width(), 1280);
  EXPECT_EQ(pixels.height(), 720);
}

TEST_F(Screen, ShowsBannersAsLongAsTheyAreCommanded) {
  const Pixels before = Screenshot();
  EXPECT_NE(before.At(600, 572), kBanner);
  EXPECT_NE(before.At(1230, 100), kPopup);
  Tool({"call", "show-channel-banner", "1"});
  Tool({"call", "show-sleep-timer-popup", "1"});
  Pixels pixels = Screenshot();
  EXPECT_EQ(pixels.At(600, 572), kBanner);
  EXPECT_EQ(pixels.At(1230, 100), kPopup);
  Tool({"call", "send-hide-banner", "all", "me"});
  pixels = Screenshot();
  EXPECT_EQ(pixels.At(600, 572), before.At(600, 572));
  EXPECT_EQ(pixels.At(1230, 100), before.At(1230, 100));
}

// What they stood for, here a lock, goes on.
TEST_F(Screen, LetsBannersLeaveByThemselves) {
  viewer_->Signal(SIGTERM);
  ASSERT_EQ(OutcomeOf(*viewer_).exit_code, 0);
  const auto viewer = StartViewer({"--headless", "--banner-seconds", "0.1"});
  Tool({"call", "show-sleep-timer-popup", "1"});
  Tool({"call", "show-rating-banner", "1", "18", "violence"});
  Expect(*viewer, "time is up: rating banner hidden");
  Tool({"call", "show-channel-banner", "1"});
  Expect(*viewer, "time is up: channel banner hidden");
  Tool({"call", "show-channel-banner", "1"});
  Expect(*viewer, "time is up: channel banner hidden");
  EXPECT_EQ(Tool({"get", "visible_banners"}).output, "sleep-timer\n");
  EXPECT_EQ(Tool({"get", "rating_locked"}).output, "locked\n");
  EXPECT_NE(Screenshot().At(600, 572), kBanner);
}

TEST_F(Screen, HasARemoteControlBesideThePictureOnRequest) {
  viewer_->Signal(SIGTERM);
  ASSERT_EQ(OutcomeOf(*viewer_).exit_code, 0);
  const auto viewer = StartViewer({"--headless", "--remote"});
  const Pixels pixels = Screenshot();
  EXPECT_EQ(pixels.width(), 1280 + 240);
  EXPECT_EQ(pixels.height(), 720);
  EXPECT_EQ(pixels.At(1306, 84), 0x39414dU);  // a button
}

TEST_F(Screen, TellsChannelsAndSourcesApart) {
  const auto background = [](const Pixels& pixels) { return pixels.At(1100, 300); };
  const Pixels one = Screenshot();
  Tool({"call", "tune-channel-main", "7", "me"});
  const Pixels seven = Screenshot();
  EXPECT_NE(background(one), background(seven));
  EXPECT_EQ(one.At(420, 230), seven.At(420, 230));  // the bars are the same
  Tool({"call", "change-source", "HDMI", "1", "Player", "me"});
  const Pixels player = Screenshot();
  EXPECT_NE(background(player), background(seven));
  EXPECT_NE(player.At(420, 230), seven.At(420, 230));
  Tool({"call", "show-nosignal-banner", "1", "no cable"});
  EXPECT_NE(background(Screenshot()), background(player));
}

TEST_F(Screen, ListsTheLastCalls) {
  const unsigned picture = Screenshot().At(1260, 700);
  Tool({"call", "get-window-size"});
  EXPECT_NE(Screenshot().At(1260, 700), picture);
}

TEST_F(Screen, ShowsThePictureInItsSize) {
  const unsigned picture = Screenshot().At(1100, 300);
  EXPECT_NE(picture, kBlack);
  Tool({"call", "set-window-size", "2"});
  const Pixels half = Screenshot();
  EXPECT_EQ(half.At(1200, 300), kBlack);
  EXPECT_EQ(half.At(870, 330), picture);
  Tool({"call", "set-window-size", "0"});
  const unsigned below_pip = Screenshot().At(890, 500);
  Tool({"call", "tune-channel-pip", "12", "me"});
  EXPECT_NE(Screenshot().At(890, 500), below_pip);
}

// It is given on a picture of 1920x1080, the screen is two thirds as large.
TEST_F(Screen, ShowsTheSelectionWindowWhereItIs) {
  const Pixels before = Screenshot();
  EXPECT_NE(before.At(201, 240), kWhite);
  Tool({"call", "change-selection-window-zoom-level", "3"});
  Tool({"call", "move-selection-window-to", "300", "201"});
  EXPECT_EQ(Tool({"call", "get-selection-window-info"}).output,
            "left    300\ntop     201\nwidth   480\nheight  270\nresult  true\n");
  const Pixels pixels = Screenshot();
  for (const auto& [x, y] : {std::pair(201, 240), {518, 240}, {360, 135}, {360, 312}}) {
    EXPECT_EQ(pixels.At(x, y), kWhite) << x << ',' << y;
  }
  // What it encloses is twice as large, around the same middle.
  EXPECT_EQ(pixels.At(470, 250), before.At(415, 237));
  EXPECT_NE(pixels.At(470, 250), before.At(470, 250));
  Tool({"call", "send-init-command", ""});
  EXPECT_EQ(Screenshot().At(201, 240), before.At(201, 240));
}

TEST_F(Screen, ComposesPluginsOnTheirLayers) {
  // In an order that is not that of the layers.
  const auto top = StartPanel(*viewer_, "notes", "6", "602080");
  const auto broadcast =
      StartPanel(*viewer_, "hbbtv", "5", "207040", {"--key", "XF86Back", "--key", "XF86Menu"});
  const auto middle = StartPanel(*viewer_, "weather", "5", "804020");
  Tool({"call", "show-sleep-timer-popup", "1"});
  Tool({"call", "show-fan-error-popup", "1"});
  ExpectSpots({{300, 440, kLayer4},       // alone
               {600, 440, kLayer7},       // above layer 4
               {900, 500, kLayer7},       // alone
               {1000, 270, kLayer101},    // above layer 7
               {1040, 346, kPopup},       // the viewer's pop-up, above layer 7
               {1200, 100, kLayer101}});  // above the viewer's pop-up
  Tool({"call", "send-hide-banner", "all", "me"});
  SendKey("XF86Back", {"--release"});
  Expect(*viewer_, "plug-in hbbtv: hidden");
  ExpectSpots({{600, 440, kLayer4}, {1000, 270, kLayer101}});
  EXPECT_EQ(ListPlugins()[0]["visible"], false);
  SendKey("XF86Menu", {"--release"});
  Expect(*viewer_, "plug-in hbbtv: shown");
  ExpectSpots({{600, 440, kLayer7}});
  broadcast->Kill();
  Expect(*viewer_, "plug-in hbbtv: window gone");
  ExpectSpots({{600, 440, kLayer4}, {1000, 270, kLayer101}});
  EXPECT_NE(Screenshot().At(900, 500), kLayer7);
}

// A window may come before its plug-in's name.
TEST_F(Screen, MovesAWindowToItsPlaceWhenItsPluginComesLater) {
  const auto middle = StartPanel(*viewer_, "weather", "5", "804020");
  ChildProcess late(Options(KAVREL_COMMANDED_PLUGIN, {"hbbtv", "5", "late", "window=207040"}));
  Expect(*viewer_, "plug-in hbbtv: window on layer 0");
  ExpectSpots({{300, 440, kLayer4}, {600, 440, kLayer4}, {1200, 600, kLayer7}});
  late.WriteInput("join\n");
  Expect(*viewer_, "plug-in hbbtv: window on layer 7");
  ExpectSpots({{300, 440, kLayer4}, {600, 440, kLayer7}, {1000, 540, kLayer7}});
  EXPECT_NE(Screenshot().At(1200, 600), kLayer7);
}

TEST_F(Screen, IsSavedAtTheEnd) {
  viewer_->Signal(SIGTERM);
  ASSERT_EQ(OutcomeOf(*viewer_).exit_code, 0);
  const std::string file = directory_.Path("end.png");
  const auto viewer = StartViewer({"--screenshot", file});
  Tool({"call", "show-channel-banner", "1"});
  viewer->Signal(SIGTERM);
  EXPECT_EQ(OutcomeOf(*viewer).exit_code, 0) << viewer->errors();
  EXPECT_EQ(Pixels(file).At(600, 572), kBanner);
}

TEST_F(Screen, IsNotSavedWhereNobodyMayWrite) {
  const Outcome outcome = Tool({"screenshot", directory_.Path("no/such/file.png")});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("file.png\": No such file or directory\n"));
}

TEST_F(Screen, OutlivesTextsOfAnyKind) {
  for (const std::string& text : {std::string("\xff\xfe\x80"), std::string(5000, 'x'),
                                  std::string("a\x1b[2J\nb"), std::string("\xe2\x80\xae")}) {
    Tool({"call", "show-nosignal-banner", "1", text});
    EXPECT_EQ(Screenshot().width(), 1280);
  }
}

}  // namespace
}  // namespace kavrel_test
