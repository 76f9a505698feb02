// Clients that nobody wrote for this compositor: windows of whole toolkits, each in its process.
#include <Ecore.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "child_process.h"
#include "test_host.h"

namespace kavrel_pepper_test {
namespace {

constexpr unsigned kGreen = 0x00ff00, kBlue = 0x0000ff, kRed = 0xff0000;
constexpr char kTitle[] = "a toolkit's window";

struct Toolkit {
  const char* name;
  std::vector<std::string> command;
};

std::ostream& operator<<(std::ostream& out, const Toolkit& toolkit) {
  return out << toolkit.name;
}

/// A host and one client of a toolkit, which shows a green window. Main thread.
class ToolkitClient : public ::testing::TestWithParam<Toolkit> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(RunUntil([&] { return object() != nullptr; })) << client.errors();
    ASSERT_TRUE(Sees(100, 100, kGreen));
  }
  kavrel_test::ChildOptions Options() {
    return {.arguments = GetParam().command,
            .environment = {{"WAYLAND_DISPLAY", kSocket},
                            {"HOME", home.path()},
                            {"DISPLAY", std::nullopt},
                            {"DBUS_SESSION_BUS_ADDRESS", std::nullopt},
                            {"EINA_LOG_LEVEL", "0"},
                            {"ELM_ACCEL", "none"},
                            {"ELM_DISPLAY", "wl"},
                            {"GDK_BACKEND", "wayland"},
                            {"GSETTINGS_BACKEND", "memory"},
                            {"NO_AT_BRIDGE", "1"}}};
  }
  Evas_Object* object() { return host.Find(kTitle); }
  bool Sees(int x, int y, unsigned colour) {
    return RunUntil([&] { return host.Pixel(x, y) == colour; });
  }
  void Key(const char* name) {
    Evas* evas = host.canvas().evas();
    evas_event_feed_key_down(evas, name, name, nullptr, nullptr, 0, nullptr);
    evas_event_feed_key_up(evas, name, name, nullptr, nullptr, 0, nullptr);
  }
  void Click(int x, int y) {
    Evas* evas = host.canvas().evas();
    evas_event_feed_mouse_in(evas, 0, nullptr);
    evas_event_feed_mouse_move(evas, x, y, 0, nullptr);
    evas_event_feed_mouse_down(evas, 1, EVAS_BUTTON_NONE, 0, nullptr);
    evas_event_feed_mouse_up(evas, 1, EVAS_BUTTON_NONE, 0, nullptr);
  }

  const kavrel_test::TemporaryDirectory home;
  TestHost host;
  kavrel_test::ChildProcess client{Options()};
};

TEST_P(ToolkitClient, FillsTheRootWindow) {
  EXPECT_TRUE(Sees(0, 0, kGreen));
  EXPECT_TRUE(Sees(kRootWidth - 1, kRootHeight - 1, kGreen));
  EXPECT_EQ(host.events().size(), 1u);
}

TEST_P(ToolkitClient, HearsOfColourKeysAndClicks) {
  Key("XF86Red");
  EXPECT_TRUE(Sees(100, 100, kBlue));
  Click(100, 100);
  EXPECT_TRUE(Sees(100, 100, kRed));
}

TEST_P(ToolkitClient, DrawsTheSizeOfItsObject) {
  evas_object_geometry_set(object(), 20, 20, 280, 200);
  EXPECT_TRUE(RunUntil([&] {
    int width = 0, height = 0;
    evas_object_image_size_get(object(), &width, &height);
    return width == 280 && height == 200;
  }));
  EXPECT_EQ(host.Pixel(19, 19), 0u);
  EXPECT_EQ(host.Pixel(299, 219), kGreen);
  EXPECT_EQ(host.Pixel(300, 219), 0u);
}

TEST_P(ToolkitClient, GoesWhenItIsKilled) {
  client.Kill();
  EXPECT_TRUE(RunUntil([&] { return host.events().size() == 2; }));
  EXPECT_EQ(host.Pixel(100, 100), 0u);
}

// The main loop reaps every child and tells of it.
TEST_P(ToolkitClient, EndsWhenItsObjectIsDeleted) {
  struct End {
    pid_t pid;
    std::optional<int> code;
  };
  End end{client.pid(), std::nullopt};
  Ecore_Event_Handler* handler = ecore_event_handler_add(
      ECORE_EXE_EVENT_DEL,
      [](void* data, int, void* information) -> Eina_Bool {
        auto* awaited = static_cast<End*>(data);
        const auto* event = static_cast<Ecore_Exe_Event_Del*>(information);
        if (event->pid == awaited->pid) awaited->code = event->exited ? event->exit_code : -1;
        return ECORE_CALLBACK_PASS_ON;
      },
      &end);
  evas_object_del(object());
  EXPECT_TRUE(RunUntil([&] { return end.code.has_value(); }));
  EXPECT_EQ(end.code, 0);
  ecore_event_handler_del(handler);
}

INSTANTIATE_TEST_SUITE_P(Of, ToolkitClient,
                         ::testing::Values(Toolkit{"Elementary", {PEPPER_EFL_ELEMENTARY_CLIENT}},
                                           Toolkit{"Gtk",
                                                   {PEPPER_EFL_PYTHON, PEPPER_EFL_GTK_CLIENT}}),
                         [](const auto& toolkit) { return std::string(toolkit.param.name); });

}  // namespace
}  // namespace kavrel_pepper_test
