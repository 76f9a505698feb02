/** @file
 * How a viewer becomes a host of plug-ins, and how a program becomes a plug-in.
 *
 * In the viewer, whose name is "kavrel":
 *
 *     IViewerHost* host = nullptr;
 *     KavrelAPI::CreateViewerHost(window, &host, OnPluginMessage, nullptr, "kavrel");
 *     ...                                        // for each key of the remote control
 *     if (!host->DispatchInput(key, 0, 0, consumer)) HandleItMyself(key);
 *
 * In a plug-in, which may start before the viewer:
 *
 *     elm_init(argc, argv);
 *     IViewerPluggable* plugin = nullptr;
 *     KavrelAPI::CreatePluggable(VIEWER_PLUGIN_LEAVES, "clock", &plugin, "kavrel");
 *     plugin->RegisterKeyInputListener(&listener);
 *     Evas_Object* window = KavrelAPI::CreatePepperPluginWindow("main", "clock", "kavrel");
 *     ...
 *     elm_run();
 *     KavrelAPI::DestroyPluggable("clock", "kavrel");
 *
 * Main loop: what arrives for a host or a plug-in is dispatched by the main loop of the process's
 * main thread, EFL's (elm_run) or GLib's (GMainLoop on the default context). EFL's loop serves
 * GLib's default context from the moment a host or plug-in is made, also where EFL was built
 * without GLib; a program need not do anything for it. A host with a window and a plug-in with one
 * need EFL's loop.
 *
 * Names are of ASCII letters, digits and '-'. A plug-in's name becomes part of names on the bus,
 * which take no '-' in it and no digit at its start: such a plug-in is made but never connected,
 * and the log says why.
 *
 * Thread: the process's main thread, for all of them; the first CreateViewerHost() may come from
 * another thread while EFL's loop runs on the main one. Nothing throws but
 * std::bad_alloc, when memory is out; then nothing was made.
 */
#pragma once

#include <kavrel/IViewerHost.h>
#include <kavrel/IViewerPluggable.h>
#include <kavrel/ViewerPluginType.h>
#include <kavrel/export.h>

/// The factories of hosts, plug-ins and plug-ins' windows.
namespace KavrelAPI {

/// Makes the process's one host, or hands back the one there is.
///
/// @param rootWindow  the viewer's window, in which plug-ins' windows are shown; it has to outlive
///                    the host. Null for a host of another name, which has no windows
/// @param host        set to the host, which stays the library's
/// @param callback    takes what plug-ins say; null for nothing
/// @param userData    for `callback`
/// @param hostName    "kavrel"; a host of another name has keys and messages, but no windows
/// @return false, with a line in the log and `host` untouched, for a name that is none and for the
///         host "kavrel" without a window. Aborts the process when plug-ins cannot be told that the
///         host is there
KAVREL_EXPORT bool CreateViewerHost(Evas_Object* rootWindow, IViewerHost** host,
                                    HostMessageCB callback, void* userData, const char* hostName);

/// Destroys the host, if there is one. Plug-ins notice, and connect again to the next host.
KAVREL_EXPORT void DestroyViewerHost();

/// Makes a plug-in, or hands back the one of that name and host, whatever its type. Waits until the
/// host is there, at most 10 seconds.
///
/// @param type        see VIEWER_PLUGIN_TYPE
/// @param pluginName  unique among the host's plug-ins, and the title of its window
/// @param plugin      set to the plug-in, which stays the library's until it is destroyed
/// @param hostName    "kavrel"
/// @return false, with a line in the log and `plugin` untouched, when the host is not there, for a
///         name that is none and for an unknown type
KAVREL_EXPORT bool CreatePluggable(VIEWER_PLUGIN_TYPE type, const char* pluginName,
                                   IViewerPluggable** plugin, const char* hostName);

/// Destroys the plug-in, after it took leave of the host. Waits at most 5 seconds for the bus. For
/// an unknown one there is a line in the log, and nothing happens.
///
/// @param pluginName  as given to CreatePluggable()
/// @param hostName    as given to CreatePluggable()
KAVREL_EXPORT void DestroyPluggable(const char* pluginName, const char* hostName);

/// Destroys all plug-ins of the process, and gives freed memory back to the system.
KAVREL_EXPORT void DestroyPluggable();

/// Opens the plug-in's window in the viewer: always a Wayland window there, whatever display or
/// engine the environment asks for.
///
/// EFL has to be initialised (elm_init), the viewer's main loop has to run: a stopped viewer stops
/// this call. The environment variables WAYLAND_DISPLAY and ELM_DISPLAY stay set for the process,
/// so that its further windows open in the viewer too.
///
/// When the viewer dies, EFL ends the main loop of a program that has a window in it, and opens no
/// window on another viewer afterwards: start the program anew. Without a window a plug-in goes on
/// and connects to the next viewer by itself.
///
/// @param windowName  EFL's name of the window
/// @param title       the plug-in's name: the viewer knows the window by it
/// @param hostName    "kavrel"
/// @return the window, the caller's like any other of EFL's; null, with a line in the log, when the
///         viewer does not show windows (it is waited for at most 10.5 seconds) and for names that
///         are none
KAVREL_EXPORT Evas_Object* CreatePepperPluginWindow(const char* windowName, const char* title,
                                                    const char* hostName);

}  // namespace KavrelAPI
