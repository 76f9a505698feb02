/** @file
 * What a plug-in implements to learn in which state the viewer is. */
#pragma once

/// Takes viewer states. Called on the thread that runs the main context on which the plug-in was
/// created. The listener belongs to the plug-in's program; it may unregister itself and destroy the
/// plug-in, and must not throw.
class IViewerStateChangeListener {
 public:
  /// The viewer has changed its state.
  ///
  /// @param viewerState  0 "BACKGROUND", 1 "RESUME", 2 "RESUME_FOCUS", 3 "PAUSE", -1 any other
  virtual void OnViewerStateChanged(int viewerState) = 0;

 protected:
  ~IViewerStateChangeListener() = default;
};
