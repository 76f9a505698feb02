#include "png_file.h"

#include <png.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace viewer {

std::string EncodePng(const Picture& picture) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(picture.width);
  image.height = static_cast<png_uint_32>(picture.height);
  image.format = PNG_FORMAT_RGB;
  std::string bytes(PNG_IMAGE_PNG_SIZE_MAX(image), '\0');
  png_alloc_size_t size = bytes.size();
  if (png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.pixels.data(), 0,
                                nullptr) == 0) {
    throw std::runtime_error(std::string("no PNG can be made: ") + image.message);
  }
  bytes.resize(size);
  return bytes;
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
  }
}

}  // namespace viewer
