// Windows and their objects: announcement, pixels, and sizes.
#include <gmock/gmock.h>

#include "test_client.h"
#include "test_host.h"

namespace kavrel_pepper_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kRed = 0xffc02010, kGreen = 0xff10a030, kBlue = 0xff2040d0;

unsigned Rgb(std::uint32_t colour) {
  return colour & 0xffffff;
}

/// A host, a client, and one window of it that shows a red picture. Main thread.
class Window : public ::testing::Test {
 protected:
  static constexpr int kWidth = 100, kHeight = 80;

  bool ShowRed() {
    window.Show(red);
    return RunUntil([&] { return object() != nullptr; });
  }
  Evas_Object* object() { return host.Find("news"); }

  TestHost host;
  TestClient client;
  TestWindow window{client, "news"};
  TestBuffer red{client, kWidth, kHeight, kRed};
};

TEST_F(Window, AppearsAsAnObjectThatShowsItsPixels) {
  EXPECT_EQ(window.width, kRootWidth);
  EXPECT_EQ(window.height, kRootHeight);
  ASSERT_TRUE(ShowRed());
  EXPECT_THAT(host.EventNames(), ElementsAre("add news"));
  EXPECT_STREQ(pepper_efl_object_title_get(object()), "news");
  EXPECT_STREQ(pepper_efl_object_app_id_get(object()), "test.app");
  EXPECT_EQ(host.Pixel(0, 0), Rgb(kRed));
  EXPECT_EQ(host.Pixel(kWidth - 1, kHeight - 1), Rgb(kRed));
  EXPECT_EQ(host.Pixel(kWidth, kHeight - 1), 0u);
  EXPECT_TRUE(RunUntil([&] { return red.releases == 1; }));
}

TEST_F(Window, IsAnnouncedHiddenAndWithItsPicture) {
  host.on_add = [&](Evas_Object* added) {
    EXPECT_FALSE(evas_object_visible_get(added));
    int width = 0, height = 0;
    evas_object_image_size_get(added, &width, &height);
    EXPECT_EQ(width, kWidth);
    EXPECT_EQ(height, kHeight);
    evas_object_geometry_get(added, nullptr, nullptr, &width, &height);
    EXPECT_EQ(width, kWidth);
    EXPECT_EQ(height, kHeight);
  };
  ASSERT_TRUE(ShowRed());
  EXPECT_EQ(host.Pixel(0, 0), 0u);
}

TEST_F(Window, ShowsWhatIsCommittedLater) {
  ASSERT_TRUE(ShowRed());
  TestBuffer green(client, kWidth, kHeight, kGreen);
  window.Show(green);
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_TRUE(RunUntil([&] { return host.Pixel(50, 40) == Rgb(kGreen); }));
}

TEST_F(Window, CopiesOnlyWhatIsDamaged) {
  ASSERT_TRUE(ShowRed());
  TestBuffer green(client, kWidth, kHeight, kGreen);
  wl_surface_attach(window.surface, green.buffer, 0, 0);
  wl_surface_damage_buffer(window.surface, 10, 10, 5, 5);
  wl_surface_damage(window.surface, 90, 70, INT32_MAX, INT32_MAX);
  wl_surface_damage(window.surface, INT32_MIN, INT32_MIN, 5, 5);
  window.Commit();
  ASSERT_TRUE(client.RoundTrip());
  ASSERT_TRUE(RunUntil([&] { return host.Pixel(12, 12) == Rgb(kGreen); }));
  EXPECT_EQ(host.Pixel(9, 12), Rgb(kRed));
  EXPECT_EQ(host.Pixel(15, 12), Rgb(kRed));
  EXPECT_EQ(host.Pixel(0, 0), Rgb(kRed));
  EXPECT_EQ(host.Pixel(95, 75), Rgb(kGreen));
}

TEST_F(Window, ShowsTheLastOfManyCommitsAndReleasesEveryBuffer) {
  ASSERT_TRUE(ShowRed());
  TestBuffer green(client, kWidth, kHeight, kGreen), blue(client, kWidth, kHeight, kBlue);
  for (TestBuffer* buffer : {&green, &red, &green, &red, &blue}) window.Show(*buffer);
  EXPECT_TRUE(
      RunUntil([&] { return blue.releases == 1 && green.releases == 2 && red.releases == 3; }));
  EXPECT_EQ(host.Pixel(50, 40), Rgb(kBlue));
}

