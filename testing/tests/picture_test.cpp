#include <gtest/gtest.h>
#include <kavrel/testing.h>
#include <png.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace kavrel::testing {
namespace {

struct Rgb {
  unsigned char red, green, blue;
};

/// A picture of one colour, with some pixels of others.
class Painting {
 public:
  Painting(int width, int height, Rgb colour)
      : width_(static_cast<std::size_t>(width)),
        pixels_(width_ * static_cast<std::size_t>(height), colour) {}

  Painting& Dot(int x, int y, Rgb colour) {
    pixels_.at(static_cast<std::size_t>(y) * width_ + static_cast<std::size_t>(x)) = colour;
    return *this;
  }

  operator Picture() const {  // NOLINT(google-explicit-constructor)
    std::string file = "/tmp/kavrel-painting-XXXXXX";
    ::close(::mkstemp(file.data()));
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width_);
    image.height = static_cast<png_uint_32>(pixels_.size()) / image.width;
    image.format = PNG_FORMAT_RGB;
    EXPECT_NE(png_image_write_to_file(&image, file.c_str(), 0, pixels_.data(), 0, nullptr), 0);
    Picture picture(file);
    ::unlink(file.c_str());
    return picture;
  }

 private:
  std::size_t width_;
  std::vector<Rgb> pixels_;
};

constexpr Rgb kGrey = {0x80, 0x80, 0x80};

TEST(Picture, TellsColours) {
  const Picture picture = Painting(3, 2, kGrey).Dot(2, 1, {0x12, 0x34, 0x56});
  EXPECT_EQ(picture.width(), 3);
  EXPECT_EQ(picture.height(), 2);
  EXPECT_EQ(picture.At(0, 0), 0x808080U);
  EXPECT_EQ(picture.At(2, 1), 0x123456U);
}

TEST(Picture, HasNoPixelsOutside) {
  const Picture picture = Painting(3, 2, kGrey);
  for (const auto& [x, y] : {std::pair(-1, 0), {0, -1}, {3, 0}, {0, 2}}) {
    EXPECT_THROW(picture.At(x, y), std::out_of_range) << x << ',' << y;
  }
}

TEST(Picture, HasParts) {
  const Picture picture = Painting(5, 4, kGrey).Dot(3, 2, {0x12, 0x34, 0x56});
  const Picture part = picture.Part(2, 1, 3, 2);
  EXPECT_EQ(part.width(), 3);
  EXPECT_EQ(part.height(), 2);
  EXPECT_EQ(part.At(1, 1), 0x123456U);
  EXPECT_EQ(part.At(2, 1), 0x808080U);
  EXPECT_EQ(Compare(picture, picture.Part(0, 0, 5, 4)).pixels, 0U);
  EXPECT_EQ(picture.Part(5, 4, 0, 0).width(), 0);
  EXPECT_THROW(picture.Part(3, 0, 3, 1), std::out_of_range);
  EXPECT_THROW(picture.Part(0, 3, 1, 2), std::out_of_range);
  EXPECT_THROW(picture.Part(-1, 0, 1, 1), std::out_of_range);
  EXPECT_THROW(picture.Part(0, 0, -1, 1), std::out_of_range);
}

TEST(Picture, IsMissed) {
  EXPECT_THROW(Picture("/no/such/picture.png"), std::runtime_error);
  EXPECT_THROW(Picture("/dev/null"), std::runtime_error);
}

TEST(Compare, FindsNothingInEqualPictures) {
  const Picture picture = Painting(5, 4, kGrey);
  const Difference difference = Compare(picture, picture);
  EXPECT_EQ(difference.pixels, 0U);
  EXPECT_EQ(difference.channel, 0);
  EXPECT_EQ(difference.width, 0);
  EXPECT_EQ(difference.height, 0);
}

TEST(Compare, CountsAndFramesWhatDiffers) {
  const Picture one = Painting(9, 9, kGrey);
  const Picture other = Painting(9, 9, kGrey)
                            .Dot(6, 2, {0x80, 0x90, 0x80})
                            .Dot(2, 3, {0x7f, 0x80, 0x80})
                            .Dot(4, 7, {0x80, 0x80, 0x00});
  const Difference difference = Compare(one, other);
  EXPECT_EQ(difference.pixels, 3U);
  EXPECT_EQ(difference.channel, 0x80);
  EXPECT_EQ(difference.left, 2);
  EXPECT_EQ(difference.top, 2);
  EXPECT_EQ(difference.width, 5);
  EXPECT_EQ(difference.height, 6);
}

TEST(Compare, ToleratesWhatItIsTold) {
  const Picture one = Painting(4, 4, kGrey);
  const Picture other =
      Painting(4, 4, kGrey).Dot(1, 1, {0x84, 0x80, 0x80}).Dot(2, 2, {0x80, 0x7b, 0x80});
  EXPECT_EQ(Compare(one, other, 3).pixels, 2U);
  EXPECT_EQ(Compare(one, other, 4).pixels, 1U);
  EXPECT_EQ(Compare(one, other, 4).left, 2);
  EXPECT_EQ(Compare(other, one, 5).pixels, 0U);
  EXPECT_EQ(Compare(other, one, 5).channel, 5);
}

TEST(Compare, RefusesAnotherSize) {
  EXPECT_THROW(Compare(Painting(2, 3, kGrey), Painting(3, 2, kGrey)), std::invalid_argument);
}

}  // namespace
}  // namespace kavrel::testing
