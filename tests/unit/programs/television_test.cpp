#include "television.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace viewer {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TelevisionTest : public ::testing::Test {
 protected:
  TelevisionTest() {
    television_.AddListener([this](const Change& change) { changes_.push_back(change); });
  }

  std::vector<std::string> TakeTexts() {
    std::vector<std::string> texts;
    for (const Change& change : std::exchange(changes_, {})) texts.push_back(change.text);
    return texts;
  }

  std::vector<std::string> ShownNames() const {
    std::vector<std::string> names;
    for (const ShownBanner& shown : television_.banners().shown()) {
      names.emplace_back(InfoOf(shown.banner).name);
    }
    return names;
  }

  Television television_;
  std::vector<Change> changes_;
};

TEST_F(TelevisionTest, BeginsOnTheFirstChannelWithNothingShown) {
  EXPECT_EQ(television_.channel().number, "1");
  EXPECT_EQ(television_.source().type, "DVB-T");
  EXPECT_EQ(television_.window_size(), 0);
  EXPECT_EQ(television_.activity(), Activity::kRunning);
  EXPECT_TRUE(television_.has_signal());
  EXPECT_TRUE(television_.services().teletext);
  EXPECT_THAT(ShownNames(), IsEmpty());
}

TEST_F(TelevisionTest, TunesAKnownChannelWithWhatItCarries) {
  television_.Tune("7", "", "");
  EXPECT_EQ(television_.channel().name, "News");
  EXPECT_TRUE(television_.services().data);
  EXPECT_EQ(television_.previous_channel()->number, "1");
  EXPECT_THAT(TakeTexts(), ElementsAre("channel 7 News on DVB-T"));
}

TEST_F(TelevisionTest, TunesAnUnknownChannelAsItIsNamed) {
  television_.Tune("4711", "Far", "DVB-S");
  EXPECT_EQ(television_.channel(), (Channel{"4711", "Far", "DVB-S", "", {}}));
  EXPECT_EQ(television_.source(), (Source{"DVB-S", "", ""}));
}

TEST_F(TelevisionTest, TunesByMajorAndMinorNumber) {
  television_.TuneMajor(5, 1);
  EXPECT_EQ(television_.channel().name, "Metro");
  television_.TuneMajor(7, 0);
  EXPECT_EQ(television_.channel().name, "News");
}

TEST_F(TelevisionTest, TunesByServiceId) {
  television_.TuneService("3011");
  EXPECT_EQ(television_.channel().name, "Sport");
  television_.TuneService("9999");
  EXPECT_EQ(television_.channel().service_id, "9999");
  EXPECT_EQ(changes_.back().text, "channel service 9999 on DVB-T");
}

TEST_F(TelevisionTest, TunesBySpokenNameOrNumber) {
  television_.TuneByVoice("film");
  EXPECT_EQ(television_.channel().number, "12");
  television_.TuneByVoice("24");
  EXPECT_EQ(television_.channel().name, "Kids");
}

TEST_F(TelevisionTest, RefusesToTuneToNothing) {
  television_.Tune("", "News", "DVB-T");
  television_.TuneService("");
  television_.TuneByVoice("");
  television_.TuneMajor(0, 1);
  television_.TuneMajor(1, -1);
  ASSERT_EQ(changes_.size(), 5U);
  for (const Change& change : changes_) EXPECT_EQ(change.aspect, Aspect::kRefusal);
  EXPECT_EQ(television_.channel().number, "1");
}

TEST_F(TelevisionTest, WatchesAnotherSourceWithoutTheChannelsServices) {
  television_.ChangeSource("HDMI", "2", "Player");
  EXPECT_EQ(television_.source(), (Source{"HDMI", "2", "Player"}));
  EXPECT_EQ(television_.services(), Services{});
  EXPECT_EQ(television_.channel().number, "1");
  EXPECT_THAT(TakeTexts(), ElementsAre("source HDMI 2 (Player)"));
  television_.Tune("1", "", "");
  EXPECT_TRUE(television_.services().teletext);
  EXPECT_EQ(television_.source().type, "DVB-T");
}

TEST_F(TelevisionTest, ShowsAndHidesEveryBanner) {
  for (const BannerInfo& info : kBannerTable) {
    television_.SetBanner(info.banner, true, {"a", "b"});
    EXPECT_TRUE(television_.banners().IsShown(info.banner)) << info.name;
  }
  EXPECT_EQ(television_.banners().shown().size(), kBannerTable.size());
  for (const BannerInfo& info : kBannerTable) television_.HideBanner(std::string(info.name));
  EXPECT_THAT(ShownNames(), IsEmpty());
}

