// The test card that stands for a broadcast or another source.
#pragma once

#include <string>

#include "drawing.h"

namespace viewer {

/// What a card says. Cards of different numbers have different colours.
struct Card {
  std::string number;     ///< "7", "HDMI 1"
  std::string name;       ///< "News"; may be empty
  std::string source;     ///< "DVB-T"
  bool broadcast = true;  ///< colour bars; else a chequered field
};

/// Fills the view of `drawing`.
void DrawCard(Drawing& drawing, const Card& card);

}  // namespace viewer
