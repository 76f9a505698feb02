// One Evas image object that shows copies of what a client commits.
#pragma once

#include <Evas.h>

#include <cstddef>
#include <memory>
#include <wayland-server.h>

#include "evas_hooks.h"
#include "ledger.h"
#include "region.h"

namespace kavrel_pepper {

/// How a committed buffer is to be shown.
struct Frame {
  wl_shm_buffer* buffer;
  const Region& damage;  ///< in the buffer's pixels
  wl_output_transform transform;
  bool opaque;  ///< nothing shines through, whatever the alpha values are
};

/// What happens to a picture. Called on the main thread.
class PictureOwner {
 public:
  virtual ~PictureOwner() = default;
  virtual void PictureDeleted() = 0;  ///< by the program; the object is about to go
};

/// Owns the object until the program deletes it or it is given away. Pixels are copied, never
/// referred to: nothing of the client's memory is needed after Show returns. Main thread.
class Picture {
 public:
  Picture(Evas* canvas, std::shared_ptr<Ledger> ledger, PictureOwner* owner);
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;
  ~Picture();

  Evas_Object* object() const { return object_; }  ///< null once it is deleted or given away

  /// Callbacks of the object, removed when it is deleted or given away.
  ObjectHooks& hooks() { return hooks_; }

  /// Copies the damaged pixels. False when the client may not have that many pixels (it is told).
  bool Show(const Frame& frame);

  /// Lays the picture over the object: `width` x `height` of it starting at x, y.
  void Spread(double x, double y, double width, double height);

  /// The object lives on without this owner; the caller deletes it.
  Evas_Object* GiveAway();

 private:
  void Deleted(void*);
  bool Resize(int width, int height);
  void CopyInto(void* pixels, const Frame& frame, bool everything);

  Evas_Object* object_;
  std::shared_ptr<Ledger> ledger_;
  PictureOwner* owner_;
  ObjectHooks hooks_;
  int width_ = 0;
  int height_ = 0;
  bool has_alpha_ = true;
};

}  // namespace kavrel_pepper
