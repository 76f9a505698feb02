// The main loop of the viewer: EFL's, which serves GLib's events too.
#pragma once

#include <glib.h>

namespace viewer {

/// Ended by SIGINT, SIGTERM and Stop(). Main thread only. Made after EFL was initialised, whose own
/// handlers for these signals it replaces.
class MainLoop {
 public:
  MainLoop();
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;
  ~MainLoop();

  /// Returns when the loop has been ended, also when that happened before. `efl_serves_glib`: the
  /// library has seen to that, as it does for a host of plug-ins; otherwise EFL gets a turn after
  /// each of GLib's, and 50 times a second.
  void Run(bool efl_serves_glib) const;

  void Stop();

 private:
  static gboolean OnSignal(gpointer self);

  bool stopped_ = false;
};

}  // namespace viewer
