#include "positioner.h"

#include <algorithm>
#include <xdg-shell-server-protocol.h>

#include "quotas.h"
#include "wire.h"

namespace kavrel_pepper {
namespace {

constexpr struct xdg_positioner_interface kPositioner = {
    .destroy = DestroyResource,
    .set_size = Request<&Positioner::SetSize>,
    .set_anchor_rect = Request<&Positioner::SetAnchorRect>,
    .set_anchor = Request<&Positioner::SetAnchor>,
    .set_gravity = Request<&Positioner::SetGravity>,
    .set_constraint_adjustment = Request<&Positioner::SetConstraintAdjustment>,
    .set_offset = Request<&Positioner::SetOffset>,
    .set_reactive = IgnoreRequest<>,
    .set_parent_size = IgnoreRequest<int, int>,
    .set_parent_configure = IgnoreRequest<std::uint32_t>,
};

constexpr std::uint32_t kLastEdge = XDG_POSITIONER_ANCHOR_BOTTOM_RIGHT;  // same for gravity

int Cut(int value) {
  return std::clamp(value, -kMaxCoordinate, kMaxCoordinate);
}

// Anchors and gravities name edges alike: -1 towards left or top, 1 towards right or bottom.
int Horizontal(std::uint32_t edge) {
  switch (edge) {
    case XDG_POSITIONER_ANCHOR_LEFT:
    case XDG_POSITIONER_ANCHOR_TOP_LEFT:
    case XDG_POSITIONER_ANCHOR_BOTTOM_LEFT:
      return -1;
    case XDG_POSITIONER_ANCHOR_RIGHT:
    case XDG_POSITIONER_ANCHOR_TOP_RIGHT:
    case XDG_POSITIONER_ANCHOR_BOTTOM_RIGHT:
      return 1;
    default:
      return 0;
  }
}

int Vertical(std::uint32_t edge) {
  switch (edge) {
    case XDG_POSITIONER_ANCHOR_TOP:
    case XDG_POSITIONER_ANCHOR_TOP_LEFT:
    case XDG_POSITIONER_ANCHOR_TOP_RIGHT:
      return -1;
    case XDG_POSITIONER_ANCHOR_BOTTOM:
    case XDG_POSITIONER_ANCHOR_BOTTOM_LEFT:
    case XDG_POSITIONER_ANCHOR_BOTTOM_RIGHT:
      return 1;
    default:
      return 0;
  }
}

/// One axis of the placement.
struct Axis {
  int anchor_start, anchor_length;
  int anchor, gravity;  // -1, 0, 1
  int offset, size;
  int bounds_start, bounds_length;

  int Start(int anchor_edge, int pull) const {
    const int at = anchor_start + (anchor_edge + 1) * anchor_length / 2;
    return at + (pull - 1) * size / 2 + offset;
  }
  bool Fits(int start) const {
    return start >= bounds_start && start + size <= bounds_start + bounds_length;
  }
  int Place(bool may_flip, bool may_slide) const {
    const int wished = Start(anchor, gravity);
    if (Fits(wished)) return wished;
    if (may_flip) {
      const int flipped = Start(-anchor, -gravity) - 2 * offset;
      if (Fits(flipped)) return flipped;
    }
    if (!may_slide) return wished;
    return std::max(bounds_start, std::min(wished, bounds_start + bounds_length - size));
  }
};

}  // namespace

Box Positioner::PlaceIn(const Box& bounds) const {
  const Axis across = {
      anchor_box_.x, anchor_box_.width, Horizontal(anchor_), Horizontal(gravity_), offset_x_,
      size_.width,   bounds.x,          bounds.width};
  const Axis down = {anchor_box_.y, anchor_box_.height, Vertical(anchor_), Vertical(gravity_),
                     offset_y_,     size_.height,       bounds.y,          bounds.height};
  const auto may = [&](std::uint32_t what) { return (adjustment_ & what) != 0; };
  return {across.Place(may(XDG_POSITIONER_CONSTRAINT_ADJUSTMENT_FLIP_X),
                       may(XDG_POSITIONER_CONSTRAINT_ADJUSTMENT_SLIDE_X)),
          down.Place(may(XDG_POSITIONER_CONSTRAINT_ADJUSTMENT_FLIP_Y),
                     may(XDG_POSITIONER_CONSTRAINT_ADJUSTMENT_SLIDE_Y)),
          size_.width, size_.height};
}

void Positioner::PostInvalidInput(const char* what) {
  wl_resource_post_error(resource_, XDG_POSITIONER_ERROR_INVALID_INPUT, "%s", what);
}

void Positioner::SetSize(int width, int height) {
  if (width < 1 || height < 1) return PostInvalidInput("a size below 1");
  size_ = {0, 0, Cut(width), Cut(height)};
}

void Positioner::SetAnchorRect(int x, int y, int width, int height) {
  if (width < 0 || height < 0) return PostInvalidInput("an anchor rectangle below 0");
  anchor_box_ = {Cut(x), Cut(y), Cut(width), Cut(height)};
  has_anchor_ = true;
}

void Positioner::SetAnchor(std::uint32_t anchor) {
  if (anchor > kLastEdge) return PostInvalidInput("an unknown anchor");
  anchor_ = anchor;
}

void Positioner::SetGravity(std::uint32_t gravity) {
  if (gravity > kLastEdge) return PostInvalidInput("an unknown gravity");
  gravity_ = gravity;
}

void Positioner::SetConstraintAdjustment(std::uint32_t adjustment) {
  adjustment_ = adjustment;
}

void Positioner::SetOffset(int x, int y) {
  offset_x_ = Cut(x);
  offset_y_ = Cut(y);
}

void CreatePositioner(wl_resource* wm_base, std::uint32_t id) {
  wl_resource* resource = MakeSibling(wm_base, &xdg_positioner_interface, id);
  if (resource == nullptr) return;
  GiveToResource(std::make_unique<Positioner>(resource), resource, &kPositioner);
}

}  // namespace kavrel_pepper
