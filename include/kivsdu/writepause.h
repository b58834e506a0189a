/* The write pause: stops all file writes of the process's threads for a while, and nothing else.
 *
 * A writer takes a lease, writes, and returns the lease. A pauser stops new leases and waits until
 * all leases have been returned. Until the pause is lifted, nothing is written, provided that all
 * writers use leases. KivSdUnpauseWriteIO lifts a pause. A waiting writer lifts it too, once the
 * pause has lasted its maximum.
 *
 * The host owns one pause block for the process, and one lease context for each thread that writes,
 * pauses or lifts a pause. The library neither creates nor frees them:
 *
 *   start   zero a KivSdWritePause; call KivSdEventCreate for both events, which are then open, and
 *           KivRWLockInit for the lock; then start the threads
 *   thread  zero a KivSdWriteLease and fill in `pause` and `ctx`; at the end call
 *           KivRWLockFreeQNodes for its `locks`
 *   end     set `shutdown`: a pauser gives up, and waiting writers lift the pause. When no thread
 *           uses the block any more, call KivSdEventClose for both events. The lock needs no end
 *
 * A write that is not waited for (directio.h) goes on after its call: keep the lease until
 * KivSdDirectIOWait has collected the write. A lease that is returned earlier lets a pause begin
 * while the system still writes.
 *
 * A lease context and its `pause` must not be null; nothing checks this. Any thread, each with its
 * own lease context.
 *
 * Example: examples/backup.c. */
#ifndef KIVSDU_WRITEPAUSE_H
#define KIVSDU_WRITEPAUSE_H

#include "api.h"
#include "context.h"
#include "rwlock.h"

/* The pause block, one for the process. Once the threads run, the host writes only `shutdown`. */
typedef struct KivSdWritePause {
  uint8_t shutdown;       /* the host sets it to any value but 0 when the process ends */
  uint64_t paused;        /* 1 from the beginning of a pause until it is lifted */
  int32_t leases;         /* leases that have not been returned */
  KivHandle drained;      /* gate, opened when the last lease is returned during a pause */
  KivHandle resume;       /* gate, open except during a pause */
  int64_t maximumSeconds; /* of the last pause; 0 is without a limit */
  uint64_t startSeconds;  /* when the last pause was complete, in seconds of KivSdTime */
  KivRWLock lock;         /* held for writing while a pause begins; for reading by waiting writers
                             and while a pause is lifted. The only lock */
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

/* A thread's lease context. */
typedef struct KivSdWriteLease {
  KivRWLockTable locks;   /* the thread's lock table; its other locks may use it too */
  KivSdWritePause* pause; /* must not be null */
  KivSdContext* ctx;      /* receives the outcomes of events and writes; may be null */
  uint8_t held;           /* 1 while the thread has a lease */
} KivSdWriteLease;

KIV_ASSERT_SIZE(KivSdWriteLease, 40);
KIV_ASSERT_FIELD(KivSdWriteLease, locks, 0);
KIV_ASSERT_FIELD(KivSdWriteLease, pause, 16);
KIV_ASSERT_FIELD(KivSdWriteLease, ctx, 24);
KIV_ASSERT_FIELD(KivSdWriteLease, held, 32);

/* The status of a pauser that gave up because the host shuts down. */
#define KIV_WRITE_PAUSE_SHUTDOWN 0xFFFFFFFFu

/* ---- Pausing ---- */

/* Begins a pause and waits until all leases have been returned.
 *
 *   maxSeconds  maximum length of the pause in seconds, counted from the return of this call; 0 is
 *               without a limit. A waiting writer lifts an expired pause at most 2 seconds late
 *
 * 0, or KIV_ST_WRITE_PAUSE        there is a pause already; nothing is changed
 *       KIV_WRITE_PAUSE_SHUTDOWN  the host shuts down; the pause stays in force
 *       KIV_ST_EVENT_WAIT         waiting failed; the pause stays in force
 *       KIV_ST_OUT_OF_MEMORY      no memory for a node of the lock; nothing is changed
 *       KIV_ST_MUTEX_REQUEST      the thread holds the block's lock for reading; nothing is changed
 *
 * Compatibility: if it gives up or waiting fails, the pause stays in force although leases are out.
 * The caller must lift it.
 *
 * A thread that has a lease must not pause: it would wait for itself without an end. The maximum
 * does not help, because it is counted from the return of this call. Only `shutdown` ends the wait.
 *
 * The host must allow one pauser at a time. If two start at one moment, both may return 0, each
 * after all leases were returned. If one starts slightly later, it can find no pause and then queue
 * for the lock behind the first pauser. It then waits for the writers that wait for the first
 * pause, and KivSdUnpauseWriteIO waits for it: the first pause lasts until its maximum, or forever
 * if it has none. */
KIVSDU_API uint32_t KivSdPauseWriteIO(KivSdWriteLease* lease, int64_t maxSeconds);

/* Lifts the pause, if there is one. All waiting writers continue at once. Waits while a pauser
 * still waits for leases.
 *
 * If there is no memory for a node of the lock, it lifts the pause without waiting. A pauser that
 * still waits for leases then returns 0 although nothing is paused.
 *
 * Always returns 0. */
KIVSDU_API uint32_t KivSdUnpauseWriteIO(KivSdWriteLease* lease);

/* ---- Leases ---- */

/* Takes a lease. During a pause it waits until the pause is lifted. Every 2 seconds it checks
 * whether the pause has lasted its maximum or the host shuts down. In either case it lifts the
 * pause.
 *
 * Leases do not nest. A thread that takes a second lease cannot return both, and no pause can
 * complete from then on.
 *
 * 0, or KIV_ST_EVENT_WAIT     waiting failed; no lease is taken
 *       KIV_ST_OUT_OF_MEMORY  no memory for a node of the lock; no lease is taken */
KIVSDU_API uint32_t KivSdGetWriteIOLease(KivSdWriteLease* lease);

/* Returns the thread's lease. Without a lease the count does not change, but a pauser is still
 * woken if no lease is out.
 *
 * 0, or KIV_ST_EVENT_CLEAR  the lease is returned, but the pauser was not woken; it checks again
 *                           within a second */
KIVSDU_API uint32_t KivSdReleaseWriteIOLease(KivSdWriteLease* lease);

/* ---- Writes under a lease ---- */

/* Take a lease, write, and return the lease whether the write succeeded or not. Arguments, outputs
 * and statuses are those of KivSdFileWrite and KivSdFilePWrite (file.h), which receive the lease
 * context's `ctx`. The context record keeps the outcome of the write.
 *
 * If no lease can be taken, they return the status of KivSdGetWriteIOLease; nothing is written, and
 * the outputs are unchanged. */
KIVSDU_API uint32_t KivSdLeasedFileWrite(KivSdWriteLease* lease, uint32_t file, const void* buffer,
                                         uint32_t length, uint32_t* count);
KIVSDU_API uint32_t KivSdLeasedFilePWrite(KivSdWriteLease* lease, uint32_t file, const void* buffer,
                                          uint32_t offset, uint32_t length, uint32_t* count,
                                          uint32_t* osError);

#endif
