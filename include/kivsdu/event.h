/* Events: gates, standard events, and counting events.
 *
 * Each of them lets one waiting thread through at a time; a counting event lets one through for
 * each count. A context may always be null. Any thread; the library holds no lock during a wait.
 *
 * Example: examples/locks.c. */
#ifndef KIVSDU_EVENT_H
#define KIVSDU_EVENT_H

#include "api.h"
#include "context.h"

/* ---- Gate events ----
 *
 * Compatibility: "set" closes the gate and "clear" opens it. Hosts set a gate to hold others
 * back. */

/* Creates a gate that is open. The first thread that passes closes it behind itself.
 *
 *   event  receives the handle, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT      event is null
 *       KIV_ST_EVENT_CREATE  not created
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdEventCreate(KivSdContext* ctx, KivHandle* event);

/* Closes the gate's handle. The variable keeps its value.
 *
 * 0, or KIV_ST_ARGUMENT     event is null
 *       KIV_ST_EVENT_CLOSE  the handle was not closed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdEventClose(KivSdContext* ctx, KivHandle* event);

/* Closes the gate: threads that wait for it block.
 *
 * 0, or KIV_ST_ARGUMENT   event is null
 *       KIV_ST_EVENT_SET  the gate was not closed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdEventSet(KivSdContext* ctx, KivHandle* event);

/* Opens the gate for one thread.
 *
 * 0, or KIV_ST_ARGUMENT     event is null
 *       KIV_ST_EVENT_CLEAR  the gate was not opened
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdEventClear(KivSdContext* ctx, KivHandle* event);

/* Waits until the gate is open, passes, and closes it behind the caller.
 *
 *   timeoutMs  milliseconds; 0 does not wait, KIV_WAIT_INFINITE waits without a limit
 *
 * 0, or KIV_ST_ARGUMENT       event is null
 *       KIV_ST_EVENT_TIMEOUT  the gate stayed closed; OS error 258
 *       KIV_ST_EVENT_WAIT     the wait failed
 * OS error: 258 after a time-out, else GetLastError. */
KIVSDU_API uint32_t KivSdEventWait(KivSdContext* ctx, KivHandle* event, uint32_t timeoutMs);

/* ---- Standard events: set signals, reset clears. The handle pointer must not be null ---- */

/* Creates an event that is not signalled.
 *
 *   event  receives the handle; unchanged on failure
 *
 * 0, or KIV_ST_EVENT_CREATE  not created
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdStdEventCreate(KivSdContext* ctx, KivHandle* event);

/* Closes the event's handle. The variable keeps its value.
 *
 * 0, or KIV_ST_EVENT_CLOSE  not closed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdStdEventClose(KivSdContext* ctx, KivHandle* event);

/* Signals the event: wakes one waiting thread or, if none waits, lets the next wait return at once.
 *
 * 0, or KIV_ST_EVENT_CLEAR  not signalled
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdStdEventSet(KivSdContext* ctx, KivHandle* event);

/* Clears the signal.
 *
 * 0, or KIV_ST_EVENT_SET  not cleared
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdStdEventReset(KivSdContext* ctx, KivHandle* event);

/* Wait for the signal and clear it: without a limit, or for timeoutMs milliseconds.
 *
 *   timeoutMs  0 does not wait; a negative value waits without a limit
 *
 * 0, or KIV_ST_EVENT_TIMEOUT  there was no signal; OS error 258
 *       KIV_ST_EVENT_WAIT     the wait failed
 * OS error: 258 after a time-out, else GetLastError. */
KIVSDU_API uint32_t KivSdStdEventWait(KivSdContext* ctx, KivHandle* event);
KIVSDU_API uint32_t KivSdStdEventTimedWait(KivSdContext* ctx, KivHandle* event, int32_t timeoutMs);

/* ---- Counting events: semaphores without a name and with the largest count ---- */

/* Each calls an operation of semaphore.h and returns its statuses:
 *
 *   KivSdCountingEventCreate     KivSdCntSemCreate, without a name, with maximum count 2147483647
 *   KivSdCountingEventClose      KivSdCntSemClose
 *   KivSdCountingEventSet        KivSdCntSemClear, with a release count of 1
 *   KivSdCountingEventWait       KivSdCntSemRequest, without a limit
 *   KivSdCountingEventTimedWait  KivSdCntSemRequest */
KIVSDU_API uint32_t KivSdCountingEventCreate(KivSdContext* ctx, KivHandle* event,
                                             int32_t initialCount);
KIVSDU_API uint32_t KivSdCountingEventClose(KivSdContext* ctx, KivHandle* event);
KIVSDU_API uint32_t KivSdCountingEventSet(KivSdContext* ctx, KivHandle* event);
KIVSDU_API uint32_t KivSdCountingEventWait(KivSdContext* ctx, KivHandle* event);
KIVSDU_API uint32_t KivSdCountingEventTimedWait(KivSdContext* ctx, KivHandle* event,
                                                uint64_t timeoutMs);

#endif
