#include <gtest/gtest.h>
#include <kavrel/testing.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace kavrel::testing {
namespace {

TelevisionOptions Built() {
  ::setenv("LSAN_OPTIONS", KAVREL_EFL_LEAKS, 1);  // for the programs: what is not theirs
  TelevisionOptions options;
  options.viewer = KAVREL_VIEWER_PROGRAM;
  options.tool = KAVRELCTL_PROGRAM;
  return options;
}

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "unset";
}

TEST(Television, IsWhereProgramsLook) {
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/somewhere", 1);
  ::unsetenv("KAVREL_RUNTIME_DIR");
  ::setenv("KAVREL_APP_ID", "somebody", 1);
  {
    const Television television(Built());
    EXPECT_EQ(Variable("KAVREL_RUNTIME_DIR"), television.directory());
    EXPECT_EQ(Variable("DBUS_SYSTEM_BUS_ADDRESS"), television.bus_address());
    EXPECT_EQ(Variable("KAVREL_APP_ID"), "unset");
  }
  EXPECT_EQ(Variable("DBUS_SYSTEM_BUS_ADDRESS"), "unix:path=/somewhere");
  EXPECT_EQ(Variable("KAVREL_RUNTIME_DIR"), "unset");
  EXPECT_EQ(Variable("KAVREL_APP_ID"), "somebody");
}

TEST(Television, NeedsItsPrograms) {
  TelevisionOptions options = Built();
  options.viewer = "no-such-viewer";
  EXPECT_THROW(Television{options}, std::system_error);
  options = Built();
  options.viewer_arguments = {"--no-such-option"};
  try {
    const Television television(options);
    FAIL() << "a viewer that refuses its options serves";
  } catch (const std::runtime_error& error) {
    EXPECT_NE(std::string(error.what()).find("--no-such-option"), std::string::npos)
        << error.what();
  }
}

TEST(Television, HasNoStateThatNobodySet) {
  const std::string script = ::testing::TempDir() + "quiet-viewer-" + std::to_string(::getpid());
  std::ofstream(script) << "#!/bin/sh\necho serving as nobody\nexec cat\n";
  ::chmod(script.c_str(), 0700);
  TelevisionOptions options = Built();
  options.viewer = script;
  const Television television(options);
  ::unlink(script.c_str());
  EXPECT_EQ(television.State("pip_focus"), std::nullopt);
  television.Tool({"set", "pip_focus", "1"});
  EXPECT_EQ(television.State("pip_focus"), "1");
}

class TelevisionTest : public ::testing::Test {
 protected:
  Television television_{Built()};
};

TEST_F(TelevisionTest, TellsWhatItWasTold) {
  EXPECT_EQ(television_.Tool({"call", "tune-channel", "7", "News", "DVB-T", "me"}).exit_code, 0);
  EXPECT_TRUE(television_.WaitForLine(R"(TuneChannel("7", "News", "DVB-T", "me"))"));
  EXPECT_EQ(television_.WaitForLine("TuneChannel", Milliseconds(1)), std::nullopt);
}

TEST_F(TelevisionTest, TellsItsState) {
  EXPECT_EQ(television_.State("kavrel_state"), "running");
  EXPECT_EQ(television_.State("pip_focus"), "0");
  EXPECT_EQ(television_.State("info_banner_ttx_state"), "1");
  EXPECT_THROW(television_.State("no_such_property"), std::runtime_error);
}

TEST_F(TelevisionTest, IsWaitedFor) {
  EXPECT_TRUE(television_.WaitForState("visible_banners", ""));  // it is so already
  Program teller(
      {"sh", "-c", "read go; exec \"$0\" call show-channel-banner 1", KAVRELCTL_PROGRAM});
  EXPECT_FALSE(television_.WaitForState("visible_banners", "channel", Milliseconds(1)));
  teller.Write("go\n");
  EXPECT_TRUE(television_.WaitForState("visible_banners", "channel"));
  EXPECT_THROW(television_.WaitForState("no_such_property", "1"), std::runtime_error);
}

TEST_F(TelevisionTest, TakesKeys) {
  EXPECT_EQ(television_.SendKey("XF86Info"), "viewer");
  EXPECT_TRUE(television_.WaitForLine("key XF86Info released"));
  EXPECT_EQ(television_.SendKey("XF86Unheard"), "nobody");
  Program plugin({KAVREL_LISTENER_PROGRAM, "--name", "radio", "--key", "XF86Red"});
  ASSERT_TRUE(television_.WaitForLine("plug-in radio: says listening"));
  EXPECT_EQ(television_.SendKey("XF86Red"), "plug-in radio");
  EXPECT_TRUE(plugin.WaitForLine("released XF86Red"));
}

// The upper half: the viewer tells at the lower edge what it was told.
Picture UpperHalf(const Picture& picture) {
  return picture.Part(0, 0, picture.width(), picture.height() / 2);
}

TEST_F(TelevisionTest, ShowsWhatItIsTold) {
  const Picture before = UpperHalf(television_.Screenshot());
  television_.Tool({"call", "show-sleep-timer-popup", "1"});
  const auto differs = [&](const Picture& now) {
    return Compare(before, UpperHalf(now)).pixels > 0;
  };
  const auto after = television_.WaitForScreen(differs);
  ASSERT_TRUE(after);
  const Difference difference = Compare(before, UpperHalf(*after));
  EXPECT_GT(difference.pixels, 10000U);
  EXPECT_GT(difference.left, before.width() / 2);
  EXPECT_FALSE(television_.WaitForScreen([](const Picture&) { return false; }, Milliseconds(1)));
  television_.Tool({"call", "show-sleep-timer-popup", "0"});
  EXPECT_EQ(Compare(before, UpperHalf(television_.Screenshot())).pixels, 0U);
}

TEST(Television, LetsBannersLeaveWhenAsked) {
  TelevisionOptions options = Built();
  options.viewer_arguments = {"--banner-seconds", "1"};
  Television television(options);
  television.Tool({"call", "show-channel-banner", "1"});
  EXPECT_TRUE(television.WaitForLine("ShowChannelBanner(1): channel banner shown"));
  EXPECT_TRUE(television.WaitForState("visible_banners", ""));
}

TEST_F(TelevisionTest, IsStoppedAndStarted) {
  television_.Tool({"set", "db_serdes_error", "5"});
  EXPECT_EQ(television_.StopViewer(), 0);
  EXPECT_THROW(television_.StopViewer(), std::logic_error);
  EXPECT_THROW(television_.Screenshot(), std::runtime_error);
  EXPECT_THROW(television_.SendKey("XF86Red"), std::runtime_error);
  EXPECT_EQ(television_.State("kavrel_state"), "stopped");
  television_.StartViewer();
  EXPECT_THROW(television_.StartViewer(), std::logic_error);
  EXPECT_EQ(television_.State("kavrel_state"), "running");
  EXPECT_EQ(television_.State("db_serdes_error"), "5");
  television_.KillViewer();
  EXPECT_EQ(television_.State("kavrel_state"), "running");
  television_.StartViewer();
  EXPECT_TRUE(television_.Screenshot().width() > 0);
}

}  // namespace
}  // namespace kavrel::testing
