// The factories: what they check, in which order, and whom they keep.
#include <kavrel/KavrelAPI.h>

#include "fake_channel.h"
#include "fake_toolkit.h"
#include "journal.h"
#include "temporary_directory.h"

namespace framework_test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr VIEWER_PLUGIN_TYPE kType = VIEWER_PLUGIN_LEAVES_LAYER_4;
constexpr const char* kBadNames[] = {"", "with space", "under_score", "dot.ted", "\xc3\xa4"};

class FactoriesTest : public JournalTest {
 protected:
  FactoriesTest() {
    Toolkit() = {};
    Channels() = {};
  }
  ~FactoriesTest() override {
    KavrelAPI::DestroyPluggable();
    KavrelAPI::DestroyViewerHost();
  }

  bool MakePlugin(const char* name, const char* host = "kavrel", VIEWER_PLUGIN_TYPE type = kType) {
    return KavrelAPI::CreatePluggable(type, name, &plugin_, host);
  }

  kavrel_test::ScopedEnvironment display_{"WAYLAND_DISPLAY", "elsewhere"};
  kavrel_test::ScopedEnvironment kind_{"ELM_DISPLAY", "x11"};
  IViewerHost* host_ = nullptr;
  IViewerPluggable* plugin_ = nullptr;
};

TEST_F(FactoriesTest, RefuseBadHostNames) {
  for (const char* name : kBadNames) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(KavrelAPI::CreateViewerHost(RootWindow(), &host_, nullptr, nullptr, name));
    EXPECT_EQ(TakeLines().back(), "6 CreateViewerHost: host name is invalid!\n");
    EXPECT_FALSE(MakePlugin("clock", name));
    EXPECT_EQ(TakeLines().back(), "6 CreatePluggable: host name is invalid!\n");
    KavrelAPI::DestroyPluggable("clock", name);
    EXPECT_EQ(TakeLines().back(), "6 DestroyPluggable: host name is invalid!\n");
    EXPECT_EQ(KavrelAPI::CreatePepperPluginWindow("main", "clock", name), nullptr);
    EXPECT_EQ(TakeLines().back(), "6 CreatePepperPluginWindow: host name is invalid!\n");
  }
  EXPECT_FALSE(KavrelAPI::CreateViewerHost(RootWindow(), &host_, nullptr, nullptr, nullptr));
  EXPECT_EQ(TakeLines().back(), "6 CreateViewerHost: host name is invalid!\n");
}

TEST_F(FactoriesTest, RefuseBadPluginNames) {
  for (const char* name : kBadNames) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(MakePlugin(name));
    EXPECT_EQ(TakeLines().back(), "6 CreatePluggable: plugin name is invalid!\n");
    KavrelAPI::DestroyPluggable(name, "kavrel");
    EXPECT_EQ(TakeLines().back(), "6 DestroyPluggable: plugin name is invalid!\n");
    EXPECT_EQ(KavrelAPI::CreatePepperPluginWindow("main", name, "kavrel"), nullptr);
    EXPECT_EQ(TakeLines().back(),
              "6 CreatePepperPluginWindow: title name(plugin name) is invalid!\n");
  }
}

TEST_F(FactoriesTest, KeepOneHost) {
  ASSERT_TRUE(KavrelAPI::CreateViewerHost(RootWindow(), &host_, nullptr, nullptr, "kavrel"));
  EXPECT_THAT(TakeLines(), AllOf(Contains("bridge"), Contains("raise /tmp/kavrel-host_ready")));
  IViewerHost* other = nullptr;
  EXPECT_TRUE(KavrelAPI::CreateViewerHost(nullptr, &other, nullptr, nullptr, "other"));
  EXPECT_EQ(other, host_);
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 CreateViewerHost: host[other] already exists, just return.\n"));
  KavrelAPI::DestroyViewerHost();
  EXPECT_THAT(TakeLines(), Contains("compositor -"));
  KavrelAPI::DestroyViewerHost();
  EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(FactoriesTest, WantAWindowForTheViewer) {
  EXPECT_FALSE(KavrelAPI::CreateViewerHost(nullptr, &host_, nullptr, nullptr, "kavrel"));
  EXPECT_THAT(TakeLines(),
              ElementsAre("6 CreateViewerHost: for host kavrel, root window is NULL!\n"));
  EXPECT_TRUE(KavrelAPI::CreateViewerHost(nullptr, &host_, nullptr, nullptr, "other"));
  EXPECT_THAT(TakeLines(), Not(Contains("section +")));
}

TEST_F(FactoriesTest, HoldTheMainLoopWhileAnotherThreadMakesTheHost) {
  Toolkit().on_main_thread = false;
  ASSERT_TRUE(KavrelAPI::CreateViewerHost(RootWindow(), &host_, nullptr, nullptr, "kavrel"));
  const std::vector<std::string> lines = TakeLines();
  EXPECT_EQ(lines.front(), "section +");
  EXPECT_EQ(lines.back(), "section -");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "section +"), 2);
}

TEST_F(FactoriesTest, RefuseUnknownTypesBeforeAnyWait) {
  for (const int type : {7, -1}) {
    EXPECT_FALSE(MakePlugin("clock", "kavrel", static_cast<VIEWER_PLUGIN_TYPE>(type)));
    EXPECT_THAT(TakeLines(), ElementsAre("6 CreatePluggable: invalid plugin type!\n"));
  }
}

TEST_F(FactoriesTest, WaitForTheHost) {
  Toolkit().wait_result = -110;
  EXPECT_FALSE(MakePlugin("clock", "my-host"));
  EXPECT_THAT(
      TakeLines(),
      ElementsAre("wait /tmp/my-host-host_ready 10000",
                  "6 CreatePluggable: host: my-host is not ready, please try it again later\n"));
}

