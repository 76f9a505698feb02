/** @file
 * The C command API: tell the viewer what to do, from any process.
 *
 *     #include <kavrel/app_api.h>
 *
 *     kavrel_api_h viewer = kavrel_api_create(KAVREL_VIEWER_APP_ID);
 *     if (viewer == nullptr) return 1;           // nobody serves that application id
 *     kavrel_api_tunechannel(viewer, "7", "News", "DVB-T", "my-app");
 *     int size = 0;
 *     if (kavrel_api_get_window_size(viewer, size)) std::printf("window size %d\n", size);
 *     kavrel_api_destroy(viewer);
 *
 * Each command becomes one request of the remote interface KavrelAppApi: the method's id, then the
 * arguments in the order in which they stand here. Arguments travel unchanged: nothing is checked,
 * trimmed or converted, and a text ends at its first NUL. What they mean is the viewer's choice;
 * the meanings given below are those of kavrel-viewer.
 *
 * One-way commands return when the request is handed over; answered ones wait for the viewer. How
 * long a send or an answer may take is up to the rpc-port service (the bundled one: 10 seconds,
 * KAVREL_RPC_TIMEOUT_MS).
 *
 * Threads: a handle may be used from several threads at once; its requests go out one after the
 * other. kavrel_api_destroy() must not overlap another call on the same handle. Handles are
 * independent of each other.
 *
 * Failures - null handle, never connected, viewer gone, no answer - are logged (tag "kavrel-api",
 * priority error) and the command returns nothing, false or 0; out values then keep what the caller
 * put there. No exception leaves a command but for a failed allocation or lock. A handle whose
 * viewer has gone stays useless: destroy it and create another.
 */
#pragma once

#include <kavrel/app_api_show.h>
#include <kavrel/app_api_types.h>
#include <kavrel/export.h>

#include <string>
#include <vector>

/// The application id under which the reference viewer serves.
#define KAVREL_VIEWER_APP_ID "org.zarnet.kavrel"

