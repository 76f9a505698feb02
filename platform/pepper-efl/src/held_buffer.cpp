#include "held_buffer.h"

#include "quotas.h"

namespace kavrel_pepper {

bool IsAcceptable(const HeldBuffer& buffer) {
  wl_resource* resource = buffer.resource();
  if (resource == nullptr) return true;  // destroyed between attach and commit: nothing to copy
  wl_shm_buffer* shm = buffer.shm();
  if (shm == nullptr) {
    wl_client_post_implementation_error(wl_resource_get_client(resource), "not a wl_shm buffer");
    return false;
  }
  const int width = wl_shm_buffer_get_width(shm), height = wl_shm_buffer_get_height(shm);
  if (width > kMaxBufferEdge || height > kMaxBufferEdge) {
    wl_resource_post_error(resource, WL_SHM_ERROR_INVALID_STRIDE,
                           "buffer of %dx%d, at most %dx%d is allowed", width, height,
                           kMaxBufferEdge, kMaxBufferEdge);
    return false;
  }
  const int stride = wl_shm_buffer_get_stride(shm);
  if (stride / 4 < width) {  // libwayland only asks for one byte a pixel
    wl_resource_post_error(resource, WL_SHM_ERROR_INVALID_STRIDE,
                           "stride %d, at least %d is needed", stride, width * 4);
    return false;
  }
  return true;
}

}  // namespace kavrel_pepper
