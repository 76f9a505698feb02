#include <kavrel/state_api.h>

#include "PropertyAccess.h"

using kavrel::Here;
using kavrel::state::Get;
using kavrel::state::GetStatus;
using kavrel::state::Set;
using kavrel::state::Unwatch;
using kavrel::state::Watch;
namespace properties = kavrel::state::properties;

int kavrel_get_more_key_option_type(void) {
  return GetStatus(Here(), properties::more_key_option_type);
}

int kavrel_set_more_key_option_type(const char* value) {
  return Set(Here(), properties::more_key_option_type, value);
}

int kavrel_get_visible_video_banners(void) {
  return GetStatus(Here(), properties::visible_video_banners);
}

int kavrel_register_visible_video_banners_change_cb(kavrel_value_changed_cb callback,
                                                    void* user_data) {
  return Watch(Here(), properties::visible_video_banners, callback, user_data);
}

int kavrel_unregister_visible_video_banners_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::visible_video_banners, callback);
}

int kavrel_get_visible_banners(void) {
  return GetStatus(Here(), properties::visible_banners);
}

int kavrel_register_visible_banners_change_cb(kavrel_value_changed_cb callback, void* user_data) {
  return Watch(Here(), properties::visible_banners, callback, user_data);
}

int kavrel_unregister_visible_banners_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::visible_banners, callback);
}

int kavrel_get_pip_focus(int* value) {
  return Get(Here(), properties::pip_focus, value);
}

int kavrel_set_pip_focus(int value) {
  return Set(Here(), properties::pip_focus, value);
}

int kavrel_register_pip_focus_change_cb(kavrel_value_changed_cb callback, void* user_data) {
  return Watch(Here(), properties::pip_focus, callback, user_data);
}

int kavrel_unregister_pip_focus_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::pip_focus, callback);
}

int kavrel_get_use_4_direction_key(int* value) {
  return Get(Here(), properties::use_4_direction_key, value);
}

int kavrel_set_use_4_direction_key(int value) {
  return Set(Here(), properties::use_4_direction_key, value);
}

int kavrel_register_use_4_direction_key_change_cb(kavrel_value_changed_cb callback,
                                                  void* user_data) {
  return Watch(Here(), properties::use_4_direction_key, callback, user_data);
}

int kavrel_unregister_use_4_direction_key_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::use_4_direction_key, callback);
}

int kavrel_get_mainscreen_signal_state(int* value) {
  return Get(Here(), properties::mainscreen_signal_state, value);
}

int kavrel_set_mainscreen_signal_state(int value) {
  return Set(Here(), properties::mainscreen_signal_state, value);
}

int kavrel_register_mainscreen_signal_state_change_cb(kavrel_value_changed_cb callback,
                                                      void* user_data) {
  return Watch(Here(), properties::mainscreen_signal_state, callback, user_data);
}

int kavrel_unregister_mainscreen_signal_state_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::mainscreen_signal_state, callback);
}

int kavrel_get_date_service_available(int* value) {
  return Get(Here(), properties::date_service_available, value);
}

int kavrel_set_date_service_available(int value) {
  return Set(Here(), properties::date_service_available, value);
}

int kavrel_register_date_service_available_change_cb(kavrel_value_changed_cb callback,
                                                     void* user_data) {
  return Watch(Here(), properties::date_service_available, callback, user_data);
}

int kavrel_unregister_date_service_available_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::date_service_available, callback);
}

int kavrel_get_bg_executable(int* value) {
  return Get(Here(), properties::bg_executable, value);
}

int kavrel_set_bg_executable(int value) {
  return Set(Here(), properties::bg_executable, value);
}

int kavrel_register_bg_executable_change_cb(kavrel_value_changed_cb callback, void* user_data) {
  return Watch(Here(), properties::bg_executable, callback, user_data);
}

int kavrel_unregister_bg_executable_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::bg_executable, callback);
}

int kavrel_get_info_banner_dynamic_si_modify_state(int* value) {
  return Get(Here(), properties::info_banner_dynamic_si_modify_state, value);
}

int kavrel_set_info_banner_dynamic_si_modify_state(int value) {
  return Set(Here(), properties::info_banner_dynamic_si_modify_state, value);
}

int kavrel_register_info_banner_dynamic_si_modify_state_change_cb(kavrel_value_changed_cb callback,
                                                                  void* user_data) {
  return Watch(Here(), properties::info_banner_dynamic_si_modify_state, callback, user_data);
}

