/** @file
 * The C state API: read, write and watch what the viewer publishes about itself. For C and C++.
 *
 * Every property is one key of the platform's state store. Keys below "memory/" end with the
 * system's runtime directory, keys below "db/" survive restarts. The viewer writes them; any
 * program may read, watch and - where there is a setter - write them.
 *
 *     int focus = 0;                                                          // read
 *     if (kavrel_get_pip_focus(&focus) == 0) printf("focus %d\n", focus);
 *
 *     if (kavrel_set_pip_focus(1) != 0) puts("the store refused");            // write
 *
 *     static void changed(valuenode_s* node, void* data) {                    // watch
 *       if (node->type == KAVREL_VALUE_INT) printf("focus %d\n", node->value.intValue);
 *     }
 *     ...
 *     kavrel_register_pip_focus_change_cb(changed, NULL);
 *     g_main_loop_run(loop);
 *     kavrel_unregister_pip_focus_change_cb(changed);
 *
 * Every function returns 0 on success and -1 on failure, which it logs with the tag "kavrel-api".
 * Getters leave `*value` untouched when they fail: the key has no value yet, or one of another
 * type. Their pointer must not be NULL. Functions that register or unregister throw std::bad_alloc
 * when memory is out, which ends a C program; nothing has changed then.
 *
 * Registering: a function can watch a key once, whatever its user data (the second time is -1), and
 * several functions can watch one key: they are called in the order of registration. All of them
 * receive the user data of the FIRST registration of that key, until the last function has been
 * unregistered; whoever registers then is the first. A NULL function gives -1. Unregistering from a
 * key that nobody watches succeeds; a function that does not watch a watched key gives -1.
 *
 * A callback may register and unregister freely, itself included: who was registered when the
 * change came and still is when its turn comes is called once; who joins meanwhile - or leaves and
 * joins again - is called from the next change on. It may set values too, its own key's included:
 * that is another change. Changes in quick succession may be merged into one call with the last
 * value. A callback must not throw: that ends the program.
 *
 * Thread: registering, unregistering and the callbacks belong to the thread that runs the program's
 * GLib main loop (callbacks arrive on its thread-default main context). Getters and setters may be
 * called from any thread with the bundled store.
 */
#ifndef KAVREL_STATE_API_H
#define KAVREL_STATE_API_H

#include <kavrel/export.h>
#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What `type` of a valuenode_s can be; decides which member of `value` holds the value. Any other
 * type (a store may know more) means that none does. */
enum {
  KAVREL_VALUE_STRING = 1,
  KAVREL_VALUE_INT = 2,
  KAVREL_VALUE_DOUBLE = 3,
  KAVREL_VALUE_BOOL = 4
};

/** The value handed to a change callback. The record belongs to the library and lives until the
 * callback returns. */
typedef struct valuenode_s {
  int type; /**< KAVREL_VALUE_... */
  union {
    char* strValue;     /**< STRING: NUL-terminated, borrowed: copy it to keep it, never free it */
    int intValue;       /**< INT: signed, 32 bits */
    double doubleValue; /**< DOUBLE: 64 bits; no property has it today */
    int boolValue;      /**< BOOL: 0 or 1 */
  } value;              /**< the value; type tells which member holds it */
} valuenode_s;

/** Called with the new value and the user data of the key's first registration. */
typedef void (*kavrel_value_changed_cb)(valuenode_s* node, void* user_data);

/** @{ */
/** more_key_option_type: which options the remote control's "more" key offers.
 * Key "memory/kavrel/more_key_option_type", string. Reading only tells whether the key has a value:
 * 0 or -1. NULL is refused.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_more_key_option_type(void);
KAVREL_EXPORT int kavrel_set_more_key_option_type(const char* value);
/** @} */

