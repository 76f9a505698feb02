// The compositor, on a canvas without a display.
#include <Ecore.h>
#include <Ecore_Evas.h>
#include <pepper-efl.h>

#include "process_setting.h"
#include "trial.h"

namespace faults_test {
namespace {

constexpr const char* kSocket = "kavrel-compositor";

/// EFL, a canvas in memory, and a smart object as its root window.
class Canvas {
 public:
  Canvas() {
    ecore_app_no_system_modules();  // they look for services that a test has not
    ecore_evas_init();
    window_ = ecore_evas_buffer_new(64, 64);
    static const Evas_Smart_Class kType = EVAS_SMART_CLASS_INIT_NAME_VERSION("root window");
    Evas_Smart* const smart = evas_smart_class_new(&kType);
    root_ = evas_object_smart_add(ecore_evas_get(window_), smart);
    evas_smart_free(smart);
    evas_object_resize(root_, 64, 64);
    evas_object_show(root_);
  }
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;
  ~Canvas() { ecore_evas_free(window_); }

  Evas_Object* root() const { return root_; }

 private:
  const ProcessSetting setting_;
  Ecore_Evas* window_;
  Evas_Object* root_;
};

void Create(Trial& trial) {
  const Canvas canvas;
  const auto made =
      trial.Call([&] { return pepper_efl_compositor_create(canvas.root(), kSocket); });
  EXPECT_EQ(trial.end(), End::kReturned);
  EXPECT_TRUE(trial.occurred() || made.value_or(nullptr) != nullptr);
  pepper_efl_compositor_destroy(made.value_or(nullptr));
  void* const next = pepper_efl_compositor_create(canvas.root(), kSocket);
  EXPECT_NE(next, nullptr) << "the socket is free again";
  pepper_efl_compositor_destroy(next);
}

void Destroy(Trial& trial) {
  const Canvas canvas;
  void* const made = pepper_efl_compositor_create(canvas.root(), kSocket);
  ASSERT_NE(made, nullptr);
  trial.Call([&] { pepper_efl_compositor_destroy(made); });
  EXPECT_EQ(trial.end(), End::kReturned);
  void* const next = pepper_efl_compositor_create(canvas.root(), kSocket);
  EXPECT_NE(next, nullptr) << "the socket is free again";
  pepper_efl_compositor_destroy(next);
}

void AskAForeignObject(Trial& trial) {
  const Canvas canvas;
  trial.Call([&] {
    EXPECT_EQ(pepper_efl_object_title_get(canvas.root()), nullptr);
    EXPECT_EQ(pepper_efl_object_app_id_get(canvas.root()), nullptr);
  });
  EXPECT_EQ(trial.end(), End::kReturned);
}

}  // namespace

Rows CompositorRows() {
  return {
      {"pepper_efl_compositor_create", {"pepper_efl_compositor_create"}, Create},
      {"pepper_efl_compositor_destroy", {"pepper_efl_compositor_destroy"}, Destroy},
      {"pepper_efl_object_title_get",
       {"pepper_efl_object_title_get", "pepper_efl_object_app_id_get"},
       AskAForeignObject},
  };
}

}  // namespace faults_test
