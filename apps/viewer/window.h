// The viewer's window: where everything that it shows is drawn, and in which plug-ins' windows lie.
#pragma once

#include <Evas.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace viewer {

/// What a window shows: rows of red, green and blue bytes.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;
};

/// EFL and one window, for as long as it lives. Belongs to the main thread; one in a process.
class Window {
 public:
  static constexpr int kWidth = 1280;
  static constexpr int kHeight = 720;

  /// Opens a window on the display that the environment names. Without one, when it cannot be
  /// opened, and when `headless` is set, the window is a piece of memory. Throws
  /// std::runtime_error when even that cannot be had.
  explicit Window(bool headless);
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  ~Window();

  Evas_Object* root() const { return root_; }
  Evas* canvas() const;
  int width() const;
  int height() const;
  /// The window's number on an X11 display, else 0.
  int number() const;

  /// `resized` is called when the window has got another size, `closed` when somebody wants to
  /// close it.
  void OnResize(std::function<void()> resized) { resized_ = std::move(resized); }
  void OnClose(std::function<void()> closed) { closed_ = std::move(closed); }

  /// Draws what is to be drawn, and takes a copy. Throws std::runtime_error when that fails.
  Picture Capture() const;

 private:
  static void Resized(void* self, Evas* canvas, Evas_Object* root, void* information);
  static void CloseRequested(void* self, Evas_Object* root, void* information);

  bool headless_;
  Evas_Object* root_ = nullptr;
  std::function<void()> resized_;
  std::function<void()> closed_;
};

}  // namespace viewer