int kavrel_unregister_info_banner_dynamic_si_modify_state_change_cb(
    kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::info_banner_dynamic_si_modify_state, callback);
}

int kavrel_get_info_banner_ttx_state(int* value) {
  return Get(Here(), properties::info_banner_ttx_state, value);
}

int kavrel_set_info_banner_ttx_state(int value) {
  return Set(Here(), properties::info_banner_ttx_state, value);
}

int kavrel_register_info_banner_ttx_state_change_cb(kavrel_value_changed_cb callback,
                                                    void* user_data) {
  return Watch(Here(), properties::info_banner_ttx_state, callback, user_data);
}

int kavrel_unregister_info_banner_ttx_state_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::info_banner_ttx_state, callback);
}

int kavrel_get_info_banner_caption_state(int* value) {
  return Get(Here(), properties::info_banner_caption_state, value);
}

int kavrel_set_info_banner_caption_state(int value) {
  return Set(Here(), properties::info_banner_caption_state, value);
}

int kavrel_register_info_banner_caption_state_change_cb(kavrel_value_changed_cb callback,
                                                        void* user_data) {
  return Watch(Here(), properties::info_banner_caption_state, callback, user_data);
}

int kavrel_unregister_info_banner_caption_state_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::info_banner_caption_state, callback);
}

int kavrel_get_info_banner_ttml_state(int* value) {
  return Get(Here(), properties::info_banner_ttml_state, value);
}

int kavrel_set_info_banner_ttml_state(int value) {
  return Set(Here(), properties::info_banner_ttml_state, value);
}

int kavrel_register_info_banner_ttml_state_change_cb(kavrel_value_changed_cb callback,
                                                     void* user_data) {
  return Watch(Here(), properties::info_banner_ttml_state, callback, user_data);
}

int kavrel_unregister_info_banner_ttml_state_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::info_banner_ttml_state, callback);
}

int kavrel_get_banner_show_state(int* value) {
  return Get(Here(), properties::banner_show_state, value);
}

int kavrel_register_banner_show_state_change_cb(kavrel_value_changed_cb callback, void* user_data) {
  return Watch(Here(), properties::banner_show_state, callback, user_data);
}

int kavrel_unregister_banner_show_state_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::banner_show_state, callback);
}

int kavrel_get_info_banner_subtitle_state(int* value) {
  return Get(Here(), properties::info_banner_subtitle_state, value);
}

int kavrel_set_info_banner_subtitle_state(int value) {
  return Set(Here(), properties::info_banner_subtitle_state, value);
}

int kavrel_register_info_banner_subtitle_state_change_cb(kavrel_value_changed_cb callback,
                                                         void* user_data) {
  return Watch(Here(), properties::info_banner_subtitle_state, callback, user_data);
}

int kavrel_unregister_info_banner_subtitle_state_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::info_banner_subtitle_state, callback);
}

int kavrel_get_analog_clean_view_state(int* value) {
  return Get(Here(), properties::analog_clean_view_state, value);
}

int kavrel_set_analog_clean_view_state(int value) {
  return Set(Here(), properties::analog_clean_view_state, value);
}

int kavrel_register_analog_clean_view_state_change_cb(kavrel_value_changed_cb callback,
                                                      void* user_data) {
  return Watch(Here(), properties::analog_clean_view_state, callback, user_data);
}

int kavrel_unregister_analog_clean_view_state_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::analog_clean_view_state, callback);
}

int kavrel_get_kavrel_state(void) {
  return GetStatus(Here(), properties::kavrel_state);
}

int kavrel_register_kavrel_state_change_cb(kavrel_value_changed_cb callback, void* user_data) {
  return Watch(Here(), properties::kavrel_state, callback, user_data);
}

int kavrel_unregister_kavrel_state_change_cb(kavrel_value_changed_cb callback) {
  return Unwatch(Here(), properties::kavrel_state, callback);
}

int kavrel_get_memory_serdes_error(int* value) {
  return Get(Here(), properties::memory_serdes_error, value);
}

int kavrel_set_memroy_serdes_error(int value) {
  return Set(Here(), properties::memory_serdes_error, value);
}

int kavrel_get_db_serdes_error(int* value) {
  return Get(Here(), properties::db_serdes_error, value);
}

int kavrel_set_db_serdes_error(int value) {
  return Set(Here(), properties::db_serdes_error, value);
}