TEST_F(Window, ForgetsABufferThatItsClientDestroysBeforeItIsCopied) {
  ASSERT_TRUE(ShowRed());
  {
    TestBuffer green(client, kWidth, kHeight, kGreen), blue(client, kWidth, kHeight, kBlue);
    window.Show(green);
    window.Show(blue);
    wl_surface_attach(window.surface, green.buffer, 0, 0);
  }
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_NE(object(), nullptr);
}

TEST_F(Window, LetsShineThroughWhatIsTransparent) {
  Evas_Object* background = evas_object_rectangle_add(host.canvas().evas());
  evas_object_color_set(background, 0xcc, 0x20, 0x20, 0xff);
  evas_object_resize(background, kRootWidth, kRootHeight);
  evas_object_show(background);
  TestBuffer half(client, kWidth, kHeight, 0x80400000, WL_SHM_FORMAT_ARGB8888);
  window.Show(half);
  ASSERT_TRUE(RunUntil([&] { return object() != nullptr; }));
  evas_object_raise(object());
  EXPECT_EQ(host.Pixel(5, 5), 0xa61010u);
  EXPECT_TRUE(evas_object_image_alpha_get(object()));
}

TEST_F(Window, IsNotBlendedWhereItSaysItIsOpaque) {
  wl_region* region = wl_compositor_create_region(client.compositor);
  wl_region_add(region, 0, 0, kWidth, kHeight / 2);
  wl_region_add(region, 0, kHeight / 2, kWidth, INT32_MAX);
  wl_surface_set_opaque_region(window.surface, region);
  TestBuffer translucent(client, kWidth, kHeight, 0x80400000, WL_SHM_FORMAT_ARGB8888);
  window.Show(translucent);
  ASSERT_TRUE(RunUntil([&] { return object() != nullptr; }));
  EXPECT_FALSE(evas_object_image_alpha_get(object()));
  wl_region_subtract(region, 3, 3, 1, 1);
  wl_surface_set_opaque_region(window.surface, region);
  window.Show(translucent);
  EXPECT_TRUE(RunUntil([&] { return evas_object_image_alpha_get(object()) != EINA_FALSE; }));
  wl_region_destroy(region);
}

// ---- titles

TEST_F(Window, IsAnnouncedOnceItHasATitle) {
  TestWindow late(client, nullptr);
  late.Show(red);
  ASSERT_TRUE(client.RoundTrip());
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_THAT(host.EventNames(), IsEmpty());
  xdg_toplevel_set_title(late.toplevel, "late");
  EXPECT_TRUE(RunUntil([&] { return host.Find("late") != nullptr; }));
}

TEST_F(Window, IsAnnouncedOnceItHasAPicture) {
  ASSERT_TRUE(client.RoundTrip());
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_THAT(host.EventNames(), IsEmpty());
  EXPECT_TRUE(ShowRed());
}

TEST_F(Window, MayHaveAnEmptyTitle) {
  TestWindow nameless(client, "", nullptr);
  nameless.Show(red);
  ASSERT_TRUE(RunUntil([&] { return host.Find("") != nullptr; }));
  EXPECT_EQ(pepper_efl_object_app_id_get(host.Find("")), nullptr);
}

TEST_F(Window, KeepsItsObjectWhenItIsRenamed) {
  ASSERT_TRUE(ShowRed());
  Evas_Object* named = object();
  xdg_toplevel_set_title(window.toplevel, "weather");
  xdg_toplevel_set_app_id(window.toplevel, "other.app");
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_STREQ(pepper_efl_object_title_get(named), "weather");
  EXPECT_STREQ(pepper_efl_object_app_id_get(named), "other.app");
  client.Die();
  ASSERT_TRUE(RunUntil([&] { return host.events().size() == 2; }));
  EXPECT_THAT(host.EventNames(), ElementsAre("add news", "del weather"));
}

