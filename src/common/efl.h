// Owners of EFL handles, and of what has to be ended that was begun.
#pragma once

#include <Ecore.h>
#include <Evas.h>

namespace kavrel::efl {

/// While it lives, the calling thread may call EFL: it is the main loop's thread, or that thread
/// waits in its loop. Nests. EFL has to be initialised; from another thread the main loop has to
/// run.
class MainLoopSection {
 public:
  MainLoopSection() { ecore_thread_main_loop_begin(); }
  MainLoopSection(const MainLoopSection&) = delete;
  MainLoopSection& operator=(const MainLoopSection&) = delete;
  ~MainLoopSection() { ecore_thread_main_loop_end(); }
};

/// A function that an object calls when it emits `event`, until the end of this registration. EFL
/// tells registrations of one event apart by their functions: only one with the same function on
/// the same object at a time. The object is borrowed and has to live longer. Main loop's thread.
class SmartCallback {
 public:
  SmartCallback(Evas_Object* object, const char* event, Evas_Smart_Cb function, const void* data)
      : object_(object), event_(event), function_(function) {
    evas_object_smart_callback_add(object_, event_, function_, data);
  }
  SmartCallback(const SmartCallback&) = delete;
  SmartCallback& operator=(const SmartCallback&) = delete;
  ~SmartCallback() { evas_object_smart_callback_del(object_, event_, function_); }

 private:
  Evas_Object* object_;
  const char* event_;
  Evas_Smart_Cb function_;
};

}  // namespace kavrel::efl
