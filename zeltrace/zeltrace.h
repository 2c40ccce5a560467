/* libzeltrace: lets any program show its VISA calls live in the ZelVisa Trace Tool.
 *
 * Each VISA call is written as two records: a call record (kind ZELTRACE_CALL) when the call starts
 * and a return record (kind ZELTRACE_RETURN, same id, same thread) when it ends, with its status and
 * duration. The library fills in process, thread, timestamps and a per-process sequence number.
 *
 * One handle per process, created on first use and safe from any number of threads. Tracing never
 * hangs or crashes the caller: when the tool is not running, tracing is off, or the shared objects
 * are unusable, the calls return at once and record nothing; no call waits more than a few ms for a
 * lock that another process keeps. The log file named by the tool is appended to only when the tool
 * started it (a regular file whose first line is the tool's header line, no symbolic link on its
 * path), one record to a line. A segment, lock file or log removed meanwhile is followed.
 *
 * Environment (read when the handle is created; zeltrace_configure() overrides it):
 *   ZELTRACE_KEY             System V key of the trace segment (decimal or 0x-hex; default 894129)
 *   ZELTRACE_SEMAPHORE       name of the segment lock (default "/ZelTracerSharedMemoryMutex;")
 *   ZELTRACE_FILE_SEMAPHORE  name of the log-file lock (default "/ZelTracerSharedFileMutex;")
 */
#ifndef ZELTRACE_H
#define ZELTRACE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ZELTRACE_CALL 0u
#define ZELTRACE_RETURN 1u

/* Results of zeltrace_record. */
#define ZELTRACE_WRITTEN 0
#define ZELTRACE_DROPPED 1 /* no room in the segment, or its lock kept by another: dropped whole and counted */
#define ZELTRACE_FILTERED 2 /* the tool's record filter excludes it */
#define ZELTRACE_INACTIVE 3 /* tracing is off */
#define ZELTRACE_NO_SEGMENT 4 /* no segment or no usable lock: see zeltrace_problem() */

typedef struct zeltrace_counters
{
    uint64_t written; /* records that went into the segment */
    uint64_t dropped; /* records that did not fit, or did not get the lock in time */
    uint64_t file_dropped; /* log-file lines not written: file refused, lock taken, disk full */
    uint64_t sequence; /* last sequence number given out (written + dropped) */
} zeltrace_counters;

/* Sets the segment key and lock names before the handle exists (NULL keeps the environment's or the
 * default value). Returns 0, or -1 when the handle was already created. */
int zeltrace_configure(int key, const char* semaphore, const char* file_semaphore);

/* 1 while the tool asks for records, else 0: one read of shared memory, for skipping the work of
 * building a command text nobody will see. */
int zeltrace_enabled(void);

/* A new record id, unique within the process; the call and its return share it. */
uint64_t zeltrace_next_id(void);

/* Writes one record. `address` and `text` are NUL-terminated (NULL means empty); texts are cut to
 * 959 characters, addresses to 131. `duration` is in seconds (0 for a call record). */
int zeltrace_record(uint64_t id, uint32_t kind, uint32_t session, const char* address, int32_t status, double duration,
                    const char* text);

/* Fills `out` with this process's counters; returns 0, or -1 for a NULL pointer. */
int zeltrace_get_counters(zeltrace_counters* out);

/* Why nothing can be recorded (a foreign segment under the key, or a lock file that is not a valid
 * semaphore), or "". */
const char* zeltrace_problem(void);

#ifdef __cplusplus
}
#endif

#endif
