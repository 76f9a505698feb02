#include "viewer_state.h"

namespace viewer {

const char* ViewerState(const Television& television) {
  if (television.activity() != Activity::kRunning) return "PAUSE";
  if (!television.is_visible() || television.window_size() != 0) return "BACKGROUND";
  const bool focused = television.is_focused() && !television.is_pip_focused() &&
                       !television.banners().IsAnyShown(BannerKind::kPopup);
  return focused ? "RESUME_FOCUS" : "RESUME";
}

}  // namespace viewer
