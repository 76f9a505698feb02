// Tests of a client, each with a viewer of its own: no display, no system bus, nothing of the
// machine's real viewer. GoogleTest is this example's choice; kavrel/testing.h needs no framework.
#include <gtest/gtest.h>
#include <kavrel/app_api.h>
#include <kavrel/testing.h>

using kavrel::testing::Compare;
using kavrel::testing::Picture;
using kavrel::testing::Television;

class ClientTest : public testing::Test {
 protected:
  ~ClientTest() override { kavrel_api_destroy(viewer_); }

  Television television_;
  kavrel_api_h viewer_ = kavrel_api_create(KAVREL_VIEWER_APP_ID);
};

TEST_F(ClientTest, Tunes) {
  kavrel_api_tunechannel(viewer_, "7", "News", "DVB-T", "test");
  EXPECT_TRUE(television_.WaitForLine("TuneChannel(\"7\", \"News\""));
}

// Where pop-ups are.
static Picture UpperHalf(const Picture& picture) {
  return picture.Part(0, 0, picture.width(), picture.height() / 2);
}

TEST_F(ClientTest, ShowsAPopupAndHidesIt) {
  const Picture before = UpperHalf(television_.Screenshot());
  kavrel_api_show_sleep_timer_popup(viewer_, 1);
  ASSERT_TRUE(television_.WaitForState("visible_banners", "sleep-timer"));
  EXPECT_GT(Compare(before, UpperHalf(television_.Screenshot())).pixels, 10000U);
  kavrel_api_show_sleep_timer_popup(viewer_, 0);
  ASSERT_TRUE(television_.WaitForState("visible_banners", ""));
  EXPECT_EQ(Compare(before, UpperHalf(television_.Screenshot()), 2).pixels, 0U);
}

TEST_F(ClientTest, OutlivesTheViewer) {
  television_.KillViewer();
  int size = 7;
  EXPECT_FALSE(kavrel_api_get_window_size(viewer_, size));
}

TEST_F(ClientTest, SharesTheRemoteControl) {
  EXPECT_EQ(television_.SendKey("XF86Info"), "viewer");
  EXPECT_TRUE(television_.WaitForState("visible_banners", "channel"));
}
