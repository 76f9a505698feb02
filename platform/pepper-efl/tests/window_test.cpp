// Windows and their objects: appearance, pixels, sizes, and every order of their ends.
#include <gmock/gmock.h>

#include "test_client.h"
#include "test_host.h"

namespace kavrel_pepper_test {
namespace {

using ::testing::ElementsAre;

TEST(Window, AppearsAsAnObjectThatShowsItsPixels) {
  TestHost host;
  TestClient client;
  ASSERT_TRUE(client.connected());
  TestWindow window(client, "news");
  EXPECT_EQ(window.width, kRootWidth);
  EXPECT_EQ(window.height, kRootHeight);
  TestBuffer red(client, 100, 80, 0xffc02010);
  window.Show(red);
  ASSERT_TRUE(RunUntil([&] { return host.Find("news") != nullptr; }));
  EXPECT_STREQ(pepper_efl_object_app_id_get(host.Find("news")), "test.app");
  EXPECT_EQ(host.Pixel(0, 0), 0xc02010u);
  EXPECT_EQ(host.Pixel(99, 79), 0xc02010u);
  EXPECT_EQ(host.Pixel(100, 79), 0u);
  EXPECT_TRUE(RunUntil([&] { return red.releases == 1; }));
}

}  // namespace
}  // namespace kavrel_pepper_test
