/* dlog: the log service. One call makes one record with a priority and a tag; where records go and
 * which are dropped is set by environment variables (see the page of this service). Thread-safe;
 * never blocks on its sink and never raises a signal.
 */
#ifndef DLOG_H
#define DLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Priorities. A record below the threshold is dropped before anything is formatted. */
enum {
  DLOG_VERBOSE = 2,
  DLOG_DEBUG = 3,
  DLOG_INFO = 4,
  DLOG_WARN = 5,
  DLOG_ERROR = 6,
  DLOG_FATAL = 7
};

/* Logs one record.
 *   priority  2 to 7, see above
 *   tag       names the module; null counts as an empty tag
 *   format    as printf's; the formatted text is one record whatever it holds
 * Returns the number of bytes logged, 0 when the record was filtered out, -22 (invalid argument)
 * for an unknown priority or a null format, another negative errno value when the sink failed. */
int dlog_print(int priority, const char *tag, const char *format, ...)
    __attribute__((format(printf, 3, 4), visibility("default")));

/* As dlog_print; `buffer` (0: main) names a log buffer of televisions that have several. All
 * buffers are one here. */
int __dlog_print(int buffer, int priority, const char *tag, const char *format, ...)
    __attribute__((format(printf, 4, 5), visibility("default")));

#ifdef __cplusplus
}
#endif

#endif