extern "C" {

/// Connects to the viewer with application id `app_id` and waits until the connection stands.
///
/// Events of the connection belong to the GLib main context that is the calling thread's default;
/// commands need no main loop.
///
/// @param app_id  application id of the viewer; null throws std::logic_error
/// @return a handle that the caller owns until kavrel_api_destroy(), or null when nobody serves
///         `app_id`, the service refuses this user, or the name is malformed; the log tells which.
///         Throws when the platform cannot make a proxy or memory is out.
KAVREL_EXPORT kavrel_api_h kavrel_api_create(const char* app_id);

/// Ends the connection and frees the handle. A null handle is logged and ignored; destroying a
/// handle twice is undefined.
/// @param handle  the viewer, from kavrel_api_create()
KAVREL_EXPORT void kavrel_api_destroy(kavrel_api_h handle);

/// Method 2, one-way: switch the viewer to another source. Like each tuning command it ends a
/// rating lock, a lost signal, teletext and the loading screen.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: source type such as "HDMI"
/// @param a2  string, item 2 of the request: source number
/// @param a3  string, item 3 of the request: label
/// @param a4  string, item 4 of the request: caller
/// None of the texts may be null: a null one throws std::logic_error.
KAVREL_EXPORT void kavrel_api_change_source(kavrel_api_h handle, const char* a1, const char* a2,
                                            const char* a3, const char* a4);

/// Method 3, answered: ask where the selection window is and how large.
/// @param handle  the viewer, from kavrel_api_create()
/// @param out1  int, field 1 of the result: left
/// @param out2  int, field 2 of the result: top
/// @param out3  int, field 3 of the result: width
/// @param out4  int, field 4 of the result: height
/// @return true: there always is a selection window; false on failure
KAVREL_EXPORT bool kavrel_api_get_selection_window_info(kavrel_api_h handle, int& out1, int& out2,
                                                        int& out3, int& out4);

/// Method 4, answered: ask within which limits the selection window moves. They follow from its
/// size, which follows from its zoom level: it always lies wholly on the picture of 1920 by 1080.
/// @param handle  the viewer, from kavrel_api_create()
/// @param out1  int, field 1 of the result: least left
/// @param out2  int, field 2 of the result: least top
/// @param out3  int, field 3 of the result: greatest left
/// @param out4  int, field 4 of the result: greatest top
/// @return true: there always is a selection window; false on failure
KAVREL_EXPORT bool kavrel_api_get_selection_window_move_range(kavrel_api_h handle, int& out1,
                                                              int& out2, int& out3, int& out4);

/// Method 5, answered: keep a position of the selection window, with its present zoom level, for
/// when the viewer is initialised (kavrel_api_send_init_command). The window itself stays.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: left
/// @param a2  int, item 2 of the request: top
/// @return true when the position was within the move range and is kept; false on failure too
KAVREL_EXPORT bool kavrel_api_store_selection_window_info(kavrel_api_h handle, int a1, int a2);

/// Method 6, answered: move the selection window.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: left
/// @param a2  int, item 2 of the request: top
/// @return true when the position was within the move range and is taken; false on failure too
KAVREL_EXPORT bool kavrel_api_move_selection_window_to(kavrel_api_h handle, int a1, int a2);

/// Method 7, answered: set the selection window's zoom level. The window keeps its middle as far as
/// the picture's edges allow.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: zoom level, 0 (largest window) to 4
/// @return true when the level is one the viewer has; false on failure too
KAVREL_EXPORT bool kavrel_api_change_selection_window_zoom_level(kavrel_api_h handle, int a1);

/// Method 8, answered: ask for the viewer's window size.
/// @param handle  the viewer, from kavrel_api_create()
/// @param out1  int, field 1 of the result: size code: 0 full screen, 1 three quarters, 2 half, 3 a
///              quarter
/// @return true: the viewer always has a window; false on failure
KAVREL_EXPORT bool kavrel_api_get_window_size(kavrel_api_h handle, int& out1);

/// Method 9, answered: set the viewer's window size.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: size code, 0 to 3 as above
/// @return true when the size is one the viewer has; false on failure too
KAVREL_EXPORT bool kavrel_api_set_window_size(kavrel_api_h handle, int a1);

/// Method 10, one-way: send a key to a device controlled by the multi-brand remote.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: device type
/// @param a2  int, item 2 of the request: device number
/// @param a3  int, item 3 of the request: 0 pressed, 1 released
/// @param a4  string, item 4 of the request: key name
/// @param a5  string list (a count, then the strings), item 5 of the request: options
KAVREL_EXPORT void kavrel_api_send_mbr_key(kavrel_api_h handle, int a1, int a2, int a3,
                                           const std::string& a4,
                                           const std::vector<std::string>& a5);

/// Method 33, one-way: send a free command. "pip-focus" with "main" or "pip" moves the focus; other
/// commands pass through the viewer without effect.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: command
/// @param a2  string, item 2 of the request: argument
KAVREL_EXPORT void kavrel_api_send_command(kavrel_api_h handle, const std::string& a1,
                                           const std::string& a2);

/// Method 34, one-way: allow a banner to be shown.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: banner name, as app_api_show.h gives it
/// @param a2  string, item 2 of the request: caller
KAVREL_EXPORT void kavrel_api_enable_banner(kavrel_api_h handle, const std::string& a1,
                                            const std::string& a2);

/// Method 35, one-way: keep a banner from being shown, and hide it if it is.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: banner name
/// @param a2  string, item 2 of the request: caller
KAVREL_EXPORT void kavrel_api_disable_banner(kavrel_api_h handle, const std::string& a1,
                                             const std::string& a2);

/// Method 36, one-way: tell the viewer to initialise: nothing shown, no picture-in-picture, full
/// screen, the selection window where it was stored. Channel, language and disabled banners stay.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: argument, for the log
KAVREL_EXPORT void kavrel_api_send_init_command(kavrel_api_h handle, const std::string& a1);

/// Method 37, one-way: hide a banner.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: banner name, or "all"
/// @param a2  string, item 2 of the request: caller
KAVREL_EXPORT void kavrel_api_send_hide_banner(kavrel_api_h handle, const std::string& a1,
                                               const std::string& a2);

/// Method 38, one-way: set the viewer's language.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: language code such as "en_GB"
KAVREL_EXPORT void kavrel_api_set_language(kavrel_api_h handle, const std::string& a1);

/// Method 39, one-way: send a command to a plug-in.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: plug-in name
/// @param a2  string, item 2 of the request: command
KAVREL_EXPORT void kavrel_api_plugin_cmd(kavrel_api_h handle, const std::string& a1,
                                         const std::string& a2);

/// Method 40, one-way: give the viewer a hint about the TV service.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: hint
KAVREL_EXPORT void kavrel_api_set_tvs_hint(kavrel_api_h handle, const std::string& a1);

/// Method 41, one-way: act on a notification.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: notification name
/// @param a2  int, item 2 of the request: action number; 0 hides the banner of that name, others
///            pass through the viewer without effect
KAVREL_EXPORT void kavrel_api_notification_command(kavrel_api_h handle, const std::string& a1,
                                                   int a2);

/// Method 42, one-way: tune to a channel.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: channel number; empty is refused
/// @param a2  string, item 2 of the request: channel name; empty: the one the viewer knows
/// @param a3  string, item 3 of the request: source such as "DVB-T"; empty: the one the viewer
/// knows
/// @param a4  string, item 4 of the request: caller
KAVREL_EXPORT void kavrel_api_tunechannel(kavrel_api_h handle, const std::string& a1,
                                          const std::string& a2, const std::string& a3,
                                          const std::string& a4);

/// Method 43, one-way: tune the main picture.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: channel number
/// @param a2  string, item 2 of the request: caller
KAVREL_EXPORT void kavrel_api_tunechannel_main(kavrel_api_h handle, const std::string& a1,
                                               const std::string& a2);

/// Method 44, one-way: tune by major and minor channel number.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  int, item 1 of the request: major number
/// @param a2  int, item 2 of the request: minor number, 0 for none
/// @param a3  string, item 3 of the request: caller
KAVREL_EXPORT void kavrel_api_tunechannel_major(kavrel_api_h handle, int a1, int a2,
                                                const std::string& a3);

/// Method 45, one-way: open the picture-in-picture window on a channel, or close it.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: channel number; empty closes the window
/// @param a2  string, item 2 of the request: caller
KAVREL_EXPORT void kavrel_api_tunechannel_pip(kavrel_api_h handle, const std::string& a1,
                                              const std::string& a2);

/// Method 46, one-way: tune by service id.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: service id
/// @param a2  string, item 2 of the request: transport stream id
/// @param a3  string, item 3 of the request: network id
/// @param a4  string, item 4 of the request: caller
KAVREL_EXPORT void kavrel_api_svcid_tune(kavrel_api_h handle, const std::string& a1,
                                         const std::string& a2, const std::string& a3,
                                         const std::string& a4);

/// Method 47, one-way: show the loading screen.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: text; empty hides the screen
KAVREL_EXPORT void kavrel_api_show_loading(kavrel_api_h handle, const std::string& a1);

/// Method 48, one-way: send a discrete remote-control command. "teletext" with "on" or "off" shows
/// and leaves teletext; other commands pass through the viewer without effect.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: command
/// @param a2  string, item 2 of the request: argument
KAVREL_EXPORT void kavrel_api_send_discrete_command(kavrel_api_h handle, const std::string& a1,
                                                    const std::string& a2);

/// Method 49, one-way: send a key of the automatic remote control.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: key name
/// @param a2  string, item 2 of the request: device
/// @param a3  string, item 3 of the request: action
/// @param a4  string, item 4 of the request: option
/// @param a5  string, item 5 of the request: caller
KAVREL_EXPORT void kavrel_api_send_autoremoconkey(kavrel_api_h handle, const std::string& a1,
                                                  const std::string& a2, const std::string& a3,
                                                  const std::string& a4, const std::string& a5);

/// Method 50, one-way: send a storage command.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: command
KAVREL_EXPORT void kavrel_api_send_storagecommand(kavrel_api_h handle, const std::string& a1);

/// Method 51, one-way: tell the viewer the state of the HbbTV application.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: state
KAVREL_EXPORT void kavrel_api_set_hbbtv_state(kavrel_api_h handle, const std::string& a1);

/// Method 52, one-way: tune as the voice application asks.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: channel asked for, its name or number
KAVREL_EXPORT void kavrel_api_voiceapprequest_tune(kavrel_api_h handle, const std::string& a1);

/// Method 53, one-way: leave teletext.
/// @param handle  the viewer, from kavrel_api_create()
/// @param a1  string, item 1 of the request: reason
KAVREL_EXPORT void kavrel_api_exit_ttx(kavrel_api_h handle, const std::string& a1);

/// Method 54, answered: ask for the viewer's state on behalf of Vistane.
/// @param handle  the viewer, from kavrel_api_create()
/// @param out1  int, field 1 of the result: state: 0 running, 1 loading, 2 no signal, 3 locked by
///              rating
/// @return the viewer's verdict: 0 when the picture can be seen (state 0), else 1; 0 on failure too
KAVREL_EXPORT int kavrel_api_check_state_for_vistane(kavrel_api_h handle, int& out1);

}  // extern "C"
