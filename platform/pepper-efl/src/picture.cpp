#include "picture.h"

#include <cmath>
#include <utility>

#include "pixels.h"

namespace kavrel_pepper {
namespace {

std::size_t Bytes(int width, int height) {
  return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
}

}  // namespace

Picture::Picture(Evas* canvas, std::shared_ptr<Ledger> ledger, PictureOwner* owner)
    : object_(evas_object_image_add(canvas)), ledger_(std::move(ledger)), owner_(owner) {
  evas_object_image_colorspace_set(object_, EVAS_COLORSPACE_ARGB8888);
  evas_object_image_alpha_set(object_, EINA_TRUE);
  hooks_.Watch(object_);
  hooks_.Add<&Picture::Deleted>(EVAS_CALLBACK_DEL, this);
}

Picture::~Picture() {
  if (Evas_Object* object = GiveAway(); object != nullptr) evas_object_del(object);
  ledger_->GivePixels(Bytes(width_, height_));
}

void Picture::Deleted(void*) {
  GiveAway();
  owner_->PictureDeleted();
}

Evas_Object* Picture::GiveAway() {
  hooks_.Clear();
  return std::exchange(object_, nullptr);
}

bool Picture::Resize(int width, int height) {
  const std::size_t before = Bytes(width_, height_);
  ledger_->GivePixels(std::exchange(width_, 0) > 0 ? before : 0);
  if (!ledger_->TakePixels(Bytes(width, height))) return false;
  width_ = width;
  height_ = height;
  evas_object_image_size_set(object_, width, height);
  return true;
}

bool Picture::Show(const Frame& frame) {
  int width = wl_shm_buffer_get_width(frame.buffer);
  int height = wl_shm_buffer_get_height(frame.buffer);
  if (IsSideways(frame.transform)) std::swap(width, height);
  if (object_ == nullptr) return true;
  const bool resized = width != width_ || height != height_;
  if (resized && !Resize(width, height)) return false;

  const bool alpha =
      !frame.opaque && wl_shm_buffer_get_format(frame.buffer) == WL_SHM_FORMAT_ARGB8888;
  if (alpha != has_alpha_) evas_object_image_alpha_set(object_, alpha ? EINA_TRUE : EINA_FALSE);
  has_alpha_ = alpha;

  void* pixels = evas_object_image_data_get(object_, EINA_TRUE);
  if (pixels == nullptr) {
    wl_client_post_no_memory(ledger_->client());
    return false;
  }
  CopyInto(pixels, frame, resized);
  evas_object_image_data_set(object_, pixels);
  return true;
}

void Picture::CopyInto(void* pixels, const Frame& frame, bool everything) {
  const Pixels to = {static_cast<unsigned char*>(pixels), width_, height_,
                     evas_object_image_stride_get(object_)};
  const bool transformed = frame.transform != WL_OUTPUT_TRANSFORM_NORMAL;
  Region damage = everything || transformed ? Region(0, 0, width_, height_) : frame.damage;
  damage.ClipTo(width_, height_);

  // A client that shortens its file while we read gets the protocol error instead of us the signal.
  wl_shm_buffer_begin_access(frame.buffer);
  const Pixels from = {static_cast<unsigned char*>(wl_shm_buffer_get_data(frame.buffer)),
                       wl_shm_buffer_get_width(frame.buffer),
                       wl_shm_buffer_get_height(frame.buffer),
                       wl_shm_buffer_get_stride(frame.buffer)};
  if (transformed) {
    CopyTransformed(from, to, frame.transform);
  } else {
    for (const pixman_box32_t& box : damage.boxes()) CopyBox(from, to, box);
  }
  wl_shm_buffer_end_access(frame.buffer);

  for (const pixman_box32_t& box : damage.boxes()) {
    evas_object_image_data_update_add(object_, box.x1, box.y1, box.x2 - box.x1, box.y2 - box.y1);
  }
}

void Picture::Spread(double x, double y, double width, double height) {
  if (object_ == nullptr) return;
  evas_object_image_fill_set(object_, static_cast<int>(x), static_cast<int>(y),
                             static_cast<int>(std::lround(width)),
                             static_cast<int>(std::lround(height)));
}

}  // namespace kavrel_pepper
