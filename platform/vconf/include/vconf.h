/** @file
 * vconf: the key-value store of the system's state. Any process of the same user reads, writes and
 * watches typed values under text keys:
 *
 * - "memory/...": volatile, gone after a reboot and when the runtime directory goes
 * - "db/...": durable, a set that returned 0 survives a kill and a loss of power
 *
 * A key is 1 to 255 bytes of letters, digits and "_-./", split by single slashes; no component is
 * empty, "." or "..". A text value is at most 1 MiB long. Unless said otherwise a function returns
 * 0 on success and a negative errno value on failure:
 *
 * - -22 (EINVAL): a null argument, a malformed key, a key of neither family
 * - -2 (ENOENT): the key has no value
 * - -42 (ENOMSG): the key holds a value of another type; it is never converted
 * - -7 (E2BIG): the text is longer than 1 MiB
 * - -28 (ENOSPC), -30 (EROFS), -5 (EIO), -12 (ENOMEM), ...: the store could not be read or written;
 *   after a failed set the old value is still there
 * - -110 (ETIMEDOUT): another process has held the store for 10 seconds
 *
 * All functions may be called from any thread, but not from a signal handler. After fork the child
 * works with connections of its own; registrations stay with the parent.
 */
#ifndef VCONF_H
#define VCONF_H

#ifdef __cplusplus
extern "C" {
#endif

/** Marks what the library exports. */
#define VCONF_EXPORT __attribute__((visibility("default")))

/** What a callback is told about the changed key; valid until the callback returns. */
typedef struct _keynode_t keynode_t;

/** Called after a change of a registered key, on the thread that runs the main context (GLib) that
 * was the thread's default when the callback was registered. It may call every function of this
 * service, also register and ignore any callback. */
typedef void (*vconf_callback_fn)(keynode_t* node, void* user_data);

/** The types of values. */
enum { VCONF_TYPE_STRING = 40, VCONF_TYPE_INT = 41, VCONF_TYPE_DOUBLE = 42, VCONF_TYPE_BOOL = 43 };

/** The text of a key as a copy that the caller frees with free(); null when the key is missing,
 * malformed or of another type, or cannot be read (errno then says which, as a positive value). */
VCONF_EXPORT char* vconf_get_str(const char* key);

/** @{ */
/** The value of a key: 0 or 1 for a bool. On failure `value` is left untouched. */
VCONF_EXPORT int vconf_get_bool(const char* key, int* value);
VCONF_EXPORT int vconf_get_int(const char* key, int* value);
/** @} */

/** @{ */
/** Give a key a value and a type, whatever it held before; a bool is kept as 0 or 1. When the
 * function returns 0 every later get, in any process, yields this value or a newer one; a "db/" key
 * is then on disk. Every successful set is a change, also when the value is the same as before. */
VCONF_EXPORT int vconf_set_str(const char* key, const char* value);
VCONF_EXPORT int vconf_set_bool(const char* key, int value);
VCONF_EXPORT int vconf_set_int(const char* key, int value);
/** @} */

/** Has `cb` called after each change of `key`, whichever process made it; the key need not exist
 * yet. Changes that follow each other quickly may be merged into one call, but the last value is
 * always delivered. A change that happened between this thread's last look at the key (a get, a set
 * or a callback) and the registration is delivered too, so "get, then register" misses nothing.
 * A key and a callback can be registered once at a time: -17 (EEXIST) for a second time, whatever
 * the user data. */
VCONF_EXPORT int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data);

/** Ends a registration: on return no further call of `cb` for `key` begins. Called on another
 * thread than the one that delivers, a call already begun may still be running. Needs no
 * memory. -2 (ENOENT) when there is no such registration. */
VCONF_EXPORT int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb);

/** @{ */
/** The node's key and text: owned by the node. The text is null when the node holds another type.
 */
VCONF_EXPORT char* vconf_keynode_get_name(keynode_t* node);
VCONF_EXPORT char* vconf_keynode_get_str(keynode_t* node);
/** @} */

/** The node's type, VCONF_TYPE_...; -22 for a null node. */
VCONF_EXPORT int vconf_keynode_get_type(keynode_t* node);

/** @{ */
/** The node's value; 0 when the node is null or holds another type. */
VCONF_EXPORT int vconf_keynode_get_int(keynode_t* node);
VCONF_EXPORT double vconf_keynode_get_dbl(keynode_t* node);
VCONF_EXPORT int vconf_keynode_get_bool(keynode_t* node);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
