// What the panel shows: its name, the last key and the last state on a coloured ground.
#pragma once

#include <Efreet.h>
#include <Elementary.h>

#include <array>
#include <string>

/// Belongs to the main thread. The window owns the objects.
class PanelWindow {
 public:
  /// Fills `window` and shows it. `colour`: 0xRRGGBB.
  void Fill(Evas_Object* window, const std::string& name, int colour) {
    ground_ = evas_object_rectangle_add(evas_object_evas_get(window));
    evas_object_color_set(ground_, colour >> 16 & 0xff, colour >> 8 & 0xff, colour & 0xff, 0xff);
    elm_win_resize_object_add(window, ground_);
    evas_object_show(ground_);
    for (std::size_t i = 0; i < lines_.size(); ++i) AddLine(window, static_cast<int>(i));
    evas_object_text_text_set(lines_[0], name.c_str());
    ShowKey("no key yet");
    ShowState("not told");
    evas_object_resize(window, 640, 360);
    evas_object_show(window);
  }

  void ShowKey(const std::string& text) { evas_object_text_text_set(lines_[1], text.c_str()); }
  void ShowState(const std::string& text) {
    evas_object_text_text_set(lines_[2], ("state " + text).c_str());
  }

 private:
  void AddLine(Evas_Object* window, int index) {
    Evas_Object* const line = evas_object_text_add(evas_object_evas_get(window));
    evas_object_text_font_set(line, "Sans:style=Bold", index == 0 ? 40 : 24);
    evas_object_color_set(line, 255, 255, 255, 255);
    evas_object_move(line, 32, index == 0 ? 24 : 60 + 40 * index);
    evas_object_show(line);
    lines_[static_cast<std::size_t>(index)] = line;
  }

  Evas_Object* ground_ = nullptr;
  std::array<Evas_Object*, 3> lines_{};
};
