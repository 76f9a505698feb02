// Subsurfaces and pop-ups: where they lie, what they lie above, when they change.
#include <gmock/gmock.h>

#include <memory>
#include <utility>

#include "test_client.h"
#include "test_host.h"

namespace kavrel_pepper_test {
namespace {

constexpr std::uint32_t kRed = 0xffc02010, kGreen = 0xff10a030, kBlue = 0xff2040d0;

unsigned Rgb(std::uint32_t colour) {
  return colour & 0xffffff;
}

/// A subsurface with a green picture of 20x20.
struct Child : TestSurface {
  Child(TestClient& client_, wl_surface* parent)
      : TestSurface(client_),
        sub(wl_subcompositor_get_subsurface(client_.subcompositor, surface, parent)),
        green(client_, 20, 20, kGreen) {}
  ~Child() { wl_subsurface_destroy(sub); }

  wl_subsurface* sub;
  TestBuffer green;
};

/// A pop-up of 30x20 with a blue picture.
struct Menu : TestSurface {
  Menu(TestClient& client_, xdg_surface* parent, std::uint32_t anchor = XDG_POSITIONER_ANCHOR_NONE,
       std::uint32_t gravity = XDG_POSITIONER_GRAVITY_NONE, std::uint32_t adjustment = 0,
       bool grabs = false)
      : TestSurface(client_),
        xdg(xdg_wm_base_get_xdg_surface(client_.wm_base, surface)),
        blue(client_, 30, 20, kBlue) {
    xdg_positioner* rules = xdg_wm_base_create_positioner(client.wm_base);
    xdg_positioner_set_size(rules, 30, 20);
    xdg_positioner_set_anchor_rect(rules, 40, 40, 10, 10);
    xdg_positioner_set_anchor(rules, anchor);
    xdg_positioner_set_gravity(rules, gravity);
    xdg_positioner_set_constraint_adjustment(rules, adjustment);
    popup = xdg_surface_get_popup(xdg, parent, rules);
    xdg_positioner_destroy(rules);
    static const xdg_surface_listener kSurface = {
        [](void* data, xdg_surface* object, std::uint32_t serial) {
          xdg_surface_ack_configure(object, serial);
          auto* self = static_cast<Menu*>(data);
          if (!std::exchange(self->configured, true)) self->Show(self->blue);
        }};
    static const xdg_popup_listener kPopup = {
        .configure =
            [](void* data, xdg_popup*, int x_, int y_, int, int) {
              static_cast<Menu*>(data)->x = x_;
              static_cast<Menu*>(data)->y = y_;
            },
        .popup_done = [](void* data, xdg_popup*) { ++static_cast<Menu*>(data)->dismissals; },
        .repositioned = nullptr,
    };
    xdg_surface_add_listener(xdg, &kSurface, this);
    xdg_popup_add_listener(popup, &kPopup, this);
    if (grabs) xdg_popup_grab(popup, client.seat, 0);
    wl_surface_commit(surface);
    RunUntil([&] { return configured || client.error() != 0; });
  }
  ~Menu() {
    xdg_popup_destroy(popup);
    xdg_surface_destroy(xdg);
  }

  xdg_surface* xdg;
  xdg_popup* popup;
  TestBuffer blue;
  bool configured = false;
  int x = 0, y = 0;
  int dismissals = 0;
};

class Tree : public ::testing::Test {
 protected:
  void SetUp() override {
    window.Show(red);
    ASSERT_TRUE(RunUntil([&] { return object() != nullptr; }));
  }
  Evas_Object* object() { return host.Find("news"); }
  bool Sees(int x, int y, std::uint32_t colour) {
    return RunUntil([&] { return host.Pixel(x, y) == Rgb(colour); });
  }

