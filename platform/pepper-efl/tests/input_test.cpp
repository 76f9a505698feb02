// Keys to the focused window, pointer and fingers to the window under them.
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <xkbcommon/xkbcommon.h>

#include <linux/input-event-codes.h>

#include "test_client.h"
#include "test_host.h"

namespace kavrel_pepper_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A client with one window that writes down the input it gets.
struct Listening {
  explicit Listening(const char* title) : window(client, title) {
    window.Show(picture);
    keyboard = wl_seat_get_keyboard(client.seat);
    pointer = wl_seat_get_pointer(client.seat);
    touch = wl_seat_get_touch(client.seat);
    Listen();
    client.RoundTrip();
  }
  ~Listening() {
    wl_keyboard_destroy(keyboard);
    wl_pointer_destroy(pointer);
    wl_touch_destroy(touch);
    xkb_keymap_unref(keymap);
    xkb_context_unref(context);
  }
  void Listen();
  void ListenToKeyboard();
  void ListenToPointer();
  void ListenToTouch();
  void ReadKeymap(int fd, std::uint32_t size);
  std::string NameOf(std::uint32_t key) const {
    char name[64] = "?";
    const xkb_keysym_t* symbols = nullptr;
    if (xkb_keymap_key_get_syms_by_level(keymap, key + 8, 0, 0, &symbols) == 1) {
      xkb_keysym_get_name(*symbols, name, sizeof name);
    }
    return name;
  }
  bool Gets(std::size_t count) {
    return RunUntil([&] { return log.size() >= count; });
  }

  TestClient client;
  TestWindow window;
  TestBuffer picture{client, 100, 100, 0xffc02010};
  wl_keyboard* keyboard;
  wl_pointer* pointer;
  wl_touch* touch;
  xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
  xkb_keymap* keymap = nullptr;
  std::vector<std::string> log;
  std::uint32_t modifiers = 0;
  int motions = 0;
};

void Listening::ReadKeymap(int fd, std::uint32_t size) {
  void* text = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
  // cppcheck-suppress memleak ; what could not be mapped needs no owner
  ASSERT_NE(text, MAP_FAILED);
  keymap = xkb_keymap_new_from_string(context, static_cast<const char*>(text),
                                      XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS);
  ::munmap(text, size);
  EXPECT_EQ(::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0), MAP_FAILED);
  ::close(fd);
}

std::string At(wl_fixed_t x, wl_fixed_t y) {
  return std::to_string(wl_fixed_to_int(x)) + ',' + std::to_string(wl_fixed_to_int(y));
}

Listening* Self(void* data) {
  return static_cast<Listening*>(data);
}

void Note(void* data, const std::string& what) {
  Self(data)->log.push_back(what);
}

void Listening::Listen() {
  ListenToKeyboard();
  ListenToPointer();
  ListenToTouch();
}

void Listening::ListenToKeyboard() {
  static const wl_keyboard_listener kKeyboard = {
      .keymap = [](void* data, wl_keyboard*, std::uint32_t, int fd,
                   std::uint32_t size) { Self(data)->ReadKeymap(fd, size); },
      .enter = [](void* data, wl_keyboard*, std::uint32_t, wl_surface*,
                  wl_array*) { Note(data, "focus"); },
      .leave = [](void* data, wl_keyboard*, std::uint32_t, wl_surface*) { Note(data, "no focus"); },
      .key =
          [](void* data, wl_keyboard*, std::uint32_t, std::uint32_t, std::uint32_t key,
             std::uint32_t state) {
            const std::string with = Self(data)->modifiers != 0 ? " with modifiers" : "";
            Note(data, (state != 0 ? "+" : "-") + Self(data)->NameOf(key) + with);
          },
      .modifiers = [](void* data, wl_keyboard*, std::uint32_t, std::uint32_t depressed,
                      std::uint32_t, std::uint32_t,
                      std::uint32_t) { Self(data)->modifiers = depressed; },
      .repeat_info = [](void*, wl_keyboard*, int, int) {},
  };
  wl_keyboard_add_listener(keyboard, &kKeyboard, this);
}

