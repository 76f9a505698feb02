// Clients that break the protocol or take too much: they are cut off, the others stay.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "repetitions.h"
#include "test_client.h"
#include "test_host.h"

namespace kavrel_pepper_test {
namespace {

constexpr std::uint32_t kRed = 0xffc02010, kGreen = 0xff10a030;

/// A host with a well-behaved client, whose window must go on. Main thread.
class Hostile : public ::testing::Test {
 protected:
  void SetUp() override {
    window.Show(red);
    ASSERT_TRUE(RunUntil([&] { return host.Find("good") != nullptr; }));
  }
  void TearDown() override {
    window.WantFrame();
    window.Show(green);
    EXPECT_TRUE(RunUntil([&] { return window.frames == 1; }));
    EXPECT_TRUE(RunUntil([&] { return host.Pixel(300, 200) == (kGreen & 0xffffff); }));
    EXPECT_EQ(good.error(), 0);
  }
  /// The well-behaved client gets its frame, as if nothing had happened.
  void ExpectFrame() {
    window.WantFrame();
    window.Show(red);
    ASSERT_TRUE(RunUntil([&] { return window.frames == 1; }));
    window.frames = 0;
  }
  /// The client is cut off, with that protocol error.
  void ExpectError(TestClient& client, const char* interface, std::uint32_t code) {
    ASSERT_TRUE(client.RunUntilCutOff());
    EXPECT_EQ(client.error(), EPROTO);
    EXPECT_EQ(client.error_interface(), interface);
    EXPECT_EQ(client.error_code(), code);
  }

