#include "fake_toolkit.h"

#include <Ecore.h>
#include <Elementary.h>
#include <lwipc.h>
#include <malloc.h>
#include <pepper-efl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

#include "journal.h"

namespace framework_test {
namespace {

std::string Name(const void* object) {
  return "object " + std::to_string(reinterpret_cast<std::uintptr_t>(object));
}

const char* Find(const std::map<const Evas_Object*, std::string>& texts,
                 const Evas_Object* object) {
  const auto found = texts.find(object);
  return found == texts.end() ? nullptr : found->second.c_str();
}

int the_compositor = 0;

}  // namespace

FakeToolkit& Toolkit() {
  static FakeToolkit toolkit;
  return toolkit;
}

Evas_Object* Object(int number) {
  return reinterpret_cast<Evas_Object*>(static_cast<std::uintptr_t>(number));
}

void FakeToolkit::Emit(const char* event, Evas_Object* object) const {
  const auto found = callbacks.find(event);
  if (found == callbacks.end()) return;
  found->second.function(const_cast<void*>(found->second.data), RootWindow(), object);
}

}  // namespace framework_test

using framework_test::Name;
using framework_test::Note;
using framework_test::Toolkit;

#define FAKE extern "C" __attribute__((visibility("default")))

FAKE int LwipcEventDone(const char* event) {
  Note(std::string("raise ") + event);
  return Toolkit().raise_result;
}

FAKE int LwipcIsDone(const char* event) {
  Note(std::string("is done ") + event);
  return Toolkit().is_done;
}

FAKE int LwipcWaitEvent(const char* event, int timeout_ms) {
  Note(std::string("wait ") + event + ' ' + std::to_string(timeout_ms));
  return Toolkit().wait_result;
}

FAKE void* pepper_efl_compositor_create(Evas_Object* root_window, const char* socket_name) {
  Note("compositor + " + Name(root_window) + ' ' + socket_name);
  return Toolkit().compositor_fails ? nullptr : &framework_test::the_compositor;
}

FAKE void pepper_efl_compositor_destroy(void* compositor) {
  EXPECT_EQ(compositor, &framework_test::the_compositor);
  Note("compositor -");
}

FAKE const char* pepper_efl_object_title_get(Evas_Object* object) {
  return framework_test::Find(Toolkit().titles, object);
}

FAKE const char* pepper_efl_object_app_id_get(Evas_Object* object) {
  return framework_test::Find(Toolkit().app_ids, object);
}

FAKE Eina_Bool elm_win_keygrab_set(Elm_Win* window, const char* key, Evas_Modifier_Mask modifiers,
                                   Evas_Modifier_Mask not_modifiers, int priority,
                                   Elm_Win_Keygrab_Mode mode) {
  Note("grab " + Name(window) + ' ' + key + ' ' + std::to_string(modifiers) + ' ' +
       std::to_string(not_modifiers) + ' ' + std::to_string(priority) + ' ' + std::to_string(mode));
  return EINA_FALSE;
}

FAKE Eina_Bool elm_win_keygrab_unset(Elm_Win* window, const char* key, Evas_Modifier_Mask modifiers,
                                     Evas_Modifier_Mask not_modifiers) {
  Note("ungrab " + Name(window) + ' ' + key + ' ' + std::to_string(modifiers) + ' ' +
       std::to_string(not_modifiers));
  return EINA_FALSE;
}

FAKE Evas_Object* elm_win_util_standard_add(const char* name, const char* title) {
  const char* const display = std::getenv("WAYLAND_DISPLAY");
  const char* const kind = std::getenv("ELM_DISPLAY");
  Note(std::string("window ") + name + ' ' + title + ' ' + (display != nullptr ? display : "-") +
       ' ' + (kind != nullptr ? kind : "-"));
  return Toolkit().windows_refused-- > 0 ? nullptr : framework_test::Object(77);
}

FAKE void evas_object_layer_set(Evas_Object* object, short layer) {
  Note("layer " + Name(object) + ' ' + std::to_string(layer));
}

FAKE void evas_object_show(Evas_Object* object) {
  Note("show " + Name(object));
}

FAKE void evas_object_del(Evas_Object* object) {
  Note("delete " + Name(object));
}

FAKE void evas_object_smart_callback_add(Evas_Object* object, const char* event,
                                         Evas_Smart_Cb function, const void* data) {
  Note("callback + " + Name(object) + ' ' + event);
  Toolkit().callbacks[event] = {function, data};
}

FAKE void* evas_object_smart_callback_del(Evas_Object* object, const char* event, Evas_Smart_Cb) {
  Note("callback - " + Name(object) + ' ' + event);
  Toolkit().callbacks.erase(event);
  return nullptr;
}

FAKE int ecore_thread_main_loop_begin() {
  Note("section +");
  return 1;
}

FAKE int ecore_thread_main_loop_end() {
  Note("section -");
  return 0;
}

FAKE Ecore_Select_Function ecore_main_loop_select_func_get() {
  return &::select;
}

FAKE void ecore_main_loop_select_func_set(Ecore_Select_Function) {
  Note("bridge");
}

FAKE Eina_Bool eina_main_loop_is() {
  return Toolkit().on_main_thread ? EINA_TRUE : EINA_FALSE;
}

FAKE int usleep(useconds_t micros) {
  Note("sleep " + std::to_string(micros));
  return 0;
}

FAKE int malloc_trim(std::size_t pad) noexcept {
  Note("trim " + std::to_string(pad));
  return 1;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (Toolkit().allocations_fail) return nullptr;
  try {
    return ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}
