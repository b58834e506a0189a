/* Events: gates, standard events, and events that count.
 *
 * All of them let one waiting thread through at a time. Any thread; the library holds no lock
 * while a wait lasts. A context may always be null.
 *
 * Example: examples/locks.c. */
#ifndef KIVSDU_EVENT_H
#define KIVSDU_EVENT_H

#include "api.h"
#include "context.h"

/* ---- Gate events: set closes the gate, clear opens it ---- */

/* Makes a gate that is open. The first thread to pass closes it behind itself.
 *
 *   event  receives the handle, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT      event is null
 *       KIV_ST_EVENT_CREATE  not made */
KIVSDU_API uint32_t KivSdEventCreate(KivSdContext* ctx, KivHandle* event);

/* 0, or KIV_ST_ARGUMENT     event is null
 *       KIV_ST_EVENT_CLOSE  not closed; the variable keeps its value */
KIVSDU_API uint32_t KivSdEventClose(KivSdContext* ctx, KivHandle* event);

/* Closes the gate.
 *
 * 0, or KIV_ST_ARGUMENT   event is null
 *       KIV_ST_EVENT_SET  not closed */
KIVSDU_API uint32_t KivSdEventSet(KivSdContext* ctx, KivHandle* event);

/* Opens the gate for one thread.
 *
 * 0, or KIV_ST_ARGUMENT     event is null
 *       KIV_ST_EVENT_CLEAR  not opened */
KIVSDU_API uint32_t KivSdEventClear(KivSdContext* ctx, KivHandle* event);

/* Waits until the gate is open, passes, and closes it behind the caller.
 *
 *   timeoutMs  milliseconds; 0 only tries, 0xFFFFFFFF waits for ever
 *
 * 0, or KIV_ST_ARGUMENT       event is null
 *       KIV_ST_EVENT_TIMEOUT  the gate stayed closed; OS error 258
 *       KIV_ST_EVENT_WAIT     the wait failed */
KIVSDU_API uint32_t KivSdEventWait(KivSdContext* ctx, KivHandle* event, uint32_t timeoutMs);

/* ---- Standard events: set signals, reset clears. No pointer is checked ---- */

/* Makes an event that is not signalled.
 *
 *   event  receives the handle; left alone on failure
 *
 * 0, or KIV_ST_EVENT_CREATE */
KIVSDU_API uint32_t KivSdStdEventCreate(KivSdContext* ctx, KivHandle* event);

/* 0, or KIV_ST_EVENT_CLOSE; the variable keeps its value */
KIVSDU_API uint32_t KivSdStdEventClose(KivSdContext* ctx, KivHandle* event);

/* Signals the event: one waiting thread goes on, or the next to wait does.
 *
 * 0, or KIV_ST_EVENT_CLEAR */
KIVSDU_API uint32_t KivSdStdEventSet(KivSdContext* ctx, KivHandle* event);

/* Takes the signal back.
 *
 * 0, or KIV_ST_EVENT_SET */
KIVSDU_API uint32_t KivSdStdEventReset(KivSdContext* ctx, KivHandle* event);

/* Waits for the signal, for ever or for timeoutMs milliseconds, and takes it.
 *
 *   timeoutMs  0 only tries; negative waits for ever
 *
 * 0, or KIV_ST_EVENT_TIMEOUT  there was no signal; OS error 258
 *       KIV_ST_EVENT_WAIT     the wait failed */
KIVSDU_API uint32_t KivSdStdEventWait(KivSdContext* ctx, KivHandle* event);
KIVSDU_API uint32_t KivSdStdEventTimedWait(KivSdContext* ctx, KivHandle* event, int32_t timeoutMs);

/* ---- Counting events: semaphores without a name and with the largest count ---- */

/* Each is the operation of semaphore.h that its name suggests, with that one's statuses: set
 * gives one, a wait takes one. */
KIVSDU_API uint32_t KivSdCountingEventCreate(KivSdContext* ctx, KivHandle* event,
                                             int32_t initialCount);
KIVSDU_API uint32_t KivSdCountingEventClose(KivSdContext* ctx, KivHandle* event);
KIVSDU_API uint32_t KivSdCountingEventSet(KivSdContext* ctx, KivHandle* event);
KIVSDU_API uint32_t KivSdCountingEventWait(KivSdContext* ctx, KivHandle* event);
KIVSDU_API uint32_t KivSdCountingEventTimedWait(KivSdContext* ctx, KivHandle* event,
                                                uint64_t timeoutMs);

#endif
