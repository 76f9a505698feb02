/** @file
 * pepper-efl: a Wayland compositor inside a program that uses EFL. Every toplevel window of a
 * client becomes one image object on the canvas of the program's root window.
 *
 * All functions belong to the thread that runs the main loop of EFL; another thread may call them
 * between ecore_thread_main_loop_begin and ecore_thread_main_loop_end.
 *
 * The root window gets two smart callbacks, always from the main loop and never from inside a call
 * of the program, except that pepper_efl_compositor_destroy emits the last "del.object" itself. The
 * event information is the Evas_Object * of the window:
 *
 * - "add.object": once, when the window has a title and its first picture. The object is hidden and
 *   as large as the picture; the program layers, moves, resizes and shows it. A later resize of the
 *   object resizes the client.
 * - "del.object": once, when the window is gone; the object still shows the last picture and
 *   belongs to the program, which deletes it. Not emitted for an object the program deleted first:
 *   then the client is asked to close its window.
 */
#ifndef PEPPER_EFL_H
#define PEPPER_EFL_H

#include <Evas.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Marks what the library exports. */
#define PEPPER_EFL_EXPORT __attribute__((visibility("default")))

/** Starts a compositor and raises its event file. A socket that a killed process left is taken
 * over.
 *
 * @param root_window  a smart object (an Elementary window); stays the program's
 * @param socket_name  NAME in the socket's path $XDG_RUNTIME_DIR/NAME and in the event file
 *                     "/tmp/NAME_ready"; 1 to 64 characters without '/', the first not '.'
 * @return a handle that the caller owns until pepper_efl_compositor_destroy(), or NULL with a line
 *         in the log: null or malformed argument, no runtime directory, a living compositor on that
 *         socket, out of memory */
PEPPER_EFL_EXPORT void* pepper_efl_compositor_create(Evas_Object* root_window,
                                                     const char* socket_name);

/** Emits "del.object" for every window that is announced, deletes those objects that the program
 * has not deleted by then, and disconnects the clients. The handle is invalid afterwards; null is
 * ignored. When the root window is deleted first, all that happens then, and this call frees the
 * handle. May be called from the smart callbacks. */
PEPPER_EFL_EXPORT void pepper_efl_compositor_destroy(void* compositor);

/** @{ */
/** The window's title and application id as the client has set them: any bytes, at most 1024 of
 * them. Readable as long as the object lives, longer than its client; the text belongs to the
 * object and is valid until the client changes it. NULL when the client has set none, or when
 * `object` is not an object of this service. */
PEPPER_EFL_EXPORT const char* pepper_efl_object_title_get(Evas_Object* object);
PEPPER_EFL_EXPORT const char* pepper_efl_object_app_id_get(Evas_Object* object);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
