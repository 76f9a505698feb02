// Program and clients act without regard to each other: whatever the order, every window that comes
// goes once, and nothing is used after its end.
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <random>
#include <utility>

#include "test_client.h"
#include "test_host.h"

namespace kavrel_pepper_test {
namespace {

constexpr std::uint32_t kRed = 0xffc02010;

/// A client with a window, a subsurface of it, and a pop-up that it may open. Main thread.
struct Guest {
  Guest() : window(client, "guest"), child(client), picture(client, 60, 60, kRed) {
    sub = wl_subcompositor_get_subsurface(client.subcompositor, child.surface, window.surface);
    pointer = wl_seat_get_pointer(client.seat);
    keyboard = wl_seat_get_keyboard(client.seat);
    touch = wl_seat_get_touch(client.seat);
  }
  ~Guest() {
    ClosePopup();
    wl_subsurface_destroy(sub);
    wl_proxy_destroy(reinterpret_cast<wl_proxy*>(pointer));
    wl_proxy_destroy(reinterpret_cast<wl_proxy*>(keyboard));
    wl_proxy_destroy(reinterpret_cast<wl_proxy*>(touch));
  }

  void OpenPopup() {
    if (popup != nullptr) return;
    menu = std::make_unique<TestSurface>(client);
    menu_xdg = xdg_wm_base_get_xdg_surface(client.wm_base, menu->surface);
    xdg_positioner* rules = xdg_wm_base_create_positioner(client.wm_base);
    xdg_positioner_set_size(rules, 30, 30);
    xdg_positioner_set_anchor_rect(rules, 0, 0, 1, 1);
    popup = xdg_surface_get_popup(menu_xdg, window.xdg, rules);
    xdg_positioner_destroy(rules);
    static const xdg_surface_listener kListener = {
        [](void* data, xdg_surface* xdg, std::uint32_t serial) {
          xdg_surface_ack_configure(xdg, serial);
          auto* self = static_cast<Guest*>(data);
          self->menu->Show(self->picture);
        }};
    xdg_surface_add_listener(menu_xdg, &kListener, this);
    xdg_popup_grab(popup, client.seat, 0);
    wl_surface_commit(menu->surface);
  }
  void ClosePopup() {
    if (popup == nullptr) return;
    xdg_popup_destroy(std::exchange(popup, nullptr));
    xdg_surface_destroy(menu_xdg);
    menu.reset();
  }

  TestClient client;
  TestWindow window;
  TestSurface child;
  TestBuffer picture;
  wl_subsurface* sub;
  wl_pointer* pointer;
  wl_keyboard* keyboard;
  wl_touch* touch;
  std::unique_ptr<TestSurface> menu;
  xdg_surface* menu_xdg = nullptr;
  xdg_popup* popup = nullptr;
};

/// A host that deals with objects as chance has it. Main thread.
class Disorder : public ::testing::Test {
 protected:
  void SetUp() override {
    host.on_add = [this](Evas_Object* object) { Came(object); };
    host.on_del = [this](Evas_Object* object) { Gone(object); };
  }
  void TearDown() override {
    host.on_add = [](Evas_Object*) { ADD_FAILURE() << "came after all clients had gone"; };
    guests.clear();
    EXPECT_TRUE(RunUntil([&] { return alive.empty(); }));
    for (Evas_Object* object : kept) evas_object_del(object);
  }

  int Chance(int sides) { return static_cast<int>(random() % static_cast<unsigned>(sides)); }
  Evas* evas() { return host.canvas().evas(); }

  void Came(Evas_Object* object) {
    EXPECT_EQ(std::count(alive.begin(), alive.end(), object), 0);
    alive.push_back(object);
    if (Chance(8) == 0) return Delete(object);
    if (Chance(4) != 0) evas_object_show(object);
  }
  void Gone(Evas_Object* object) {
    EXPECT_EQ(std::erase(alive, object), 1) << "went once, and was not deleted before";
    EXPECT_STREQ(pepper_efl_object_title_get(object), "guest");
    Chance(3) == 0 ? kept.push_back(object) : evas_object_del(object);
  }
  void Delete(Evas_Object* object) {
    std::erase(alive, object);
    std::erase(kept, object);
    evas_object_del(object);
  }

  Evas_Object* AnyObject() {
    std::vector<Evas_Object*> all = alive;
    all.insert(all.end(), kept.begin(), kept.end());
    return all.empty() ? nullptr : all[random() % all.size()];
  }
  void ActOnObject(Evas_Object* object);
  void FeedInput();
  void ActAsClient(Guest& guest);

