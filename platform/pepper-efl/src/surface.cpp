#include "surface.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "input_events.h"
#include "quotas.h"
#include "server.h"
#include "subsurface.h"
#include "wire.h"

namespace kavrel_pepper {
namespace {

constexpr struct wl_surface_interface kSurface = {
    .destroy = DestroyResource,
    .attach = Request<&Surface::Attach>,
    .damage = Request<&Surface::Damage>,
    .frame = Request<&Surface::RequestFrame>,
    .set_opaque_region = Request<&Surface::SetOpaqueRegion>,
    .set_input_region = Request<&Surface::SetInputRegion>,
    .commit = Request<&Surface::Commit>,
    .set_buffer_transform = Request<&Surface::SetBufferTransform>,
    .set_buffer_scale = Request<&Surface::SetBufferScale>,
    .damage_buffer = Request<&Surface::DamageBuffer>,
    .offset = IgnoreRequest<int, int>,
};

constexpr int kMostHeldDamageBoxes = 64;
constexpr int kMostScale = 16;

int Round(double value) {
  return static_cast<int>(std::lround(value));
}

}  // namespace

void CreateSurface(Server& server, wl_client* client, int version, std::uint32_t id) {
  std::shared_ptr<Ledger> ledger = server.LedgerOf(client);
  wl_resource* resource = MakeResource(client, &wl_surface_interface, version, id);
  if (resource == nullptr || ledger == nullptr) return;
  GiveToResource(std::make_unique<Surface>(server, std::move(ledger), resource), resource,
                 &kSurface);
}

Surface::Surface(Server& server, std::shared_ptr<Ledger> ledger, wl_resource* resource)
    : server_(server), ledger_(std::move(ledger)), resource_(resource), children_{nullptr} {}

Surface::~Surface() {
  if (role_ != nullptr) std::exchange(role_, nullptr)->SurfaceGone();
  for (Subsurface* child : children_) {
    if (child != nullptr) child->ParentGone();
  }
  server_.ForgetSurface(this);
}

bool Surface::TakeRole(RoleKind kind, SurfaceRole* role) {
  if (role_ != nullptr || (role_kind_ != RoleKind::kNone && role_kind_ != kind)) return false;
  role_kind_ = kind;
  role_ = role;
  return true;
}

void Surface::DropRole() {
  role_ = nullptr;
  picture_.reset();
}

// ---- requests

void Surface::Attach(wl_resource* buffer, int, int) {
  pending_.attached = true;
  pending_.buffer = buffer != nullptr ? std::make_unique<HeldBuffer>(buffer) : nullptr;
}

void Surface::Damage(int x, int y, int width, int height) {
  pending_.surface_damage.Add(x, y, width, height);
  pending_.surface_damage.LimitTo(kMostHeldDamageBoxes);
}

void Surface::DamageBuffer(int x, int y, int width, int height) {
  pending_.buffer_damage.Add(x, y, width, height);
  pending_.buffer_damage.LimitTo(kMostHeldDamageBoxes);
}

void Surface::RequestFrame(std::uint32_t id) {
  wl_resource* callback = MakeResource(client(), &wl_callback_interface, 1, id);
  if (callback != nullptr) pending_.frames.Add(callback);
}

void Surface::SetOpaqueRegion(wl_resource* region) {
  pending_.opaque = region != nullptr ? RegionOf(region) : Region();
}

void Surface::SetInputRegion(wl_resource* region) {
  pending_.input_set = true;
  pending_.input.reset();
  if (region != nullptr) pending_.input = RegionOf(region);
}

void Surface::SetBufferTransform(int transform) {
  if (transform < WL_OUTPUT_TRANSFORM_NORMAL || transform > WL_OUTPUT_TRANSFORM_FLIPPED_270) {
    wl_resource_post_error(resource_, WL_SURFACE_ERROR_INVALID_TRANSFORM,
                           "transform %d, 0 to 7 are allowed", transform);
    return;
  }
  pending_.transform = static_cast<wl_output_transform>(transform);
}

void Surface::SetBufferScale(int scale) {
  if (scale < 1 || scale > kMostScale) {
    wl_resource_post_error(resource_, WL_SURFACE_ERROR_INVALID_SCALE,
                           "scale %d, 1 to %d are allowed", scale, kMostScale);
    return;
  }
  pending_.scale = scale;
}

void Surface::Commit() {
  if (!CheckCommit()) return;
  if (role_ != nullptr && role_->IsSynchronised()) {
    cached_.Merge(pending_);
    has_cached_ = true;
    return;
  }
  if (!std::exchange(has_cached_, false)) {
    Apply(pending_);
    return;
  }
  cached_.Merge(pending_);
  Apply(cached_);
}

bool Surface::CheckCommit() {
  if (!ledger_->SpendCommit()) {
    if (ledger_->client() != nullptr) server_.ShutOut(ledger_->client());
    return false;
  }
  if (pending_.buffer != nullptr && !IsAcceptable(*pending_.buffer)) return false;
  return role_ == nullptr || role_->MayCommit(pending_.attached && pending_.buffer != nullptr);
}

// ---- content

void Surface::ApplyCached() {
  if (std::exchange(has_cached_, false)) Apply(cached_);
}

void Surface::Apply(SurfaceState& state) {
  const int old_width = width_, old_height = height_;
  SetGeometryOfState(state);
  if (std::exchange(state.attached, false)) TakeBuffer(state);
  CollectDamage(state);
  ShowHeldBuffer();
  PassInput();
  frames_.TakeFrom(state.frames);
  ApplyToChildren();
  if (role_ != nullptr) role_->Committed();
  if (role_ != nullptr && (width_ != old_width || height_ != old_height)) role_->LayOut();
  if (held_ != nullptr || !frames_.empty()) server_.frames().Want(this);
}

// Where nothing takes input, the program's own objects below get it.
void Surface::PassInput() {
  if (object() != nullptr) evas_object_pass_events_set(object(), input_ && input_->empty());
}

void Surface::SetGeometryOfState(SurfaceState& state) {
  if (state.opaque) opaque_ = *std::exchange(state.opaque, std::nullopt);
  if (std::exchange(state.input_set, false)) input_ = std::exchange(state.input, std::nullopt);
  const int scale = std::exchange(state.scale, std::nullopt).value_or(scale_);
  const auto transform = std::exchange(state.transform, std::nullopt).value_or(transform_);
  if (scale != scale_ || transform != transform_) {
    held_damage_.Add(0, 0, kMaxBufferEdge, kMaxBufferEdge);
  }
  scale_ = scale;
  transform_ = transform;
}

void Surface::TakeBuffer(SurfaceState& state) {
  DropHeldBuffer();
  held_ = std::move(state.buffer);
  wl_shm_buffer* shm = held_ != nullptr ? held_->shm() : nullptr;
  if (shm != nullptr) {
    Measure(shm);
  } else {
    held_.reset();
    RemoveContent();
  }
}

void Surface::RemoveContent() {
  if (role_ != nullptr && has_content()) role_->ContentGone();
  picture_.reset();
  server_.seat().Forget(this);
  width_ = height_ = 0;
}

void Surface::Measure(wl_shm_buffer* buffer) {
  width_ = std::max(1, wl_shm_buffer_get_width(buffer) / scale_);
  height_ = std::max(1, wl_shm_buffer_get_height(buffer) / scale_);
  if ((transform_ & 1) != 0) std::swap(width_, height_);
}

void Surface::CollectDamage(SurfaceState& state) {
  for (const pixman_box32_t& box : state.surface_damage.boxes()) {
    held_damage_.Add(box.x1 * scale_, box.y1 * scale_, (box.x2 - box.x1) * scale_,
                     (box.y2 - box.y1) * scale_);
  }
  held_damage_.Add(state.buffer_damage);
  held_damage_.ClipTo(kMaxBufferEdge, kMaxBufferEdge);
  held_damage_.LimitTo(kMostHeldDamageBoxes);
  state.surface_damage.Clear();
  state.buffer_damage.Clear();
}

// Copies at most once a frame: the first commit of a frame at once, so that it is on time, later
// ones when the frame is over, and then only the last. Content that came before the role waits.
void Surface::ShowHeldBuffer() {
  if (held_ == nullptr || role_kind_ == RoleKind::kNone) return;
  if (role_ != nullptr && role_->IsShown() && copied_in_frame_ == server_.frames().number()) return;
  CopyHeldBuffer();
}

void Surface::CopyHeldBuffer() {
  wl_shm_buffer* shm = held_->shm();
  if (shm != nullptr && role_ != nullptr && role_->IsShown() && !server_.is_ending()) {
    if (picture_ == nullptr) {
      picture_ = std::make_unique<Picture>(server_.canvas(), ledger_, this);
      WatchInput(picture_->hooks(), this);
    }
    copied_in_frame_ = server_.frames().number();
    picture_->Show({shm, held_damage_, transform_, IsOpaque()});
    held_damage_.Clear();
  }
  DropHeldBuffer();
}

void Surface::DropHeldBuffer() {
  if (held_ == nullptr) return;
  held_->Release();
  held_.reset();
}

bool Surface::IsOpaque() const {
  return opaque_.ContainsRectangle(width_, height_);
}

void Surface::FrameDone(std::uint32_t milliseconds) {
  if (held_ != nullptr && role_kind_ != RoleKind::kNone) {
    const bool had_picture = picture_ != nullptr;
    CopyHeldBuffer();
    if (!had_picture && picture_ != nullptr) {
      PassInput();
      role_->PictureCame();
    }
  }
  frames_.Done(milliseconds);
}

void Surface::PictureDeleted() {
  if (role_ != nullptr) role_->PictureDeleted();
}

// ---- the tree

void Surface::ApplyToChildren() {
  bool moved = false;
  for (Subsurface* child : std::vector<Subsurface*>(children_)) {
    if (child != nullptr) moved = child->ParentCommitted() || moved;
  }
  if (moved && role_ != nullptr) role_->LayOut();
}

void Surface::Place(const Placement& placement, bool own_picture) {
  placement_ = placement;
  Evas_Object* image = object();
  if (own_picture && image != nullptr) {
    const int x = Round(placement.x), y = Round(placement.y);
    const int width = std::max(1, Round(placement.x + width_ * placement.scale_x) - x);
    const int height = std::max(1, Round(placement.y + height_ * placement.scale_y) - y);
    evas_object_layer_set(image, static_cast<short>(placement.layer));
    evas_object_geometry_set(image, x, y, width, height);
    picture_->Spread(0, 0, width, height);
    placement.visible ? evas_object_show(image) : evas_object_hide(image);
  }
  for (Subsurface* child : children_) {
    if (child != nullptr) child->PlaceIn(placement, has_content());
  }
}

void Surface::ListObjects(std::vector<Evas_Object*>& objects) {
  for (Subsurface* child : children_) {
    if (child != nullptr) {
      child->ListObjects(objects);
    } else if (object() != nullptr) {
      objects.push_back(object());
    }
  }
}

bool Surface::TakesInputAt(double x, double y) const {
  if (!placement_.visible || x < 0 || y < 0 || x >= width_ || y >= height_) return false;
  return !input_ || input_->Contains(static_cast<int>(x), static_cast<int>(y));
}

SurfacePoint Surface::ToLocal(double canvas_x, double canvas_y) {
  return {this, (canvas_x - placement_.x) / placement_.scale_x,
          (canvas_y - placement_.y) / placement_.scale_y};
}

SurfacePoint Surface::Pick(double canvas_x, double canvas_y) {
  for (auto child = children_.rbegin(); child != children_.rend(); ++child) {
    if (*child != nullptr) {
      if (const SurfacePoint found = (*child)->Pick(canvas_x, canvas_y); found.surface != nullptr) {
        return found;
      }
      continue;
    }
    const SurfacePoint own = ToLocal(canvas_x, canvas_y);
    if (has_content() && TakesInputAt(own.x, own.y)) return own;
  }
  return {};
}

}  // namespace kavrel_pepper
