#include "popup.h"

#include <algorithm>
#include <utility>
#include <xdg-shell-server-protocol.h>

#include "server.h"
#include "wire.h"

namespace kavrel_pepper {
namespace {

constexpr struct xdg_popup_interface kPopup = {
    .destroy = DestroyResource,
    .grab = Request<&Popup::Grab>,
    .reposition = IgnoreRequest<wl_resource*, std::uint32_t>,
};

}  // namespace

Popup* CreatePopup(XdgSurface& xdg_surface, XdgSurface& parent, const Positioner& positioner,
                   std::uint32_t id) {
  wl_resource* resource = MakeSibling(xdg_surface.resource(), &xdg_popup_interface, id);
  if (resource == nullptr) return nullptr;
  Popup* popup = GiveToResource(std::make_unique<Popup>(resource, xdg_surface, parent, positioner),
                                resource, &kPopup);
  parent.popups().push_back(popup);
  return popup;
}

Popup::Popup(wl_resource* resource, XdgSurface& xdg_surface, XdgSurface& parent,
             const Positioner& positioner)
    : resource_(resource), xdg_surface_(&xdg_surface), parent_(&parent), positioner_(positioner) {}

Popup::~Popup() {
  LeaveParent();
  if (xdg_surface_ != nullptr) xdg_surface_->RoleGone();
}

void Popup::XdgSurfaceGone() {
  LeaveParent();
  xdg_surface_ = nullptr;
}

void Popup::LeaveParent() {
  if (surface() != nullptr) surface()->server().focus().PopupGone(this);
  if (parent_ != nullptr) std::erase(parent_->popups(), this);
  parent_ = nullptr;
}

void Popup::ParentGone() {
  Dismiss();
  LeaveParent();
}

// The visible area in the coordinates of the parent's window.
void Popup::SendConfigure() {
  Box bounds;
  if (parent_ != nullptr && parent_->surface() != nullptr) {
    const Placement& at = parent_->surface()->placement();
    const Box window = parent_->Geometry(), canvas = parent_->surface()->server().RootBox();
    bounds.x = static_cast<int>((canvas.x - at.x) / at.scale_x) - window.x;
    bounds.y = static_cast<int>((canvas.y - at.y) / at.scale_y) - window.y;
    bounds.width = static_cast<int>(canvas.width / at.scale_x);
    bounds.height = static_cast<int>(canvas.height / at.scale_y);
  }
  box_ = positioner_.PlaceIn(bounds);
  xdg_popup_send_configure(resource_, box_.x, box_.y, box_.width, box_.height);
}

void Popup::Committed() {
  const bool has_picture = surface()->object() != nullptr;
  if (std::exchange(placed_, has_picture) == has_picture) return;
  LayOut();
}

void Popup::LayOut() {
  if (parent_ != nullptr) parent_->LayOut();
}

SurfacePoint Popup::PickInWindow(double x, double y) {
  return parent_ != nullptr ? parent_->PickInWindow(x, y) : SurfacePoint();
}

void Popup::PlaceIn(const Placement& parent, const Box& parent_window) {
  if (surface() == nullptr) return;
  const Box window = xdg_surface_->Geometry();
  Placement own = parent;
  own.x += (parent_window.x + box_.x - window.x) * parent.scale_x;
  own.y += (parent_window.y + box_.y - window.y) * parent.scale_y;
  own.visible = parent.visible && !dismissed_;
  surface()->Place(own, true);
  for (Popup* popup : xdg_surface_->popups()) popup->PlaceIn(own, window);
}

void Popup::ListObjects(std::vector<Evas_Object*>& objects) {
  if (surface() == nullptr) return;
  surface()->ListObjects(objects);
  for (Popup* popup : xdg_surface_->popups()) popup->ListObjects(objects);
}

SurfacePoint Popup::Pick(double x, double y) {
  if (surface() == nullptr || dismissed_) return {};
  const std::vector<Popup*>& popups = xdg_surface_->popups();
  for (auto popup = popups.rbegin(); popup != popups.rend(); ++popup) {
    if (const SurfacePoint found = (*popup)->Pick(x, y); found.surface != nullptr) return found;
  }
  return surface()->Pick(x, y);
}

void Popup::Dismiss() {
  if (std::exchange(dismissed_, true)) return;
  if (xdg_surface_ != nullptr) xdg_surface_->DismissPopups();
  if (surface() != nullptr) {
    surface()->server().focus().PopupGone(this);
    surface()->Place({}, true);
  }
  xdg_popup_send_popup_done(resource_);
}

void Popup::Grab(wl_resource*, std::uint32_t) {
  if (surface() != nullptr && !dismissed_) surface()->server().focus().GrabFor(this);
}

}  // namespace kavrel_pepper
