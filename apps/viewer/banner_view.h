// Banners and pop-ups over the picture, and the list of the last calls below them.
#pragma once

#include <deque>
#include <string>

#include "drawing.h"
#include "television.h"

namespace viewer {

/// Banners from the bottom upwards on the left, pop-ups from the top downwards on the right.
void DrawBanners(Drawing& drawing, const Television& television);

/// The last line is the latest.
void DrawCalls(Drawing& drawing, const std::deque<std::string>& calls);

}  // namespace viewer