TEST_F(Window, TitleIsCutBetweenCharactersAndMayBeAnyBytes) {
  const std::string longest = std::string(1023, 'x').append("\u00e4\u00e4");
  xdg_toplevel_set_title(window.toplevel, longest.c_str());
  window.Show(red);
  ASSERT_TRUE(RunUntil([&] { return host.events().size() == 1; }));
  Evas_Object* added = host.events()[0].object;
  EXPECT_EQ(pepper_efl_object_title_get(added), std::string(1023, 'x'));
  xdg_toplevel_set_title(window.toplevel, "\xff\xfe\x80%s\n");
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_STREQ(pepper_efl_object_title_get(added), "\xff\xfe\x80%s\n");
}

TEST_F(Window, ObjectsOfTheProgramHaveNoTitle) {
  EXPECT_EQ(pepper_efl_object_title_get(host.root()), nullptr);
  EXPECT_EQ(pepper_efl_object_app_id_get(host.root()), nullptr);
  EXPECT_EQ(pepper_efl_object_title_get(nullptr), nullptr);
  EXPECT_EQ(pepper_efl_object_app_id_get(nullptr), nullptr);
}

// ---- sizes

TEST_F(Window, IsResizedWithItsObject) {
  ASSERT_TRUE(ShowRed());
  evas_object_geometry_set(object(), 20, 30, 200, 160);
  EXPECT_EQ(host.Pixel(219, 189), Rgb(kRed)) << "the old picture is stretched meanwhile";
  ASSERT_TRUE(RunUntil([&] { return window.width == 200 && window.height == 160; }));
  TestBuffer larger(client, 200, 160, kGreen);
  window.Show(larger);
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_TRUE(RunUntil([&] { return host.Pixel(219, 189) == Rgb(kGreen); }));
  EXPECT_EQ(host.Pixel(19, 29), 0u);
  EXPECT_EQ(host.Pixel(220, 189), 0u);
}

TEST_F(Window, HearsOnlyTheLastOfManySizes) {
  ASSERT_TRUE(ShowRed());
  ASSERT_TRUE(RunUntil([&] { return window.active; }));
  const int before = window.configures;
  for (int size = 101; size <= 200; ++size) evas_object_resize(object(), size, size);
  ASSERT_TRUE(RunUntil([&] { return window.width == 200; }));
  EXPECT_LE(window.configures, before + 2);
}

TEST_F(Window, GivesItsObjectItsSizeUntilTheProgramDoes) {
  ASSERT_TRUE(ShowRed());
  TestBuffer larger(client, 120, 90, kGreen);
  window.Show(larger);
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_TRUE(RunUntil([&] { return host.Pixel(119, 89) == Rgb(kGreen); }));
  evas_object_resize(object(), 60, 60);
  window.Show(red);
  ASSERT_TRUE(RunUntil([&] { return host.Pixel(30, 30) == Rgb(kRed); }));
  EXPECT_EQ(host.Pixel(61, 61), 0u);
}

TEST_F(Window, ShowsOnlyItsGeometry) {
  red.Fill(0, 0, 10, kHeight, kBlue);
  red.Fill(0, 0, kWidth, 10, kBlue);
  xdg_surface_set_window_geometry(window.xdg, 10, 10, kWidth - 10, kHeight - 10);
  ASSERT_TRUE(ShowRed());
  int width = 0, height = 0;
  evas_object_geometry_get(object(), nullptr, nullptr, &width, &height);
  EXPECT_EQ(width, kWidth - 10);
  EXPECT_EQ(height, kHeight - 10);
  EXPECT_EQ(host.Pixel(0, 0), Rgb(kRed));
  EXPECT_EQ(host.Pixel(kWidth - 11, kHeight - 11), Rgb(kRed));
}

TEST_F(Window, ScaledBuffersCoverLess) {
  wl_surface_set_buffer_scale(window.surface, 2);
  ASSERT_TRUE(ShowRed());
  EXPECT_EQ(host.Pixel(kWidth / 2 - 1, kHeight / 2 - 1), Rgb(kRed));
  EXPECT_EQ(host.Pixel(kWidth / 2, kHeight / 2), 0u);
}

