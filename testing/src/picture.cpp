#include <kavrel/testing.h>
#include <png.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace kavrel::testing {
namespace {

std::string Size(int width, int height) {
  return std::to_string(width) + 'x' + std::to_string(height);
}

int ChannelDifference(unsigned one, unsigned other) {
  int largest = 0;
  for (const int shift : {16, 8, 0}) {
    const int difference =
        static_cast<int>(one >> shift & 0xffU) - static_cast<int>(other >> shift & 0xffU);
    largest = std::max(largest, std::abs(difference));
  }
  return largest;
}

/// Makes the rectangle of `difference` hold one pixel more.
void Include(Difference& difference, int x, int y) {
  if (difference.pixels++ == 0) {
    difference.left = x;
    difference.top = y;
  }
  const int right = std::max(difference.left + difference.width, x + 1);
  const int bottom = std::max(difference.top + difference.height, y + 1);
  difference.left = std::min(difference.left, x);
  difference.top = std::min(difference.top, y);
  difference.width = right - difference.left;
  difference.height = bottom - difference.top;
}

}  // namespace

Picture::Picture(const std::string& file) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&image, file.c_str()) == 0) {
    throw std::runtime_error(file + ": " + image.message);
  }
  image.format = PNG_FORMAT_RGB;
  bytes_.resize(PNG_IMAGE_SIZE(image));
  if (png_image_finish_read(&image, nullptr, bytes_.data(), 0, nullptr) == 0) {
    throw std::runtime_error(file + ": " + image.message);
  }
  width_ = static_cast<int>(image.width);
  height_ = static_cast<int>(image.height);
}

unsigned Picture::At(int x, int y) const {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) {
    throw std::out_of_range("no pixel " + std::to_string(x) + ',' + std::to_string(y) +
                            " in a picture of " + Size(width_, height_));
  }
  const auto place = 3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                          static_cast<std::size_t>(x));
  return static_cast<unsigned>(bytes_[place] << 16 | bytes_[place + 1] << 8 | bytes_[place + 2]);
}

Picture Picture::Part(int left, int top, int width, int height) const {
  if (left < 0 || top < 0 || width < 0 || height < 0 || width > width_ - left ||
      height > height_ - top) {
    throw std::out_of_range("no part " + Size(width, height) + " at " + std::to_string(left) + ',' +
                            std::to_string(top) + " in a picture of " + Size(width_, height_));
  }
  Picture part;
  part.width_ = width;
  part.height_ = height;
  for (int y = top; y < top + height; ++y) {
    const auto row = bytes_.begin() + 3L * (static_cast<long>(y) * width_ + left);
    part.bytes_.insert(part.bytes_.end(), row, row + 3L * width);
  }
  return part;
}

Difference Compare(const Picture& one, const Picture& other, int tolerance) {
  if (one.width() != other.width() || one.height() != other.height()) {
    throw std::invalid_argument("pictures of " + Size(one.width(), one.height()) + " and " +
                                Size(other.width(), other.height()) + " cannot be compared");
  }
  Difference difference;
  for (int y = 0; y < one.height(); ++y) {
    for (int x = 0; x < one.width(); ++x) {
      const int channel = ChannelDifference(one.At(x, y), other.At(x, y));
      difference.channel = std::max(difference.channel, channel);
      if (channel > tolerance) Include(difference, x, y);
    }
  }
  return difference;
}

}  // namespace kavrel::testing
