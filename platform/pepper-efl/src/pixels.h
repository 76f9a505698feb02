// Copying pixels out of a client's shared memory.
#pragma once

#include <pixman.h>

#include <cstdint>
#include <wayland-server.h>

namespace kavrel_pepper {

/// Pixels of four bytes in rows of `stride` bytes.
struct Pixels {
  unsigned char* data;
  int width, height, stride;
};

/// Copies the box, which lies in both, from the place to the same place.
void CopyBox(const Pixels& from, const Pixels& to, const pixman_box32_t& box);

/// Undoes the transform that the client applied to its content. `to` is as large as the content.
void CopyTransformed(const Pixels& from, const Pixels& to, wl_output_transform transform);

/// Whether the transform exchanges width and height.
inline bool IsSideways(wl_output_transform transform) {
  return (transform & 1) != 0;
}

}  // namespace kavrel_pepper