/** @{ */
/** visible_video_banners: names of the banners shown over the picture, comma-separated.
 * Key "memory/kavrel/visible_video_banners", string. Reading only tells whether the key has a
 * value: 0 or -1. Written by the viewer alone.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_visible_video_banners(void);
KAVREL_EXPORT int kavrel_register_visible_video_banners_change_cb(kavrel_value_changed_cb callback,
                                                                  void* user_data);
KAVREL_EXPORT int kavrel_unregister_visible_video_banners_change_cb(
    kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** visible_banners: names of all banners shown, comma-separated.
 * Key "memory/kavrel/visible_banners", string. Reading only tells whether the key has a value: 0 or
 * -1. Written by the viewer alone.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_visible_banners(void);
KAVREL_EXPORT int kavrel_register_visible_banners_change_cb(kavrel_value_changed_cb callback,
                                                            void* user_data);
KAVREL_EXPORT int kavrel_unregister_visible_banners_change_cb(kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** pip_focus: 1 while the picture-in-picture window has the focus.
 * Key "memory/kavrel/pip_focus", int.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_pip_focus(int* value);
KAVREL_EXPORT int kavrel_set_pip_focus(int value);
KAVREL_EXPORT int kavrel_register_pip_focus_change_cb(kavrel_value_changed_cb callback,
                                                      void* user_data);
KAVREL_EXPORT int kavrel_unregister_pip_focus_change_cb(kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** use_4_direction_key: 1 while the viewer itself needs the four direction keys.
 * Key "memory/kavrel/banner_show", int.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_use_4_direction_key(int* value);
KAVREL_EXPORT int kavrel_set_use_4_direction_key(int value);
KAVREL_EXPORT int kavrel_register_use_4_direction_key_change_cb(kavrel_value_changed_cb callback,
                                                                void* user_data);
KAVREL_EXPORT int kavrel_unregister_use_4_direction_key_change_cb(kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** mainscreen_signal_state: state of the main picture's signal, 0: no signal.
 * Key "memory/kavrel/mainscreen_signal_state", int.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_mainscreen_signal_state(int* value);
KAVREL_EXPORT int kavrel_set_mainscreen_signal_state(int value);
KAVREL_EXPORT int kavrel_register_mainscreen_signal_state_change_cb(
    kavrel_value_changed_cb callback, void* user_data);
KAVREL_EXPORT int kavrel_unregister_mainscreen_signal_state_change_cb(
    kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** date_service_available: 1 while the channel carries a data service.
 * Key "memory/kavrel/data_service", int.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_date_service_available(int* value);
KAVREL_EXPORT int kavrel_set_date_service_available(int value);
KAVREL_EXPORT int kavrel_register_date_service_available_change_cb(kavrel_value_changed_cb callback,
                                                                   void* user_data);
KAVREL_EXPORT int kavrel_unregister_date_service_available_change_cb(
    kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** bg_executable: 1 while applications may run behind the viewer.
 * Key "memory/kavrel/bg_executable", int.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_bg_executable(int* value);
KAVREL_EXPORT int kavrel_set_bg_executable(int value);
KAVREL_EXPORT int kavrel_register_bg_executable_change_cb(kavrel_value_changed_cb callback,
                                                          void* user_data);
KAVREL_EXPORT int kavrel_unregister_bg_executable_change_cb(kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** info_banner_dynamic_si_modify_state: 1 while the channel's service information has just changed.
 * Key "memory/kavrel/modify_channel_info", bool.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_info_banner_dynamic_si_modify_state(int* value);
KAVREL_EXPORT int kavrel_set_info_banner_dynamic_si_modify_state(int value);
KAVREL_EXPORT int kavrel_register_info_banner_dynamic_si_modify_state_change_cb(
    kavrel_value_changed_cb callback, void* user_data);
KAVREL_EXPORT int kavrel_unregister_info_banner_dynamic_si_modify_state_change_cb(
    kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** info_banner_ttx_state: 1 while the channel carries teletext.
 * Key "memory/kavrel/infobanner/ttx", bool.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_info_banner_ttx_state(int* value);
KAVREL_EXPORT int kavrel_set_info_banner_ttx_state(int value);
KAVREL_EXPORT int kavrel_register_info_banner_ttx_state_change_cb(kavrel_value_changed_cb callback,
                                                                  void* user_data);
KAVREL_EXPORT int kavrel_unregister_info_banner_ttx_state_change_cb(
    kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** info_banner_caption_state: 1 while the channel carries captions.
 * Key "memory/kavrel/infobanner/caption", bool.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_info_banner_caption_state(int* value);
KAVREL_EXPORT int kavrel_set_info_banner_caption_state(int value);
KAVREL_EXPORT int kavrel_register_info_banner_caption_state_change_cb(
    kavrel_value_changed_cb callback, void* user_data);
KAVREL_EXPORT int kavrel_unregister_info_banner_caption_state_change_cb(
    kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** info_banner_ttml_state: 1 while the channel carries TTML subtitles.
 * Key "memory/kavrel/infobanner/ttml", bool.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_info_banner_ttml_state(int* value);
KAVREL_EXPORT int kavrel_set_info_banner_ttml_state(int value);
KAVREL_EXPORT int kavrel_register_info_banner_ttml_state_change_cb(kavrel_value_changed_cb callback,
                                                                   void* user_data);
KAVREL_EXPORT int kavrel_unregister_info_banner_ttml_state_change_cb(
    kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** banner_show_state: 1 while any banner is shown.
 * Key "memory/kavrel/kavrel_banner_state_16", int. Written by the viewer alone.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_banner_show_state(int* value);
KAVREL_EXPORT int kavrel_register_banner_show_state_change_cb(kavrel_value_changed_cb callback,
                                                              void* user_data);
KAVREL_EXPORT int kavrel_unregister_banner_show_state_change_cb(kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** info_banner_subtitle_state: 1 while the channel carries subtitles.
 * Key "memory/kavrel/infobanner/subtitle", bool.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_info_banner_subtitle_state(int* value);
KAVREL_EXPORT int kavrel_set_info_banner_subtitle_state(int value);
KAVREL_EXPORT int kavrel_register_info_banner_subtitle_state_change_cb(
    kavrel_value_changed_cb callback, void* user_data);
KAVREL_EXPORT int kavrel_unregister_info_banner_subtitle_state_change_cb(
    kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** analog_clean_view_state: 1 while noise reduction of analogue channels is demonstrated.
 * Key "memory/kavrel/analog_clean_view_demo", bool.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_analog_clean_view_state(int* value);
KAVREL_EXPORT int kavrel_set_analog_clean_view_state(int value);
KAVREL_EXPORT int kavrel_register_analog_clean_view_state_change_cb(
    kavrel_value_changed_cb callback, void* user_data);
KAVREL_EXPORT int kavrel_unregister_analog_clean_view_state_change_cb(
    kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** kavrel_state: what the viewer is doing, a word.
 * Key "memory/kavrel/viewer_state", string. Reading only tells whether the key has a value: 0 or
 * -1. Written by the viewer alone.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_kavrel_state(void);
KAVREL_EXPORT int kavrel_register_kavrel_state_change_cb(kavrel_value_changed_cb callback,
                                                         void* user_data);
KAVREL_EXPORT int kavrel_unregister_kavrel_state_change_cb(kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** memory_serdes_error: error counter of the signal link since start.
 * Key "memory/kavrel/serdes_error", int. The setter's spelling is as exported.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_memory_serdes_error(int* value);
KAVREL_EXPORT int kavrel_set_memroy_serdes_error(int value);
/** @} */

