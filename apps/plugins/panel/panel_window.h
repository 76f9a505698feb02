// What the panel shows: its name, the last key and the last state on a coloured ground. Says its
// size when that changes, and "drawn" when what has changed is on its way to the viewer.
#pragma once

#include <Efreet.h>
#include <Elementary.h>
#include <plugin_options.h>

#include <array>
#include <string>

/// Belongs to the main thread. The window owns the objects.
class PanelWindow {
 public:
  /// Fills `window` and shows it. `colour`: 0xRRGGBB. The viewer decides how large it becomes.
  void Fill(Evas_Object* window, const std::string& name, int colour) {
    Evas* const canvas = evas_object_evas_get(window);
    Evas_Object* const ground = evas_object_rectangle_add(canvas);
    evas_object_color_set(ground, colour >> 16 & 0xff, colour >> 8 & 0xff, colour & 0xff, 0xff);
    elm_win_resize_object_add(window, ground);
    evas_object_show(ground);
    for (std::size_t i = 0; i < lines_.size(); ++i)
      lines_[i] = AddLine(canvas, static_cast<int>(i));
    evas_object_text_text_set(lines_[0], name.c_str());
    ShowKey("no key yet");
    ShowState("not told");
    evas_object_event_callback_add(ground, EVAS_CALLBACK_RESIZE, &PanelWindow::Resized, nullptr);
    evas_event_callback_add(canvas, EVAS_CALLBACK_RENDER_FLUSH_POST, &PanelWindow::Drawn, nullptr);
    evas_object_resize(window, 800, 450);
    evas_object_show(window);
  }

  void ShowKey(const std::string& text) { evas_object_text_text_set(lines_[1], text.c_str()); }
  void ShowState(const std::string& text) {
    evas_object_text_text_set(lines_[2], ("state " + text).c_str());
  }

 private:
  static Evas_Object* AddLine(Evas* canvas, int index) {
    Evas_Object* const line = evas_object_text_add(canvas);
    evas_object_text_font_set(line, "Sans:style=Bold", index == 0 ? 40 : 24);
    evas_object_color_set(line, 255, 255, 255, 255);
    evas_object_move(line, 32, index == 0 ? 24 : 60 + 40 * index);
    evas_object_show(line);
    return line;
  }

  static void Resized(void* /*data*/, Evas* /*canvas*/, Evas_Object* ground, void* /*event*/) {
    int width = 0;
    int height = 0;
    evas_object_geometry_get(ground, nullptr, nullptr, &width, &height);
    plugins::Say("size " + std::to_string(width) + 'x' + std::to_string(height));
  }
  static void Drawn(void* /*data*/, Evas* /*canvas*/, void* /*event*/) { plugins::Say("drawn"); }

  std::array<Evas_Object*, 3> lines_{};
};
