// Which window has the keyboard.
#pragma once

#include <vector>

namespace kavrel_pepper {

class Popup;
class Server;
class Surface;
class Toplevel;

/// The window that was shown, clicked or focused last has the keyboard, or the pop-up that grabbed
/// it there. When it goes or is hidden, the highest visible window follows. Main thread.
class WindowFocus {
 public:
  explicit WindowFocus(Server& server) : server_(server) {}

  void Take(Toplevel* window);
  void Leave(Toplevel* window);  ///< hidden or gone

  void GrabFor(Popup* popup);
  void PopupGone(Popup* popup);

  /// A button was pressed or a finger set down on a surface: raises the focus of its window, and
  /// dismisses grabbing pop-ups of other windows or when the surface is none of theirs.
  void Pressed(Surface* surface);

  /// A window may be focused between these two.
  void Add(Toplevel* window) { windows_.push_back(window); }
  void Remove(Toplevel* window);

 private:
  void Activate(Toplevel* window);
  void DismissGrabs();
  void Update();

  Server& server_;
  Toplevel* active_ = nullptr;
  std::vector<Toplevel*> windows_;
  std::vector<Popup*> grabs_;
};

}  // namespace kavrel_pepper