void Listening::ListenToPointer() {
  static const wl_pointer_listener kPointer = {
      .enter = [](void* data, wl_pointer*, std::uint32_t, wl_surface*, wl_fixed_t x,
                  wl_fixed_t y) { Note(data, "in " + At(x, y)); },
      .leave = [](void* data, wl_pointer*, std::uint32_t, wl_surface*) { Note(data, "out"); },
      .motion =
          [](void* data, wl_pointer*, std::uint32_t, wl_fixed_t x, wl_fixed_t y) {
            ++Self(data)->motions;
            Note(data, "at " + At(x, y));
          },
      .button =
          [](void* data, wl_pointer*, std::uint32_t, std::uint32_t, std::uint32_t button,
             std::uint32_t state) {
            Note(data, (state != 0 ? "press " : "release ") + std::to_string(button - BTN_LEFT));
          },
      .axis =
          [](void* data, wl_pointer*, std::uint32_t, std::uint32_t axis, wl_fixed_t value) {
            Note(data,
                 "axis " + std::to_string(axis) + ' ' + std::to_string(wl_fixed_to_int(value)));
          },
      .frame = [](void*, wl_pointer*) {},
      .axis_source = [](void*, wl_pointer*, std::uint32_t) {},
      .axis_stop = [](void*, wl_pointer*, std::uint32_t, std::uint32_t) {},
      .axis_discrete = [](void*, wl_pointer*, std::uint32_t, int) {},
      .axis_value120 = [](void*, wl_pointer*, std::uint32_t, int) {},
  };
  wl_pointer_add_listener(pointer, &kPointer, this);
}

void Listening::ListenToTouch() {
  static const wl_touch_listener kTouch = {
      .down =
          [](void* data, wl_touch*, std::uint32_t, std::uint32_t, wl_surface*, int id, wl_fixed_t x,
             wl_fixed_t y) { Note(data, "finger " + std::to_string(id) + " down " + At(x, y)); },
      .up = [](void* data, wl_touch*, std::uint32_t, std::uint32_t,
               int id) { Note(data, "finger " + std::to_string(id) + " up"); },
      .motion =
          [](void* data, wl_touch*, std::uint32_t, int id, wl_fixed_t x, wl_fixed_t y) {
            Note(data, "finger " + std::to_string(id) + " at " + At(x, y));
          },
      .frame = [](void*, wl_touch*) {},
      .cancel = [](void*, wl_touch*) {},
      .shape = [](void*, wl_touch*, int, wl_fixed_t, wl_fixed_t) {},
      .orientation = [](void*, wl_touch*, int, wl_fixed_t) {},
  };
  wl_touch_add_listener(touch, &kTouch, this);
}

class Input : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(first.Gets(1));
    EXPECT_THAT(first.log, ElementsAre("focus"));
    first.log.clear();
  }
  Evas* evas() { return host.canvas().evas(); }
  void Key(const char* name) {
    evas_event_feed_key_down(evas(), name, name, nullptr, nullptr, 0, nullptr);
    evas_event_feed_key_up(evas(), name, name, nullptr, nullptr, 0, nullptr);
  }
  void MoveTo(int x, int y) {
    evas_event_feed_mouse_in(evas(), 0, nullptr);
    evas_event_feed_mouse_move(evas(), x, y, 0, nullptr);
  }

  TestHost host;
  Listening first{"first"};
};

TEST_F(Input, KeysReachTheFocusedWindow) {
  Key("a");
  Key("Return");
  Key("XF86Back");
  Key("Up");
  ASSERT_TRUE(first.Gets(8));
  EXPECT_THAT(first.log, ElementsAre("+a", "-a", "+Return", "-Return", "+XF86Back", "-XF86Back",
                                     "+Up", "-Up"));
}

TEST_F(Input, ColourKeysReachTheFocusedWindow) {
  for (const char* key : {"XF86Red", "XF86Green", "XF86Yellow", "XF86Blue"}) Key(key);
  ASSERT_TRUE(first.Gets(8));
  EXPECT_THAT(first.log, ElementsAre("+XF86Red", "-XF86Red", "+XF86Green", "-XF86Green",
                                     "+XF86Yellow", "-XF86Yellow", "+XF86Blue", "-XF86Blue"));
}

