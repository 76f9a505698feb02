// What the viewer shows, looked at pixel by pixel.
#include <algorithm>
#include <chrono>

#include "plugin_programs.h"

namespace kavrel_test {
namespace {

using ::testing::HasSubstr;

constexpr unsigned kBlack = 0x000000;
constexpr unsigned kBanner = 0x103c78;
constexpr unsigned kPopup = 0xa05010;
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
  const unsigned picture = Screenshot().At(600, 660);
  EXPECT_NE(picture, kBanner);
  Tool({"call", "show-channel-banner", "1"});
  Tool({"call", "show-sleep-timer-popup", "1"});
  Pixels pixels = Screenshot();
  EXPECT_EQ(pixels.At(600, 660), kBanner);
  EXPECT_EQ(pixels.At(1220, 60), kPopup);
  Tool({"call", "send-hide-banner", "all", "me"});
  pixels = Screenshot();
  EXPECT_EQ(pixels.At(600, 660), picture);
  EXPECT_EQ(pixels.At(1220, 60), picture);
}

TEST_F(Screen, ShowsThePictureInItsSize) {
  const unsigned picture = Screenshot().At(1200, 700);
  EXPECT_NE(picture, kBlack);
  Tool({"call", "set-window-size", "2"});
  const Pixels half = Screenshot();
  EXPECT_EQ(half.At(1200, 700), kBlack);
  EXPECT_EQ(half.At(900, 500), picture);
  Tool({"call", "set-window-size", "0"});
  Tool({"call", "tune-channel-pip", "12", "me"});
  EXPECT_NE(Screenshot().At(1200, 200), picture);
}

TEST_F(Screen, ComposesPluginsOnTheirLayers) {
  // In an order that is not that of the layers.
  const auto top = StartPanel(*viewer_, "notes", "6", "602080");
  const auto broadcast =
      StartPanel(*viewer_, "hbbtv", "5", "207040", {"--key", "XF86Back", "--key", "XF86Menu"});
  const auto middle = StartPanel(*viewer_, "weather", "5", "804020");
  Tool({"call", "show-sleep-timer-popup", "1"});
  ExpectSpots({{300, 440, kLayer4},       // alone
               {700, 440, kLayer7},       // above layer 4
               {900, 500, kLayer7},       // alone
               {1000, 270, kLayer101},    // above layer 7
               {700, 100, kPopup},        // the viewer's pop-up, above layer 4
               {1200, 100, kLayer101}});  // above the viewer's pop-up
  SendKey("XF86Back", {"--release"});
  Expect(*viewer_, "plug-in hbbtv: hidden");
  ExpectSpots({{700, 440, kLayer4}, {1000, 270, kLayer101}});
  EXPECT_EQ(ListPlugins()[0]["visible"], false);
  SendKey("XF86Menu", {"--release"});
  Expect(*viewer_, "plug-in hbbtv: shown");
  ExpectSpots({{700, 440, kLayer7}});
  broadcast->Kill();
  Expect(*viewer_, "plug-in hbbtv: window gone");
  ExpectSpots({{700, 440, kLayer4}, {1000, 270, kLayer101}});
  EXPECT_NE(Screenshot().At(900, 500), kLayer7);
}

// A window may come before its plug-in's name.
TEST_F(Screen, MovesAWindowToItsPlaceWhenItsPluginComesLater) {
  const auto middle = StartPanel(*viewer_, "weather", "5", "804020");
  ChildProcess late(Options(KAVREL_COMMANDED_PLUGIN, {"hbbtv", "5", "late", "window=207040"}));
  Expect(*viewer_, "plug-in hbbtv: window on layer 0");
  ExpectSpots({{300, 440, kLayer4}, {700, 440, kLayer4}, {1200, 690, kLayer7}});
  late.WriteInput("join\n");
  Expect(*viewer_, "plug-in hbbtv: window on layer 7");
  ExpectSpots({{300, 440, kLayer4}, {700, 440, kLayer7}, {1000, 580, kLayer7}});
  EXPECT_NE(Screenshot().At(1200, 690), kLayer7);
}

TEST_F(Screen, IsSavedAtTheEnd) {
  viewer_->Signal(SIGTERM);
  ASSERT_EQ(OutcomeOf(*viewer_).exit_code, 0);
  const std::string file = directory_.Path("end.png");
  const auto viewer = StartViewer({"--screenshot", file});
  Tool({"call", "show-channel-banner", "1"});
  viewer->Signal(SIGTERM);
  EXPECT_EQ(OutcomeOf(*viewer).exit_code, 0) << viewer->errors();
  EXPECT_EQ(Pixels(file).At(600, 660), kBanner);
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
