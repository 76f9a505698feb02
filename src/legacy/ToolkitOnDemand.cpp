// EFL and the compositor, loaded when the library first calls them.
//
// Commanding a viewer and following its state need no windows. Linked in the usual way, EFL and
// what it brings along (some 80 libraries) would still be loaded into each such program: ten times
// its start-up time and three times its memory. So the shared library defines what it calls of
// them: each function finds the real one on its first call. A program that uses EFL itself has it
// loaded already, and that is the one found.
//
// Tests link the library's objects without this file, with EFL itself or with fakes.
#include <Ecore.h>
#include <Elementary.h>
#include <Evas.h>
#include <dlfcn.h>
#include <pepper-efl.h>

#include <atomic>
#include <string>

#include "ChannelLog.h"

namespace {

using kavrel::Here;

enum class When { kLoad, kOnlyIfLoaded };

struct Library {
  const char* name;
  When when;
};
// Without EFL in the program there is no main loop of EFL that would have to be minded.
constexpr Library kEina{"libeina.so.1", When::kOnlyIfLoaded};
constexpr Library kEcore{"libecore.so.1", When::kOnlyIfLoaded};
constexpr Library kEvas{"libevas.so.1", When::kLoad};
constexpr Library kElementary{"libelementary.so.1", When::kLoad};
constexpr Library kPepper{KAVREL_PEPPER_EFL_SONAME, When::kLoad};

// The library as the loader finds it, else from where this one lies: the loader does not look there
// by itself, and the bundled compositor is installed there. Empty `problem`: found, or not wanted.
void* Load(const Library& library, std::string& problem) {
  if (library.when == When::kOnlyIfLoaded) return ::dlopen(library.name, RTLD_NOW | RTLD_NOLOAD);
  if (void* const found = ::dlopen(library.name, RTLD_NOW)) return found;
  problem = kavreldbus::OrNone(::dlerror());
  Dl_info self{};
  if (::dladdr(reinterpret_cast<void*>(&Load), &self) == 0) return nullptr;
  const std::string own = self.dli_fname;
  const std::string beside = own.substr(0, own.rfind('/') + 1) + library.name;
  void* const found = ::dlopen(beside.c_str(), RTLD_NOW);
  if (found != nullptr) problem.clear();
  return found;
}

// The function as the program already has it, else as the library has it. Null when there is none,
// with an error line unless that is to be expected. What is loaded stays: EFL cannot be unloaded.
void* Find(const Library& library, const char* function) {
  if (void* const known = ::dlsym(RTLD_DEFAULT, function)) return known;
  std::string problem;
  void* const handle = Load(library, problem);
  if (handle == nullptr && problem.empty()) return nullptr;
  void* const found = handle != nullptr ? ::dlsym(handle, function) : nullptr;
  if (handle != nullptr && found == nullptr) problem = kavreldbus::OrNone(::dlerror());
  if (found == nullptr) {
    CHANNEL_ERROR(Here(), "cannot call %s: %s\n", function, problem.c_str());
  }
  return found;
}

// One function, found when first called; any thread. A call of one that is missing does nothing and
// returns zero.
template <typename Function>
class OnDemand;

template <typename Result, typename... Arguments>
class OnDemand<Result(Arguments...)> {
 public:
  constexpr OnDemand(const Library& library, const char* name) : library_(library), name_(name) {}

  Result operator()(Arguments... arguments) {
    const Function function = Get();
    return function != nullptr ? function(arguments...) : Result();
  }

 private:
  using Function = Result (*)(Arguments...);

  Function Get() {
    Function function = function_.load(std::memory_order_acquire);
    if (function == nullptr) {
      function = reinterpret_cast<Function>(Find(library_, name_));
      function_.store(function, std::memory_order_release);
    }
    return function;
  }

