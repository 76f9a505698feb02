// Where plug-ins' windows lie in the viewer's.
#pragma once

#include <Evas.h>

#include <functional>
#include <list>
#include <string>

#include "window.h"

namespace viewer {

/// Gives each window the place of its layer, and again when the library puts it on another one, as
/// it does when a window came before its plug-in's name. Belongs to the main thread, and to a
/// window that outlives it.
class PluginWindows {
 public:
  /// `placed` is called with title and layer of each window that has got a place.
  using Placed = std::function<void(const std::string& title, int layer)>;

  PluginWindows(const Window& window, Placed placed)
      : window_(window), placed_(std::move(placed)) {}
  PluginWindows(const PluginWindows&) = delete;
  PluginWindows& operator=(const PluginWindows&) = delete;
  ~PluginWindows();

  void Add(const std::string& title, Evas_Object* object);
  /// A window that is not there is none to remove.
  void Remove(const Evas_Object* object);

  /// After the viewer's window got another size.
  void PlaceAll() const;

 private:
  struct Entry {
    std::string title;
    Evas_Object* object;
    short layer;
  };

  static void Restacked(void* self, Evas* canvas, Evas_Object* object, void* information);
  static void Deleted(void* self, Evas* canvas, Evas_Object* object, void* information);

  std::list<Entry>::iterator Find(const Evas_Object* object);
  void Forget(const Entry& entry);
  void Place(Entry& entry);

  const Window& window_;
  Placed placed_;
  std::list<Entry> entries_;
};

}  // namespace viewer
