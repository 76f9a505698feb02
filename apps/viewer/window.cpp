#include "window.h"

#include <Ecore_Evas.h>
#include <Efreet.h>
#include <Elementary.h>

#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>

namespace viewer {
namespace {

constexpr const char* kTitle = "kavrel-viewer";
constexpr const char* kMemoryEngine = "buffer";

bool IsSet(const char* variable) {
  const char* const value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

bool HasDisplay() {
  return IsSet("DISPLAY") || IsSet("WAYLAND_DISPLAY");
}

Evas_Object* Open(bool headless) {
  if (headless) elm_config_preferred_engine_set(kMemoryEngine);
  return elm_win_add(nullptr, kTitle, ELM_WIN_BASIC);
}

struct DeleteObject {
  void operator()(Evas_Object* object) const { evas_object_del(object); }
};

// Nothing may be thrown into EFL.
void Tell(const std::function<void(bool)>& listener, bool value) {
  try {
    if (listener) listener(value);
  } catch (const std::exception&) {
    // A line that does not fit into memory is lost.
  }
}

// EFL's pixels are one word each, 0xAARRGGBB.
void CopyPixels(const std::uint32_t* words, std::size_t count, std::vector<std::uint8_t>& bytes) {
  bytes.reserve(3 * count);
  for (std::size_t i = 0; i < count; ++i) {
    for (const int shift : {16, 8, 0}) {
      bytes.push_back(static_cast<std::uint8_t>(words[i] >> shift & 0xff));
    }
  }
}

}  // namespace

Window::Window(bool headless, std::optional<bool> with_panel)
    : headless_(headless || !HasDisplay()) {
  // A variable would come before the engine that is chosen here.
  if (headless_) ::setenv("ELM_ENGINE", kMemoryEngine, 1);
  if (headless_) ::unsetenv("ELM_DISPLAY");
  // Drawn by a thread of EFL's own, objects could not be deleted without waiting for it.
  ::setenv("ECORE_EVAS_FORCE_SYNC_RENDER", "1", 0);
  ecore_app_no_system_modules();  // they watch batteries and clocks over the system bus
  efreet_cache_disable();         // no daemon that looks for menus and icons
  if (elm_init(0, nullptr) <= 0) throw std::runtime_error("EFL cannot be initialised");
  OpenRoot();
  has_panel_ = with_panel.value_or(!headless_);
  elm_win_title_set(root_, kTitle);
  AddBackground();
  ListenToRoot();
  evas_object_resize(root_, units(), kHeight);
  evas_object_show(root_);
}

void Window::OpenRoot() {
  root_ = Open(headless_);
  if (root_ == nullptr && !headless_) {
    headless_ = true;
    root_ = Open(true);
  }
  if (root_ != nullptr) return;
  elm_shutdown();
  throw std::runtime_error("no window can be opened, not even without a display");
}

// Seen where the window has not the picture's proportions. Not a member of the root, which would
// put it on its own layer.
void Window::AddBackground() {
  background_ = evas_object_rectangle_add(canvas());
  evas_object_color_set(background_, 0, 0, 0, 0xff);
  evas_object_layer_set(background_, EVAS_LAYER_MIN);
  evas_object_pass_events_set(background_, EINA_TRUE);
  evas_object_show(background_);
}

void Window::ListenToRoot() {
  evas_object_event_callback_add(root_, EVAS_CALLBACK_RESIZE, &Window::Resized, this);
  evas_object_smart_callback_add(root_, "delete,request", &Window::CloseRequested, this);
  evas_object_smart_callback_add(root_, "focus,in", &Window::Focused, this);
  evas_object_smart_callback_add(root_, "focus,out", &Window::Unfocused, this);
  evas_object_smart_callback_add(root_, "iconified", &Window::Iconified, this);
  evas_object_smart_callback_add(root_, "normal", &Window::Restored, this);
}

Window::~Window() {
  // Whoever listened has gone, and the background goes with the root.
  evas_object_event_callback_del_full(root_, EVAS_CALLBACK_RESIZE, &Window::Resized, this);
  resized_ = nullptr;
  closed_ = nullptr;
  focused_ = nullptr;
  visible_ = nullptr;
  evas_object_del(root_);
  elm_shutdown();
}

Evas* Window::canvas() const {
  return evas_object_evas_get(root_);
}

int Window::width() const {
  int width = 0;
  evas_object_geometry_get(root_, nullptr, nullptr, &width, nullptr);
  return width;
}

int Window::height() const {
  int height = 0;
  evas_object_geometry_get(root_, nullptr, nullptr, nullptr, &height);
  return height;
}

Fit Window::fit() const {
  Fit fit;
  const int across = width();
  const int down = height();
  if (across * kHeight <= down * units()) {
    fit.numerator = across;
    fit.denominator = units();
  } else {
    fit.numerator = down;
    fit.denominator = kHeight;
  }
  fit.left = (across - units() * fit.numerator / fit.denominator) / 2;
  fit.top = (down - kHeight * fit.numerator / fit.denominator) / 2;
  return fit;
}

int Window::number() const {
  return headless_ ? 0 : static_cast<int>(elm_win_xwindow_get(root_));
}

// A snapshot object holds what lies below it; it works with every engine.
Picture Window::Capture() const {
  Picture picture{width(), height(), {}};
  const std::unique_ptr<Evas_Object, DeleteObject> snapshot(evas_object_image_filled_add(canvas()));
  evas_object_image_snapshot_set(snapshot.get(), EINA_TRUE);
  evas_object_layer_set(snapshot.get(), EVAS_LAYER_MAX);
  evas_object_resize(snapshot.get(), picture.width, picture.height);
  evas_object_show(snapshot.get());
  ecore_evas_manual_render(ecore_evas_ecore_evas_get(canvas()));
  evas_sync(canvas());  // some engines draw in a thread of their own
  int width = 0;
  int height = 0;
  evas_object_image_size_get(snapshot.get(), &width, &height);
  const void* const words = evas_object_image_data_get(snapshot.get(), EINA_FALSE);
  if (words == nullptr || width != picture.width || height != picture.height) {
    throw std::runtime_error("the window cannot be read");
  }
  CopyPixels(static_cast<const std::uint32_t*>(words),
             static_cast<std::size_t>(width) * static_cast<std::size_t>(height), picture.pixels);
  return picture;
}

void Window::Resized(void* self, Evas* /*canvas*/, Evas_Object* /*root*/, void* /*information*/) {
  const auto& window = *static_cast<Window*>(self);
  evas_object_resize(window.background_, window.width(), window.height());
  if (window.resized_) window.resized_();
}

void Window::CloseRequested(void* self, Evas_Object* /*root*/, void* /*information*/) {
  const auto& window = *static_cast<Window*>(self);
  if (window.closed_) window.closed_();
}

void Window::Focused(void* self, Evas_Object* /*root*/, void* /*information*/) {
  Tell(static_cast<Window*>(self)->focused_, true);
}

void Window::Unfocused(void* self, Evas_Object* /*root*/, void* /*information*/) {
  Tell(static_cast<Window*>(self)->focused_, false);
}

void Window::Iconified(void* self, Evas_Object* /*root*/, void* /*information*/) {
  Tell(static_cast<Window*>(self)->visible_, false);
}

void Window::Restored(void* self, Evas_Object* /*root*/, void* /*information*/) {
  Tell(static_cast<Window*>(self)->visible_, true);
}

}  // namespace viewer
