#include "shapes.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace viewer {
namespace {

// Evas' pixels are 0xAARRGGBB, each colour multiplied with the alpha.
std::uint32_t Pixel(unsigned colour, unsigned alpha) {
  const auto part = [&](int shift) { return (colour >> shift & 0xff) * alpha / 255; };
  return alpha << 24 | part(16) << 16 | part(8) << 8 | part(0);
}

}  // namespace

Outline RoundedBox(double width, double height, double radius) {
  return [=](double x, double y) {
    const double across = std::abs(x - width / 2) - (width / 2 - radius);
    const double down = std::abs(y - height / 2) - (height / 2 - radius);
    return std::hypot(std::max(across, 0.0), std::max(down, 0.0)) +
           std::min(std::max(across, down), 0.0) - radius;
  };
}

Outline Circle(double middle, double radius) {
  return [=](double x, double y) { return std::hypot(x - middle, y - middle) - radius; };
}

Outline RingLine(double middle, double radius, double thickness) {
  return [=](double x, double y) {
    return std::abs(std::hypot(x - middle, y - middle) - radius) - thickness / 2;
  };
}

void Rasterise(Evas_Object* image, int width, int height, const Outline& outline, unsigned colour,
               int cover) {
  evas_object_image_alpha_set(image, EINA_TRUE);
  evas_object_image_size_set(image, width, height);
  auto* const pixels = static_cast<std::uint32_t*>(evas_object_image_data_get(image, EINA_TRUE));
  if (pixels == nullptr) return;
  const int stride = evas_object_image_stride_get(image) / static_cast<int>(sizeof(*pixels));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double within = std::clamp(0.5 - outline(x + 0.5, y + 0.5), 0.0, 1.0);
      pixels[y * stride + x] = Pixel(colour, static_cast<unsigned>(std::lround(within * cover)));
    }
  }
  evas_object_image_data_set(image, pixels);
  evas_object_image_data_update_add(image, 0, 0, width, height);
}

}  // namespace viewer
