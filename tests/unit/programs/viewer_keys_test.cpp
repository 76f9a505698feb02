// What keys do in the television.
#include "viewer_keys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "viewer_state.h"

namespace viewer {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ViewerKeys : public ::testing::Test {
 protected:
  std::vector<std::string> ShownNames() const {
    std::vector<std::string> names;
    for (const ShownBanner& shown : television_.banners().shown()) {
      names.emplace_back(InfoOf(shown.banner).name);
    }
    return names;
  }

  Television television_;
};

TEST_F(ViewerKeys, StepThroughTheChannelsInACircle) {
  std::vector<std::string> numbers;
  for (int i = 0; i < 9; ++i) {
    EXPECT_TRUE(UseKey(television_, "XF86ChannelUp"));
    numbers.push_back(television_.channel().number);
  }
  EXPECT_THAT(numbers, ElementsAre("2", "5-1", "7", "11", "12", "24", "99", "1", "2"));
  UseKey(television_, "XF86ChannelDown");
  UseKey(television_, "XF86ChannelDown");
  EXPECT_EQ(television_.channel().number, "99");
  EXPECT_THAT(ShownNames(), ElementsAre("channel"));
}

TEST_F(ViewerKeys, SwitchTheSourceInACircle) {
  std::vector<std::string> labels;
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(UseKey(television_, "XF86Source"));
    labels.push_back(television_.source().label);
  }
  EXPECT_THAT(labels, ElementsAre("Player", "Console", "Recorder", "", "Player"));
  EXPECT_THAT(ShownNames(), ElementsAre("source"));
  television_.ChangeSource("SCART", "9", "of a client");
  UseKey(television_, "XF86Source");
  EXPECT_TRUE(television_.is_on_channel());
  EXPECT_EQ(television_.source().type, "DVB-T");
}

TEST_F(ViewerKeys, TuneByDigitAndBack) {
  UseKey(television_, "7");
  UseKey(television_, "2");
  EXPECT_EQ(television_.channel().name, "Two");
  UseKey(television_, "0");
  EXPECT_EQ(television_.channel().name, "News");
  EXPECT_FALSE(UseKey(television_, "77"));
  EXPECT_FALSE(UseKey(television_, ""));
}

TEST_F(ViewerKeys, InfoShowsAndHidesTheChannel) {
  UseKey(television_, "XF86Info");
  EXPECT_THAT(ShownNames(), ElementsAre("channel"));
  UseKey(television_, "XF86Info");
  EXPECT_THAT(ShownNames(), IsEmpty());
}

TEST_F(ViewerKeys, BackAnswersThePopupThenHidesWhatIsShown) {
  EXPECT_FALSE(UseKey(television_, "XF86Back"));
  television_.SetBanner(Banner::kFanError, true);
  television_.SetBanner(Banner::kSleepTimer, true);
  UseKey(television_, "XF86Info");
  EXPECT_TRUE(UseKey(television_, "XF86Back"));
  EXPECT_THAT(ShownNames(), ElementsAre("fan-error", "channel"));
  EXPECT_TRUE(UseKey(television_, "XF86Back"));
  EXPECT_TRUE(UseKey(television_, "XF86Back"));
  EXPECT_THAT(ShownNames(), IsEmpty());
}

TEST_F(ViewerKeys, ReturnAndArrowsBelongToAPopup) {
  for (const char* key : {"Return", "Up", "Down", "Left", "Right"}) {
    EXPECT_FALSE(UseKey(television_, key));
  }
  EXPECT_THAT(television_.kept_keys(), IsEmpty());
  television_.Tune("7", "", "");
  television_.SetBanner(Banner::kReturnPrevChannel, true, {"1 One"});
  EXPECT_THAT(television_.kept_keys(),
              ElementsAre("Down", "Left", "Return", "Right", "Up", "XF86Back"));
  for (const char* key : {"Up", "Down", "Left", "Right"}) EXPECT_TRUE(UseKey(television_, key));
  EXPECT_TRUE(UseKey(television_, "Return"));
  EXPECT_EQ(television_.channel().number, "1");
  EXPECT_THAT(television_.kept_keys(), IsEmpty());
}

TEST_F(ViewerKeys, ColourKeysShowGuideTextSoundAndPip) {
  UseKey(television_, "XF86Red");
  EXPECT_THAT(ShownNames(), ElementsAre("key-guide"));
  UseKey(television_, "XF86Green");
  EXPECT_TRUE(television_.is_teletext_shown());
  UseKey(television_, "XF86Green");
  EXPECT_FALSE(television_.is_teletext_shown());
  UseKey(television_, "XF86Yellow");
  EXPECT_EQ(television_.banners().shown().back().details.front(), "Dual I");
  UseKey(television_, "XF86Blue");
  EXPECT_EQ(television_.pip()->number, "2");
  UseKey(television_, "XF86Blue");
  EXPECT_FALSE(television_.pip());
}

TEST_F(ViewerKeys, PlayAndHomeAreStatesThatPluginsLearn) {
  EXPECT_STREQ(ViewerState(television_), "RESUME_FOCUS");
  UseKey(television_, "XF86AudioPlay");
  EXPECT_STREQ(ViewerState(television_), "PAUSE");
  EXPECT_EQ(television_.activity(), Activity::kPaused);
  UseKey(television_, "XF86AudioPlay");
  UseKey(television_, "XF86HomePage");
  EXPECT_STREQ(ViewerState(television_), "BACKGROUND");
  UseKey(television_, "XF86HomePage");
  television_.SetFocused(false);
  EXPECT_STREQ(ViewerState(television_), "RESUME");
  television_.SetFocused(true);
  EXPECT_STREQ(ViewerState(television_), "RESUME_FOCUS");
}

TEST_F(ViewerKeys, OthersMeanNothing) {
  for (const char* key : {"XF86Tools", "XF86Menu", "a", "F12"}) {
    EXPECT_FALSE(UseKey(television_, key)) << key;
  }
}

}  // namespace
}  // namespace viewer
