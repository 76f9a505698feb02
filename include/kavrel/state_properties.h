/** @file
 * The properties of the state API as one table: the exported functions, kavrelctl's get, set and
 * watch, the documents and the tests that walk all properties are made from the rows below.
 *
 * This header needs nothing but state_api.h (C++17).
 */
#pragma once

#include <kavrel/state_api.h>

#include <cstddef>
#include <iterator>
#include <type_traits>

/// The properties of the viewer's state.
namespace kavrel::state {

/// How a property is stored. Locked is the text "locked" or "unlocked", read as a bool.
enum class PropertyType { String, Int, Bool, Locked };

/// The name of a type as help texts and error lines show it.
constexpr const char* PropertyTypeName(PropertyType type) {
  switch (type) {
    case PropertyType::String:
      return "string";
    case PropertyType::Int:
      return "int";
    case PropertyType::Bool:
      return "bool";
    case PropertyType::Locked:
      return "locked";
  }
  return "?";
}

// clang-format off
/// X(name, key, type, getter, setter, registration, removal, meaning); nullptr where there is none.
/// Three keys are named otherwise than their property, and some functions are spelled oddly: keys
/// are shared with viewers in the field, names are exported.
#define KAVREL_STATE_PROPERTIES(X) \
  X(more_key_option_type, "memory/kavrel/more_key_option_type", String, kavrel_get_more_key_option_type, kavrel_set_more_key_option_type, nullptr, nullptr, "which options the remote control's \"more\" key offers") \
  X(visible_video_banners, "memory/kavrel/visible_video_banners", String, kavrel_get_visible_video_banners, nullptr, kavrel_register_visible_video_banners_change_cb, kavrel_unregister_visible_video_banners_change_cb, "names of the banners shown over the picture, comma-separated") \
  X(visible_banners, "memory/kavrel/visible_banners", String, kavrel_get_visible_banners, nullptr, kavrel_register_visible_banners_change_cb, kavrel_unregister_visible_banners_change_cb, "names of all banners shown, comma-separated") \
  X(pip_focus, "memory/kavrel/pip_focus", Int, kavrel_get_pip_focus, kavrel_set_pip_focus, kavrel_register_pip_focus_change_cb, kavrel_unregister_pip_focus_change_cb, "1 while the picture-in-picture window has the focus") \
  X(use_4_direction_key, "memory/kavrel/banner_show", Int, kavrel_get_use_4_direction_key, kavrel_set_use_4_direction_key, kavrel_register_use_4_direction_key_change_cb, kavrel_unregister_use_4_direction_key_change_cb, "1 while the viewer itself needs the four direction keys") \
  X(mainscreen_signal_state, "memory/kavrel/mainscreen_signal_state", Int, kavrel_get_mainscreen_signal_state, kavrel_set_mainscreen_signal_state, kavrel_register_mainscreen_signal_state_change_cb, kavrel_unregister_mainscreen_signal_state_change_cb, "state of the main picture's signal, 0: no signal") \
  X(date_service_available, "memory/kavrel/data_service", Int, kavrel_get_date_service_available, kavrel_set_date_service_available, kavrel_register_date_service_available_change_cb, kavrel_unregister_date_service_available_change_cb, "1 while the channel carries a data service") \
  X(bg_executable, "memory/kavrel/bg_executable", Int, kavrel_get_bg_executable, kavrel_set_bg_executable, kavrel_register_bg_executable_change_cb, kavrel_unregister_bg_executable_change_cb, "1 while applications may run behind the viewer") \
  X(info_banner_dynamic_si_modify_state, "memory/kavrel/modify_channel_info", Bool, kavrel_get_info_banner_dynamic_si_modify_state, kavrel_set_info_banner_dynamic_si_modify_state, kavrel_register_info_banner_dynamic_si_modify_state_change_cb, kavrel_unregister_info_banner_dynamic_si_modify_state_change_cb, "1 while the channel's service information has just changed") \
  X(info_banner_ttx_state, "memory/kavrel/infobanner/ttx", Bool, kavrel_get_info_banner_ttx_state, kavrel_set_info_banner_ttx_state, kavrel_register_info_banner_ttx_state_change_cb, kavrel_unregister_info_banner_ttx_state_change_cb, "1 while the channel carries teletext") \
  X(info_banner_caption_state, "memory/kavrel/infobanner/caption", Bool, kavrel_get_info_banner_caption_state, kavrel_set_info_banner_caption_state, kavrel_register_info_banner_caption_state_change_cb, kavrel_unregister_info_banner_caption_state_change_cb, "1 while the channel carries captions") \
  X(info_banner_ttml_state, "memory/kavrel/infobanner/ttml", Bool, kavrel_get_info_banner_ttml_state, kavrel_set_info_banner_ttml_state, kavrel_register_info_banner_ttml_state_change_cb, kavrel_unregister_info_banner_ttml_state_change_cb, "1 while the channel carries TTML subtitles") \
  X(banner_show_state, "memory/kavrel/kavrel_banner_state_16", Int, kavrel_get_banner_show_state, nullptr, kavrel_register_banner_show_state_change_cb, kavrel_unregister_banner_show_state_change_cb, "1 while any banner is shown") \
  X(info_banner_subtitle_state, "memory/kavrel/infobanner/subtitle", Bool, kavrel_get_info_banner_subtitle_state, kavrel_set_info_banner_subtitle_state, kavrel_register_info_banner_subtitle_state_change_cb, kavrel_unregister_info_banner_subtitle_state_change_cb, "1 while the channel carries subtitles") \
  X(analog_clean_view_state, "memory/kavrel/analog_clean_view_demo", Bool, kavrel_get_analog_clean_view_state, kavrel_set_analog_clean_view_state, kavrel_register_analog_clean_view_state_change_cb, kavrel_unregister_analog_clean_view_state_change_cb, "1 while noise reduction of analogue channels is demonstrated") \
  X(kavrel_state, "memory/kavrel/viewer_state", String, kavrel_get_kavrel_state, nullptr, kavrel_register_kavrel_state_change_cb, kavrel_unregister_kavrel_state_change_cb, "what the viewer is doing, a word") \
  X(memory_serdes_error, "memory/kavrel/serdes_error", Int, kavrel_get_memory_serdes_error, kavrel_set_memroy_serdes_error, nullptr, nullptr, "error counter of the signal link since start") \
  X(db_serdes_error, "db/kavrel/serdes_error", Int, kavrel_get_db_serdes_error, kavrel_set_db_serdes_error, nullptr, nullptr, "error counter of the signal link, kept over restarts") \
  X(rating_locked, "memory/kavrel/rating_locked", Locked, kavrel_get_rating_locked, nullptr, kavrel_register_rating_locked_cb, kavrel_unregister_rating_locked_cb, "whether the programme is locked by its rating") \
  X(window_id, "db/kavrel/window_id", Int, kavrel_get_window_id, nullptr, kavrel_register_window_id_cb, kavrel_unregister_window_id_cb, "id of the viewer's window")
// clang-format on

/// One property as a type of its own, so that using a function it does not have fails to compile.
template <PropertyType kTypeOf, bool kHasSetter, bool kHasWatch>
struct Property {
  static constexpr PropertyType kType = kTypeOf;  ///< how it is stored
  static constexpr bool kWritable = kHasSetter;   ///< whether it has a setter
  static constexpr bool kWatchable = kHasWatch;   ///< whether it can be watched
  const char* key;                                ///< in the state store
};

/// properties::pip_focus, ...: one constant a row.
namespace properties {
/// @cond
#define KAVREL_STATE_PROPERTY(name, key, type, getter, setter, registration, removal, meaning)     \
  inline constexpr Property<PropertyType::type, !std::is_same_v<decltype(setter), std::nullptr_t>, \
                            !std::is_same_v<decltype(registration), std::nullptr_t>>               \
      name{key};
KAVREL_STATE_PROPERTIES(KAVREL_STATE_PROPERTY)
#undef KAVREL_STATE_PROPERTY
/// @endcond
}  // namespace properties

/// One row as data. Exactly one getter is set, at most one setter; both registrations or none.
struct PropertyInfo {
  const char* name;              ///< "pip_focus"
  const char* key;               ///< "memory/kavrel/pip_focus"
  PropertyType type;             ///< decides which getter and which setter it can have
  const char* meaning;           ///< one line
  int (*get_number)(int*);       ///< Int and Bool
  int (*get_status)();           ///< String: only whether there is a value
  int (*get_locked)(bool*);      ///< Locked
  int (*set_number)(int);        ///< Int and Bool
  int (*set_text)(const char*);  ///< String
  int (*watch)(kavrel_value_changed_cb, void*);  ///< registers a function
  int (*unwatch)(kavrel_value_changed_cb);       ///< removes it

