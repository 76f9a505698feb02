// xdg_wm_base and xdg_surface: what toplevel windows and pop-ups have in common.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "positioner.h"
#include "surface.h"

namespace kavrel_pepper {

class Popup;
class XdgSurface;

/// What outlives an xdg_wm_base as long as its surfaces do.
struct WmBaseState {
  wl_resource* resource;  ///< null once destroyed
  int surfaces = 0;
};

/// A toplevel window or a pop-up. Belongs to its own resource; the xdg_surface may go first. Main
/// thread.
class XdgRole {
 public:
  virtual ~XdgRole() = default;
  virtual void SendConfigure() = 0;
  /// The client has answered the last configure.
  virtual void Configured() {}
  virtual void Committed() = 0;
  virtual void ContentGone() = 0;
  virtual void PictureDeleted() = 0;
  virtual void LayOut() = 0;
  virtual SurfacePoint PickInWindow(double x, double y) = 0;
  virtual Toplevel* Window() = 0;
  /// The xdg_surface or its surface is gone.
  virtual void XdgSurfaceGone() = 0;
};

/// Belongs to its xdg_surface resource; the surface may go first. Main thread.
class XdgSurface final : public SurfaceRole {
 public:
  XdgSurface(wl_resource* resource, std::shared_ptr<WmBaseState> wm_base, Surface* surface);
  ~XdgSurface() override;

  Surface* surface() { return surface_; }
  wl_resource* resource() { return resource_; }
  bool has_role() const { return role_ != nullptr; }
  Box Geometry() const;  ///< of the window within its surface

  /// Sends the role's configure events now, or once the client has answered the last ones, so that
  /// a client that does not answer has one of them waiting and not thousands.
  void WantConfigure();
  /// Drops the one that waits to be sent; true when the client still has to answer one.
  bool StopConfiguring();

  /// The role object has been destroyed.
  void RoleGone();

  std::vector<Popup*>& popups() { return popups_; }
  /// Dismisses the pop-ups, the last one first.
  void DismissPopups();

  // As the role of the surface.
  bool MayCommit(bool with_buffer) override;
  bool IsShown() const override { return role_ != nullptr; }
  void Committed() override;
  void PictureCame() override;
  void ContentGone() override;
  void LayOut() override;
  SurfacePoint PickInWindow(double x, double y) override;
  Toplevel* Window() override;
  void PictureDeleted() override;
  void SurfaceGone() override;

  // Requests.
  void GetToplevel(std::uint32_t id);
  void GetPopup(std::uint32_t id, wl_resource* parent, wl_resource* positioner);
  void SetWindowGeometry(int x, int y, int width, int height);
  void AckConfigure(std::uint32_t serial);

 private:
  bool MayTakeRole(RoleKind kind);
  void ResetConfigure();
  void LeaveSurface();

  wl_resource* resource_;
  std::shared_ptr<WmBaseState> wm_base_;
  Surface* surface_;
  XdgRole* role_ = nullptr;
  std::vector<Popup*> popups_;
  std::optional<Box> geometry_;
  std::optional<Box> pending_geometry_;

  bool asked_ = false;                 // the client's first commit was answered
  bool configured_ = false;            // and the client has confirmed the answer
  bool waiting_ = false;               // for the confirmation of the last serial
  bool wanted_ = false;                // another configure, after that
  bool unmapping_ = false;             // in this commit
  std::deque<std::uint32_t> serials_;  // sent and not confirmed
};

/// Binds xdg_wm_base.
void BindXdgShell(wl_client* client, void* server, std::uint32_t version, std::uint32_t id);

}  // namespace kavrel_pepper