  TestHost host;
  std::mt19937 random{7};
  std::vector<std::unique_ptr<Guest>> guests;
  std::vector<Evas_Object*> alive;
  std::vector<Evas_Object*> kept;
};

void Disorder::ActOnObject(Evas_Object* object) {
  switch (Chance(9)) {
    case 0:
      return evas_object_layer_set(object, static_cast<short>(Chance(100)));
    case 1:
      return evas_object_move(object, Chance(400) - 100, Chance(300) - 100);
    case 2:
      return evas_object_resize(object, Chance(300), Chance(300));
    case 3:
      return evas_object_hide(object);
    case 4:
      return evas_object_show(object);
    case 5:
      return Chance(2) == 0 ? evas_object_raise(object) : evas_object_lower(object);
    case 6:
      return evas_object_focus_set(object, EINA_TRUE);
    case 7:
      return evas_object_stack_below(object, AnyObject());
    default:
      if (Chance(4) == 0) Delete(object);
  }
}

void Disorder::FeedInput() {
  const int x = Chance(kRootWidth), y = Chance(kRootHeight), finger = 1 + Chance(3);
  switch (Chance(6)) {
    case 0:
      evas_event_feed_mouse_in(evas(), 0, nullptr);
      return evas_event_feed_mouse_move(evas(), x, y, 0, nullptr);
    case 1:
      return evas_event_feed_mouse_down(evas(), 1 + Chance(3), EVAS_BUTTON_NONE, 0, nullptr);
    case 2:
      return evas_event_feed_mouse_up(evas(), 1 + Chance(3), EVAS_BUTTON_NONE, 0, nullptr);
    case 3:
      return evas_event_feed_key_down(evas(), "a", "a", nullptr, nullptr, 0, nullptr);
    case 4:
      return evas_event_feed_multi_down(evas(), finger, x, y, 1, 1, 1, 1, 0, x, y, EVAS_BUTTON_NONE,
                                        0, nullptr);
    default:
      return evas_event_feed_multi_up(evas(), finger, x, y, 1, 1, 1, 1, 0, x, y, EVAS_BUTTON_NONE,
                                      0, nullptr);
  }
}

void Disorder::ActAsClient(Guest& guest) {
  switch (Chance(9)) {
    case 0:
    case 1:
      return guest.window.Show(guest.picture);
    case 2:
      guest.window.WantFrame();
      return guest.child.Show(guest.picture);
    case 3:
      guest.window.Unmap();
      return guest.window.Commit();
    case 4:
      return guest.OpenPopup();
    case 5:
      return guest.ClosePopup();
    case 6:
      return wl_subsurface_set_position(guest.sub, Chance(50) - 10, Chance(50) - 10);
    case 7:
      return guest.client.Flush();
    default:
      if (Chance(5) == 0) guest.client.Die();
  }
}

TEST_F(Disorder, EveryWindowThatComesGoesOnce) {
  for (int step = 0; step < 3000; ++step) {
    if (guests.empty() || (guests.size() < 5 && Chance(10) == 0)) {
      guests.push_back(std::make_unique<Guest>());
    }
    Guest& guest = *guests[random() % guests.size()];
    ActAsClient(guest);
    if (Evas_Object* object = AnyObject(); object != nullptr) ActOnObject(object);
    FeedInput();
    if (Chance(3) == 0) ecore_main_loop_iterate();
    if (guest.client.error() != 0 || Chance(40) == 0) {
      std::erase_if(guests, [&](const auto& other) { return other.get() == &guest; });
    }
    if (Chance(200) == 0) {
      host.DestroyCompositor();
      ASSERT_TRUE(alive.empty());
      ASSERT_TRUE(host.CreateCompositor());
      guests.clear();
    }
  }
}

// With a pop-up that has the keyboard, a key, a button and fingers held.
TEST_F(Disorder, ClientMayDieInTheMidstOfInput) {
  host.on_add = [this](Evas_Object* object) {
    alive.push_back(object);
    evas_object_show(object);
  };
  for (int round = 0; round < 10; ++round) {
    guests.push_back(std::make_unique<Guest>());
    Guest& guest = *guests.back();
    guest.window.Show(guest.picture);
    ASSERT_TRUE(RunUntil([&] { return guest.window.active; }));
    guest.OpenPopup();
    evas_event_feed_mouse_in(evas(), 0, nullptr);
    evas_event_feed_mouse_move(evas(), 5, 5, 0, nullptr);
    evas_event_feed_mouse_down(evas(), 1, EVAS_BUTTON_NONE, 0, nullptr);
    evas_event_feed_key_down(evas(), "a", "a", nullptr, nullptr, 0, nullptr);
    evas_event_feed_multi_down(evas(), 1, 5, 5, 1, 1, 1, 1, 0, 5, 5, EVAS_BUTTON_NONE, 0, nullptr);
    ASSERT_TRUE(guest.client.RoundTrip());
    guest.client.Die();
    if (round % 2 == 0) {
      ASSERT_TRUE(RunUntil([&] { return alive.empty(); }));
    }
    evas_event_feed_mouse_move(evas(), 6, 6, 0, nullptr);
    evas_event_feed_mouse_up(evas(), 1, EVAS_BUTTON_NONE, 0, nullptr);
    evas_event_feed_key_up(evas(), "a", "a", nullptr, nullptr, 0, nullptr);
    evas_event_feed_multi_up(evas(), 1, 5, 5, 1, 1, 1, 1, 0, 5, 5, EVAS_BUTTON_NONE, 0, nullptr);
    guests.clear();
    ASSERT_TRUE(RunUntil([&] { return alive.empty(); }));
  }
}

}  // namespace
}  // namespace kavrel_pepper_test