  /// Whether it has a setter.
  constexpr bool IsWritable() const { return set_number != nullptr || set_text != nullptr; }
  /// Whether it can be watched.
  constexpr bool IsWatchable() const { return watch != nullptr; }
};

namespace detail {
constexpr void Assign(PropertyInfo& info, int (*getter)(int*)) {
  info.get_number = getter;
}
constexpr void Assign(PropertyInfo& info, int (*getter)()) {
  info.get_status = getter;
}
constexpr void Assign(PropertyInfo& info, int (*getter)(bool*)) {
  info.get_locked = getter;
}
constexpr void Assign(PropertyInfo& info, int (*setter)(int)) {
  info.set_number = setter;
}
constexpr void Assign(PropertyInfo& info, int (*setter)(const char*)) {
  info.set_text = setter;
}
constexpr void Assign(PropertyInfo& /*info*/, std::nullptr_t /*none*/) {}

template <class Getter, class Setter>
constexpr PropertyInfo Describe(const char* name, const char* key, PropertyType type,
                                const char* meaning, Getter getter, Setter setter,
                                int (*watch)(kavrel_value_changed_cb, void*),
                                int (*unwatch)(kavrel_value_changed_cb)) {
  PropertyInfo info{};
  info.name = name;
  info.key = key;
  info.type = type;
  info.meaning = meaning;
  info.watch = watch;
  info.unwatch = unwatch;
  Assign(info, getter);
  Assign(info, setter);
  return info;
}
}  // namespace detail

/// @cond
#define KAVREL_STATE_PROPERTY_INFO(name, key, type, getter, setter, registration, removal, \
                                   meaning)                                                \
  detail::Describe(#name, key, PropertyType::type, meaning, getter, setter, registration, removal),
/// @endcond
/// All rows. Using it needs the library at link time: it holds the functions' addresses.
inline constexpr PropertyInfo kProperties[] = {KAVREL_STATE_PROPERTIES(KAVREL_STATE_PROPERTY_INFO)};
#undef KAVREL_STATE_PROPERTY_INFO

/// How many properties there are.
inline constexpr std::size_t kPropertyCount = std::size(kProperties);

}  // namespace kavrel::state
