#include <algorithm>
#include <utility>

#include "seat.h"

namespace kavrel_pepper {
namespace {

constexpr xkb_keycode_t kEvdevOffset = 8;
constexpr int kRepeatsPerSecond = 25;
constexpr int kRepeatDelayMilliseconds = 500;

}  // namespace

Keyboard::Keyboard(wl_display* display) : display_(display), keymap_(Keymap::Load()) {
  if (keymap_ != nullptr) state_.reset(xkb_state_new(keymap_->get()));
}

void Keyboard::AddDevice(wl_resource* resource) {
  static constexpr struct wl_keyboard_interface kKeyboard = {.release = DestroyResource};
  devices_.Add(resource, &kKeyboard);
  if (!exists()) return;
  wl_keyboard_send_keymap(resource, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, keymap_->fd(),
                          keymap_->size());
  if (wl_resource_get_version(resource) >= WL_KEYBOARD_REPEAT_INFO_SINCE_VERSION) {
    wl_keyboard_send_repeat_info(resource, kRepeatsPerSecond, kRepeatDelayMilliseconds);
  }
  if (focus_ == nullptr || focus_->client() != wl_resource_get_client(resource)) return;
  SendEnter(resource);
  SendModifiers(0);
}

void Keyboard::Focus(Surface* surface) {
  if (surface == focus_) return;
  if (focus_ != nullptr) {
    const std::uint32_t serial = wl_display_next_serial(display_);
    devices_.ForClient(focus_->client(), [&](wl_resource* device) {
      wl_keyboard_send_leave(device, serial, focus_->resource());
    });
  }
  focus_ = surface;
  if (focus_ == nullptr || !exists()) return;
  devices_.ForClient(focus_->client(), [&](wl_resource* device) { SendEnter(device); });
  SendModifiers(0);
}

void Keyboard::SendEnter(wl_resource* device) {
  std::vector<std::uint32_t> codes;
  for (const Key& key : pressed_) codes.push_back(key.code - kEvdevOffset);
  wl_array keys = {.size = codes.size() * sizeof codes[0], .alloc = 0, .data = codes.data()};
  wl_keyboard_send_enter(device, wl_display_next_serial(display_), focus_->resource(), &keys);
}

void Keyboard::Forget(Surface* surface) {
  if (surface == focus_) focus_ = nullptr;
}

std::optional<Key> Keyboard::Find(const char* keyname, const char* key, unsigned code) const {
  if (!exists()) return std::nullopt;
  if (const std::optional<Key> found = keymap_->Find(keyname)) return found;
  if (const std::optional<Key> found = keymap_->Find(key)) return found;
  if (code >= kEvdevOffset && keymap_->Has(code)) return Key{code, 0};
  return std::nullopt;
}

// A key that is down already is a repetition, which clients make themselves.
void Keyboard::Press(const Evas_Event_Key_Down& event) {
  const std::optional<Key> key = Find(event.keyname, event.key, event.keycode);
  if (!key) return;
  const auto same = [&](const Key& other) { return other.code == key->code; };
  if (std::any_of(pressed_.begin(), pressed_.end(), same)) return;
  pressed_.push_back(*key);
  Send(*key, event.timestamp, true);
}

void Keyboard::Release(const Evas_Event_Key_Up& event) {
  const std::optional<Key> key = Find(event.keyname, event.key, event.keycode);
  if (!key) return;
  const auto same = [&](const Key& other) { return other.code == key->code; };
  if (std::erase_if(pressed_, same) > 0) Send(*key, event.timestamp, false);
}

void Keyboard::ReleaseAll() {
  for (const Key& key : std::exchange(pressed_, {})) Send(key, 0, false);
}

// A name may stand for a key with modifiers ("exclam" for Shift and 1); whoever feeds such a name
// presses no Shift, so it is added around the key.
void Keyboard::Send(const Key& key, std::uint32_t time, bool pressed) {
  const xkb_mod_mask_t held = xkb_state_serialize_mods(state_.get(), XKB_STATE_MODS_EFFECTIVE);
  const bool lacks_modifiers = pressed && (key.needs & ~held) != 0;
  if (lacks_modifiers) SendModifiers(key.needs);
  if (focus_ != nullptr) {
    const std::uint32_t serial = wl_display_next_serial(display_);
    devices_.ForClient(focus_->client(), [&](wl_resource* device) {
      wl_keyboard_send_key(
          device, serial, time, key.code - kEvdevOffset,
          pressed ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
    });
  }
  const xkb_state_component changed =
      xkb_state_update_key(state_.get(), key.code, pressed ? XKB_KEY_DOWN : XKB_KEY_UP);
  if (lacks_modifiers || changed != 0) SendModifiers(0);
}

void Keyboard::SendModifiers(xkb_mod_mask_t additional) {
  if (focus_ == nullptr) return;
  const auto of = [&](xkb_state_component what) {
    return xkb_state_serialize_mods(state_.get(), what);
  };
  const std::uint32_t serial = wl_display_next_serial(display_);
  const xkb_layout_index_t group =
      xkb_state_serialize_layout(state_.get(), XKB_STATE_LAYOUT_EFFECTIVE);
  devices_.ForClient(focus_->client(), [&](wl_resource* device) {
    wl_keyboard_send_modifiers(device, serial, of(XKB_STATE_MODS_DEPRESSED) | additional,
                               of(XKB_STATE_MODS_LATCHED), of(XKB_STATE_MODS_LOCKED), group);
  });
}

}  // namespace kavrel_pepper
