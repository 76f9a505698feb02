// What the television shows, drawn on the viewer's window: the picture at the bottom, banners and
// pop-ups above plug-ins' windows (but below those of the topmost layer).
#pragma once

#include <Ecore.h>

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

  Screen(const Window& window, Television& television);
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;
  ~Screen();

  /// Draws soon.
  void Invalidate();
  /// Draws what has changed, now.
  void Draw();

 private:
  static void DrawAll(void* self);

  void DrawPicture();
  void DrawPip();
  void DrawSelectionWindow();
  void DrawBanners();

  const Television& television_;
  Drawing picture_;
  Drawing banners_;
  Ecore_Job* job_ = nullptr;
};

}  // namespace viewer
