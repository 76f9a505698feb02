// What a client sets between two commits.
#pragma once

#include <memory>
#include <optional>
#include <wayland-server.h>

#include "held_buffer.h"
#include "region.h"

namespace kavrel_pepper {

/// wl_callback objects of wl_surface.frame. Main thread.
class FrameCallbacks {
 public:
  FrameCallbacks() { wl_list_init(&head_); }
  FrameCallbacks(const FrameCallbacks&) = delete;
  FrameCallbacks& operator=(const FrameCallbacks&) = delete;
  ~FrameCallbacks();

  bool empty() const { return wl_list_empty(&head_) != 0; }
  void Add(wl_resource* callback);
  void TakeFrom(FrameCallbacks& other);
  void Done(std::uint32_t milliseconds);

 private:
  wl_list head_;
};

/// Double-buffered state of a surface. Main thread.
struct SurfaceState {
  bool attached = false;               ///< attach was called; without a buffer it unmaps
  std::unique_ptr<HeldBuffer> buffer;  ///< null: none attached
  Region surface_damage;
  Region buffer_damage;
  std::optional<Region> opaque;
  bool input_set = false;
  std::optional<Region> input;  ///< with input_set: none means everywhere
  std::optional<int> scale;
  std::optional<wl_output_transform> transform;
  FrameCallbacks frames;

  /// Adds what `newer` has set and empties it. A buffer that is thereby never shown is released.
  void Merge(SurfaceState& newer);
};

}  // namespace kavrel_pepper