TEST_F(Input, HeldKeysAreNotRepeatedAndUnknownOnesNotSent) {
  evas_event_feed_key_down(evas(), "a", "a", nullptr, nullptr, 0, nullptr);
  evas_event_feed_key_down(evas(), "a", "a", nullptr, nullptr, 0, nullptr);
  Key("NoSuchKey");
  evas_event_feed_key_up(evas(), "b", "b", nullptr, nullptr, 0, nullptr);
  Key("b");
  ASSERT_TRUE(first.Gets(3));
  EXPECT_THAT(first.log, ElementsAre("+a", "+b", "-b"));
}

TEST_F(Input, ModifiersAreHeldOrAddedWhenTheNameNeedsThem) {
  Key("exclam");
  evas_event_feed_key_down(evas(), "Shift_L", "Shift_L", nullptr, nullptr, 0, nullptr);
  Key("1");
  evas_event_feed_key_up(evas(), "Shift_L", "Shift_L", nullptr, nullptr, 0, nullptr);
  Key("1");
  ASSERT_TRUE(first.Gets(8));
  EXPECT_THAT(first.log, ElementsAre("+1 with modifiers", "-1", "+Shift_L", "+1 with modifiers",
                                     "-1 with modifiers", "-Shift_L with modifiers", "+1", "-1"));
}

TEST_F(Input, KeyboardGoesToTheWindowShownFocusedOrClickedLast) {
  Listening second("second");
  ASSERT_TRUE(second.Gets(1));
  ASSERT_TRUE(first.Gets(1));
  EXPECT_THAT(first.log, ElementsAre("no focus"));
  ASSERT_TRUE(RunUntil([&] { return second.window.active && !first.window.active; }));
  evas_object_focus_set(host.Find("first"), EINA_TRUE);
  ASSERT_TRUE(RunUntil([&] { return first.window.active && !second.window.active; }));
  Key("a");
  ASSERT_TRUE(first.Gets(4));
  EXPECT_THAT(first.log, ElementsAre("no focus", "focus", "+a", "-a"));
  evas_object_hide(host.Find("first"));
  ASSERT_TRUE(RunUntil([&] { return second.window.active; }));
  evas_object_show(host.Find("first"));
  ASSERT_TRUE(RunUntil([&] { return first.window.active; }));
  MoveTo(5, 5);
  evas_event_feed_mouse_down(evas(), 1, EVAS_BUTTON_NONE, 0, nullptr);
  EXPECT_TRUE(RunUntil([&] { return second.window.active; })) << "it lies above";
}

TEST_F(Input, KeyboardGoesToTheHighestWindowWhenTheFocusedOneGoes) {
  Listening low("low"), high("high");
  ASSERT_TRUE(RunUntil([&] { return high.window.active; }));
  evas_object_layer_set(host.Find("first"), 7);
  evas_object_layer_set(host.Find("low"), 4);
  high.client.Die();
  EXPECT_TRUE(RunUntil([&] { return first.window.active; }));
  first.client.Die();
  EXPECT_TRUE(RunUntil([&] { return low.window.active; }));
  evas_object_del(host.Find("low"));
  Key("a");
  ASSERT_TRUE(low.client.RoundTrip());
  EXPECT_EQ(low.log.back(), "no focus");
}

