#include "drawing.h"

#include <glib.h>
#include <printable.h>

namespace viewer {
namespace {

constexpr std::size_t kLongestText = 80;
constexpr const char* kFont = "Sans:style=Bold";

int Scaled(int value, int size, int whole) {
  return value * size / whole;
}

struct FreeText {
  void operator()(char* text) const { g_free(text); }
};

}  // namespace

void Place(Evas_Object* object, const Area& area, const Window& window) {
  const int left = Scaled(area.x, window.width(), Window::kWidth);
  const int top = Scaled(area.y, window.height(), Window::kHeight);
  evas_object_geometry_set(object, left, top,
                           Scaled(area.x + area.width, window.width(), Window::kWidth) - left,
                           Scaled(area.y + area.height, window.height(), Window::kHeight) - top);
}

Evas_Object* Drawing::Add(Evas_Object* object) {
  objects_.emplace_back(object);
  evas_object_layer_set(object, layer_);
  evas_object_raise(object);
  // Keys, pointer and fingers are for what lies below.
  evas_object_pass_events_set(object, EINA_TRUE);
  evas_object_show(object);
  return object;
}

void Drawing::Box(const Area& area, unsigned colour) {
  Evas_Object* const box = Add(evas_object_rectangle_add(window_.canvas()));
  const auto part = [colour](int shift) { return static_cast<int>(colour >> shift & 0xff); };
  evas_object_color_set(box, part(16), part(8), part(0), 0xff);
  Place(box, area, window_);
}

void Drawing::Frame(const Area& area, int thickness, unsigned colour) {
  const int right = area.x + area.width - thickness;
  const int bottom = area.y + area.height - thickness;
  Box({area.x, area.y, area.width, thickness}, colour);
  Box({area.x, bottom, area.width, thickness}, colour);
  Box({area.x, area.y, thickness, area.height}, colour);
  Box({right, area.y, thickness, area.height}, colour);
}

void Drawing::Text(int x, int y, int size, const std::string& text) {
  const std::string printable = kavrel_programs::Printable(text, kLongestText);
  const std::unique_ptr<char, FreeText> valid(
      g_utf8_make_valid(printable.data(), static_cast<gssize>(printable.size())));
  Evas_Object* const line = Add(evas_object_text_add(window_.canvas()));
  evas_object_text_font_set(line, kFont, Scaled(size, window_.height(), Window::kHeight));
  evas_object_text_text_set(line, valid.get());
  evas_object_color_set(line, 0xff, 0xff, 0xff, 0xff);
  evas_object_move(line, Scaled(x, window_.width(), Window::kWidth),
                   Scaled(y, window_.height(), Window::kHeight));
}

}  // namespace viewer
