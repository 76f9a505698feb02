#include "keyboard.h"

#include <Ecore_Input.h>

#include <array>
#include <exception>
#include <string_view>
#include <utility>

namespace viewer {
namespace {

constexpr int kRemoteControlDevice = 0;

constexpr std::array<std::pair<std::string_view, std::string_view>, 16> kKeys = {{
    {"F1", "XF86Red"},
    {"F2", "XF86Green"},
    {"F3", "XF86Yellow"},
    {"F4", "XF86Blue"},
    {"Escape", "XF86Back"},
    {"BackSpace", "XF86Back"},
    {"Prior", "XF86ChannelUp"},
    {"Next", "XF86ChannelDown"},
    {"Menu", "XF86Menu"},
    {"F9", "XF86Source"},
    {"F10", "XF86Menu"},
    {"F5", "XF86AudioPlay"},
    {"Home", "XF86HomePage"},
    {"KP_Enter", "Return"},
    {"F8", "XF86Tools"},
    {"F11", "XF86Info"},
}};

}  // namespace

std::string RemoteKeyOf(const std::string& keyboard_key) {
  for (const auto& [keyboard, remote] : kKeys) {
    if (keyboard == keyboard_key) return std::string(remote);
  }
  return keyboard_key;
}

Keyboard::Keyboard(RemoteControl& remote_control)
    : remote_control_(remote_control),
      filter_(ecore_event_filter_add(nullptr, &Keyboard::Filter, nullptr, this)) {}

Keyboard::~Keyboard() {
  if (filter_ != nullptr) ecore_event_filter_del(filter_);
}

// False keeps the event from everybody else.
Eina_Bool Keyboard::Filter(void* self, void* /*loop_data*/, int type, void* event) {
  if (type != ECORE_EVENT_KEY_DOWN && type != ECORE_EVENT_KEY_UP) return EINA_TRUE;
  const char* const name = static_cast<const Ecore_Event_Key*>(event)->keyname;
  if (name == nullptr) return EINA_TRUE;
  const auto press =
      type == ECORE_EVENT_KEY_DOWN ? PluginHost::Press::kPressed : PluginHost::Press::kReleased;
  try {
    const auto outcome = static_cast<Keyboard*>(self)->remote_control_.Handle(
        RemoteKeyOf(name), press, kRemoteControlDevice);
    return outcome.IsTaken() ? EINA_FALSE : EINA_TRUE;
  } catch (const std::exception&) {
    return EINA_TRUE;
  }
}

}  // namespace viewer
