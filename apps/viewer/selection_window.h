// The selection window: a frame over the picture that magnifies what it encloses.
#pragma once

namespace viewer {

struct Position {
  int left = 0;
  int top = 0;

  bool operator==(const Position&) const = default;
};

struct Size {
  int width = 0;
  int height = 0;

  bool operator==(const Size&) const = default;
};

inline constexpr Size kPicture{1920, 1080};

/// Where the frame may be put: the positions at which it lies wholly on the picture.
struct MoveRange {
  Position least;
  Position greatest;

  bool Contains(Position position) const {
    return position.left >= least.left && position.left <= greatest.left &&
           position.top >= least.top && position.top <= greatest.top;
  }
  bool operator==(const MoveRange&) const = default;
};

/// The more it magnifies, the smaller is the frame and the farther it can be moved. Belongs to the
/// viewer's main thread.
class SelectionWindow {
 public:
  static constexpr int kGreatestZoomLevel = 4;

  /// Level 0 in the middle of the picture.
  SelectionWindow();

  /// Whether it is on the screen: from the first time it is used until Restore().
  bool is_shown() const { return shown_; }
  int zoom_level() const { return zoom_level_; }
  Position position() const { return position_; }
  Size size() const;
  MoveRange move_range() const;

  /// False, with nothing changed, when the frame would not lie wholly on the picture.
  bool MoveTo(Position position);

  /// Keeps its middle where it is, as far as the picture's edges allow. False, with nothing
  /// changed, when there is no such level.
  bool ChangeZoomLevel(int level);

  /// Keeps a position, together with the present zoom level, for Restore(). False, with nothing
  /// changed, when the frame would not lie wholly on the picture.
  bool Store(Position position);
  /// Back to what was stored, and off the screen.
  void Restore();

 private:
  bool shown_ = false;
  int zoom_level_ = 0;
  Position position_;
  int stored_zoom_level_ = 0;
  Position stored_position_;
};

}  // namespace viewer
