#include "test_host.h"

#include <Ecore.h>

#include <utility>

#include "child_process.h"

// EFL itself loses the name of a module that it looks for; everything else is ours to answer for.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:eina_module_new\n";
}

namespace kavrel_pepper_test {
namespace {

Evas_Object* AddSmartObject(Evas* canvas) {
  static const Evas_Smart_Class type = [] {
    Evas_Smart_Class made = EVAS_SMART_CLASS_INIT_NAME_VERSION("test root window");
    return made;
  }();
  Evas_Smart* smart = evas_smart_class_new(&type);
  Evas_Object* object = evas_object_smart_add(canvas, smart);
  evas_smart_free(smart);
  return object;
}

// Once in a process: EFL itself leaves memory behind when it is started a second time.
void StartEfl() {
  struct Efl {
    Efl() {
      ecore_app_no_system_modules();  // they look for services that a test has not
      ecore_evas_init();
    }
    ~Efl() { ecore_evas_shutdown(); }
  };
  static const Efl efl;
}

}  // namespace

Canvas::Canvas() {
  StartEfl();
  window_ = ecore_evas_buffer_new(kRootWidth, kRootHeight);
  ecore_evas_show(window_);
  Evas_Object* background = evas_object_rectangle_add(evas());
  evas_object_color_set(background, 0, 0, 0, 255);
  evas_object_layer_set(background, EVAS_LAYER_MIN);
  evas_object_resize(background, 4 * kRootWidth, 4 * kRootHeight);
  evas_object_show(background);
  root_ = AddSmartObject(evas());
  evas_object_resize(root_, kRootWidth, kRootHeight);
  evas_object_show(root_);
}

Canvas::~Canvas() {
  DeleteRoot();
  ecore_evas_free(window_);
}

void Canvas::DeleteRoot() {
  if (root_ != nullptr) evas_object_del(std::exchange(root_, nullptr));
}

void Canvas::ResizeRoot(int width, int height) {
  ecore_evas_resize(window_, width, height);
  evas_object_resize(root_, width, height);
}

unsigned Canvas::Pixel(int x, int y) {
  ecore_evas_manual_render(window_);
  int width = 0;
  ecore_evas_geometry_get(window_, nullptr, nullptr, &width, nullptr);
  const auto* pixels = static_cast<const unsigned*>(ecore_evas_buffer_pixels_get(window_));
  return pixels[y * width + x] & 0xffffff;
}

bool RunUntil(const std::function<bool()>& done) {
  const double end =
      ecore_time_get() + std::chrono::duration<double>(kavrel_test::kGenerous).count();
  // Wakes the loop now and then, so that the limit is seen; what is waited for wakes it by itself.
  Ecore_Timer* waker = ecore_timer_add(
      0.5, [](void*) -> Eina_Bool { return ECORE_CALLBACK_RENEW; }, nullptr);
  bool reached = done();
  while (!reached && ecore_time_get() < end) {
    ecore_main_loop_iterate_may_block(EINA_TRUE);
    reached = done();
  }
  ecore_timer_del(waker);
  return reached;
}

TestHost::TestHost() {
  CreateCompositor();
}

TestHost::~TestHost() {
  DestroyCompositor();
}

bool TestHost::CreateCompositor() {
  evas_object_smart_callback_add(root(), "add.object", &TestHost::Added, this);
  evas_object_smart_callback_add(root(), "del.object", &TestHost::Deleted, this);
  compositor_ = pepper_efl_compositor_create(root(), kSocket);
  return compositor_ != nullptr;
}

void TestHost::DestroyCompositor() {
  if (compositor_ == nullptr) return;
  pepper_efl_compositor_destroy(std::exchange(compositor_, nullptr));
  if (root() == nullptr) return;
  evas_object_smart_callback_del_full(root(), "add.object", &TestHost::Added, this);
  evas_object_smart_callback_del_full(root(), "del.object", &TestHost::Deleted, this);
}

void TestHost::Added(void* data, Evas_Object*, void* information) {
  auto* self = static_cast<TestHost*>(data);
  auto* object = static_cast<Evas_Object*>(information);
  self->events_.push_back({std::string("add ") + pepper_efl_object_title_get(object), object});
  self->on_add ? self->on_add(object) : evas_object_show(object);
}

void TestHost::Deleted(void* data, Evas_Object*, void* information) {
  auto* self = static_cast<TestHost*>(data);
  auto* object = static_cast<Evas_Object*>(information);
  self->events_.push_back({std::string("del ") + pepper_efl_object_title_get(object), object});
  self->on_del ? self->on_del(object) : evas_object_del(object);
}

std::vector<std::string> TestHost::EventNames() const {
  std::vector<std::string> names;
  for (const Event& event : events_) names.push_back(event.name);
  return names;
}

Evas_Object* TestHost::Find(const std::string& title) const {
  Evas_Object* found = nullptr;
  for (const Event& event : events_) {
    if (event.name == "add " + title) found = event.object;
    if (event.name == "del " + title) found = nullptr;
  }
  return found;
}

}  // namespace kavrel_pepper_test
