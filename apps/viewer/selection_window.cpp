#include "selection_window.h"

#include <algorithm>
#include <array>

namespace viewer {
namespace {

// One size a level, in the picture's proportions.
constexpr std::array<Size, SelectionWindow::kGreatestZoomLevel + 1> kSizes = {
    {{960, 540}, {768, 432}, {640, 360}, {480, 270}, {384, 216}}};

Position Middle(Position position, Size size) {
  return {position.left + size.width / 2, position.top + size.height / 2};
}

}  // namespace

SelectionWindow::SelectionWindow()
    : position_{(kPicture.width - kSizes[0].width) / 2, (kPicture.height - kSizes[0].height) / 2},
      stored_position_(position_) {}

Size SelectionWindow::size() const {
  return kSizes[static_cast<std::size_t>(zoom_level_)];
}

MoveRange SelectionWindow::move_range() const {
  return {{0, 0}, {kPicture.width - size().width, kPicture.height - size().height}};
}

bool SelectionWindow::MoveTo(Position position) {
  if (!move_range().Contains(position)) return false;
  position_ = position;
  shown_ = true;
  return true;
}

bool SelectionWindow::ChangeZoomLevel(int level) {
  if (level < 0 || level > kGreatestZoomLevel) return false;
  const Position middle = Middle(position_, size());
  zoom_level_ = level;
  shown_ = true;
  const Position greatest = move_range().greatest;
  position_ = {std::clamp(middle.left - size().width / 2, 0, greatest.left),
               std::clamp(middle.top - size().height / 2, 0, greatest.top)};
  return true;
}

bool SelectionWindow::Store(Position position) {
  if (!move_range().Contains(position)) return false;
  stored_zoom_level_ = zoom_level_;
  stored_position_ = position;
  return true;
}

void SelectionWindow::Restore() {
  shown_ = false;
  zoom_level_ = stored_zoom_level_;
  position_ = stored_position_;
}

}  // namespace viewer
