#include "plugin_windows.h"

#include <algorithm>
#include <exception>

#include "drawing.h"

namespace viewer {
namespace {

// The library's layers of plug-ins' windows, and where this viewer puts windows of each. They
// overlap, so that one sees which lies above. A window of another layer covers the picture.
struct LayerPlace {
  short layer;
  Area area;
};
constexpr LayerPlace kPlaces[] = {
    {4, {40, 88, 640, 360}},
    {7, {448, 192, 640, 360}},
    {101, {840, 40, 384, 240}},
};

Area AreaOf(short layer) {
  for (const LayerPlace& place : kPlaces) {
    if (place.layer == layer) return place.area;
  }
  return kStage;
}

}  // namespace

PluginWindows::~PluginWindows() {
  for (const Entry& entry : entries_) Forget(entry);
}

void PluginWindows::Add(const std::string& title, Evas_Object* object) {
  evas_object_event_callback_add(object, EVAS_CALLBACK_RESTACK, &PluginWindows::Restacked, this);
  evas_object_event_callback_add(object, EVAS_CALLBACK_DEL, &PluginWindows::Deleted, this);
  Place(entries_.emplace_back(Entry{title, object, 0}));
}

void PluginWindows::Remove(const Evas_Object* object) {
  const auto entry = Find(object);
  if (entry == entries_.end()) return;
  Forget(*entry);
  entries_.erase(entry);
}

void PluginWindows::PlaceAll() const {
  for (const Entry& entry : entries_) viewer::Place(entry.object, AreaOf(entry.layer), window_);
}

std::list<PluginWindows::Entry>::iterator PluginWindows::Find(const Evas_Object* object) {
  return std::find_if(entries_.begin(), entries_.end(),
                      [object](const Entry& entry) { return entry.object == object; });
}

void PluginWindows::Forget(const Entry& entry) {
  evas_object_event_callback_del_full(entry.object, EVAS_CALLBACK_RESTACK,
                                      &PluginWindows::Restacked, this);
  evas_object_event_callback_del_full(entry.object, EVAS_CALLBACK_DEL, &PluginWindows::Deleted,
                                      this);
}

void PluginWindows::Place(Entry& entry) {
  entry.layer = evas_object_layer_get(entry.object);
  viewer::Place(entry.object, AreaOf(entry.layer), window_);
  placed_(entry.title, entry.layer);
}

void PluginWindows::Restacked(void* self, Evas* /*canvas*/, Evas_Object* object,
                              void* /*information*/) {
  auto& windows = *static_cast<PluginWindows*>(self);
  const auto entry = windows.Find(object);
  if (entry == windows.entries_.end() || entry->layer == evas_object_layer_get(object)) return;
  try {
    windows.Place(*entry);
  } catch (const std::exception&) {
    // A line that does not fit into memory is lost.
  }
}

void PluginWindows::Deleted(void* self, Evas* /*canvas*/, Evas_Object* object,
                            void* /*information*/) {
  auto& windows = *static_cast<PluginWindows*>(self);
  const auto entry = windows.Find(object);
  if (entry != windows.entries_.end()) windows.entries_.erase(entry);
}

}  // namespace viewer
