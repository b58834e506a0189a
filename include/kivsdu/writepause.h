/* The write pause: stops all file writes of a process's threads for a while, and nothing else.
 *
 * Writers take a lease, write, and give it back. A pauser closes the gate to new leases and waits
 * until those that are out have come back; from then on until the pause is lifted nothing writes,
 * as long as all writers go through leases. A pause is lifted by KivSdUnpauseWriteIO, or by a
 * writer that waits and finds that it has lasted its maximum.
 *
 * The host makes one pause block for the process and one lease context for each thread that writes,
 * pauses or lifts a pause. The library makes and frees neither:
 *
 *   start:  a zeroed KivSdWritePause; KivSdEventCreate for both of its events, which leaves them
 *           open; KivRWLockInit for its lock; then the threads
 *   thread: a zeroed KivSdWriteLease with `pause` and `ctx` filled in; at the end
 *           KivRWLockFreeQNodes for its `locks`
 *   end:    `shutdown` is set, so that a pauser gives up and writers that wait lift the pause; when
 *           no thread uses the block any more, KivSdEventClose for both events. The lock needs no
 *           end
 *
 * Lease contexts must not be null, nor their `pause`; nothing here checks it. Any thread, each with
 * its own lease context.
 *
 * Example: examples/backup.c. */
#ifndef KIVSDU_WRITEPAUSE_H
#define KIVSDU_WRITEPAUSE_H

#include "api.h"
#include "context.h"
#include "rwlock.h"

/* The pause block, one for a process. But for `shutdown` the host writes nothing here once the
 * threads run. */
typedef struct KivSdWritePause {
  uint8_t shutdown;       /* the host sets it to anything but 0 when the process is to end */
  uint64_t paused;        /* 1 from the moment a pause begins to close until it is lifted */
  int32_t leases;         /* leases that are out */
  KivHandle drained;      /* gate, opened when the last lease comes back during a pause */
  KivHandle resume;       /* gate, open but during a pause */
  int64_t maximumSeconds; /* of the last pause; 0 is without a limit */
  uint64_t startSeconds;  /* when the last pause was complete, as KivSdTime tells it */
  KivRWLock lock;         /* held for writing while a pause closes; for reading by writers that wait
                             and by who lifts a pause. The only lock */
} KivSdWritePause;

KIV_ASSERT_SIZE(KivSdWritePause, 128);
KIV_ASSERT_FIELD(KivSdWritePause, shutdown, 0);
KIV_ASSERT_FIELD(KivSdWritePause, paused, 8);
KIV_ASSERT_FIELD(KivSdWritePause, leases, 16);
KIV_ASSERT_FIELD(KivSdWritePause, drained, 24);
KIV_ASSERT_FIELD(KivSdWritePause, resume, 32);
KIV_ASSERT_FIELD(KivSdWritePause, maximumSeconds, 40);
KIV_ASSERT_FIELD(KivSdWritePause, startSeconds, 48);
KIV_ASSERT_FIELD(KivSdWritePause, lock, 56);

/* A thread's part in it. */
typedef struct KivSdWriteLease {
  KivRWLockTable locks;   /* the thread's, also of its other locks if the host likes */
  KivSdWritePause* pause; /* must not be null */
  KivSdContext* ctx;      /* for the events and the writes; may be null */
  uint8_t held;           /* 1 while the thread has a lease */
} KivSdWriteLease;

KIV_ASSERT_SIZE(KivSdWriteLease, 40);
KIV_ASSERT_FIELD(KivSdWriteLease, locks, 0);
KIV_ASSERT_FIELD(KivSdWriteLease, pause, 16);
KIV_ASSERT_FIELD(KivSdWriteLease, ctx, 24);
KIV_ASSERT_FIELD(KivSdWriteLease, held, 32);

/* What a pauser is told that gave up because the host shuts down. */
#define KIV_WRITE_PAUSE_SHUTDOWN 0xFFFFFFFFu

/* ---- Pausing ---- */

/* Begins a pause and waits until no lease is out.
 *
 *   maxSeconds  how long it may last: a writer that waits then lifts it, at most 2 seconds late.
 *               0 is without a limit. Counted from the return of this call
 *
 * 0, or KIV_ST_WRITE_PAUSE        there is a pause already; nothing was changed
 *       KIV_WRITE_PAUSE_SHUTDOWN  the host shuts down
 *       KIV_ST_EVENT_WAIT         waiting failed
 *       KIV_ST_OUT_OF_MEMORY      no memory for a node of the lock; nothing was changed
 *       KIV_ST_MUTEX_REQUEST      the thread holds the block's lock for reading; nothing was
 *                                 changed
 *
 * When it gives up or waiting fails, the pause stays in force though leases are out: lift it.
 *
 * One pauser at a time: the host's care. Two that come at the same moment may both be told 0, each
 * with all leases back; one that comes a moment later, past the test and not yet at the lock, waits
 * for the writers that wait for the first pause, and holds off who wants to lift it until its
 * maximum has passed, which is never without one.
 *
 * A thread that has a lease must not pause: it would wait for itself. */
KIVSDU_API uint32_t KivSdPauseWriteIO(KivSdWriteLease* lease, int64_t maxSeconds);

/* Lifts the pause, if there is one. All writers that wait go on at once.
 *
 * Always 0. Waits for a pauser that still waits for leases. Only without memory for a node of the
 * lock does it not wait: it lifts the pause at once, and a pauser that still waits for leases then
 * returns 0 although nothing is paused any more. */
KIVSDU_API uint32_t KivSdUnpauseWriteIO(KivSdWriteLease* lease);

/* ---- Leases ---- */

/* Takes a lease; during a pause it waits until the pause is lifted. A wait looks every 2 seconds
 * whether the pause has lasted its maximum or the host shuts down, and lifts it then.
 *
 * Leases do not nest: take none while the thread has one, or it is never given back and no pause
 * can begin.
 *
 * 0, or KIV_ST_EVENT_WAIT     waiting failed; no lease was taken
 *       KIV_ST_OUT_OF_MEMORY  no memory for a node of the lock; no lease was taken */
KIVSDU_API uint32_t KivSdGetWriteIOLease(KivSdWriteLease* lease);

/* Gives the thread's lease back. Without one it counts nothing, and still wakes a pauser that waits
 * for leases when none is out.
 *
 * 0, or KIV_ST_EVENT_CLEAR  given back, and the pauser was not woken; it looks again after a second
 *                           at most */
KIVSDU_API uint32_t KivSdReleaseWriteIOLease(KivSdWriteLease* lease);

/* ---- Writes under a lease ---- */

/* Take a lease, write, and give the lease back whatever became of the write. Arguments, outputs and
 * statuses are those of KivSdFileWrite and KivSdFilePWrite (file.h), which get the lease context's
 * `ctx`. The record keeps the write's outcome; giving the lease back leaves none there.
 *
 * Or the status of KivSdGetWriteIOLease: nothing was written, and no output either. */
KIVSDU_API uint32_t KivSdLeasedFileWrite(KivSdWriteLease* lease, uint32_t file, const void* buffer,
                                         uint32_t length, uint32_t* count);
KIVSDU_API uint32_t KivSdLeasedFilePWrite(KivSdWriteLease* lease, uint32_t file, const void* buffer,
                                          uint32_t offset, uint32_t length, uint32_t* count,
                                          uint32_t* osError);

#endif