TEST_F(TelevisionTest, SaysWhatABannerShows) {
  television_.SetBanner(Banner::kSource, true, {"HDMI", "Player"});
  television_.SetBanner(Banner::kSleepTimer, true);
  television_.SetBanner(Banner::kSource, false);
  EXPECT_THAT(TakeTexts(), ElementsAre("source banner shown: HDMI, Player",
                                       "sleep-timer pop-up shown", "source banner hidden"));
}

TEST_F(TelevisionTest, HidingWhatIsNotShownChangesNothing) {
  television_.SetBanner(Banner::kMts, false);
  television_.HideBanner("mts");
  EXPECT_THAT(changes_, IsEmpty());
}

TEST_F(TelevisionTest, RaisesABannerThatIsShownAgain) {
  television_.SetBanner(Banner::kChannel, true, {"old"});
  television_.SetBanner(Banner::kMts, true);
  television_.SetBanner(Banner::kChannel, true, {"new"});
  EXPECT_THAT(ShownNames(), ElementsAre("mts", "channel"));
  EXPECT_THAT(television_.banners().shown().back().details, ElementsAre("new"));
}

TEST_F(TelevisionTest, KeepsADisabledBannerAwayUntilItIsEnabled) {
  television_.SetBanner(Banner::kChannel, true);
  television_.DisableBanner("channel");
  EXPECT_THAT(ShownNames(), IsEmpty());
  television_.SetBanner(Banner::kChannel, true);
  EXPECT_THAT(ShownNames(), IsEmpty());
  EXPECT_EQ(changes_.back().text, "refused: channel banner is disabled");
  television_.EnableBanner("channel");
  television_.SetBanner(Banner::kChannel, true);
  EXPECT_THAT(ShownNames(), ElementsAre("channel"));
}

TEST_F(TelevisionTest, RefusesBannersItDoesNotHave) {
  television_.EnableBanner("nope");
  television_.DisableBanner("nope");
  television_.HideBanner("");
  ASSERT_EQ(changes_.size(), 3U);
  EXPECT_EQ(changes_[0].text, "refused: no banner is called \"nope\"");
  EXPECT_EQ(changes_[2].aspect, Aspect::kRefusal);
}

TEST_F(TelevisionTest, SignalAndRatingFollowTheirBannersEvenDisabledOnes) {
  television_.DisableBanner("nosignal");
  television_.SetBanner(Banner::kNoSignal, true, {"check the cable"});
  EXPECT_FALSE(television_.has_signal());
  EXPECT_EQ(television_.activity(), Activity::kNoSignal);
  television_.SetBanner(Banner::kNoSignal, false);
  EXPECT_TRUE(television_.has_signal());
  television_.SetBanner(Banner::kRating, true, {"18", "violence"});
  EXPECT_TRUE(television_.is_rating_locked());
  EXPECT_EQ(television_.activity(), Activity::kLocked);
}

TEST_F(TelevisionTest, ANewPictureEndsWhatStoodBeforeTheOldOne) {
  television_.SetBanner(Banner::kNoSignal, true, {""});
  television_.SetBanner(Banner::kRating, true, {"18", ""});
  television_.SetBanner(Banner::kLoading, true, {"wait"});
  television_.SetBanner(Banner::kChannel, true, {"1"});
  EXPECT_EQ(television_.activity(), Activity::kLoading);
  television_.DiscreteCommand("teletext", "on");
  television_.Tune("2", "", "");
  EXPECT_EQ(television_.activity(), Activity::kRunning);
  EXPECT_FALSE(television_.is_teletext_shown());
  EXPECT_THAT(ShownNames(), ElementsAre("channel"));
}

TEST_F(TelevisionTest, PipOpensTakesTheFocusAndCloses) {
  television_.Command("pip-focus", "pip");
  EXPECT_FALSE(television_.is_pip_focused());
  EXPECT_EQ(changes_.back().text, "refused: there is no picture-in-picture");
  television_.TunePip("12");
  EXPECT_EQ(television_.pip()->name, "Film");
  television_.Command("pip-focus", "pip");
  EXPECT_TRUE(television_.is_pip_focused());
  television_.TunePip("");
  EXPECT_FALSE(television_.pip());
  EXPECT_FALSE(television_.is_pip_focused());
  changes_.clear();
  television_.TunePip("");
  EXPECT_THAT(changes_, IsEmpty());
}