TEST_F(Input, PointerReachesTheWindowUnderItInItsOwnCoordinates) {
  evas_object_geometry_set(host.Find("first"), 50, 20, 200, 50);
  MoveTo(60, 30);
  MoveTo(150, 45);
  evas_event_feed_mouse_down(evas(), 1, EVAS_BUTTON_NONE, 0, nullptr);
  MoveTo(10, 10);
  evas_event_feed_mouse_up(evas(), 1, EVAS_BUTTON_NONE, 0, nullptr);
  MoveTo(60, 30);
  evas_event_feed_mouse_down(evas(), 3, EVAS_BUTTON_NONE, 0, nullptr);
  evas_event_feed_mouse_up(evas(), 3, EVAS_BUTTON_NONE, 0, nullptr);
  evas_event_feed_mouse_wheel(evas(), 0, 1, 0, nullptr);
  evas_event_feed_mouse_wheel(evas(), 1, -2, 0, nullptr);
  ASSERT_TRUE(RunUntil([&] { return !first.log.empty() && first.log.back() == "axis 1 -20"; }));
  std::vector<std::string> events;
  for (const std::string& event : first.log) {
    if (!event.starts_with("at ")) events.push_back(event);
  }
  EXPECT_THAT(events, ElementsAre("in 5,20", "press 0", "release 0", "out", "in 5,20", "press 1",
                                  "release 1", "axis 0 10", "axis 1 -20"));
  EXPECT_THAT(first.log, ::testing::Contains("at 50,50"));
  EXPECT_THAT(first.log, ::testing::Contains("at -20,-20")) << "while the button was held";
}

TEST_F(Input, PointerPassesWhereASurfaceTakesNoInput) {
  Listening above("above");
  ASSERT_TRUE(RunUntil([&] { return above.window.active; }));
  wl_region* left = wl_compositor_create_region(above.client.compositor);
  wl_region_add(left, 0, 0, 50, 100);
  wl_surface_set_input_region(above.window.surface, left);
  wl_region_destroy(left);
  above.window.Commit();
  ASSERT_TRUE(above.client.RoundTrip());
  above.log.clear();
  MoveTo(10, 10);
  ASSERT_TRUE(above.Gets(1));
  MoveTo(80, 10);
  ASSERT_TRUE(above.Gets(2));
  EXPECT_THAT(above.log, ElementsAre("in 10,10", "out"));
}

TEST_F(Input, FingersReachTheWindowUnderThem) {
  evas_object_move(host.Find("first"), 10, 10);
  evas_event_feed_multi_down(evas(), 1, 20, 30, 1, 1, 1, 1, 0, 20, 30, EVAS_BUTTON_NONE, 0,
                             nullptr);
  evas_event_feed_multi_down(evas(), 2, 60, 30, 1, 1, 1, 1, 0, 60, 30, EVAS_BUTTON_NONE, 0,
                             nullptr);
  evas_event_feed_multi_move(evas(), 1, 25, 35, 1, 1, 1, 1, 0, 25, 35, 0, nullptr);
  evas_event_feed_multi_up(evas(), 1, 25, 35, 1, 1, 1, 1, 0, 25, 35, EVAS_BUTTON_NONE, 0, nullptr);
  evas_event_feed_multi_up(evas(), 2, 60, 30, 1, 1, 1, 1, 0, 60, 30, EVAS_BUTTON_NONE, 0, nullptr);
  ASSERT_TRUE(RunUntil([&] { return !first.log.empty() && first.log.back() == "finger 2 up"; }));
  EXPECT_THAT(first.log, ElementsAre("finger 1 down 10,20", "finger 2 down 50,20",
                                     "finger 1 at 15,25", "finger 1 up", "finger 2 up"));
}

// A storm of motions while the client does not read costs it motions and nothing else.
TEST_F(Input, ClientThatPausesInAStormOfMotionsIsKept) {
  MoveTo(1, 1);
  ASSERT_TRUE(first.Gets(1));
  first.client.StopReading();
  Listening other("other");
  evas_object_move(host.Find("other"), 200, 0);
  for (int round = 0; round < 200; ++round) {
    for (int i = 0; i < 100; ++i) evas_event_feed_mouse_move(evas(), 2 + i % 90, 5, 0, nullptr);
    ASSERT_TRUE(other.client.RoundTrip());
  }
  evas_event_feed_mouse_down(evas(), 1, EVAS_BUTTON_NONE, 0, nullptr);
  evas_event_feed_mouse_up(evas(), 1, EVAS_BUTTON_NONE, 0, nullptr);
  ASSERT_TRUE(other.client.RoundTrip());
  first.client.ReadAgain();
  EXPECT_TRUE(RunUntil([&] { return first.log.back() == "release 0"; }));
  EXPECT_EQ(first.client.error(), 0);
}

}  // namespace
}  // namespace kavrel_pepper_test
