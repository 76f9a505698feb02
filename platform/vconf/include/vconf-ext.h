/** @file
 * Extensions of the bundled vconf service. None of this is part of the platform's own interface:
 * a program that must run on every television includes vconf.h alone.
 *
 * Every successful set gives its key a revision: a number that grows with each change within the
 * same store ("memory/" and "db/" count apart). A watcher that keeps the last revision can tell
 * that it is up to date, and a reader gets a value and its revision from the same moment. Revisions
 * begin anew only with a new store: after a reboot for "memory/", after damage for "db/".
 */
#ifndef VCONF_EXT_H
#define VCONF_EXT_H

#include <stddef.h>
#include <stdint.h>
#include <vconf.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A value of any type with its revision. */
typedef struct vconf_ext_value {
  int type;          /**< VCONF_TYPE_... */
  int32_t integer;   /**< the value of an int or a bool, otherwise 0 */
  double number;     /**< the value of a double, otherwise 0 */
  char* text;        /**< the value of a string, otherwise null */
  size_t text_size;  /**< its length without the closing NUL */
  uint64_t revision; /**< of the set that made this value; at least 1 */
} vconf_ext_value;

/** @{ */
/** Value, type and revision of a key, read together. vconf_ext_value_clear frees the text. */
VCONF_EXPORT int vconf_ext_get(const char* key, vconf_ext_value* value);
VCONF_EXPORT void vconf_ext_value_clear(vconf_ext_value* value);
/** @} */

/** The revision of a key. */
VCONF_EXPORT int vconf_ext_get_revision(const char* key, uint64_t* revision);

/** @{ */
/** As the functions of vconf.h, for the fourth type. */
VCONF_EXPORT int vconf_ext_get_dbl(const char* key, double* value);
VCONF_EXPORT int vconf_ext_set_dbl(const char* key, double value);
/** @} */

/** Removes a key and its value. Watchers are not called: there is no value to tell them. -2
 * (ENOENT) when it has none. */
VCONF_EXPORT int vconf_ext_unset(const char* key);

/** @{ */
/** Calls `visit` for every key that begins with `prefix` ("" means all), in byte order, "db/"
 * before "memory/". Each store is read at one moment. Key and value are valid until `visit`
 * returns; a result other than 0 ends the walk. Returns 0, the result that ended the walk, or a
 * negative errno value. */
typedef int (*vconf_ext_visit_fn)(const char* key, const vconf_ext_value* value, void* user_data);
VCONF_EXPORT int vconf_ext_list(const char* prefix, vconf_ext_visit_fn visit, void* user_data);
/** @} */

/** The revision of the change that a callback is told about; 0 for a null node. */
VCONF_EXPORT uint64_t vconf_ext_keynode_get_revision(keynode_t* node);

/** The directories that hold the stores of this process, null for a family other than "memory" and
 * "db", and when memory is out. Owned by the library. Nothing is created. */
VCONF_EXPORT const char* vconf_ext_store_directory(const char* family);

#ifdef __cplusplus
}
#endif

#endif
