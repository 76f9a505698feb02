// Boxes, circles and texts on the viewer's window.
#pragma once

#include <Evas.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "shapes.h"
#include "window.h"

namespace viewer {

/// In units of a window of 720 in height, whatever size it has.
struct Area {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  bool operator==(const Area&) const = default;
};

/// What the television's picture covers.
inline constexpr Area kStage{0, 0, Window::kWidth, Window::kHeight};

/// Puts `object` on its area of the window.
void Place(Evas_Object* object, const Area& area, const Window& window);

/// 0xRRGGBB, and how much of what lies below it hides: 255 all of it.
struct Paint {
  unsigned colour = 0xffffff;
  int cover = 255;
};

/// Which end of a text stands where it is put.
enum class Align { kLeft, kMiddle, kRight };

struct TextStyle {
  int size = 24;
  unsigned colour = 0xffffff;
  Align align = Align::kLeft;
  int width = 0;  ///< what is longer ends with three dots; 0: as long as it is
};

/// A set of objects on one layer; gone with it. Belongs to the main thread, and to a window that
/// outlives it. What is added later lies above what was added before. Texts may come from anywhere:
/// they are made printable, and cut where they are long.
class Drawing {
 public:
  Drawing(const Window& window, short layer) : window_(window), layer_(layer) {}

  void Clear();

  /// From now on `area` stands for the whole picture: what is drawn on 0,0 to 1280,720 is drawn in
  /// it, smaller or larger.
  void SetView(const Area& area) { view_ = area; }
  /// From now on nothing outside of `area`, which is part of the view, is drawn; null ends that.
  void SetClip(const Area* area);

  void Box(const Area& area, Paint paint);
  /// A box with round corners.
  void Card(const Area& area, int radius, Paint paint);
  /// The outline of an area.
  void Frame(const Area& area, int thickness, unsigned colour);
  void Ring(int x, int y, int radius, int thickness, unsigned colour);
  void Disc(int x, int y, int radius, Paint paint);
  /// A line of text with the middle of its capital letters at that height.
  void Text(int x, int y, const TextStyle& style, const std::string& text);
  /// As many lines as the area has room for.
  void Paragraph(const Area& area, int size, unsigned colour, const std::string& text);

 private:
  struct DeleteObject {
    void operator()(Evas_Object* object) const { evas_object_del(object); }
  };

  Evas_Object* Add(Evas_Object* object);
  /// `outline` is asked for the shape with the scale and size at which it is drawn.
  void Shape(const Area& area, Paint paint,
             const std::function<Outline(double scale, int width, int height)>& outline);
  Area Viewed(const Area& area) const;
  int Scaled(int length) const;

  const Window& window_;
  short layer_;
  Area view_ = kStage;
  Evas_Object* clip_ = nullptr;
  std::vector<std::unique_ptr<Evas_Object, DeleteObject>> objects_;
};

}  // namespace viewer