// The marked corner of the buffer, and where it is seen for each transform.
TEST_F(Window, UndoesTheTransformOfItsBuffer) {
  red.Fill(0, 0, 10, 10, kBlue);
  ASSERT_TRUE(ShowRed());
  struct Case {
    wl_output_transform transform;
    bool right, bottom;
  };
  for (const Case& c :
       {Case{WL_OUTPUT_TRANSFORM_180, true, true}, Case{WL_OUTPUT_TRANSFORM_FLIPPED, true, false},
        Case{WL_OUTPUT_TRANSFORM_FLIPPED_180, false, true},
        Case{WL_OUTPUT_TRANSFORM_90, true, false}, Case{WL_OUTPUT_TRANSFORM_270, false, true},
        Case{WL_OUTPUT_TRANSFORM_FLIPPED_90, false, false},
        Case{WL_OUTPUT_TRANSFORM_FLIPPED_270, true, true},
        Case{WL_OUTPUT_TRANSFORM_NORMAL, false, false}}) {
    wl_surface_set_buffer_transform(window.surface, c.transform);
    window.Show(red);
    ASSERT_TRUE(client.RoundTrip());
    const bool sideways = (c.transform & 1) != 0;
    const int width = sideways ? kHeight : kWidth, height = sideways ? kWidth : kHeight;
    EXPECT_TRUE(RunUntil([&] {
      return host.Pixel(c.right ? width - 5 : 5, c.bottom ? height - 5 : 5) == Rgb(kBlue) &&
             host.Pixel(c.right ? 5 : width - 5, c.bottom ? 5 : height - 5) == Rgb(kRed);
    })) << c.transform;
  }
}

TEST_F(Window, HearsOfTheRootWindowsSize) {
  ASSERT_TRUE(ShowRed());
  host.canvas().ResizeRoot(200, 100);
  EXPECT_TRUE(RunUntil([&] { return window.width == 200 && window.height == 100; }));
}

TEST_F(Window, StaysFullScreenWhateverItAsksFor) {
  ASSERT_TRUE(ShowRed());
  ASSERT_TRUE(RunUntil([&] { return window.active; }));
  xdg_toplevel_unset_fullscreen(window.toplevel);
  xdg_toplevel_set_minimized(window.toplevel);
  EXPECT_TRUE(window.AwaitConfigure());
  EXPECT_EQ(window.width, kRootWidth);
}

// ---- order and frames

TEST_F(Window, LiesWhereTheProgramPutsItsObject) {
  ASSERT_TRUE(ShowRed());
  TestWindow other(client, "other");
  TestBuffer green(client, kWidth, kHeight, kGreen);
  other.Show(green);
  ASSERT_TRUE(RunUntil([&] { return host.Find("other") != nullptr; }));
  EXPECT_EQ(host.Pixel(5, 5), Rgb(kGreen));
  evas_object_layer_set(object(), 7);
  EXPECT_EQ(host.Pixel(5, 5), Rgb(kRed));
  evas_object_hide(object());
  EXPECT_EQ(host.Pixel(5, 5), Rgb(kGreen));
  evas_object_show(object());
  evas_object_move(object(), 200, 0);
  EXPECT_EQ(host.Pixel(5, 5), Rgb(kGreen));
  EXPECT_EQ(host.Pixel(205, 5), Rgb(kRed));
}

TEST_F(Window, IsToldWhenToDrawAgainAlsoWhileItIsHidden) {
  window.WantFrame();
  ASSERT_TRUE(ShowRed());
  EXPECT_TRUE(RunUntil([&] { return window.frames == 1; }));
  evas_object_hide(object());
  for (int frame = 2; frame < 5; ++frame) {
    window.WantFrame();
    window.Show(red);
    EXPECT_TRUE(RunUntil([&] { return window.frames == frame; }));
  }
  window.WantFrame();
  window.Commit();
  EXPECT_TRUE(RunUntil([&] { return window.frames == 5; })) << "nothing was drawn";
}

}  // namespace
}  // namespace kavrel_pepper_test
