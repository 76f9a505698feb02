// xdg_popup: menus and the like, shown above their parent's window.
#pragma once

#include "xdg_shell.h"

namespace kavrel_pepper {

/// Belongs to its xdg_popup resource; the parent may go first. Main thread.
class Popup final : public XdgRole {
 public:
  Popup(wl_resource* resource, XdgSurface& xdg_surface, XdgSurface& parent,
        const Positioner& positioner);
  ~Popup() override;

  // As the child of its parent.
  void ParentGone();
  void PlaceIn(const Placement& parent, const Box& parent_window);
  void ListObjects(std::vector<Evas_Object*>& objects);
  SurfacePoint Pick(double x, double y);
  /// Hides it and tells the client, once; its own pop-ups first.
  void Dismiss();
  Surface* surface() { return xdg_surface_ != nullptr ? xdg_surface_->surface() : nullptr; }

  // XdgRole
  void SendConfigure() override;
  void Committed() override;
  void ContentGone() override { placed_ = false; }
  void PictureDeleted() override { Dismiss(); }
  void LayOut() override;
  SurfacePoint PickInWindow(double x, double y) override;
  Toplevel* Window() override { return parent_ != nullptr ? parent_->Window() : nullptr; }
  void XdgSurfaceGone() override;

  // Requests.
  void Grab(wl_resource* seat, std::uint32_t serial);

 private:
  void LeaveParent();

  wl_resource* resource_;
  XdgSurface* xdg_surface_;
  XdgSurface* parent_;
  Positioner positioner_;
  Box box_;
  bool dismissed_ = false;
  bool placed_ = false;
};

/// xdg_surface.get_popup. Null after telling the client when there is no memory.
Popup* CreatePopup(XdgSurface& xdg_surface, XdgSurface& parent, const Positioner& positioner,
                   std::uint32_t id);

}  // namespace kavrel_pepper
