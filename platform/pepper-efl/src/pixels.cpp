#include "pixels.h"

#include <cstring>

namespace kavrel_pepper {
namespace {

constexpr std::size_t kBytes = 4;

unsigned char* At(const Pixels& pixels, int x, int y) {
  return pixels.data + static_cast<std::ptrdiff_t>(y) * pixels.stride +
         static_cast<std::ptrdiff_t>(x) * static_cast<std::ptrdiff_t>(kBytes);
}

struct Point {
  int x, y;
};

// Where the content's pixel x, y lies in the buffer; width and height are the content's.
Point InBuffer(wl_output_transform transform, int width, int height, int x, int y) {
  const int from_right = width - 1 - x, from_bottom = height - 1 - y;
  switch (transform) {
    case WL_OUTPUT_TRANSFORM_90:
      return {y, from_right};
    case WL_OUTPUT_TRANSFORM_180:
      return {from_right, from_bottom};
    case WL_OUTPUT_TRANSFORM_270:
      return {from_bottom, x};
    case WL_OUTPUT_TRANSFORM_FLIPPED:
      return {from_right, y};
    case WL_OUTPUT_TRANSFORM_FLIPPED_90:
      return {y, x};
    case WL_OUTPUT_TRANSFORM_FLIPPED_180:
      return {x, from_bottom};
    case WL_OUTPUT_TRANSFORM_FLIPPED_270:
      return {from_bottom, from_right};
    default:
      return {x, y};
  }
}

}  // namespace

void CopyBox(const Pixels& from, const Pixels& to, const pixman_box32_t& box) {
  const std::size_t row = static_cast<std::size_t>(box.x2 - box.x1) * kBytes;
  if (box.x1 == 0 && from.stride == to.stride && row == static_cast<std::size_t>(to.stride)) {
    std::memcpy(At(to, 0, box.y1), At(from, 0, box.y1),
                row * static_cast<std::size_t>(box.y2 - box.y1));
    return;
  }
  for (int y = box.y1; y < box.y2; ++y) std::memcpy(At(to, box.x1, y), At(from, box.x1, y), row);
}

void CopyTransformed(const Pixels& from, const Pixels& to, wl_output_transform transform) {
  for (int y = 0; y < to.height; ++y) {
    for (int x = 0; x < to.width; ++x) {
      const Point source = InBuffer(transform, to.width, to.height, x, y);
      std::memcpy(At(to, x, y), At(from, source.x, source.y), kBytes);
    }
  }
}

}  // namespace kavrel_pepper
