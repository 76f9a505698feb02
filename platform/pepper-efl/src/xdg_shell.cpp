#include "xdg_shell.h"

#include <algorithm>
#include <utility>
#include <xdg-shell-server-protocol.h>

#include "popup.h"
#include "quotas.h"
#include "server.h"
#include "toplevel.h"
#include "wire.h"

namespace kavrel_pepper {
namespace {

constexpr struct xdg_surface_interface kXdgSurface = {
    .destroy =
        [](wl_client*, wl_resource* resource) {
          if (auto* self = From<XdgSurface>(resource); self != nullptr && self->has_role()) {
            wl_resource_post_error(resource, XDG_SURFACE_ERROR_DEFUNCT_ROLE_OBJECT,
                                   "destroyed before its role object");
            return;
          }
          wl_resource_destroy(resource);
        },
    .get_toplevel = Request<&XdgSurface::GetToplevel>,
    .get_popup = Request<&XdgSurface::GetPopup>,
    .set_window_geometry = Request<&XdgSurface::SetWindowGeometry>,
    .ack_configure = Request<&XdgSurface::AckConfigure>,
};

// Sent without an answer; only a client that unmaps again and again without answering gets here.
constexpr std::size_t kMostSerials = 16;

/// The global object of one client; it has no state. Main thread.
class WmBase {
 public:
  explicit WmBase(wl_resource* resource)
      : resource_(resource), state_(std::make_shared<WmBaseState>(WmBaseState{resource})) {}
  ~WmBase() { state_->resource = nullptr; }

  bool has_surfaces() const { return state_->surfaces > 0; }

  void MakePositioner(std::uint32_t id) { CreatePositioner(resource_, id); }

  void GetXdgSurface(std::uint32_t id, wl_resource* surface_resource) {
    auto* surface = From<Surface>(surface_resource);
    if (surface->role() != nullptr || surface->role_kind() == RoleKind::kSubsurface ||
        surface->role_kind() == RoleKind::kCursor) {
      wl_resource_post_error(resource_, XDG_WM_BASE_ERROR_ROLE, "the surface has another role");
      return;
    }
    if (surface->has_content()) {
      wl_resource_post_error(resource_, XDG_WM_BASE_ERROR_INVALID_SURFACE_STATE,
                             "the surface already has a buffer");
      return;
    }
    wl_resource* made = MakeSibling(resource_, &xdg_surface_interface, id);
    if (made == nullptr) return;
    auto xdg_surface = std::make_unique<XdgSurface>(made, state_, surface);
    surface->TakeRole(surface->role_kind(), xdg_surface.get());
    GiveToResource(std::move(xdg_surface), made, &kXdgSurface);
  }

