#include "drawing.h"

#include <glib.h>
#include <printable.h>

#include <algorithm>
#include <cstdlib>

namespace viewer {
namespace {

constexpr std::size_t kLongestText = 300;
constexpr const char* kFont = "Sans:style=Bold";
constexpr int kSmallestFont = 3;
constexpr int kLargestRaster = 640;
constexpr int kCapitalHeight = 73;  // in hundredths of the font's size

int Scaled(int value, int size, int whole) {
  return static_cast<int>(static_cast<long>(value) * size / whole);
}

struct FreeText {
  void operator()(char* text) const { g_free(text); }
};
struct FreeMarkup {
  void operator()(char* text) const { std::free(text); }
};

int PartOf(unsigned colour, int shift) {
  return static_cast<int>(colour >> shift & 0xff);
}

// Evas wants colours multiplied with their alpha.
struct Premultiplied {
  explicit Premultiplied(Paint paint)
      : red(PartOf(paint.colour, 16) * paint.cover / 255),
        green(PartOf(paint.colour, 8) * paint.cover / 255),
        blue(PartOf(paint.colour, 0) * paint.cover / 255),
        alpha(paint.cover) {}
  int red;
  int green;
  int blue;
  int alpha;
};

std::string Valid(const std::string& text) {
  const std::string printable = kavrel_programs::Printable(text, kLongestText);
  const std::unique_ptr<char, FreeText> valid(
      g_utf8_make_valid(printable.data(), static_cast<gssize>(printable.size())));
  return valid.get();
}

}  // namespace

void Place(Evas_Object* object, const Area& area, const Window& window) {
  const Fit fit = window.fit();
  const auto scaled = [&fit](int length) { return Scaled(length, fit.numerator, fit.denominator); };
  const int left = fit.left + scaled(area.x);
  const int top = fit.top + scaled(area.y);
  evas_object_geometry_set(object, left, top, fit.left + scaled(area.x + area.width) - left,
                           fit.top + scaled(area.y + area.height) - top);
}

void Drawing::Clear() {
  clip_ = nullptr;
  view_ = kStage;
  // What clips others goes last, and it came before them.
  while (!objects_.empty()) objects_.pop_back();
}

Evas_Object* Drawing::Add(Evas_Object* object) {
  objects_.emplace_back(object);
  evas_object_layer_set(object, layer_);
  evas_object_raise(object);
  // Keys, pointer and fingers are for what lies below.
  evas_object_pass_events_set(object, EINA_TRUE);
  if (clip_ != nullptr) evas_object_clip_set(object, clip_);
  evas_object_show(object);
  return object;
}

Area Drawing::Viewed(const Area& area) const {
  const int left = view_.x + viewer::Scaled(area.x, view_.width, kStage.width);
  const int top = view_.y + viewer::Scaled(area.y, view_.height, kStage.height);
  const int right = view_.x + viewer::Scaled(area.x + area.width, view_.width, kStage.width);
  const int bottom = view_.y + viewer::Scaled(area.y + area.height, view_.height, kStage.height);
  return {left, top, right - left, bottom - top};
}

int Drawing::Scaled(int length) const {
  const Fit fit = window_.fit();
  return viewer::Scaled(viewer::Scaled(length, view_.height, kStage.height), fit.numerator,
                        fit.denominator);
}

void Drawing::SetClip(const Area* area) {
  clip_ = nullptr;
  if (area == nullptr) return;
  Evas_Object* const box = Add(evas_object_rectangle_add(window_.canvas()));
  Place(box, Viewed(*area), window_);
  clip_ = box;
}

void Drawing::Box(const Area& area, Paint paint) {
  Evas_Object* const box = Add(evas_object_rectangle_add(window_.canvas()));
  const Premultiplied colour(paint);
  evas_object_color_set(box, colour.red, colour.green, colour.blue, colour.alpha);
  Place(box, Viewed(area), window_);
}

void Drawing::Frame(const Area& area, int thickness, unsigned colour) {
  const int right = area.x + area.width - thickness;
  const int bottom = area.y + area.height - thickness;
  Box({area.x, area.y, area.width, thickness}, {colour});
  Box({area.x, bottom, area.width, thickness}, {colour});
  Box({area.x, area.y, thickness, area.height}, {colour});
  Box({right, area.y, thickness, area.height}, {colour});
}

// Large shapes are drawn smaller and stretched: nobody sees it, and a picture costs no more than a
// few milliseconds.
void Drawing::Shape(const Area& area, Paint paint,
                    const std::function<Outline(double scale, int width, int height)>& outline) {
  Evas_Object* const image = Add(evas_object_image_filled_add(window_.canvas()));
  Place(image, Viewed(area), window_);
  int width = 0;
  int height = 0;
  evas_object_geometry_get(image, nullptr, nullptr, &width, &height);
  const int largest = std::max(width, height);
  if (largest > kLargestRaster) {
    width = std::max(1, width * kLargestRaster / largest);
    height = std::max(1, height * kLargestRaster / largest);
  }
  if (width < 1 || height < 1) return;
  const double scale = static_cast<double>(height) / area.height;
  Rasterise(image, width, height, outline(scale, width, height), paint.colour, paint.cover);
}

void Drawing::Card(const Area& area, int radius, Paint paint) {
  Shape(area, paint, [radius](double scale, int width, int height) {
    return RoundedBox(width, height, radius * scale);
  });
}

void Drawing::Ring(int x, int y, int radius, int thickness, unsigned colour) {
  const int reach = radius + thickness;
  Shape({x - reach, y - reach, 2 * reach, 2 * reach}, {colour},
        [=](double scale, int width, int /*height*/) {
          return RingLine(width / 2.0, radius * scale, thickness * scale);
        });
}

void Drawing::Disc(int x, int y, int radius, Paint paint) {
  Shape({x - radius, y - radius, 2 * radius, 2 * radius}, paint,
        [](double /*scale*/, int width, int /*height*/) {
          return Circle(width / 2.0, width / 2.0 - 0.5);
        });
}

void Drawing::Text(int x, int y, const TextStyle& style, const std::string& text) {
  const int font = Scaled(style.size);
  if (font < kSmallestFont || text.empty()) return;
  Evas_Object* const line = Add(evas_object_text_add(window_.canvas()));
  evas_object_text_font_set(line, kFont, font);
  evas_object_text_text_set(line, Valid(text).c_str());
  const Premultiplied colour({style.colour});
  evas_object_color_set(line, colour.red, colour.green, colour.blue, colour.alpha);
  int natural = 0;
  int height = 0;
  evas_object_geometry_get(line, nullptr, nullptr, &natural, &height);
  Place(line, Viewed({x, y, 0, 0}), window_);
  int left = 0;
  int top = 0;
  evas_object_geometry_get(line, &left, &top, nullptr, nullptr);
  const int longest = style.width > 0 ? Scaled(style.width) : natural;
  const int width = std::min(natural, longest);
  if (width < natural) {
    evas_object_text_ellipsis_set(line, 0.0);
    evas_object_resize(line, width, height);
  }
  if (style.align == Align::kMiddle) left -= width / 2;
  if (style.align == Align::kRight) left -= width;
  const int above = evas_object_text_max_ascent_get(line) - font * kCapitalHeight / 200;
  evas_object_move(line, left, top - above);
}

void Drawing::Paragraph(const Area& area, int size, unsigned colour, const std::string& text) {
  const int font = Scaled(size);
  if (font < kSmallestFont) return;
  Evas_Object* const block = Add(evas_object_textblock_add(window_.canvas()));
  const std::unique_ptr<char, FreeText> description(g_strdup_printf(
      "DEFAULT='font=%s font_size=%d color=#%06x wrap=mixed ellipsis=1.0'", kFont, font, colour));
  Evas_Textblock_Style* const style = evas_textblock_style_new();
  evas_textblock_style_set(style, description.get());
  evas_object_textblock_style_set(block, style);
  evas_textblock_style_free(style);
  const std::unique_ptr<char, FreeMarkup> markup(
      evas_textblock_text_utf8_to_markup(block, Valid(text).c_str()));
  evas_object_textblock_text_markup_set(block, markup.get());
  Place(block, Viewed(area), window_);
}

}  // namespace viewer
