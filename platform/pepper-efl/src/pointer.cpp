#include <linux/input-event-codes.h>
#include <utility>

#include "seat.h"

namespace kavrel_pepper {
namespace {

constexpr double kUnitsPerWheelStep = 10;

// The cursor's picture is the program's business; a surface with that role is never shown.
class CursorRole final : public SurfaceRole {
 public:
  bool IsShown() const override { return false; }
  void LayOut() override {}
  SurfacePoint PickInWindow(double, double) override { return {}; }
  Toplevel* Window() override { return nullptr; }
  void SurfaceGone() override {}
};

CursorRole cursor_role;

void SetCursor(wl_client*, wl_resource* pointer, std::uint32_t, wl_resource* surface_resource, int,
               int) {
  auto* surface = From<Surface>(surface_resource);
  if (surface == nullptr || surface->role() == &cursor_role) return;
  if (surface->TakeRole(RoleKind::kCursor, &cursor_role)) return;
  wl_resource_post_error(pointer, WL_POINTER_ERROR_ROLE, "the surface has another role");
}

constexpr struct wl_pointer_interface kPointer = {
    .set_cursor = SetCursor,
    .release = DestroyResource,
};

// Evas counts buttons as X does; 4 to 7 are the wheels, which come as events of their own.
std::uint32_t ButtonCode(int button) {
  switch (button) {
    case 1:
      return BTN_LEFT;
    case 2:
      return BTN_MIDDLE;
    case 3:
      return BTN_RIGHT;
    default:
      return button >= 8 && button < 16 ? static_cast<std::uint32_t>(BTN_SIDE + button - 8) : 0;
  }
}

void EndFrame(wl_resource* device) {
  if (wl_resource_get_version(device) >= WL_POINTER_FRAME_SINCE_VERSION) {
    wl_pointer_send_frame(device);
  }
}

}  // namespace

void Pointer::AddDevice(wl_resource* resource) {
  devices_.Add(resource, &kPointer);
}

void Pointer::Forget(Surface* surface) {
  if (surface != focus_) return;
  focus_ = nullptr;
  buttons_ = 0;
}

void Pointer::Enter(const SurfacePoint& under) {
  if (under.surface == focus_) return;
  const std::uint32_t serial = wl_display_next_serial(display_);
  if (focus_ != nullptr) {
    devices_.ForClient(focus_->client(), [&](wl_resource* device) {
      wl_pointer_send_leave(device, serial, focus_->resource());
      EndFrame(device);
    });
  }
  focus_ = under.surface;
  if (focus_ == nullptr) return;
  devices_.ForClient(focus_->client(), [&](wl_resource* device) {
    wl_pointer_send_enter(device, serial, focus_->resource(), wl_fixed_from_double(under.x),
                          wl_fixed_from_double(under.y));
    EndFrame(device);
  });
}

void Pointer::Move(const SurfacePoint& under, double canvas_x, double canvas_y,
                   std::uint32_t time) {
  if (buttons_ == 0 && under.surface != focus_) return Enter(under);
  if (focus_ == nullptr || IsBehind(focus_->client())) return;
  const SurfacePoint at = focus_->ToLocal(canvas_x, canvas_y);
  devices_.ForClient(focus_->client(), [&](wl_resource* device) {
    wl_pointer_send_motion(device, time, wl_fixed_from_double(at.x), wl_fixed_from_double(at.y));
    EndFrame(device);
  });
}

void Pointer::Leave() {
  if (buttons_ == 0) Enter({});
}

bool Pointer::Press(int button, std::uint32_t time) {
  if (ButtonCode(button) == 0) return false;
  SendButton(button, time, true);
  return ++buttons_ == 1;
}

void Pointer::Release(int button, std::uint32_t time) {
  if (ButtonCode(button) == 0 || buttons_ == 0) return;
  SendButton(button, time, false);
  --buttons_;
}

void Pointer::SendButton(int button, std::uint32_t time, bool pressed) {
  if (focus_ == nullptr) return;
  const std::uint32_t serial = wl_display_next_serial(display_);
  devices_.ForClient(focus_->client(), [&](wl_resource* device) {
    wl_pointer_send_button(
        device, serial, time, ButtonCode(button),
        pressed ? WL_POINTER_BUTTON_STATE_PRESSED : WL_POINTER_BUTTON_STATE_RELEASED);
    EndFrame(device);
  });
}

void Pointer::Turn(bool horizontal, int steps, std::uint32_t time) {
  if (focus_ == nullptr) return;
  const std::uint32_t axis =
      horizontal ? WL_POINTER_AXIS_HORIZONTAL_SCROLL : WL_POINTER_AXIS_VERTICAL_SCROLL;
  devices_.ForClient(focus_->client(), [&](wl_resource* device) {
    if (wl_resource_get_version(device) >= WL_POINTER_AXIS_DISCRETE_SINCE_VERSION) {
      wl_pointer_send_axis_source(device, WL_POINTER_AXIS_SOURCE_WHEEL);
      wl_pointer_send_axis_discrete(device, axis, steps);
    }
    wl_pointer_send_axis(device, time, axis, wl_fixed_from_double(steps * kUnitsPerWheelStep));
    EndFrame(device);
  });
}

// ---- touch

void Touch::AddDevice(wl_resource* resource) {
  static constexpr struct wl_touch_interface kTouch = {.release = DestroyResource};
  devices_.Add(resource, &kTouch);
}

void Touch::Forget(Surface* surface) {
  std::erase_if(fingers_, [&](const auto& finger) { return finger.second == surface; });
}

void Touch::Down(int finger, const SurfacePoint& under, std::uint32_t time) {
  if (under.surface == nullptr || !fingers_.try_emplace(finger, under.surface).second) return;
  const std::uint32_t serial = wl_display_next_serial(display_);
  devices_.ForClient(under.surface->client(), [&](wl_resource* device) {
    wl_touch_send_down(device, serial, time, under.surface->resource(), finger,
                       wl_fixed_from_double(under.x), wl_fixed_from_double(under.y));
    wl_touch_send_frame(device);
  });
}

void Touch::Move(int finger, double canvas_x, double canvas_y, std::uint32_t time) {
  const auto found = fingers_.find(finger);
  if (found == fingers_.end() || IsBehind(found->second->client())) return;
  const SurfacePoint at = found->second->ToLocal(canvas_x, canvas_y);
  devices_.ForClient(at.surface->client(), [&](wl_resource* device) {
    wl_touch_send_motion(device, time, finger, wl_fixed_from_double(at.x),
                         wl_fixed_from_double(at.y));
    wl_touch_send_frame(device);
  });
}

void Touch::Up(int finger, std::uint32_t time) {
  const auto found = fingers_.find(finger);
  if (found == fingers_.end()) return;
  Surface* surface = found->second;
  fingers_.erase(found);
  const std::uint32_t serial = wl_display_next_serial(display_);
  devices_.ForClient(surface->client(), [&](wl_resource* device) {
    wl_touch_send_up(device, serial, time, finger);
    wl_touch_send_frame(device);
  });
}

}  // namespace kavrel_pepper
