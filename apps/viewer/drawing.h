// Boxes and texts on the viewer's window.
#pragma once

#include <Evas.h>

#include <memory>
#include <string>
#include <vector>

#include "window.h"

namespace viewer {

/// In units of a window of 1280x720, whatever size it has.
struct Area {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

/// What the television's picture covers.
inline constexpr Area kStage{0, 0, Window::kWidth, Window::kHeight};

/// Puts `object` on its area of the window.
void Place(Evas_Object* object, const Area& area, const Window& window);

/// A set of objects on one layer; gone with it. Belongs to the main thread, and to a window that
/// outlives it.
class Drawing {
 public:
  Drawing(const Window& window, short layer) : window_(window), layer_(layer) {}

  void Clear() { objects_.clear(); }
  /// `colour` is 0xRRGGBB. What is added later lies above what was added before.
  void Box(const Area& area, unsigned colour);
  /// The outline of an area.
  void Frame(const Area& area, int thickness, unsigned colour);
  /// A line of white text with its upper left corner there. It may come from anywhere: it is made
  /// printable and cut where it is long.
  void Text(int x, int y, int size, const std::string& text);

 private:
  struct DeleteObject {
    void operator()(Evas_Object* object) const { evas_object_del(object); }
  };

  Evas_Object* Add(Evas_Object* object);

  const Window& window_;
  short layer_;
  std::vector<std::unique_ptr<Evas_Object, DeleteObject>> objects_;
};

}  // namespace viewer