  TestHost host;
  TestClient client;
  TestWindow window{client, "news"};
  TestBuffer red{client, 100, 100, kRed};
};

TEST_F(Tree, SubsurfaceFollowsItsParentsObject) {
  Child child(client, window.surface);
  wl_subsurface_set_position(child.sub, 10, 20);
  child.Show(child.green);
  window.Commit();
  ASSERT_TRUE(Sees(10, 20, kGreen));
  EXPECT_EQ(host.Pixel(9, 20), Rgb(kRed));
  EXPECT_EQ(host.Pixel(29, 39), Rgb(kGreen));
  EXPECT_EQ(host.Pixel(30, 39), Rgb(kRed));
  evas_object_move(object(), 100, 50);
  EXPECT_EQ(host.Pixel(110, 70), Rgb(kGreen));
  EXPECT_EQ(host.Pixel(10, 20), 0u);
  evas_object_resize(object(), 200, 50);
  EXPECT_EQ(host.Pixel(120, 60), Rgb(kGreen));
  EXPECT_EQ(host.Pixel(159, 69), Rgb(kGreen));
  EXPECT_EQ(host.Pixel(160, 69), Rgb(kRed));
  evas_object_hide(object());
  EXPECT_EQ(host.Pixel(120, 60), 0u);
  evas_object_show(object());
  EXPECT_EQ(host.Pixel(120, 60), Rgb(kGreen));
}

TEST_F(Tree, SubsurfaceLiesOnItsWindowsLayerRightAboveIt) {
  Child child(client, window.surface);
  child.Show(child.green);
  window.Commit();
  ASSERT_TRUE(Sees(0, 0, kGreen));
  TestWindow other(client, "other");
  TestBuffer blue(client, 100, 100, kBlue);
  other.Show(blue);
  ASSERT_TRUE(Sees(0, 0, kBlue));
  evas_object_layer_set(object(), 5);
  EXPECT_EQ(host.Pixel(0, 0), Rgb(kGreen));
  evas_object_layer_set(host.Find("other"), 5);
  EXPECT_EQ(host.Pixel(0, 0), Rgb(kBlue));
  evas_object_raise(object());
  EXPECT_EQ(host.Pixel(0, 0), Rgb(kGreen));
  evas_object_stack_below(object(), host.Find("other"));
  EXPECT_EQ(host.Pixel(0, 0), Rgb(kBlue));
}

TEST_F(Tree, SynchronisedSubsurfaceWaitsForItsParent) {
  Child child(client, window.surface);
  child.Show(child.green);
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_EQ(host.Pixel(0, 0), Rgb(kRed));
  window.Commit();
  EXPECT_TRUE(Sees(0, 0, kGreen));
  TestBuffer blue(client, 20, 20, kBlue);
  child.Show(blue);
  child.Show(child.green);
  child.Show(blue);
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_EQ(host.Pixel(0, 0), Rgb(kGreen));
  EXPECT_EQ(blue.releases, 1) << "what a later commit replaced";
  wl_subsurface_set_desync(child.sub);
  EXPECT_TRUE(Sees(0, 0, kBlue));
  child.Show(child.green);
  EXPECT_TRUE(Sees(0, 0, kGreen));
}

TEST_F(Tree, SubsurfacesAreStackedAsTheClientSays) {
  Child first(client, window.surface), second(client, window.surface);
  TestBuffer blue(client, 20, 20, kBlue);
  first.Show(first.green);
  second.Show(blue);
  window.Commit();
  ASSERT_TRUE(Sees(0, 0, kBlue));
  wl_subsurface_place_below(second.sub, first.surface);
  window.Commit();
  EXPECT_TRUE(Sees(0, 0, kGreen));
  wl_subsurface_place_below(first.sub, window.surface);
  wl_subsurface_place_below(second.sub, window.surface);
  window.Commit();
  EXPECT_TRUE(Sees(0, 0, kRed));
  wl_subsurface_place_above(second.sub, window.surface);
  window.Commit();
  EXPECT_TRUE(Sees(0, 0, kBlue));
}

TEST_F(Tree, SubsurfacesOfSubsurfacesAddUp) {
  Child child(client, window.surface);
  Child grandchild(client, child.surface);
  TestBuffer blue(client, 5, 5, kBlue);
  wl_subsurface_set_position(child.sub, 10, 10);
  wl_subsurface_set_position(grandchild.sub, 18, 18);
  grandchild.Show(blue);
  child.Show(child.green);
  window.Commit();
  EXPECT_TRUE(Sees(28, 28, kBlue));
  EXPECT_EQ(host.Pixel(32, 32), Rgb(kBlue));
  EXPECT_EQ(host.Pixel(27, 28), Rgb(kGreen));
}

TEST_F(Tree, SubsurfaceGoesWithItsRoleItsContentAndItsParent) {
  auto child = std::make_unique<Child>(client, window.surface);
  child->Show(child->green);
  window.Commit();
  ASSERT_TRUE(Sees(0, 0, kGreen));
  child->Unmap();
  window.Commit();
  ASSERT_TRUE(Sees(0, 0, kRed));
  child->Show(child->green);
  window.Commit();
  ASSERT_TRUE(Sees(0, 0, kGreen));
  child.reset();
  ASSERT_TRUE(Sees(0, 0, kRed));
  Child last(client, window.surface);
  last.Show(last.green);
  window.Commit();
  ASSERT_TRUE(Sees(0, 0, kGreen));
  evas_object_del(object());
  EXPECT_EQ(host.Pixel(0, 0), 0u) << "the program deleted the window";
}

// The second picture of a frame is made when the frame is over.
TEST_F(Tree, SubsurfaceMayGoAndComeBackWithinAFrame) {
  Child child(client, window.surface);
  wl_subsurface_set_desync(child.sub);
  wl_subsurface_set_position(child.sub, 10, 10);
  child.Show(child.green);
  window.Commit();
  child.Unmap();
  child.Show(child.green);
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_TRUE(Sees(10, 10, kGreen));
  EXPECT_EQ(host.Pixel(9, 9), Rgb(kRed));
}

TEST_F(Tree, NoSubsurfaceIsAnnounced) {
  Child child(client, window.surface);
  child.Show(child.green);
  window.Commit();
  Menu menu(client, window.xdg);
  ASSERT_TRUE(Sees(0, 0, kGreen));
  EXPECT_EQ(host.events().size(), 1u);
}

TEST_F(Tree, PopupLiesAboveItsWindow) {
  Child child(client, window.surface);
  wl_subsurface_set_position(child.sub, 40, 40);
  child.Show(child.green);
  window.Commit();
  auto menu = std::make_unique<Menu>(client, window.xdg);
  EXPECT_EQ(menu->x, 30);
  EXPECT_EQ(menu->y, 35);
  ASSERT_TRUE(Sees(45, 45, kBlue));
  EXPECT_EQ(host.Pixel(29, 45), Rgb(kRed));
  evas_object_move(object(), 100, 100);
  EXPECT_EQ(host.Pixel(145, 145), Rgb(kBlue));
  menu.reset();
  EXPECT_TRUE(Sees(145, 145, kGreen));
}

TEST_F(Tree, PopupIsAnchoredFlippedAndMovedIntoView) {
  constexpr auto kBottomRight = XDG_POSITIONER_ANCHOR_BOTTOM_RIGHT;
  constexpr auto kDownRight = XDG_POSITIONER_GRAVITY_BOTTOM_RIGHT;
  Menu plain(client, window.xdg, kBottomRight, kDownRight);
  EXPECT_EQ(plain.x, 50);
  EXPECT_EQ(plain.y, 50);
  evas_object_move(object(), kRootWidth - 60, kRootHeight - 60);
  Menu outside(client, window.xdg, kBottomRight, kDownRight);
  EXPECT_EQ(outside.x, 50);
  Menu flipped(client, window.xdg, kBottomRight, kDownRight,
               XDG_POSITIONER_CONSTRAINT_ADJUSTMENT_FLIP_X);
  EXPECT_EQ(flipped.x, 10);
  EXPECT_EQ(flipped.y, 50);
  Menu moved(client, window.xdg, kBottomRight, kDownRight,
             XDG_POSITIONER_CONSTRAINT_ADJUSTMENT_SLIDE_Y);
  EXPECT_EQ(moved.x, 50);
  EXPECT_EQ(moved.y, 40);
}

TEST_F(Tree, GrabbingPopupIsDismissedByAPressElsewhere) {
  ASSERT_TRUE(RunUntil([&] { return window.active; }));
  Menu menu(client, window.xdg, 0, 0, 0, true);
  ASSERT_TRUE(Sees(45, 45, kBlue));
  Evas* evas = host.canvas().evas();
  const auto press = [&](int x, int y) {
    evas_event_feed_mouse_in(evas, 0, nullptr);
    evas_event_feed_mouse_move(evas, x, y, 0, nullptr);
    evas_event_feed_mouse_down(evas, 1, EVAS_BUTTON_NONE, 0, nullptr);
    evas_event_feed_mouse_up(evas, 1, EVAS_BUTTON_NONE, 0, nullptr);
  };
  press(45, 45);
  ASSERT_TRUE(client.RoundTrip());
  EXPECT_EQ(menu.dismissals, 0);
  press(5, 5);
  ASSERT_TRUE(RunUntil([&] { return menu.dismissals == 1; }));
  EXPECT_TRUE(Sees(45, 45, kRed));
}

TEST_F(Tree, PopupsGoWithTheirWindow) {
  auto menu = std::make_unique<Menu>(client, window.xdg);
  auto deeper = std::make_unique<Menu>(client, menu->xdg);
  ASSERT_TRUE(Sees(45, 45, kBlue));
  window.Unmap();
  ASSERT_TRUE(RunUntil([&] { return menu->dismissals == 1 && deeper->dismissals == 1; }));
  EXPECT_TRUE(Sees(45, 45, 0));
}

}  // namespace
}  // namespace kavrel_pepper_test
