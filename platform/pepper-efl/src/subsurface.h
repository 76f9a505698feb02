// wl_subcompositor and wl_subsurface.
#pragma once

#include "surface.h"

namespace kavrel_pepper {

/// Belongs to its wl_subsurface resource; surface and parent may go first. Main thread.
class Subsurface final : public SurfaceRole {
 public:
  Subsurface(wl_resource* resource, Surface* surface, Surface* parent);
  ~Subsurface() override;

  Surface* surface() { return surface_; }

  // As the child of its parent.
  void ParentGone();
  /// Applies position and kept state; true when the tree has to be laid out again.
  bool ParentCommitted();
  void PlaceIn(const Placement& parent, bool parent_has_content);
  void ListObjects(std::vector<Evas_Object*>& objects) { surface_->ListObjects(objects); }
  SurfacePoint Pick(double x, double y) { return surface_->Pick(x, y); }

  // As the role of its surface.
  bool IsSynchronised() const override;
  bool IsShown() const override { return true; }
  void LayOut() override;
  SurfacePoint PickInWindow(double x, double y) override;
  Toplevel* Window() override;
  void SurfaceGone() override;
  void Committed() override;
  void PictureCame() override { LayOut(); }
  void ContentGone() override {}

  // Requests.
  void SetPosition(int x, int y);
  void PlaceAbove(wl_resource* sibling);
  void PlaceBelow(wl_resource* sibling);
  void SetSync();
  void SetDesync();

 private:
  void LeaveParent();
  void Restack(wl_resource* sibling, int offset);

  wl_resource* resource_;
  Surface* surface_;
  Surface* parent_;
  bool synchronised_ = true;
  bool had_content_ = false;
  bool changed_ = true;
  int x_ = 0, y_ = 0;
  int pending_x_ = 0, pending_y_ = 0;
};

/// Binds wl_subcompositor.
void BindSubcompositor(wl_client* client, void* server, std::uint32_t version, std::uint32_t id);

}  // namespace kavrel_pepper
