// The ends of windows, clients, objects, root window and compositor, in every order.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "descriptors.h"
#include "repetitions.h"
#include "test_client.h"
#include "test_host.h"

namespace kavrel_pepper_test {
namespace {

using kavrel_test::OpenDescriptors;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kRed = 0xffc02010;

/// A client with one window, whose parts can be destroyed one by one. Main thread.
struct LooseWindow {
  explicit LooseWindow(const char* title) : window(client, title) { window.Show(red); }
  TestClient client;
  TestWindow window;
  TestBuffer red{client, 40, 40, kRed};
};

class Lifetime : public ::testing::Test {
 protected:
  bool Await(std::size_t events) {
    return RunUntil([&] { return host.events().size() >= events; });
  }
  /// Runs on for a while's worth of work: a second client comes, shows a window and goes.
  void PassOn() {
    const auto on_add = std::exchange(host.on_add, nullptr);
    const auto on_del = std::exchange(host.on_del, nullptr);
    {
      LooseWindow other("other");
      ASSERT_TRUE(RunUntil([&] { return host.Find("other") != nullptr; }));
      EXPECT_EQ(host.Pixel(1, 1), kRed & 0xffffff);
    }
    ASSERT_TRUE(RunUntil([&] { return host.Find("other") == nullptr; }));
    host.on_add = on_add;
    host.on_del = on_del;
  }