/** @{ */
/** db_serdes_error: error counter of the signal link, kept over restarts.
 * Key "db/kavrel/serdes_error", int.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_db_serdes_error(int* value);
KAVREL_EXPORT int kavrel_set_db_serdes_error(int value);
/** @} */

/** @{ */
/** rating_locked: whether the programme is locked by its rating.
 * Key "memory/kavrel/rating_locked", string "locked" or "unlocked". The getter writes one byte:
 * true for "locked", false for any other text; -1 for none or an empty one. Watchers get the text
 * itself: a record of type KAVREL_VALUE_STRING, not a boolean.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_rating_locked(bool* value);
KAVREL_EXPORT int kavrel_register_rating_locked_cb(kavrel_value_changed_cb callback,
                                                   void* user_data);
KAVREL_EXPORT int kavrel_unregister_rating_locked_cb(kavrel_value_changed_cb callback);
/** @} */

/** @{ */
/** window_id: id of the viewer's window.
 * Key "db/kavrel/window_id", int. Written by the viewer alone.
 * @return 0; -1 with a line in the log when it failed */
KAVREL_EXPORT int kavrel_get_window_id(int* value);
KAVREL_EXPORT int kavrel_register_window_id_cb(kavrel_value_changed_cb callback, void* user_data);
KAVREL_EXPORT int kavrel_unregister_window_id_cb(kavrel_value_changed_cb callback);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