TEST_F(TelevisionTest, TheWindowSizeThatWasSetIsRead) {
  for (int size = 0; size <= Television::kLastWindowSize; ++size) {
    EXPECT_TRUE(television_.SetWindowSize(size));
    EXPECT_EQ(television_.window_size(), size);
  }
  for (const int size : {-1, 4, 2147483647}) EXPECT_FALSE(television_.SetWindowSize(size));
  EXPECT_EQ(television_.window_size(), 3);
}

TEST_F(TelevisionTest, RefusesASelectionWindowOffThePicture) {
  EXPECT_TRUE(television_.MoveSelectionWindow({0, 0}));
  EXPECT_FALSE(television_.MoveSelectionWindow({961, 0}));
  EXPECT_EQ(television_.selection_window().position(), (Position{0, 0}));
  EXPECT_EQ(changes_.back().text, "refused: position 961,0 is outside 0,0 to 960,540");
  EXPECT_FALSE(television_.StoreSelectionWindow({0, -1}));
  EXPECT_FALSE(television_.ChangeZoomLevel(5));
  EXPECT_FALSE(television_.ChangeZoomLevel(-1));
}

TEST_F(TelevisionTest, InitialisingGoesBackToHowItWasSwitchedOn) {
  television_.StoreSelectionWindow({10, 20});
  television_.ChangeZoomLevel(4);
  television_.SetWindowSize(2);
  television_.SetBanner(Banner::kChannel, true);
  television_.TunePip("2");
  television_.Tune("7", "", "");
  television_.SetLanguage("de_DE");
  television_.Initialise("");
  EXPECT_EQ(television_.selection_window().position(), (Position{10, 20}));
  EXPECT_EQ(television_.selection_window().zoom_level(), 0);
  EXPECT_EQ(television_.window_size(), 0);
  EXPECT_THAT(ShownNames(), IsEmpty());
  EXPECT_FALSE(television_.pip());
  EXPECT_EQ(television_.channel().number, "7");
  EXPECT_EQ(television_.language(), "de_DE");
}

TEST_F(TelevisionTest, KeepsSettings) {
  television_.SetLanguage("fr_FR");
  television_.SetLanguage("");
  television_.SetHbbtvState("started");
  television_.SetServiceHint("hint");
  EXPECT_EQ(television_.language(), "fr_FR");
  EXPECT_EQ(television_.hbbtv_state(), "started");
  EXPECT_EQ(television_.service_hint(), "hint");
}

TEST_F(TelevisionTest, ShowsTeletextWhereThereIsSome) {
  television_.LeaveTeletext("bored");
  EXPECT_EQ(changes_.back().text, "refused: teletext is not shown");
  television_.DiscreteCommand("teletext", "on");
  EXPECT_TRUE(television_.is_teletext_shown());
  television_.LeaveTeletext("bored");
  EXPECT_EQ(changes_.back().text, "teletext left: bored");
  television_.Tune("99", "", "");
  television_.DiscreteCommand("teletext", "on");
  EXPECT_FALSE(television_.is_teletext_shown());
  EXPECT_EQ(changes_.back().text, "refused: the channel carries no teletext");
}

TEST_F(TelevisionTest, PassesUnknownCommandsOn) {
  television_.Command("reboot", "now");
  television_.DiscreteCommand("mute", "");
  television_.ActOnNotification("update", 2);
  EXPECT_THAT(TakeTexts(),
              ElementsAre("command \"reboot\" \"now\"", "discrete command \"mute\" \"\"",
                          "action 2 of notification \"update\""));
}

TEST_F(TelevisionTest, ANotificationsActionZeroDismissesIt) {
  television_.SetBanner(Banner::kFanError, true);
  television_.ActOnNotification("fan-error", 0);
  EXPECT_THAT(ShownNames(), IsEmpty());
}

TEST_F(TelevisionTest, TellsEveryListenerInOrder) {
  std::string order;
  television_.AddListener([&](const Change&) { order += 'a'; });
  television_.AddListener([&](const Change&) { order += 'b'; });
  television_.SetLanguage("en_US");
  EXPECT_EQ(order, "ab");
}

}  // namespace
}  // namespace viewer
