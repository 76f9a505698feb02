// What the television shows, drawn on the viewer's window: the picture at the bottom, banners and
// pop-ups above plug-ins' windows (but below those of the topmost layer).
#pragma once

#include <Ecore.h>

#include <deque>
#include <string>

#include "drawing.h"
#include "television.h"
#include "window.h"

namespace viewer {

/// Draws anew, once the main loop has nothing else to do, when the television has changed. Belongs
/// to the main thread; television and window outlive it, and the television is not commanded any
/// more after its end.
class Screen {
 public:
  static constexpr short kPictureLayer = -10;
  static constexpr short kBannerLayer = 50;
  static constexpr std::size_t kListedCalls = 3;

  Screen(const Window& window, Television& television);
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;
  ~Screen();

  /// A line for the list of the last calls.
  void AddCall(const std::string& line);
  /// Draws everything soon, as after a change of the window's size.
  void Invalidate();
  /// Draws what has changed, now.
  void Draw();

 private:
  static void DrawChanges(void* self);

  void DrawSoon();
  void DrawTelevision();
  void DrawCallList();

  const Television& television_;
  Drawing picture_;
  Drawing banners_;
  Drawing calls_;
  std::deque<std::string> last_calls_;
  bool television_changed_ = true;
  bool calls_changed_ = true;
  Ecore_Job* job_ = nullptr;
};

}  // namespace viewer
