// EFL and the compositor, loaded when the library first calls them.
//
// Commanding a viewer and following its state need no windows. Linked in the usual way, EFL and
// what it brings along (some 80 libraries) would still be loaded into each such program: ten times
// its start-up time and three times its memory. What is loaded stays: EFL cannot be unloaded.
//
// Tests link the library's objects without this file, with EFL itself or with fakes.
#include <Ecore.h>
#include <Elementary.h>
#include <Evas.h>
#include <pepper-efl.h>

#include "../common/on_demand.h"

namespace {

using kavrel::LibraryOnDemand;
using kavrel::Loading;

// Without EFL in the program there is no main loop of EFL that would have to be minded.
constexpr LibraryOnDemand kEina{"libeina.so.1", Loading::kOnlyIfLoaded};
constexpr LibraryOnDemand kEcore{"libecore.so.1", Loading::kOnlyIfLoaded};
constexpr LibraryOnDemand kEvas{"libevas.so.1", Loading::kAllowed};
constexpr LibraryOnDemand kElementary{"libelementary.so.1", Loading::kAllowed};
constexpr LibraryOnDemand kPepper{KAVREL_PEPPER_EFL_SONAME, Loading::kAllowed};

}  // namespace

extern "C" {

KAVREL_ON_DEMAND(kEina, Eina_Bool, eina_main_loop_is, (), ())

KAVREL_ON_DEMAND(kEcore, Ecore_Select_Function, ecore_main_loop_select_func_get, (), ())
KAVREL_ON_DEMAND(kEcore, void, ecore_main_loop_select_func_set, (Ecore_Select_Function function),
                 (function))
KAVREL_ON_DEMAND(kEcore, int, ecore_thread_main_loop_begin, (), ())
KAVREL_ON_DEMAND(kEcore, int, ecore_thread_main_loop_end, (), ())

KAVREL_ON_DEMAND(kEvas, void, evas_object_del, (Evas_Object * object), (object))
KAVREL_ON_DEMAND(kEvas, void, evas_object_layer_set, (Evas_Object * object, short layer),
                 (object, layer))
KAVREL_ON_DEMAND(kEvas, void, evas_object_show, (Evas_Object * object), (object))
KAVREL_ON_DEMAND(kEvas, void, evas_object_smart_callback_add,
                 (Evas_Object * object, const char* event, Evas_Smart_Cb function,
                  const void* data),
                 (object, event, function, data))
KAVREL_ON_DEMAND(kEvas, void*, evas_object_smart_callback_del,
                 (Evas_Object * object, const char* event, Evas_Smart_Cb function),
                 (object, event, function))

KAVREL_ON_DEMAND(kElementary, Eina_Bool, elm_win_keygrab_set,
                 (Elm_Win * window, const char* key, Evas_Modifier_Mask modifiers,
                  Evas_Modifier_Mask not_modifiers, int priority, Elm_Win_Keygrab_Mode mode),
                 (window, key, modifiers, not_modifiers, priority, mode))
KAVREL_ON_DEMAND(kElementary, Eina_Bool, elm_win_keygrab_unset,
                 (Elm_Win * window, const char* key, Evas_Modifier_Mask modifiers,
                  Evas_Modifier_Mask not_modifiers),
                 (window, key, modifiers, not_modifiers))
KAVREL_ON_DEMAND(kElementary, Evas_Object*, elm_win_util_standard_add,
                 (const char* name, const char* title), (name, title))

KAVREL_ON_DEMAND(kPepper, void*, pepper_efl_compositor_create,
                 (Evas_Object * root_window, const char* socket_name), (root_window, socket_name))
KAVREL_ON_DEMAND(kPepper, void, pepper_efl_compositor_destroy, (void* compositor), (compositor))
KAVREL_ON_DEMAND(kPepper, const char*, pepper_efl_object_app_id_get, (Evas_Object * object),
                 (object))
KAVREL_ON_DEMAND(kPepper, const char*, pepper_efl_object_title_get, (Evas_Object * object),
                 (object))

}  // extern "C"
