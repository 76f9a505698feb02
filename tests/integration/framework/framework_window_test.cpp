// Plug-ins' windows in the viewer: where they come from, on which layers they lie.
#include "framework_fixture.h"

namespace framework_test {
namespace {

using FrameworkWindowTest = FrameworkTest;

constexpr const char* kRed = "ff0000";
constexpr const char* kGreen = "00ff00";
constexpr const char* kBlue = "0000ff";
constexpr const char* kWhite = "ffffff";
constexpr const char* kNothing = "000000";

struct Surroundings {
  const char* name;
  Environment changes;
};

class SurroundingsTest : public FrameworkTest, public testing::WithParamInterface<Surroundings> {};

TEST_P(SurroundingsTest, WindowIsTheViewersAllTheSame) {
  const auto host = MakeHost();
  const auto plugin = StartPlugin({"clock", "5", "window=ff0000"}, GetParam().changes);
  EXPECT_SAYS(*plugin, "engine wayland");
  EXPECT_SAYS(*host, "told: plugin_add=clock");
  ExpectPixel(*host, 100, 100, kRed);
}

INSTANTIATE_TEST_SUITE_P(
    Environment, SurroundingsTest,
    testing::Values(
        Surroundings{"EngineOfTheViewer", {{"ELM_ENGINE", "buffer"}}},
        Surroundings{"EngineX11", {{"ELM_ENGINE", "software_x11"}}},
        Surroundings{"EvasEngine", {{"ECORE_EVAS_ENGINE", "buffer"}}},
        Surroundings{"DisplayKind", {{"ELM_DISPLAY", "x11"}}},
        Surroundings{"DisplayOfNobody", {{"DISPLAY", ":4711"}, {"ELM_ENGINE", std::nullopt}}},
        Surroundings{"OtherWayland", {{"WAYLAND_DISPLAY", "elsewhere"}}},
        Surroundings{"Acceleration", {{"ELM_ACCEL", "gl"}, {"ELM_ENGINE", std::nullopt}}},
        Surroundings{"NoEngine", {{"ELM_ENGINE", std::nullopt}}}),
    [](const auto& surroundings) { return std::string(surroundings.param.name); });

// An X server that works is the temptation.
TEST_F(FrameworkWindowTest, IsTheViewersBesideAnXServer) {
  kavrel_test::ChildOptions options;
  options.arguments = {"/usr/bin/Xvfb", "-displayfd", "1",  "-screen", "0",
                       "320x240x24",    "-nolisten",  "tcp"};
  kavrel_test::ChildProcess server(options);
  const auto number = server.WaitForLine("");
  ASSERT_TRUE(number) << server.errors();
  const auto host = MakeHost();
  const auto plugin = StartPlugin({"clock", "5", "window=ff0000"},
                                  {{"DISPLAY", ":" + *number}, {"ELM_ENGINE", std::nullopt}});
  EXPECT_SAYS(*plugin, "engine wayland");
  ExpectPixel(*host, 100, 100, kRed);
}

TEST_F(FrameworkWindowTest, LiesOnTheLayerOfItsType) {
  const auto host = MakeHost();
  const auto top = MakeWindow(*host, "top", "6", "0000ff");
  ExpectPixel(*host, 100, 100, kBlue);
  const auto broadcast = MakeWindow(*host, "hbbtv", "5", "ff0000");
  const auto middle = MakeWindow(*host, "guide", "5", "00ff00");
  const auto low = MakeWindow(*host, "low", "4", "ffffff");
  const std::pair<const char*, const char*> layers[] = {
      {"top", "101"}, {"hbbtv", "7"}, {"guide", "4"}, {"low", "0"}};
  for (const auto& [title, layer] : layers) {
    host->Tell(std::string("window ") + title);
    EXPECT_SAYS(*host, std::string("window ") + title + ' ' + layer);
  }
  // The later ones lie below: each is seen where those above it have been moved away.
  host->Tell("place top 0 0 80 240");
  ExpectPixel(*host, 100, 100, kRed);
  ExpectPixel(*host, 40, 100, kBlue);
  host->Tell("place hbbtv 0 0 160 240");
  ExpectPixel(*host, 200, 100, kGreen);
  host->Tell("place guide 0 0 240 240");
  ExpectPixel(*host, 300, 100, kWhite);
  ExpectPixel(*host, 200, 100, kGreen);
  ExpectPixel(*host, 100, 100, kRed);
  ExpectPixel(*host, 40, 100, kBlue);
}

// As on a busy machine, where the announcement may be late.
TEST_F(FrameworkWindowTest, GetsItsLayerWhenItsPluginComesLater) {
  const auto host = MakeHost();
  const auto other = MakeWindow(*host, "guide", "5", "00ff00");
  const auto plugin = Start({FRAMEWORK_PLUGIN, "hbbtv", "5", "late", "window=ff0000"});
  EXPECT_SAYS(*host, "told: plugin_add=hbbtv");
  host->Tell("window hbbtv");
  EXPECT_SAYS(*host, "window hbbtv 0");
  ExpectPixel(*host, 100, 100, kGreen);
  plugin->Tell("join");
  EXPECT_SAYS(*plugin, "connected");
  EXPECT_SAYS(*host, "told: show=hbbtv");
  host->Tell("window hbbtv");
  EXPECT_SAYS(*host, "window hbbtv 7");
  ExpectPixel(*host, 100, 100, kRed);
}

TEST_F(FrameworkWindowTest, IsSeenUntilItIsHiddenClosedOrItsPluginDies) {
  const auto host = MakeHost();
  const auto low = MakeWindow(*host, "low", "4", "ffffff");
  const auto middle = MakeWindow(*host, "guide", "5", "00ff00");
  const auto top = MakeWindow(*host, "top", "6", "0000ff");
  ExpectPixel(*host, 100, 100, kBlue);
  top->process().Kill();
  EXPECT_SAYS(*host, "told: plugin_remove=top");
  ExpectPixel(*host, 100, 100, kGreen);
  host->Tell("hide guide");
  ExpectPixel(*host, 100, 100, kWhite);
  low->Tell("close");
  EXPECT_SAYS(*host, "told: plugin_remove=low");
  ExpectPixel(*host, 100, 100, kNothing);
  host->Tell("window low");
  EXPECT_SAYS(*host, "window low none");
  host->Tell("window guide");
  EXPECT_SAYS(*host, "window guide 4");
}

TEST_F(FrameworkWindowTest, OpensAgainAfterItWasClosed) {
  const auto host = MakeHost();
  const auto plugin = MakeWindow(*host, "clock", "5", "ff0000");
  plugin->Tell("close");
  EXPECT_SAYS(*host, "told: plugin_remove=clock");
  plugin->Tell("window 00ff00");
  EXPECT_SAYS(*host, "told: plugin_add=clock");
  ExpectPixel(*host, 100, 100, kGreen);
}

}  // namespace
}  // namespace framework_test
