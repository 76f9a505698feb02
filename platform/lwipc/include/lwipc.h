/** @file
 * lwipc: event files. One process raises an event, any number of others test it or wait for it. An
 * event is named by an absolute path such as "/tmp/kavrel-host_ready" and is raised as long as the
 * process that raised it lives. For C and C++; any thread.
 *
 *     LwipcEventDone("/tmp/kavrel-host_ready");                            // the viewer
 *     if (LwipcWaitEvent("/tmp/kavrel-host_ready", 10000) == 0) connect();  // a plug-in
 *
 * Only an event that this user or root raised counts. "/tmp/" at the beginning of a name stands for
 * the directory that KAVREL_EVENT_DIR (else KAVREL_RUNTIME_DIR) names when one of them is set. A
 * name that is null, not absolute, too long, or without a file name gives -22.
 */
#ifndef LWIPC_H
#define LWIPC_H

#ifdef __cplusplus
extern "C" {
#endif

/** Raises the event until this process ends; raising it again is no error. Never follows, opens or
 * writes what it finds at the path.
 *
 * @param event  the event's name, an absolute path
 * @return 0, or a negative errno value: the file could be made neither at the path nor in this
 *         user's runtime directory */
int LwipcEventDone(const char* event) __attribute__((visibility("default")));

/** Whether the event is raised now. Never blocks.
 *
 * @param event  the event's name
 * @return 1 (raised), 0 (not), or a negative errno value: the process is out of descriptors or
 *         memory, or the event's file cannot be read, and nothing is known */
int LwipcIsDone(const char* event) __attribute__((visibility("default")));

/** Waits until the event is raised. Blocks the calling thread.
 *
 * @param event       the event's name
 * @param timeout_ms  milliseconds to wait at most; 0 only tests
 * @return 0 when it is raised, now or in time; -110 (timed out) when not; -22 for a negative
 *         time-out; another negative errno value as LwipcIsDone() does */
int LwipcWaitEvent(const char* event, int timeout_ms) __attribute__((visibility("default")));

#ifdef __cplusplus
}
#endif

#endif
