// xdg_positioner: where a pop-up goes.
#pragma once

#include <cstdint>
#include <wayland-server.h>

namespace kavrel_pepper {

struct Box {
  int x = 0, y = 0, width = 0, height = 0;
};

/// The rules of one xdg_positioner, copied by the pop-up that uses it. Main thread.
class Positioner {
 public:
  explicit Positioner(wl_resource* resource) : resource_(resource) {}

  bool IsComplete() const { return size_.width > 0 && has_anchor_; }

  /// The pop-up's box relative to its parent's window. `bounds` is the visible area, in the same
  /// coordinates; it is flipped or moved into it as far as the client allows.
  Box PlaceIn(const Box& bounds) const;

  // Requests.
  void SetSize(int width, int height);
  void SetAnchorRect(int x, int y, int width, int height);
  void SetAnchor(std::uint32_t anchor);
  void SetGravity(std::uint32_t gravity);
  void SetConstraintAdjustment(std::uint32_t adjustment);
  void SetOffset(int x, int y);

 private:
  void PostInvalidInput(const char* what);

  wl_resource* resource_;
  Box size_;
  Box anchor_box_;
  bool has_anchor_ = false;
  std::uint32_t anchor_ = 0;
  std::uint32_t gravity_ = 0;
  std::uint32_t adjustment_ = 0;
  int offset_x_ = 0, offset_y_ = 0;
};

/// xdg_wm_base.create_positioner.
void CreatePositioner(wl_resource* wm_base, std::uint32_t id);

}  // namespace kavrel_pepper
