// Shapes with smooth edges, as pixels.
#pragma once

#include <Evas.h>

#include <functional>

namespace viewer {

/// How far a point lies outside of a shape, in pixels; less than 0 within it.
using Outline = std::function<double(double x, double y)>;

Outline RoundedBox(double width, double height, double radius);
Outline Circle(double middle, double radius);
/// `thickness` of a line around `middle`.
Outline RingLine(double middle, double radius, double thickness);

/// Makes an image of the shape in that colour (0xRRGGBB) and strength (255 hides what lies below).
/// Evas has vector objects, but draws them in threads that main loops without pause wait for.
void Rasterise(Evas_Object* image, int width, int height, const Outline& outline, unsigned colour,
               int cover);

}  // namespace viewer
