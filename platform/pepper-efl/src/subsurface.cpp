#include "subsurface.h"

#include <algorithm>
#include <utility>

#include "quotas.h"
#include "wire.h"

namespace kavrel_pepper {
namespace {

constexpr struct wl_subsurface_interface kSubsurface = {
    .destroy = DestroyResource,
    .set_position = Request<&Subsurface::SetPosition>,
    .place_above = Request<&Subsurface::PlaceAbove>,
    .place_below = Request<&Subsurface::PlaceBelow>,
    .set_sync = Request<&Subsurface::SetSync>,
    .set_desync = Request<&Subsurface::SetDesync>,
};

/// The global object; it has no state. Main thread.
class Subcompositor {
 public:
  explicit Subcompositor(wl_resource* resource) : resource_(resource) {}

  void GetSubsurface(std::uint32_t id, wl_resource* surface_resource,
                     wl_resource* parent_resource) {
    auto* surface = From<Surface>(surface_resource);
    auto* parent = From<Surface>(parent_resource);
    // Looking at the parent's root catches every loop: a surface below itself has no end.
    if (surface == parent || IsBelow(parent, surface)) {
      PostBadSurface("a surface cannot be below itself");
      return;
    }
    wl_resource* made = MakeSibling(resource_, &wl_subsurface_interface, id);
    if (made == nullptr) return;
    auto subsurface = std::make_unique<Subsurface>(made, surface, parent);
    if (!surface->TakeRole(RoleKind::kSubsurface, subsurface.get())) {
      wl_resource_set_implementation(made, &kSubsurface, nullptr, nullptr);
      PostBadSurface("the surface already has a role");
      return;
    }
    parent->children().push_back(subsurface.get());
    GiveToResource(std::move(subsurface), made, &kSubsurface);
  }

 private:
  static bool IsBelow(Surface* surface, Surface* above) {
    for (Subsurface* child : above->children()) {
      if (child != nullptr && (child->surface() == surface || IsBelow(surface, child->surface()))) {
        return true;
      }
    }
    return false;
  }

  void PostBadSurface(const char* reason) {
    wl_resource_post_error(resource_, WL_SUBCOMPOSITOR_ERROR_BAD_SURFACE, "%s", reason);
  }

  wl_resource* resource_;
};

constexpr struct wl_subcompositor_interface kSubcompositor = {
    .destroy = DestroyResource,
    .get_subsurface = Request<&Subcompositor::GetSubsurface>,
};

int Cut(int value) {
  return std::clamp(value, -kMaxCoordinate, kMaxCoordinate);
}

}  // namespace

Subsurface::Subsurface(wl_resource* resource, Surface* surface, Surface* parent)
    : resource_(resource), surface_(surface), parent_(parent) {}

Subsurface::~Subsurface() {
  LeaveParent();
  if (surface_ != nullptr && surface_->role() == this) surface_->DropRole();
}

void Subsurface::LeaveParent() {
  if (parent_ == nullptr) return;
  std::erase(parent_->children(), this);
  parent_ = nullptr;
}

void Subsurface::SurfaceGone() {
  LeaveParent();
  surface_ = nullptr;
  wl_resource_set_user_data(resource_, nullptr);
  delete this;
}

// Without a parent nothing shows the surface any more.
void Subsurface::ParentGone() {
  parent_ = nullptr;
  if (surface_ != nullptr) surface_->Place({}, true);
}

bool Subsurface::IsSynchronised() const {
  if (synchronised_) return true;
  return parent_ != nullptr && parent_->role() != nullptr && parent_->role()->IsSynchronised();
}

bool Subsurface::ParentCommitted() {
  const bool moved = x_ != pending_x_ || y_ != pending_y_;
  x_ = pending_x_;
  y_ = pending_y_;
  if (IsSynchronised()) surface_->ApplyCached();
  return std::exchange(changed_, false) || moved;
}

void Subsurface::Committed() {
  if (std::exchange(had_content_, surface_->has_content()) != surface_->has_content()) LayOut();
}

void Subsurface::PlaceIn(const Placement& parent, bool parent_has_content) {
  Placement own = parent;
  own.x += x_ * parent.scale_x;
  own.y += y_ * parent.scale_y;
  own.visible = parent.visible && parent_has_content;
  surface_->Place(own, true);
}

void Subsurface::LayOut() {
  if (parent_ != nullptr && parent_->role() != nullptr) parent_->role()->LayOut();
}

SurfacePoint Subsurface::PickInWindow(double x, double y) {
  if (parent_ == nullptr || parent_->role() == nullptr) return {};
  return parent_->role()->PickInWindow(x, y);
}

Toplevel* Subsurface::Window() {
  return parent_ != nullptr && parent_->role() != nullptr ? parent_->role()->Window() : nullptr;
}

void Subsurface::SetPosition(int x, int y) {
  pending_x_ = Cut(x);
  pending_y_ = Cut(y);
}

void Subsurface::PlaceAbove(wl_resource* sibling) {
  Restack(sibling, 1);
}

void Subsurface::PlaceBelow(wl_resource* sibling) {
  Restack(sibling, 0);
}

// Takes effect at once instead of with the parent's commit: the order is only seen when the tree is
// laid out, which the parent's commit does.
void Subsurface::Restack(wl_resource* sibling, int offset) {
  if (parent_ == nullptr) return;
  auto* other = From<Surface>(sibling);
  std::vector<Subsurface*>& order = parent_->children();
  const auto is_sibling = [&](Subsurface* child) {
    return child == nullptr ? other == parent_ : child->surface() == other;
  };
  if (other == surface_ || std::none_of(order.begin(), order.end(), is_sibling)) {
    wl_resource_post_error(resource_, WL_SUBSURFACE_ERROR_BAD_SURFACE,
                           "neither a sibling nor the parent");
    return;
  }
  std::erase(order, this);
  order.insert(std::find_if(order.begin(), order.end(), is_sibling) + offset, this);
  changed_ = true;
}

void Subsurface::SetSync() {
  synchronised_ = true;
}

void Subsurface::SetDesync() {
  synchronised_ = false;
  if (!IsSynchronised() && surface_ != nullptr) surface_->ApplyCached();
}

void BindSubcompositor(wl_client* client, void*, std::uint32_t version, std::uint32_t id) {
  wl_resource* resource =
      MakeResource(client, &wl_subcompositor_interface, static_cast<int>(version), id);
  if (resource == nullptr) return;
  try {
    GiveToResource(std::make_unique<Subcompositor>(resource), resource, &kSubcompositor);
  } catch (...) {
    wl_client_post_no_memory(client);
  }
}

}  // namespace kavrel_pepper