  const Library& library_;
  const char* const name_;
  std::atomic<Function> function_ = nullptr;
};

#define ON_DEMAND(library, name) constinit OnDemand<decltype(name)> real_##name(library, #name)

ON_DEMAND(kEina, eina_main_loop_is);
ON_DEMAND(kEcore, ecore_main_loop_select_func_get);
ON_DEMAND(kEcore, ecore_main_loop_select_func_set);
ON_DEMAND(kEcore, ecore_thread_main_loop_begin);
ON_DEMAND(kEcore, ecore_thread_main_loop_end);
ON_DEMAND(kEvas, evas_object_del);
ON_DEMAND(kEvas, evas_object_layer_set);
ON_DEMAND(kEvas, evas_object_show);
ON_DEMAND(kEvas, evas_object_smart_callback_add);
ON_DEMAND(kEvas, evas_object_smart_callback_del);
ON_DEMAND(kElementary, elm_win_keygrab_set);
ON_DEMAND(kElementary, elm_win_keygrab_unset);
ON_DEMAND(kElementary, elm_win_util_standard_add);
ON_DEMAND(kPepper, pepper_efl_compositor_create);
ON_DEMAND(kPepper, pepper_efl_compositor_destroy);
ON_DEMAND(kPepper, pepper_efl_object_app_id_get);
ON_DEMAND(kPepper, pepper_efl_object_title_get);

}  // namespace

extern "C" {

Eina_Bool eina_main_loop_is() {
  return real_eina_main_loop_is();
}

Ecore_Select_Function ecore_main_loop_select_func_get() {
  return real_ecore_main_loop_select_func_get();
}

void ecore_main_loop_select_func_set(Ecore_Select_Function function) {
  real_ecore_main_loop_select_func_set(function);
}

int ecore_thread_main_loop_begin() {
  return real_ecore_thread_main_loop_begin();
}

int ecore_thread_main_loop_end() {
  return real_ecore_thread_main_loop_end();
}

void evas_object_del(Evas_Object* object) {
  real_evas_object_del(object);
}

void evas_object_layer_set(Evas_Object* object, short layer) {
  real_evas_object_layer_set(object, layer);
}

void evas_object_show(Evas_Object* object) {
  real_evas_object_show(object);
}

void evas_object_smart_callback_add(Evas_Object* object, const char* event, Evas_Smart_Cb function,
                                    const void* data) {
  real_evas_object_smart_callback_add(object, event, function, data);
}

void* evas_object_smart_callback_del(Evas_Object* object, const char* event,
                                     Evas_Smart_Cb function) {
  return real_evas_object_smart_callback_del(object, event, function);
}

Eina_Bool elm_win_keygrab_set(Elm_Win* window, const char* key, Evas_Modifier_Mask modifiers,
                              Evas_Modifier_Mask not_modifiers, int priority,
                              Elm_Win_Keygrab_Mode mode) {
  return real_elm_win_keygrab_set(window, key, modifiers, not_modifiers, priority, mode);
}

Eina_Bool elm_win_keygrab_unset(Elm_Win* window, const char* key, Evas_Modifier_Mask modifiers,
                                Evas_Modifier_Mask not_modifiers) {
  return real_elm_win_keygrab_unset(window, key, modifiers, not_modifiers);
}

Evas_Object* elm_win_util_standard_add(const char* name, const char* title) {
  return real_elm_win_util_standard_add(name, title);
}

void* pepper_efl_compositor_create(Evas_Object* root_window, const char* socket_name) {
  return real_pepper_efl_compositor_create(root_window, socket_name);
}

void pepper_efl_compositor_destroy(void* compositor) {
  real_pepper_efl_compositor_destroy(compositor);
}

const char* pepper_efl_object_app_id_get(Evas_Object* object) {
  return real_pepper_efl_object_app_id_get(object);
}

const char* pepper_efl_object_title_get(Evas_Object* object) {
  return real_pepper_efl_object_title_get(object);
}

}  // extern "C"
