// The viewer's window: where everything that it shows is drawn, and in which plug-ins' windows lie.
#pragma once

#include <Evas.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace viewer {

/// What a window shows: rows of red, green and blue bytes.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;
};

/// A unit is `numerator / denominator` pixels; unit 0,0 lies at left,top.
struct Fit {
  int left = 0;
  int top = 0;
  int numerator = 1;
  int denominator = 1;
};

/// EFL and one window, for as long as it lives. Belongs to the main thread; one in a process.
class Window {
 public:
  /// The television's picture. Beside it there may be a panel of buttons.
  static constexpr int kWidth = 1280;
  static constexpr int kHeight = 720;
  static constexpr int kPanelWidth = 240;

  /// Opens a window on the display that the environment names. Without one, when it cannot be
  /// opened, and when `headless` is set, the window is a piece of memory. Throws
  /// std::runtime_error when even that cannot be had.
  /// `with_panel` (nothing: only where there is a display) leaves room for the panel.
  explicit Window(bool headless, std::optional<bool> with_panel = std::nullopt);
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  ~Window();

  Evas_Object* root() const { return root_; }
  Evas* canvas() const;
  int width() const;
  int height() const;
  /// The window's number on an X11 display, else 0.
  int number() const;
  bool has_panel() const { return has_panel_; }
  /// The width of picture and panel in units of which the height is 720.
  int units() const { return has_panel_ ? kWidth + kPanelWidth : kWidth; }
  /// Where units lie on the window: as large as it allows, in the middle.
  Fit fit() const;

  /// `resized` is called when the window has got another size, `closed` when somebody wants to
  /// close it.
  void OnResize(std::function<void()> resized) { resized_ = std::move(resized); }
  void OnClose(std::function<void()> closed) { closed_ = std::move(closed); }
  /// `focused` is called when the window gets the keyboard or loses it, `visible` when it is made
  /// an icon or a window again.
  void OnFocus(std::function<void(bool)> focused) { focused_ = std::move(focused); }
  void OnVisible(std::function<void(bool)> visible) { visible_ = std::move(visible); }

  /// Draws what is to be drawn, and takes a copy. Throws std::runtime_error when that fails.
  Picture Capture() const;

 private:
  static void Resized(void* self, Evas* canvas, Evas_Object* root, void* information);
  static void CloseRequested(void* self, Evas_Object* root, void* information);
  static void Focused(void* self, Evas_Object* root, void* information);
  static void Unfocused(void* self, Evas_Object* root, void* information);
  static void Iconified(void* self, Evas_Object* root, void* information);
  static void Restored(void* self, Evas_Object* root, void* information);

  void OpenRoot();
  void AddBackground();
  void ListenToRoot();

  bool headless_;
  bool has_panel_;
  Evas_Object* root_ = nullptr;
  Evas_Object* background_ = nullptr;  // belongs to the root
  std::function<void()> resized_;
  std::function<void()> closed_;
  std::function<void(bool)> focused_;
  std::function<void(bool)> visible_;
};

}  // namespace viewer
