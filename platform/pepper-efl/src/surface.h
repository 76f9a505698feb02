// wl_surface: content, state, and the tree of surfaces that makes one window.
#pragma once

#include <memory>
#include <string>
#include <vector>
#include <wayland-server.h>

#include "picture.h"
#include "surface_state.h"

namespace kavrel_pepper {

class Server;
class Subsurface;
class Surface;
class Toplevel;

/// Where a surface lies on the canvas.
struct Placement {
  double x = 0, y = 0;              ///< of its upper left corner
  double scale_x = 1, scale_y = 1;  ///< canvas units a surface unit
  bool visible = false;
  int layer = 0;
};

struct SurfacePoint {
  Surface* surface = nullptr;
  double x = 0, y = 0;
};

/// What a surface is for. A surface keeps its first role for life, the object of the role may go
/// and come back.
class SurfaceRole {
 public:
  virtual ~SurfaceRole() = default;

  /// Before a commit takes effect; false after posting a protocol error.
  virtual bool MayCommit(bool /*with_buffer*/) { return true; }
  /// The state is kept until the parent commits.
  virtual bool IsSynchronised() const { return false; }
  /// Whether the content is shown by a picture (a cursor's is not).
  virtual bool IsShown() const = 0;
  virtual void Committed() {}
  /// The content has got its picture only at the end of the frame in which it was committed.
  virtual void PictureCame() {}
  /// A commit without a buffer took the content away; the picture is about to go.
  virtual void ContentGone() {}
  /// Place the pictures of the whole window again.
  virtual void LayOut() = 0;
  /// The highest surface of the whole window that takes input at a point of the canvas.
  virtual SurfacePoint PickInWindow(double canvas_x, double canvas_y) = 0;
  /// The window that all this belongs to; null while there is none.
  virtual Toplevel* Window() = 0;
  /// The program has deleted the picture.
  virtual void PictureDeleted() {}
  virtual void SurfaceGone() = 0;
};

enum class RoleKind { kNone, kToplevel, kPopup, kSubsurface, kCursor };

/// Belongs to its wl_surface resource. Main thread.
class Surface final : public PictureOwner {
 public:
  Surface(Server& server, std::shared_ptr<Ledger> ledger, wl_resource* resource);
  ~Surface() override;

  Server& server() { return server_; }
  wl_resource* resource() { return resource_; }
  wl_client* client() { return wl_resource_get_client(resource_); }
  int width() const { return width_; }
  int height() const { return height_; }
  bool has_content() const { return width_ > 0; }
  Evas_Object* object() const { return picture_ != nullptr ? picture_->object() : nullptr; }
  Picture* picture() { return picture_.get(); }
  const Placement& placement() const { return placement_; }

  RoleKind role_kind() const { return role_kind_; }
  SurfaceRole* role() { return role_; }
  /// False when the surface already has another role, or an object of this role.
  bool TakeRole(RoleKind kind, SurfaceRole* role);
  void DropRole();
  void SetRoleKind(RoleKind kind) { role_kind_ = kind; }
  /// Nothing is shown until the next buffer.
  void RemoveContent();

  /// Children, from the lowest to the highest; null stands for this surface itself.
  std::vector<Subsurface*>& children() { return children_; }

  /// Applies what was kept while the role was synchronised.
  void ApplyCached();
  void FrameDone(std::uint32_t milliseconds);

  /// Places the picture and those of the children, this one's picture too unless the program
  /// places it.
  void Place(const Placement& placement, bool own_picture);
  /// Adds the objects of the tree from the lowest to the highest.
  void ListObjects(std::vector<Evas_Object*>& objects);
  /// The highest surface of the tree that takes input at a point of the canvas.
  SurfacePoint Pick(double canvas_x, double canvas_y);
  SurfacePoint ToLocal(double canvas_x, double canvas_y);

  // Requests.
  void Attach(wl_resource* buffer, int x, int y);
  void Damage(int x, int y, int width, int height);
  void DamageBuffer(int x, int y, int width, int height);
  void RequestFrame(std::uint32_t id);
  void SetOpaqueRegion(wl_resource* region);
  void SetInputRegion(wl_resource* region);
  void SetBufferTransform(int transform);
  void SetBufferScale(int scale);
  void Commit();

 private:
  void PictureDeleted() override;
  bool CheckCommit();
  void Apply(SurfaceState& state);
  void TakeBuffer(SurfaceState& state);
  void CollectDamage(SurfaceState& state);
  void ShowHeldBuffer();
  void CopyHeldBuffer();
  void DropHeldBuffer();
  void SetGeometryOfState(SurfaceState& state);
  void Measure(wl_shm_buffer* buffer);
  bool IsOpaque() const;
  void PassInput();
  void ApplyToChildren();
  bool TakesInputAt(double x, double y) const;

  Server& server_;
  std::shared_ptr<Ledger> ledger_;
  wl_resource* resource_;
  RoleKind role_kind_ = RoleKind::kNone;
  SurfaceRole* role_ = nullptr;
  std::vector<Subsurface*> children_;

  SurfaceState pending_;
  SurfaceState cached_;
  bool has_cached_ = false;

  std::unique_ptr<Picture> picture_;
  std::unique_ptr<HeldBuffer> held_;  // committed, not copied yet
  Region held_damage_;                // in the buffer's pixels
  std::uint64_t copied_in_frame_ = 0;
  FrameCallbacks frames_;
  Region opaque_;
  std::optional<Region> input_;
  int scale_ = 1;
  wl_output_transform transform_ = WL_OUTPUT_TRANSFORM_NORMAL;
  int width_ = 0, height_ = 0;
  Placement placement_;
};

/// wl_compositor.create_surface.
void CreateSurface(Server& server, wl_client* client, int version, std::uint32_t id);

}  // namespace kavrel_pepper
