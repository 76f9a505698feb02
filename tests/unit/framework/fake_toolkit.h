// The C functions of EFL, of the compositor and of the event service that the framework calls,
// noted in the journal instead of done. A program that links this needs neither EFL nor the
// services.
#pragma once

#include <Evas.h>
#include <kavrel/IViewerHost.h>

#include <map>
#include <set>
#include <string>

namespace framework_test {

/// What the fakes answer, and what they were given.
struct FakeToolkit {
  int raise_result = 0;
  int is_done = 1;
  int wait_result = 0;
  bool compositor_fails = false;
  int windows_refused = 0;  ///< how many attempts to open a window fail
  bool on_main_thread = true;
  bool allocations_fail = false;  ///< those that may: new (std::nothrow)

  std::map<const Evas_Object*, std::string> titles;
  std::map<const Evas_Object*, std::string> app_ids;
  struct Callback {
    Evas_Smart_Cb function;
    const void* data;
  };
  std::map<std::string, Callback> callbacks;  ///< by event, of the root window

  /// Emits the event of the root window, if somebody registered for it.
  void Emit(const char* event, Evas_Object* object) const;
};

FakeToolkit& Toolkit();

/// Objects are only ever passed on.
Evas_Object* Object(int number);
inline Evas_Object* RootWindow() {
  return Object(1);
}

}  // namespace framework_test
