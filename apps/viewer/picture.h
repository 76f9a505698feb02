// What lies below everything else: the picture, picture-in-picture and the selection window.
#pragma once

#include "drawing.h"
#include "television.h"

namespace viewer {

void DrawPicture(Drawing& drawing, const Television& television);

}  // namespace viewer