  TestHost host;
  TestClient good;
  TestWindow window{good, "good"};
  TestBuffer red{good, kRootWidth, kRootHeight, kRed};
  TestBuffer green{good, kRootWidth, kRootHeight, kGreen};
};

// ---- buffers

TEST_F(Hostile, TruncatedPool) {
  TestClient client;
  TestWindow bad(client, "bad");
  TestBuffer buffer(client, 300, 300, kRed);
  ASSERT_EQ(::ftruncate(buffer.file.get(), 4096), 0);
  bad.Show(buffer);
  ExpectError(client, "wl_buffer", WL_SHM_ERROR_INVALID_FD);
}

TEST_F(Hostile, ManyAtOnceCutTheirFiles) {
  constexpr int kAtOnce = 8;
  const int rounds = kavrel_test::Repetitions(5, 1000);
  for (int round = 0; round < rounds; ++round) {
    std::vector<std::unique_ptr<TestClient>> clients;
    std::vector<std::unique_ptr<TestWindow>> windows;
    std::vector<std::unique_ptr<TestBuffer>> buffers;
    for (int i = 0; i < kAtOnce; ++i) {
      clients.push_back(std::make_unique<TestClient>());
      windows.push_back(std::make_unique<TestWindow>(*clients.back(), "bad"));
      buffers.push_back(std::make_unique<TestBuffer>(*clients.back(), 300, 300, kRed));
      windows.back()->Show(*buffers.back());
      ASSERT_EQ(::ftruncate(buffers.back()->file.get(), 4096), 0);
      windows.back()->Show(*buffers.back());
    }
    for (const auto& client : clients) {
      ExpectError(*client, "wl_buffer", WL_SHM_ERROR_INVALID_FD);
    }
  }
}

TEST_F(Hostile, PoolResizedAndDestroyedInUse) {
  TestClient client;
  TestWindow bad(client, "bad");
  TestBuffer buffer(client, 100, 100, kRed);
  bad.Show(buffer);
  bad.Show(buffer);
  ASSERT_EQ(::ftruncate(buffer.file.get(), static_cast<off_t>(4 * buffer.bytes)), 0);
  wl_shm_pool_resize(buffer.pool, static_cast<int>(4 * buffer.bytes));
  bad.Show(buffer);
  EXPECT_TRUE(client.RoundTrip());
}

/// A buffer of any claimed size on a pool that is large enough for it, without memory behind.
struct SparseBuffer {
  SparseBuffer(TestClient& client, int width, int height, int stride)
      : file(::memfd_create("sparse", MFD_CLOEXEC)) {
    const off_t bytes = static_cast<off_t>(stride) * height;
    EXPECT_EQ(::ftruncate(file.get(), bytes), 0);
    pool = wl_shm_create_pool(client.shm, file.get(), static_cast<int>(bytes));
    buffer = wl_shm_pool_create_buffer(pool, 0, width, height, stride, WL_SHM_FORMAT_ARGB8888);
  }
  ~SparseBuffer() {
    wl_buffer_destroy(buffer);
    wl_shm_pool_destroy(pool);
  }
  kavrel_test::Descriptor file;
  wl_shm_pool* pool;
  wl_buffer* buffer;
};

TEST_F(Hostile, GiantBuffer) {
  TestClient client;
  TestWindow bad(client, "bad");
  SparseBuffer giant(client, 20000, 20000, 80000);
  wl_surface_attach(bad.surface, giant.buffer, 0, 0);
  bad.Commit();
  ExpectError(client, "wl_buffer", WL_SHM_ERROR_INVALID_STRIDE);
}

TEST_F(Hostile, StrideShorterThanARow) {
  TestClient client;
  TestWindow bad(client, "bad");
  SparseBuffer narrow(client, 1000, 1000, 1000);
  wl_surface_attach(bad.surface, narrow.buffer, 0, 0);
  bad.Commit();
  ExpectError(client, "wl_buffer", WL_SHM_ERROR_INVALID_STRIDE);
}

TEST_F(Hostile, MorePixelsThanAClientMayHave) {
  TestClient client;
  TestWindow bad(client, "bad");
  SparseBuffer large(client, 4096, 4096, 16384);
  std::vector<std::unique_ptr<TestSurface>> surfaces;
  std::vector<wl_subsurface*> subs;
  for (std::size_t i = 0; i < 3; ++i) {
    surfaces.push_back(std::make_unique<TestSurface>(client));
    subs.push_back(
        wl_subcompositor_get_subsurface(client.subcompositor, surfaces[i]->surface, bad.surface));
    wl_subsurface_set_desync(subs[i]);
  }
  const TestBuffer own(client, 10, 10, kRed);
  wl_surface_attach(bad.surface, own.buffer, 0, 0);
  bad.Commit();
  for (const auto& surface : surfaces) {
    wl_surface_attach(surface->surface, large.buffer, 0, 0);
    wl_surface_damage(surface->surface, 0, 0, 1, 1);
    wl_surface_commit(surface->surface);
  }
  ASSERT_TRUE(client.RunUntilCutOff());
  EXPECT_EQ(client.error(), ENOMEM) << "as libwayland tells a client of this error";
  for (wl_subsurface* sub : subs) wl_subsurface_destroy(sub);
}

// ---- roles

TEST_F(Hostile, SubsurfaceLoops) {
  for (const bool direct : {true, false}) {
    TestClient client;
    TestSurface a(client), b(client), c(client);
    std::vector<wl_subsurface*> subs;
    const auto put = [&](TestSurface& child, TestSurface& parent) {
      subs.push_back(
          wl_subcompositor_get_subsurface(client.subcompositor, child.surface, parent.surface));
    };
    if (direct) {
      put(a, a);
    } else {
      put(a, b);
      put(b, c);
      put(c, a);
    }
    ExpectError(client, "wl_subcompositor", WL_SUBCOMPOSITOR_ERROR_BAD_SURFACE);
    for (wl_subsurface* sub : subs) wl_subsurface_destroy(sub);
  }
}

TEST_F(Hostile, SecondRole) {
  TestClient client;
  TestWindow bad(client, "bad");
  wl_subsurface* sub =
      wl_subcompositor_get_subsurface(client.subcompositor, bad.surface, bad.surface);
  ExpectError(client, "wl_subcompositor", WL_SUBCOMPOSITOR_ERROR_BAD_SURFACE);
  wl_subsurface_destroy(sub);
}

TEST_F(Hostile, PopupWithoutParent) {
  TestClient client;
  TestSurface surface(client);
  xdg_surface* xdg = xdg_wm_base_get_xdg_surface(client.wm_base, surface.surface);
  xdg_positioner* rules = xdg_wm_base_create_positioner(client.wm_base);
  xdg_positioner_set_size(rules, 1, 1);
  xdg_positioner_set_anchor_rect(rules, 0, 0, 1, 1);
  xdg_popup* popup = xdg_surface_get_popup(xdg, nullptr, rules);
  ExpectError(client, "xdg_wm_base", XDG_WM_BASE_ERROR_INVALID_POPUP_PARENT);
  xdg_popup_destroy(popup);
  xdg_positioner_destroy(rules);
  xdg_surface_destroy(xdg);
}

TEST_F(Hostile, PopupWithoutSize) {
  TestClient client;
  TestWindow bad(client, "bad");
  TestSurface surface(client);
  xdg_surface* xdg = xdg_wm_base_get_xdg_surface(client.wm_base, surface.surface);
  xdg_positioner* rules = xdg_wm_base_create_positioner(client.wm_base);
  xdg_popup* popup = xdg_surface_get_popup(xdg, bad.xdg, rules);
  ExpectError(client, "xdg_wm_base", XDG_WM_BASE_ERROR_INVALID_POSITIONER);
  xdg_popup_destroy(popup);
  xdg_positioner_destroy(rules);
  xdg_surface_destroy(xdg);
}

TEST_F(Hostile, BufferBeforeConfigure) {
  TestClient client;
  TestSurface surface(client);
  TestBuffer buffer(client, 10, 10, kRed);
  xdg_surface* xdg = xdg_wm_base_get_xdg_surface(client.wm_base, surface.surface);
  xdg_toplevel* toplevel = xdg_surface_get_toplevel(xdg);
  surface.Show(buffer);
  ExpectError(client, "xdg_surface", XDG_SURFACE_ERROR_UNCONFIGURED_BUFFER);
  xdg_toplevel_destroy(toplevel);
  xdg_surface_destroy(xdg);
}

TEST_F(Hostile, ConfirmationOfWhatWasNotSent) {
  TestClient client;
  TestWindow bad(client, "bad");
  xdg_surface_ack_configure(bad.xdg, 4711);
  ExpectError(client, "xdg_surface", XDG_SURFACE_ERROR_INVALID_SERIAL);
}

TEST_F(Hostile, ShellSurfaceDestroyedBeforeItsWindow) {
  TestClient client;
  TestSurface surface(client);
  xdg_surface* xdg = xdg_wm_base_get_xdg_surface(client.wm_base, surface.surface);
  xdg_toplevel* toplevel = xdg_surface_get_toplevel(xdg);
  xdg_surface_destroy(xdg);
  // The client has forgotten what the error is about.
  ExpectError(client, "", XDG_SURFACE_ERROR_DEFUNCT_ROLE_OBJECT);
  xdg_toplevel_destroy(toplevel);
}

TEST_F(Hostile, NegativeSizesAndUnknownValues) {
  const std::pair<const char*, std::function<void(TestWindow&)>> acts[] = {
      {"xdg_toplevel", [](TestWindow& w) { xdg_toplevel_set_min_size(w.toplevel, -1, 5); }},
      {"xdg_toplevel", [](TestWindow& w) { xdg_toplevel_set_parent(w.toplevel, w.toplevel); }},
      {"xdg_surface", [](TestWindow& w) { xdg_surface_set_window_geometry(w.xdg, 0, 0, 0, -9); }},
      {"wl_surface", [](TestWindow& w) { wl_surface_set_buffer_scale(w.surface, 0); }},
      {"wl_surface", [](TestWindow& w) { wl_surface_set_buffer_scale(w.surface, INT32_MAX); }},
      {"wl_surface", [](TestWindow& w) { wl_surface_set_buffer_transform(w.surface, 8); }},
      {"wl_surface", [](TestWindow& w) { wl_surface_set_buffer_transform(w.surface, -1); }},
  };
  for (const auto& [interface, act] : acts) {
    TestClient client;
    TestWindow bad(client, "bad");
    act(bad);
    ASSERT_TRUE(client.RunUntilCutOff());
    EXPECT_EQ(client.error_interface(), interface);
  }
}

TEST_F(Hostile, DragWithoutIconIsLegal) {
  TestClient client;
  TestWindow bad(client, "bad");
  wl_data_device* device =
      wl_data_device_manager_get_data_device(client.data_device_manager, client.seat);
  wl_data_device_start_drag(device, nullptr, bad.surface, nullptr, 0);
  wl_data_device_set_selection(device, nullptr, 0);
  EXPECT_TRUE(client.RoundTrip());
  wl_data_device_destroy(device);
}

TEST_F(Hostile, ExtremeCoordinatesAreCut) {
  TestClient client;
  TestWindow bad(client, "bad");
  TestBuffer buffer(client, 50, 50, kRed);
  wl_region* region = wl_compositor_create_region(client.compositor);
  for (const int x : {INT32_MIN, -1, 0, INT32_MAX}) {
    for (const int size : {INT32_MIN, 0, 1, INT32_MAX}) {
      wl_region_add(region, x, x, size, size);
      wl_region_subtract(region, x, size, size, x);
      wl_surface_damage(bad.surface, x, x, size, size);
      wl_surface_damage_buffer(bad.surface, x, size, size, x);
    }
  }
  wl_surface_set_opaque_region(bad.surface, region);
  wl_surface_set_input_region(bad.surface, region);
  wl_surface_set_buffer_scale(bad.surface, 16);
  xdg_surface_set_window_geometry(bad.xdg, INT32_MIN, INT32_MAX, INT32_MAX, INT32_MAX);
  bad.Show(buffer);
  EXPECT_TRUE(client.RoundTrip());
  EXPECT_TRUE(RunUntil([&] { return host.Find("bad") != nullptr; }));
  wl_region_destroy(region);
}

// ---- quantities

TEST_F(Hostile, TooManyObjects) {
  const std::function<void*(TestClient&)> makers[] = {
      [](TestClient& c) { return wl_compositor_create_surface(c.compositor); },
      [](TestClient& c) { return wl_compositor_create_region(c.compositor); },
      [](TestClient& c) { return wl_seat_get_pointer(c.seat); },
      [](TestClient& c) { return xdg_wm_base_create_positioner(c.wm_base); },
      [](TestClient& c) {
        const kavrel_test::Descriptor file(::memfd_create("pool", MFD_CLOEXEC));
        EXPECT_EQ(::ftruncate(file.get(), 4096), 0);
        return wl_shm_create_pool(c.shm, file.get(), 4096);
      },
  };
  for (const auto& make : makers) {
    TestClient client;
    std::vector<void*> made;
    for (int i = 0; i < 6000 && client.error() == 0; ++i) {
      made.push_back(make(client));
      if (i % 50 == 49) client.RoundTrip();
    }
    EXPECT_TRUE(client.RunUntilCutOff());
    for (void* proxy : made) wl_proxy_destroy(static_cast<wl_proxy*>(proxy));
  }
}

TEST_F(Hostile, TooManyRectangles) {
  TestClient client;
  wl_region* region = wl_compositor_create_region(client.compositor);
  for (int i = 0; i < 3000 && client.error() == 0; ++i) {
    wl_region_add(region, 2 * i, 2 * i, 1, 1);
    if (i % 100 == 99) client.RoundTrip();
  }
  EXPECT_TRUE(client.RunUntilCutOff());
  wl_region_destroy(region);
}

TEST_F(Hostile, TooManyClients) {
  std::vector<std::unique_ptr<TestClient>> clients;
  clients.reserve(70);
  for (int i = 0; i < 70; ++i) clients.push_back(std::make_unique<TestClient>());
  int refused = 0;
  for (const auto& client : clients) refused += client->error() != 0 ? 1 : 0;
  EXPECT_EQ(refused, 70 - 63);
  clients.clear();
  ASSERT_TRUE(good.RoundTrip());
  const TestClient again;
  EXPECT_EQ(again.error(), 0);
}

// The neighbour gets its frames meanwhile, each with the picture that it committed last.
TEST_F(Hostile, FloodOfCommits) {
  TestClient client;
  TestWindow bad(client, "bad");
  TestBuffer buffer(client, 300, 200, kRed);
  for (int batch = 0; client.error() == 0; ++batch) {
    for (int i = 0; i < 1000; ++i) bad.Show(buffer);
    client.Flush();
    if (batch >= 3) {
      client.RoundTrip();
      continue;
    }
    window.WantFrame();
    window.Show(batch % 2 == 0 ? green : red);
    ASSERT_TRUE(RunUntil([&] { return window.frames == batch + 1; }));
    EXPECT_EQ(host.Pixel(310, 210), (batch % 2 == 0 ? kGreen : kRed) & 0xffffff);
  }
  ExpectError(client, "wl_display", WL_DISPLAY_ERROR_IMPLEMENTATION);
  window.frames = 0;
  // Its process is let in again, but not at once.
  EXPECT_NE(TestClient().error(), 0);
  EXPECT_TRUE(RunUntil([] { return TestClient().error() == 0; }));
  EXPECT_TRUE(good.RoundTrip());
}

TEST_F(Hostile, ClientThatNeverReads) {
  TestClient client;
  client.StopReading();
  for (int i = 0; i < 20000; ++i) {
    wl_callback_destroy(wl_display_sync(client.display()));
    if (wl_display_flush(client.display()) < 0) break;
    if (i % 100 == 0) {
      ASSERT_TRUE(good.RoundTrip());
    }
  }
  ASSERT_TRUE(good.RoundTrip());
  client.ReadAgain();
  EXPECT_TRUE(client.RunUntilCutOff());
}

// ---- bytes

kavrel_test::Descriptor Connect(const TestHost& host) {
  kavrel_test::Descriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = host.environment().directory.Path(kSocket);
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return fd;
}

TEST_F(Hostile, Garbage) {
  std::mt19937 random(1);
  const int rounds = kavrel_test::Repetitions(200, 20000);
  for (int round = 0; round < rounds; ++round) {
    const kavrel_test::Descriptor fd = Connect(host);
    std::vector<std::uint32_t> words(64);
    for (std::uint32_t& word : words) word = static_cast<std::uint32_t>(random());
    // Half of them begin as a message to the display should.
    if (round % 2 == 0) {
      words[0] = 1;
      words[1] = (static_cast<std::uint32_t>(round % 32) * 4 + 8) << 16 | (random() % 4);
    }
    EXPECT_GT(::send(fd.get(), words.data(), words.size() * 4, MSG_NOSIGNAL), 0);
    ASSERT_TRUE(good.RoundTrip());
    if (round % 20 == 0) ExpectFrame();
    if (HasFatalFailure()) return;
  }
  ASSERT_TRUE(good.RoundTrip());
}

// Requests in their right form with numbers at random: most end the client, none the program.
TEST_F(Hostile, RandomRequests) {
  std::mt19937 random(2);
  const int rounds = kavrel_test::Repetitions(100, 10000);
  for (int round = 0; round < rounds; ++round) {
    TestClient client;
    TestWindow bad(client, "bad");
    TestSurface child(client);
    TestBuffer buffer(client, 20, 20, kRed);
    wl_subsurface* sub =
        wl_subcompositor_get_subsurface(client.subcompositor, child.surface, bad.surface);
    const auto number = [&] { return static_cast<int>(random() % 64) - 16; };
    for (int i = 0; i < 60; ++i) {
      switch (random() % 12) {
        case 0:
          bad.Show(buffer);
          break;
        case 1:
          child.Show(buffer);
          break;
        case 2:
          bad.Unmap();
          break;
        case 3:
          child.Unmap();
          break;
        case 4:
          wl_subsurface_set_position(sub, number(), number());
          break;
        case 5:
          random() % 2 ? wl_subsurface_set_sync(sub) : wl_subsurface_set_desync(sub);
          break;
        case 6:
          wl_subsurface_place_below(sub, bad.surface);
          break;
        case 7:
          xdg_surface_set_window_geometry(bad.xdg, number(), number(), 40 + number(), 40);
          break;
        case 8:
          child.WantFrame();
          break;
        case 9:
          client.RoundTrip();
          break;
        case 10:
          wl_surface_set_buffer_scale(child.surface, 1 + static_cast<int>(random() % 4));
          break;
        default:
          wl_surface_commit(random() % 2 ? bad.surface : child.surface);
      }
    }
    if (random() % 2 == 0) client.Die();
    wl_subsurface_destroy(sub);
    if (round % 10 == 0) ExpectFrame();
    if (HasFatalFailure()) return;
  }
  EXPECT_TRUE(RunUntil([&] { return host.Find("bad") == nullptr; }));
}

}  // namespace
}  // namespace kavrel_pepper_test