  TestHost host;
};

TEST_F(Lifetime, UnmappedWindowGoesAndComesBackAsAnother) {
  LooseWindow loose("news");
  std::vector<std::string> expected = {"add news"};
  ASSERT_TRUE(Await(1));
  for (int round = 0; round < 10; ++round) {
    loose.window.Unmap();
    ASSERT_TRUE(Await(expected.size() + 1));
    loose.window.Commit();
    ASSERT_TRUE(loose.window.AwaitConfigure());
    loose.window.Show(loose.red);
    expected.insert(expected.end(), {"del news", "add news"});
    ASSERT_TRUE(Await(expected.size()));
  }
  EXPECT_EQ(host.EventNames(), expected);
  EXPECT_EQ(host.Pixel(1, 1), kRed & 0xffffff);
}

TEST_F(Lifetime, DyingClientTakesItsWindowsAlong) {
  auto loose = std::make_unique<LooseWindow>("news");
  TestWindow second(loose->client, "second");
  second.Show(loose->red);
  ASSERT_TRUE(Await(2));
  loose->client.Die();
  ASSERT_TRUE(Await(4));
  PassOn();
  EXPECT_EQ(host.events().size(), 6u);
}

TEST_F(Lifetime, WindowThatGoesBeforeItWasAnnouncedNeverCame) {
  for (int i = 0; i < 20; ++i) {
    LooseWindow loose("brief");
    loose.window.Unmap();
    loose.client.Flush();
  }
  {
    LooseWindow loose("brief");
    loose.client.Die();
  }
  PassOn();
  int balance = 0;
  for (const std::string& name : host.EventNames()) balance += name.starts_with("add") ? 1 : -1;
  EXPECT_EQ(balance, 0);
}

TEST_F(Lifetime, ReplacedWindowGoesBeforeTheNewOneComes) {
  LooseWindow old("news");
  ASSERT_TRUE(Await(1));
  LooseWindow fresh("news");
  old.client.Die();
  ASSERT_TRUE(Await(3));
  EXPECT_EQ(host.EventNames().back() == "del news", host.EventNames()[1] == "add news");
  PassOn();
}

TEST_F(Lifetime, ObjectDeletedByTheProgramClosesTheWindowForGood) {
  LooseWindow loose("news");
  ASSERT_TRUE(Await(1));
  evas_object_del(host.Find("news"));
  ASSERT_TRUE(RunUntil([&] { return loose.window.closed; }));
  loose.window.WantFrame();
  loose.window.Show(loose.red);
  ASSERT_TRUE(RunUntil([&] { return loose.window.frames == 1; }));
  EXPECT_TRUE(RunUntil([&] { return loose.red.releases == 2; }));
  PassOn();
  loose.client.Die();
  PassOn();
  EXPECT_EQ(host.EventNames()[1], "add other") << "no end is announced";
}

TEST_F(Lifetime, ObjectMayOutliveItsWindow) {
  Evas_Object* kept = nullptr;
  std::string title_at_deletion;
  {
    host.on_del = [&](Evas_Object* object) { kept = object; };
    LooseWindow loose("news");
    ASSERT_TRUE(Await(1));
    const auto note_title = [](void* data, Evas*, Evas_Object* object, void*) {
      *static_cast<std::string*>(data) = pepper_efl_object_title_get(object);
    };
    evas_object_event_callback_add(host.Find("news"), EVAS_CALLBACK_DEL, note_title,
                                   &title_at_deletion);
  }
  ASSERT_TRUE(Await(2));
  PassOn();
  EXPECT_EQ(host.Pixel(1, 1), kRed & 0xffffff) << "the last picture stays";
  evas_object_move(kept, 10, 10);
  evas_object_resize(kept, 5, 5);
  evas_object_hide(kept);
  evas_object_show(kept);
  EXPECT_STREQ(pepper_efl_object_title_get(kept), "news");
  EXPECT_STREQ(pepper_efl_object_app_id_get(kept), "test.app");
  evas_object_del(kept);
  EXPECT_EQ(title_at_deletion, "news");
}

TEST_F(Lifetime, ObjectMayBeDeletedWhenItIsAnnounced) {
  host.on_add = [](Evas_Object* object) { evas_object_del(object); };
  LooseWindow loose("news");
  ASSERT_TRUE(Await(1));
  EXPECT_TRUE(RunUntil([&] { return loose.window.closed; }));
  PassOn();
}

TEST_F(Lifetime, CompositorMayBeDestroyedWhenAWindowComes) {
  host.on_add = [&](Evas_Object*) { host.DestroyCompositor(); };
  LooseWindow loose("news");
  EXPECT_TRUE(loose.client.RunUntilCutOff());
  EXPECT_THAT(host.EventNames(), ElementsAre("add news", "del news"));
  ASSERT_TRUE(host.CreateCompositor());
  PassOn();
}

TEST_F(Lifetime, CompositorMayBeDestroyedWhenAWindowGoes) {
  LooseWindow loose("news"), second("second");
  ASSERT_TRUE(Await(2));
  host.on_del = [&](Evas_Object* object) {
    host.on_del = nullptr;
    evas_object_del(object);
    host.DestroyCompositor();
  };
  loose.client.Die();
  EXPECT_TRUE(second.client.RunUntilCutOff());
  EXPECT_EQ(host.events().size(), 4u);
}

// A resize that the client's commit causes runs the program's callbacks while requests are handled.
TEST_F(Lifetime, CompositorMayBeDestroyedWhileRequestsAreHandled) {
  LooseWindow loose("news");
  ASSERT_TRUE(Await(1));
  const auto destroy = [](void* data, Evas*, Evas_Object*, void*) {
    static_cast<TestHost*>(data)->DestroyCompositor();
  };
  evas_object_event_callback_add(host.Find("news"), EVAS_CALLBACK_RESIZE, destroy, &host);
  TestBuffer larger(loose.client, 80, 80, kRed);
  loose.window.Show(larger);
  EXPECT_TRUE(loose.client.RunUntilCutOff());
  EXPECT_THAT(host.EventNames(), ElementsAre("add news", "del news"));
}

TEST_F(Lifetime, DestructionAnnouncesTheEndOfAllAndDeletesWhatIsLeft) {
  LooseWindow loose("news"), second("second");
  ASSERT_TRUE(Await(2));
  host.on_del = [](Evas_Object*) {};
  bool deleted = false;
  evas_object_event_callback_add(
      host.Find("news"), EVAS_CALLBACK_DEL,
      [](void* data, Evas*, Evas_Object*, void*) { *static_cast<bool*>(data) = true; }, &deleted);
  host.DestroyCompositor();
  EXPECT_EQ(host.events().size(), 4u);
  EXPECT_TRUE(deleted);
  EXPECT_TRUE(loose.client.RunUntilCutOff());
}

TEST_F(Lifetime, RootWindowMayGoFirst) {
  LooseWindow loose("news");
  ASSERT_TRUE(Await(1));
  host.canvas().DeleteRoot();
  EXPECT_TRUE(loose.client.RunUntilCutOff());
  host.DestroyCompositor();
  EXPECT_THAT(host.EventNames(), ElementsAre("add news", "del news"));
}

TEST_F(Lifetime, CompositorsComeAndGoWithoutTrace) {
  long before = 0;
  for (int cycle = 0; cycle < 20; ++cycle) {
    PassOn();
    {
      LooseWindow loose("news");
      ASSERT_TRUE(RunUntil([&] { return host.Find("news") != nullptr; }));
      host.DestroyCompositor();
      EXPECT_TRUE(loose.client.RunUntilCutOff());
    }
    if (cycle == 1) before = OpenDescriptors();
    ASSERT_TRUE(host.CreateCompositor());
  }
  host.DestroyCompositor();
  EXPECT_EQ(OpenDescriptors(), before);
}

// The client stops after each prefix of what a window's life consists of.
TEST_F(Lifetime, ClientMayDieAtEveryStep) {
  constexpr int kSteps = 12;
  const int deaths = kavrel_test::Repetitions(kSteps, 1000 * kSteps);
  for (int death = 0; death < deaths; ++death) {
    const int last = death % kSteps;
    TestClient client;
    TestSurface surface(client), child(client);
    TestBuffer buffer(client, 40, 40, kRed);
    xdg_surface* xdg = nullptr;
    xdg_toplevel* toplevel = nullptr;
    wl_subsurface* sub = nullptr;
    xdg_positioner* positioner = nullptr;
    bool configured = false;
    for (int step = 0; step <= last; ++step) {
      switch (step) {
        case 0:
          xdg = xdg_wm_base_get_xdg_surface(client.wm_base, surface.surface);
          break;
        case 1:
          toplevel = xdg_surface_get_toplevel(xdg);
          break;
        case 2:
          xdg_toplevel_set_title(toplevel, "step");
          break;
        case 3:
          wl_surface_commit(surface.surface);
          break;
        case 4:
          positioner = xdg_wm_base_create_positioner(client.wm_base);
          break;
        case 5: {
          static const xdg_surface_listener kListener = {
              [](void* data, xdg_surface* object, std::uint32_t serial) {
                xdg_surface_ack_configure(object, serial);
                *static_cast<bool*>(data) = true;
              }};
          xdg_surface_add_listener(xdg, &kListener, &configured);
          ASSERT_TRUE(RunUntil([&] { return configured; }));
          break;
        }
        case 6:
          sub =
              wl_subcompositor_get_subsurface(client.subcompositor, child.surface, surface.surface);
          break;
        case 7:
          child.Show(buffer);
          break;
        case 8:
          surface.Show(buffer);
          break;
        case 9:
          client.Flush();
          ASSERT_TRUE(RunUntil([&] { return host.Find("step") != nullptr; }));
          break;
        case 10:
          surface.Unmap();
          break;
        default:
          client.Flush();
          ASSERT_TRUE(RunUntil([&] { return host.Find("step") == nullptr; }));
      }
    }
    client.Die();
    PassOn();
    for (void* proxy : std::initializer_list<void*>{sub, positioner, toplevel, xdg}) {
      if (proxy != nullptr) wl_proxy_destroy(static_cast<wl_proxy*>(proxy));
    }
  }
  EXPECT_EQ(host.Find("step"), nullptr);
}

// Objects of one window destroyed in every order that the protocol leaves possible or not.
TEST_F(Lifetime, PartsMayGoInAnyOrder) {
  std::array<int, 4> order = {0, 1, 2, 3};
  do {
    TestClient client;
    ASSERT_EQ(client.error(), 0);
    wl_surface* surface = wl_compositor_create_surface(client.compositor);
    wl_surface* child = wl_compositor_create_surface(client.compositor);
    wl_subsurface* sub = wl_subcompositor_get_subsurface(client.subcompositor, child, surface);
    TestBuffer buffer(client, 10, 10, kRed);
    wl_region* region = wl_compositor_create_region(client.compositor);
    wl_surface_attach(child, buffer.buffer, 0, 0);
    wl_surface_set_input_region(child, region);
    wl_surface_commit(child);
    wl_surface_commit(surface);
    for (const int part : order) {
      switch (part) {
        case 0:
          wl_surface_destroy(surface);
          break;
        case 1:
          wl_surface_destroy(child);
          break;
        case 2:
          wl_subsurface_destroy(sub);
          break;
        default:
          wl_region_destroy(region);
      }
      client.Flush();
      EXPECT_TRUE(part != order[2] || client.RoundTrip());
    }
    EXPECT_TRUE(client.RoundTrip());
  } while (std::next_permutation(order.begin(), order.end()));
  PassOn();
}

}  // namespace
}  // namespace kavrel_pepper_test
