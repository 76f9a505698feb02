// A program with a root window and a compositor on it, in the test's own process and without a
// display.
#pragma once

#include <Ecore_Evas.h>
#include <pepper-efl.h>

#include <functional>
#include <string>
#include <vector>

#include "temporary_directory.h"

namespace kavrel_pepper_test {

inline constexpr int kRootWidth = 320;
inline constexpr int kRootHeight = 240;
inline constexpr char kSocket[] = "kavrel-compositor";

/// EFL, a canvas that is drawn into memory, and a smart object as its root window. Main thread.
class Canvas {
 public:
  Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;
  ~Canvas();

  Evas_Object* root() { return root_; }
  Evas* evas() { return ecore_evas_get(window_); }
  void DeleteRoot();
  void ResizeRoot(int width, int height);

  /// What is drawn at a point: 0xRRGGBB.
  unsigned Pixel(int x, int y);

 private:
  Ecore_Evas* window_;
  Evas_Object* root_;
};

/// Runs the main loop, in which the test's clients live too, until `done` or a generous limit.
/// False at the limit.
bool RunUntil(const std::function<bool()>& done);

/// The runtime directory and environment of one test.
struct Environment {
  kavrel_test::TemporaryDirectory directory;
  kavrel_test::ScopedEnvironment xdg{"XDG_RUNTIME_DIR", directory.path()};
  kavrel_test::ScopedEnvironment runtime{"KAVREL_RUNTIME_DIR", directory.path()};
  kavrel_test::ScopedEnvironment events{"KAVREL_EVENT_DIR", directory.path()};
};

/// Canvas and compositor; shows what is announced and deletes what has gone, as a program does.
/// Main thread.
class TestHost {
 public:
  TestHost();
  TestHost(const TestHost&) = delete;
  TestHost& operator=(const TestHost&) = delete;
  ~TestHost();

  struct Event {
    std::string name;  ///< "add TITLE" or "del TITLE"
    Evas_Object* object;
  };

  Canvas& canvas() { return canvas_; }
  Evas_Object* root() { return canvas_.root(); }
  unsigned Pixel(int x, int y) { return canvas_.Pixel(x, y); }
  const std::vector<Event>& events() const { return events_; }
  std::vector<std::string> EventNames() const;
  const Environment& environment() const { return environment_; }
  void DestroyCompositor();
  bool CreateCompositor();

  /// The announced object with that title; null when there is none.
  Evas_Object* Find(const std::string& title) const;

  /// Instead of showing and deleting; gets the object.
  std::function<void(Evas_Object*)> on_add;
  std::function<void(Evas_Object*)> on_del;

 private:
  static void Added(void* data, Evas_Object* root, void* object);
  static void Deleted(void* data, Evas_Object* root, void* object);

  Environment environment_;
  Canvas canvas_;
  void* compositor_ = nullptr;
  std::vector<Event> events_;
};

}  // namespace kavrel_pepper_test
