/** @file
 * The C command API, continued: the commands that show banners and pop-ups. Rules of use, threads
 * and failures are those of app_api.h, which includes this file.
 *
 * Each banner has a name, by which it is enabled, disabled and hidden (kavrel_api_enable_banner and
 * its neighbours); the loading screen's is "loading".
 */
#pragma once

#include <kavrel/app_api_types.h>
#include <kavrel/export.h>

#include <string>

extern "C" {

/// Method 11, one-way: show the channel banner. Name: "channel".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_channel_banner(kavrel_api_h handle, int a1);

/// Method 12, one-way: show the caption banner. Name: "caption".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
/// @param a2  string, item 2 of the request: text
KAVREL_EXPORT void kavrel_api_show_caption(kavrel_api_h handle, int a1, const std::string& a2);

/// Method 13, one-way: show the source banner. Name: "source".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
/// @param a2  string, item 2 of the request: source
/// @param a3  string, item 3 of the request: label
/// @param a4  string, item 4 of the request: detail
KAVREL_EXPORT void kavrel_api_show_source_banner(kavrel_api_h handle, int a1, const std::string& a2,
                                                 const std::string& a3, const std::string& a4);

/// Method 14, one-way: show the multi-track sound banner. Name: "mts".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
/// @param a2  string, item 2 of the request: sound mode
KAVREL_EXPORT void kavrel_api_show_MTS_banner(kavrel_api_h handle, int a1, const std::string& a2);

/// Method 15, one-way: show the rating banner. Name: "rating". Shown, it locks
/// the picture; hidden, it unlocks it.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
/// @param a2  string, item 2 of the request: rating
/// @param a3  string, item 3 of the request: reason
KAVREL_EXPORT void kavrel_api_show_rating_banner(kavrel_api_h handle, int a1, const std::string& a2,
                                                 const std::string& a3);

/// Method 16, one-way: show the no-signal banner. Name: "nosignal". Shown, the signal
/// is lost; hidden, it is back.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
/// @param a2  string, item 2 of the request: text
KAVREL_EXPORT void kavrel_api_show_nosignal_banner(kavrel_api_h handle, int a1,
                                                   const std::string& a2);

/// Method 17, one-way: show the recording information. Name: "pvr-info".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
/// @param a2  string, item 2 of the request: text
KAVREL_EXPORT void kavrel_api_show_PVR_info(kavrel_api_h handle, int a1, const std::string& a2);

/// Method 18, one-way: show the sleep timer pop-up. Name: "sleep-timer".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_sleep_timer_popup(kavrel_api_h handle, int a1);

/// Method 19, one-way: show the automatic power-off pop-up. Name: "auto-power-off".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_auto_power_off_popup(kavrel_api_h handle, int a1);

/// Method 20, one-way: show the fan error pop-up. Name: "fan-error".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_fan_error_popup(kavrel_api_h handle, int a1);

/// Method 21, one-way: show the projector heat-sink error pop-up. Name: "projector-hsm-error".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_projector_hsm_error_popup(kavrel_api_h handle, int a1);

/// Method 22, one-way: show the display notification. Name: "qd-display".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
/// @param a2  string, item 2 of the request: text
KAVREL_EXPORT void kavrel_api_show_qd_display_notification(kavrel_api_h handle, int a1,
                                                           const std::string& a2);

/// Method 23, one-way: show the reduced-brightness pop-up. Name: "pellwin-brightness-reduce".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_pellwin_brightness_reduce_popup(kavrel_api_h handle, int a1);

/// Method 24, one-way: show the hotel's no-channel pop-up. Name: "hotel-no-channel".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_hotel_no_channel_popup(kavrel_api_h handle, int a1);

/// Method 25, one-way: show the hospital's no-channel pop-up. Name: "hospital-no-channel".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_hospital_no_channel_popup(kavrel_api_h handle, int a1);

/// Method 26, one-way: show the insufficient-memory pop-up. Name: "insufficient-memory".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_insufficient_memory_popup(kavrel_api_h handle, int a1);

/// Method 27, one-way: show the sign-language zoom set-up. Name: "sign-zoom-setup".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_sign_zoom_setup(kavrel_api_h handle, int a1);

/// Method 28, one-way: show the return-to-previous-channel pop-up. Name: "return-prev-channel".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_return_prev_channel_popup(kavrel_api_h handle, int a1);

/// Method 29, one-way: show the no-signal power-off timer. Name: "no-signal-power-off-timer".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
KAVREL_EXPORT void kavrel_api_show_no_signal_power_off_timer_popup(kavrel_api_h handle, int a1);

/// Method 30, one-way: show the key guide banner. Name: "key-guide".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
/// @param a2  int, item 2 of the request: guide page
KAVREL_EXPORT void kavrel_api_show_key_guide_banner(kavrel_api_h handle, int a1, int a2);

/// Method 31, one-way: show the game mode banner. Name: "game-mode".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
/// @param a2  bool, item 2 of the request: whether game mode is on
KAVREL_EXPORT void kavrel_api_show_game_mode_banner(kavrel_api_h handle, int a1, bool a2);

/// Method 32, one-way: show the one-connect view of an LED wall. Name: "ocl-view".
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: option: 0 hides, anything else shows
/// @param a2  string, item 2 of the request: text
KAVREL_EXPORT void kavrel_api_show_ocl_view_for_MLED(kavrel_api_h handle, int a1,
                                                     const std::string& a2);

}  // extern "C"
