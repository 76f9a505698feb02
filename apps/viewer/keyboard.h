// A keyboard as remote control, for a viewer in a window.
#pragma once

#include <Ecore.h>

#include <string>

#include "remote_control.h"

namespace viewer {

/// Keys of the keyboard go to the remote control before anything else sees them; those that it
/// takes go no further, the others reach the window that has the keyboard. Belongs to the main
/// thread, while EFL is up; the remote control outlives it.
class Keyboard {
 public:
  explicit Keyboard(RemoteControl& remote_control);
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;
  ~Keyboard();

 private:
  static Eina_Bool Filter(void* self, void* loop_data, int type, void* event);

  RemoteControl& remote_control_;
  Ecore_Event_Filter* filter_;
};

/// The remote control's key that a key of the keyboard stands for: the colour keys are F1 to F4,
/// the others those that look alike. A key without a counterpart stands for itself.
std::string RemoteKeyOf(const std::string& keyboard_key);

}  // namespace viewer
