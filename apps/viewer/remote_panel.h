// The remote control on the screen: buttons beside the picture, for pointer and fingers.
#pragma once

#include <Evas.h>

#include <array>
#include <string>

#include "drawing.h"
#include "remote_control.h"
#include "window.h"

namespace viewer {

/// A button that is pressed and released is a key that is pressed and released, wherever the
/// pointer has gone meanwhile. The panel also tells who took the last key. Belongs to the main
/// thread; window and remote control outlive it.
class RemotePanel {
 public:
  static constexpr short kLayer = 60;
  static constexpr int kButtons = 31;

  RemotePanel(const Window& window, RemoteControl& remote_control);
  RemotePanel(const RemotePanel&) = delete;
  RemotePanel& operator=(const RemotePanel&) = delete;
  ~RemotePanel();

  /// Draws anew, after the window got another size.
  void Draw();

 private:
  // What takes the pointer's presses for one button.
  struct Spot {
    RemotePanel* panel = nullptr;
    int button = 0;
    Evas_Object* object = nullptr;
  };

  static void PointerDown(void* spot, Evas* canvas, Evas_Object* object, void* event);
  static void PointerUp(void* spot, Evas* canvas, Evas_Object* object, void* event);

  void Handle(const Spot& spot, PluginHost::Press press);
  void Show(const std::string& key, const std::string& taker);

  const Window& window_;
  RemoteControl& remote_control_;
  Drawing buttons_;
  Drawing pressed_;
  Drawing words_;
  std::array<Spot, kButtons> spots_;
  std::string last_key_;
  std::string last_taker_;
};

}  // namespace viewer
