// A client's buffer between attach and the copying of its pixels.
#pragma once

#include <memory>
#include <wayland-server.h>

#include "wire.h"

namespace kavrel_pepper {

/// Remembers a wl_buffer that its client may destroy at any time. Main thread.
class HeldBuffer {
 public:
  explicit HeldBuffer(wl_resource* buffer) : buffer_(buffer), gone_(this) {
    wl_resource_add_destroy_listener(buffer, gone_.get());
  }

  wl_resource* resource() const { return buffer_; }  ///< null once the client destroyed it

  /// Null when the buffer is gone or not shared memory.
  wl_shm_buffer* shm() const { return buffer_ != nullptr ? wl_shm_buffer_get(buffer_) : nullptr; }

  /// Tells the client that its pixels are no longer needed.
  void Release() {
    if (buffer_ != nullptr) wl_buffer_send_release(buffer_);
  }

 private:
  void Gone(void*) {
    gone_.Disconnect();
    buffer_ = nullptr;
  }

  wl_resource* buffer_;
  Listener<HeldBuffer, &HeldBuffer::Gone> gone_;
};

/// Checks a buffer that is about to be committed; posts the protocol error and returns false when
/// its pixels cannot be copied safely.
bool IsAcceptable(const HeldBuffer& buffer);

}  // namespace kavrel_pepper
