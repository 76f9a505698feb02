#include "window.h"

#include <Ecore_Evas.h>
#include <Efreet.h>
#include <Elementary.h>

#include <cstdlib>
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

Window::Window(bool headless) : headless_(headless || !HasDisplay()) {
  // A variable would come before the engine that is chosen here.
  if (headless_) ::setenv("ELM_ENGINE", kMemoryEngine, 1);
  if (headless_) ::unsetenv("ELM_DISPLAY");
  ecore_app_no_system_modules();  // they watch batteries and clocks over the system bus
  efreet_cache_disable();         // no daemon that looks for menus and icons
  if (elm_init(0, nullptr) <= 0) throw std::runtime_error("EFL cannot be initialised");
  root_ = Open(headless_);
  if (root_ == nullptr && !headless_) {
    headless_ = true;
    root_ = Open(true);
  }
  if (root_ == nullptr) {
    elm_shutdown();
    throw std::runtime_error("no window can be opened, not even without a display");
  }
  elm_win_title_set(root_, kTitle);
  evas_object_event_callback_add(root_, EVAS_CALLBACK_RESIZE, &Window::Resized, this);
  evas_object_smart_callback_add(root_, "delete,request", &Window::CloseRequested, this);
  evas_object_resize(root_, kWidth, kHeight);
  evas_object_show(root_);
}

Window::~Window() {
  evas_object_event_callback_del_full(root_, EVAS_CALLBACK_RESIZE, &Window::Resized, this);
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
  CopyPixels(static_cast<const std::uint32_t*>(words), static_cast<std::size_t>(width * height),
             picture.pixels);
  return picture;
}

void Window::Resized(void* self, Evas* /*canvas*/, Evas_Object* /*root*/, void* /*information*/) {
  const auto& window = *static_cast<Window*>(self);
  if (window.resized_) window.resized_();
}

void Window::CloseRequested(void* self, Evas_Object* /*root*/, void* /*information*/) {
  const auto& window = *static_cast<Window*>(self);
  if (window.closed_) window.closed_();
}

}  // namespace viewer
