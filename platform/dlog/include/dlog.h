/** @file
 * dlog: the log service. One call makes one record with a priority and a tag; where records go and
 * which are dropped is set by two environment variables, read by the first record of the process:
 *
 * - KAVREL_LOG: stderr, file:PATH, journal, journal:SOCKET or none. Unset: the journal when
 *   standard error is its stream, else standard error.
 * - KAVREL_LOG_LEVEL: verbose, debug, info, warning, error, fatal or none: the least priority that
 *   is logged. Unset: info, or error when KAVREL_LOG is unset and records go to standard error.
 *
 * Threads: any, also several at once, also in a forked child. A call never waits for whoever reads
 * the log, raises no signal and keeps errno.
 */
#ifndef DLOG_H
#define DLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/** Priorities. A record below the threshold is dropped before anything is formatted. */
enum {
  DLOG_VERBOSE = 2,
  DLOG_DEBUG = 3,
  DLOG_INFO = 4,
  DLOG_WARN = 5,
  DLOG_ERROR = 6,
  DLOG_FATAL = 7
};

/** Logs one record.
 *
 * @param priority  2 to 7, see above
 * @param tag       names the module; null counts as an empty tag
 * @param format    as printf's; the formatted text is one record whatever it holds. The newline
 *                  that ends most texts is the record's end.
 * @return the number of bytes of text that were logged (0 for an empty text, too), or 0 when the
 *         record was filtered out. -22 (EINVAL): the priority is none of these or the format is
 *         null; other negative errno values: the record is lost, such as -11 (EAGAIN) when nobody
 *         reads it, -32 (EPIPE) when nobody will and -28 (ENOSPC) when the disk is full. The next
 *         record that gets through says how many were lost. */
int dlog_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4), visibility("default")));

/** As dlog_print(), for televisions that have several log buffers.
 *
 * @param buffer    the log buffer, 0 for the main one; all are one here
 * @param priority  2 to 7
 * @param tag       names the module
 * @param format    as printf's
 * @return as dlog_print() */
int __dlog_print(int buffer, int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5), visibility("default")));

#ifdef __cplusplus
}
#endif

#endif