TEST_F(FactoriesTest, SayOfEachHostsFirstPluginThatItIsTheFirst) {
  ASSERT_TRUE(MakePlugin("clock"));
  EXPECT_EQ(TakeLines().back(), "4 CreatePluggable: Create plugin successfully!\n");
  ASSERT_TRUE(MakePlugin("weather"));
  EXPECT_EQ(TakeLines().back(), "4 CreatePluggable: create plugin successfully!\n");
  ASSERT_TRUE(MakePlugin("clock", "other"));
  EXPECT_EQ(TakeLines().back(), "4 CreatePluggable: Create plugin successfully!\n");
}

TEST_F(FactoriesTest, HandBackTheSamePlugin) {
  ASSERT_TRUE(MakePlugin("clock"));
  IViewerPluggable* const first = plugin_;
  TakeLines();
  plugin_ = nullptr;
  EXPECT_TRUE(MakePlugin("clock", "kavrel", VIEWER_PLUGIN_STAYS_0));
  EXPECT_EQ(plugin_, first);
  EXPECT_THAT(TakeLines(), ElementsAre("wait /tmp/kavrel-host_ready 10000",
                                       "4 CreatePluggable: Plugin already exists, just return.\n"));
}

TEST_F(FactoriesTest, DestroyOnePlugin) {
  MakePlugin("clock");
  MakePlugin("weather");
  TakeLines();
  KavrelAPI::DestroyPluggable("clock", "other");
  EXPECT_THAT(TakeLines(), ElementsAre("6 DestroyPluggable: Wrong host name! Can't find the "
                                       "correspondent plugin handler!\n"));
  KavrelAPI::DestroyPluggable("nobody", "kavrel");
  EXPECT_THAT(TakeLines(), ElementsAre("6 DestroyPluggable: Wrong plugin name! Can't find the "
                                       "correspondent plugin handler!\n"));
  KavrelAPI::DestroyPluggable("clock", "kavrel");
  EXPECT_THAT(TakeLines(),
              ElementsAre("4 DestroyPluggable: found the pugin handler and destroyed it!\n",
                          "aux client watch ends", "announce clock 5 false", "aux client -",
                          "channel - kavrel clock"));
  KavrelAPI::DestroyPluggable("weather", "kavrel");
  TakeLines();
  KavrelAPI::DestroyPluggable("weather", "kavrel");
  EXPECT_THAT(TakeLines(), ElementsAre("6 DestroyPluggable: Wrong host name! Can't find the "
                                       "correspondent plugin handler!\n"));
}

TEST_F(FactoriesTest, DestroyAllPlugins) {
  KavrelAPI::DestroyPluggable();
  EXPECT_THAT(TakeLines(), IsEmpty());
  MakePlugin("clock");
  MakePlugin("weather");
  MakePlugin("clock", "other");
  TakeLines();
  KavrelAPI::DestroyPluggable();
  const std::vector<std::string> lines = TakeLines();
  EXPECT_THAT(lines, AllOf(Contains("announce clock 5 false").Times(2),
                           Contains("announce weather 5 false")));
  EXPECT_EQ(lines.back(), "trim 0");
}

TEST_F(FactoriesTest, OpenAWindowInTheViewer) {
  Toolkit().wait_result = -110;
  EXPECT_EQ(KavrelAPI::CreatePepperPluginWindow("main", "clock", "kavrel"), Object(77));
  EXPECT_THAT(TakeLines(), ElementsAre("wait /tmp/kavrel-compositor_ready 10000",
                                       "window main clock kavrel-compositor wl"));
}

TEST_F(FactoriesTest, TryAWindowAgain) {
  Toolkit().windows_refused = 50;
  EXPECT_EQ(KavrelAPI::CreatePepperPluginWindow("main", "clock", "kavrel"), Object(77));
  const std::vector<std::string> lines = TakeLines();
  ASSERT_EQ(lines.size(), 1U + 50 * 3 + 1);
  for (std::size_t attempt = 0; attempt < 50; ++attempt) {
    EXPECT_EQ(lines[1 + 3 * attempt], "window main clock kavrel-compositor wl");
    EXPECT_EQ(lines[2 + 3 * attempt],
              "6 CreatePepperPluginWindow: create plugin clock win fails, sleep and try again\n");
    EXPECT_EQ(lines[3 + 3 * attempt], "sleep 10000");
  }
}

TEST_F(FactoriesTest, GiveUpAfter51Attempts) {
  Toolkit().windows_refused = 1000;
  EXPECT_EQ(KavrelAPI::CreatePepperPluginWindow("main", "clock", "kavrel"), nullptr);
  const std::vector<std::string> lines = TakeLines();
  EXPECT_THAT(lines, Contains("window main clock kavrel-compositor wl").Times(51));
  EXPECT_THAT(lines, Contains("sleep 10000").Times(50));
  EXPECT_EQ(lines.back(), "6 CreatePepperPluginWindow: Assertion failed\n");
}

TEST_F(FactoriesTest, OpenWindowsOnlyInTheViewer) {
  EXPECT_EQ(KavrelAPI::CreatePepperPluginWindow("main", "clock", "other"), nullptr);
  EXPECT_THAT(TakeLines(), ElementsAre("6 CreatePepperPluginWindow: wrong host name[other],only "
                                       "host kavrel supports this service!\n"));
  EXPECT_STREQ(std::getenv("WAYLAND_DISPLAY"), "elsewhere");
  EXPECT_STREQ(std::getenv("ELM_DISPLAY"), "x11");
}

}  // namespace
}  // namespace framework_test