 private:
  wl_resource* resource_;
  std::shared_ptr<WmBaseState> state_;
};

constexpr struct xdg_wm_base_interface kWmBase = {
    .destroy =
        [](wl_client*, wl_resource* resource) {
          if (auto* self = From<WmBase>(resource); self != nullptr && self->has_surfaces()) {
            wl_resource_post_error(resource, XDG_WM_BASE_ERROR_DEFUNCT_SURFACES,
                                   "destroyed before its surfaces");
            return;
          }
          wl_resource_destroy(resource);
        },
    .create_positioner = Request<&WmBase::MakePositioner>,
    .get_xdg_surface = Request<&WmBase::GetXdgSurface>,
    .pong = IgnoreRequest<std::uint32_t>,
};

}  // namespace

XdgSurface::XdgSurface(wl_resource* resource, std::shared_ptr<WmBaseState> wm_base,
                       Surface* surface)
    : resource_(resource), wm_base_(std::move(wm_base)), surface_(surface) {
  ++wm_base_->surfaces;
}

XdgSurface::~XdgSurface() {
  --wm_base_->surfaces;
  LeaveSurface();
}

void XdgSurface::SurfaceGone() {
  LeaveSurface();
}

void XdgSurface::LeaveSurface() {
  DismissPopups();
  for (Popup* popup : std::exchange(popups_, {})) popup->ParentGone();
  if (role_ != nullptr) std::exchange(role_, nullptr)->XdgSurfaceGone();
  if (Surface* surface = std::exchange(surface_, nullptr);
      surface != nullptr && surface->role() == this) {
    surface->DropRole();
  }
}

void XdgSurface::RoleGone() {
  DismissPopups();
  for (Popup* popup : std::exchange(popups_, {})) popup->ParentGone();
  role_ = nullptr;
  ResetConfigure();
  if (surface_ != nullptr) surface_->RemoveContent();
  unmapping_ = false;
}

void XdgSurface::DismissPopups() {
  const std::vector<Popup*> popups = popups_;
  for (auto popup = popups.rbegin(); popup != popups.rend(); ++popup) (*popup)->Dismiss();
}

Box XdgSurface::Geometry() const {
  if (surface_ == nullptr) return {};
  const Box whole = {0, 0, std::max(1, surface_->width()), std::max(1, surface_->height())};
  if (!geometry_) return whole;
  const int left = std::clamp(geometry_->x, 0, whole.width - 1);
  const int top = std::clamp(geometry_->y, 0, whole.height - 1);
  return {left, top, std::clamp(geometry_->width, 1, whole.width - left),
          std::clamp(geometry_->height, 1, whole.height - top)};
}

// ---- configure

void XdgSurface::WantConfigure() {
  if (!asked_ || role_ == nullptr || surface_ == nullptr) return;
  wanted_ = waiting_;
  if (waiting_) return;
  role_->SendConfigure();
  serials_.push_back(surface_->server().NextSerial());
  if (serials_.size() > kMostSerials) serials_.pop_front();
  waiting_ = true;
  xdg_surface_send_configure(resource_, serials_.back());
}

void XdgSurface::AckConfigure(std::uint32_t serial) {
  if (role_ == nullptr) {
    wl_resource_post_error(resource_, XDG_SURFACE_ERROR_NOT_CONSTRUCTED, "no role object");
    return;
  }
  const auto confirmed = std::find(serials_.begin(), serials_.end(), serial);
  if (confirmed == serials_.end()) {
    wl_resource_post_error(resource_, XDG_SURFACE_ERROR_INVALID_SERIAL,
                           "serial %u was not sent or is confirmed already", serial);
    return;
  }
  serials_.erase(serials_.begin(), confirmed + 1);
  if (!asked_) return;
  // Also when it was sent before the window was unmapped: a client that maps its window again
  // cannot tell, and draws at the next configure that it sees.
  configured_ = true;
  if (!serials_.empty()) return;
  waiting_ = false;
  std::exchange(wanted_, false) ? WantConfigure() : role_->Configured();
}

bool XdgSurface::StopConfiguring() {
  wanted_ = false;
  return waiting_;
}

void XdgSurface::ResetConfigure() {
  asked_ = configured_ = waiting_ = wanted_ = false;
}

// ---- the role of the surface

bool XdgSurface::MayCommit(bool with_buffer) {
  if (role_ == nullptr) {
    wl_resource_post_error(resource_, XDG_SURFACE_ERROR_NOT_CONSTRUCTED, "no role object");
    return false;
  }
  if (with_buffer && !configured_) {
    wl_resource_post_error(resource_, XDG_SURFACE_ERROR_UNCONFIGURED_BUFFER,
                           "a buffer before the first configure was confirmed");
    return false;
  }
  return true;
}

void XdgSurface::Committed() {
  if (pending_geometry_) geometry_ = std::exchange(pending_geometry_, std::nullopt);
  if (std::exchange(unmapping_, false) || role_ == nullptr) return;
  if (!asked_) {
    asked_ = true;
    WantConfigure();
    return;
  }
  role_->Committed();
}

void XdgSurface::PictureCame() {
  if (role_ != nullptr) role_->Committed();
}

void XdgSurface::ContentGone() {
  unmapping_ = true;
  geometry_.reset();
  ResetConfigure();
  DismissPopups();
  if (role_ != nullptr) role_->ContentGone();
}

void XdgSurface::LayOut() {
  if (role_ != nullptr) role_->LayOut();
}

SurfacePoint XdgSurface::PickInWindow(double x, double y) {
  return role_ != nullptr ? role_->PickInWindow(x, y) : SurfacePoint();
}

Toplevel* XdgSurface::Window() {
  return role_ != nullptr ? role_->Window() : nullptr;
}

void XdgSurface::PictureDeleted() {
  if (role_ != nullptr) role_->PictureDeleted();
}

// ---- requests

bool XdgSurface::MayTakeRole(RoleKind kind) {
  if (surface_ == nullptr) return false;
  const bool other = surface_->role_kind() != RoleKind::kNone && surface_->role_kind() != kind;
  if (role_ == nullptr && !other) return true;
  wl_resource_post_error(resource_, XDG_SURFACE_ERROR_ALREADY_CONSTRUCTED,
                         "the surface already has a role");
  return false;
}

void XdgSurface::GetToplevel(std::uint32_t id) {
  if (!MayTakeRole(RoleKind::kToplevel)) return;
  Toplevel* toplevel = CreateToplevel(*this, id);
  if (toplevel == nullptr) return;
  surface_->SetRoleKind(RoleKind::kToplevel);
  role_ = toplevel;
}

void XdgSurface::GetPopup(std::uint32_t id, wl_resource* parent, wl_resource* positioner) {
  if (!MayTakeRole(RoleKind::kPopup)) return;
  auto* above = From<XdgSurface>(parent);
  if (above == nullptr || !above->has_role() || above->surface() == nullptr) {
    wl_resource_post_error(wm_base_->resource, XDG_WM_BASE_ERROR_INVALID_POPUP_PARENT,
                           "a pop-up needs a parent with a role");
    return;
  }
  const auto* rules = From<Positioner>(positioner);
  if (rules == nullptr || !rules->IsComplete()) {
    wl_resource_post_error(wm_base_->resource, XDG_WM_BASE_ERROR_INVALID_POSITIONER,
                           "a positioner without size or anchor rectangle");
    return;
  }
  Popup* popup = CreatePopup(*this, *above, *rules, id);
  if (popup == nullptr) return;
  surface_->SetRoleKind(RoleKind::kPopup);
  role_ = popup;
}

void XdgSurface::SetWindowGeometry(int x, int y, int width, int height) {
  if (width < 1 || height < 1) {
    wl_resource_post_error(resource_, XDG_SURFACE_ERROR_INVALID_SIZE,
                           "window geometry of %dx%d, at least 1x1 is needed", width, height);
    return;
  }
  const auto cut = [](int value) { return std::clamp(value, -kMaxCoordinate, kMaxCoordinate); };
  pending_geometry_ = Box{cut(x), cut(y), cut(width), cut(height)};
}

void BindXdgShell(wl_client* client, void*, std::uint32_t version, std::uint32_t id) {
  wl_resource* resource =
      MakeResource(client, &xdg_wm_base_interface, static_cast<int>(version), id);
  if (resource == nullptr) return;
  try {
    GiveToResource(std::make_unique<WmBase>(resource), resource, &kWmBase);
  } catch (...) {
    wl_client_post_no_memory(client);
  }
}

}  // namespace kavrel_pepper
