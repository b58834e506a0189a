/* Threads and processes, and the memory kept back for a fatal exception.
 *
 * Thin operations: priorities are the system's own numbers, handles are the system's. Where a
 * call's result is said to be ignored, the operation succeeds whatever happened. Any thread. A
 * context may always be null.
 *
 * Example: examples/locks.c. */
#ifndef KIVSDU_THREAD_H
#define KIVSDU_THREAD_H

#include "api.h"
#include "context.h"

/* What a thread runs; its result is the thread's exit code. */
typedef uint32_t (*KivSdThreadRoutine)(void* argument);

/* ---- Threads ---- */

/* Starts a thread.
 *
 *   ignored     any value
 *   stackBytes  0 for the system's default
 *   argument    handed to the routine
 *   id          receives the thread's identifier before the thread runs; must not be null
 *   thread      receives the handle, null on failure; must not be null. Give it back with
 *               KivSdThreadDelete
 *
 * 0, or KIV_ST_ARGUMENT       routine, id or thread is null; no thread is started
 *       KIV_ST_THREAD_CREATE  not started */
KIVSDU_API uint32_t KivSdThreadCreate(KivSdContext* ctx, KivSdThreadRoutine routine,
                                      uint64_t ignored, uint32_t stackBytes, void* argument,
                                      uint32_t* id, KivHandle* thread);

/* Closes a thread's handle; the thread runs on, and the variable keeps its value.
 *
 * 0, or KIV_ST_ARGUMENT       thread is null
 *       KIV_ST_THREAD_DELETE  not closed */
KIVSDU_API uint32_t KivSdThreadDelete(KivSdContext* ctx, KivHandle* thread);

/* Ends the calling thread. Never returns; the context is not touched. */
KIVSDU_API void KivSdThreadExit(KivSdContext* ctx, uint32_t exitCode);

/* Gives up the rest of the time slice. Always 0. */
KIVSDU_API uint32_t KivSdThreadYield(KivSdContext* ctx);

/* Stops a thread until it is resumed as often.
 *
 *   thread  null for the calling thread
 *
 * Always 0: the result of the call is ignored. */
KIVSDU_API uint32_t KivSdThreadSuspend(KivSdContext* ctx, KivHandle* thread);

/* Lets a suspended thread go on. The result of the call is ignored.
 *
 * 0, or KIV_ST_ARGUMENT  thread is null */
KIVSDU_API uint32_t KivSdThreadResume(KivSdContext* ctx, KivHandle* thread);

/* Waits, for ever, until a thread has ended.
 *
 *   thread  null for the calling thread, which then never returns
 *
 * Always 0: the result of the wait is ignored. */
KIVSDU_API uint32_t KivSdThreadJoin(KivSdContext* ctx, KivHandle* thread);

/* The calling thread's identifier.
 *
 * 0, or KIV_ST_ARGUMENT  id is null */
KIVSDU_API uint32_t KivSdThreadIdGet(KivSdContext* ctx, uint32_t* id);

/* A thread's priority on the system's scale.
 *
 *   thread  null for the calling thread
 *
 * 0, or KIV_ST_ARGUMENT            (get) priority is null
 *       KIV_ST_THREAD_PRIORITY_GET  not read; priority is left alone
 *       KIV_ST_THREAD_PRIORITY_SET  not set */
KIVSDU_API uint32_t KivSdThreadPriorityGet(KivSdContext* ctx, KivHandle* thread, int32_t* priority);
KIVSDU_API uint32_t KivSdThreadPrioritySet(KivSdContext* ctx, KivHandle* thread, int32_t priority);

/* The normal priority, 0, and the highest, 2, whatever thread is named.
 *
 * 0, or KIV_ST_ARGUMENT  priority is null */
KIVSDU_API uint32_t KivSdThreadBasePriorityGet(KivSdContext* ctx, KivHandle ignored,
                                               int32_t* priority);
KIVSDU_API uint32_t KivSdThreadHighPriorityGet(KivSdContext* ctx, KivHandle ignored,
                                               int32_t* priority);

/* A handle of the calling thread that other threads can use; not inheritable. Give it back with
 * KivSdThreadDelete.
 *
 * 0, or KIV_ST_ARGUMENT       thread is null
 *       KIV_ST_THREAD_HANDLE  not obtained */
KIVSDU_API uint32_t KivSdThreadHandleGet(KivSdContext* ctx, KivHandle* thread);

/* ---- Processes ---- */

/* Ends a process with exit code 0.
 *
 * 0, or KIV_ST_PROCESS_DELETE  access is denied, OS error 5; Windows also denies it for a process
 *                              that has ended. Any other failure is a success whose OS error
 *                              the context keeps */
KIVSDU_API uint32_t KivSdProcessDelete(KivSdContext* ctx, KivHandle process);

/* The calling process's identifier.
 *
 * 0, or KIV_ST_ARGUMENT  id is null */
KIVSDU_API uint32_t KivSdProcessIdGet(KivSdContext* ctx, uint32_t* id);

/* The pseudo-handle of the calling process, as a number; it names no session.
 *
 * 0, or KIV_ST_ARGUMENT  id is null */
KIVSDU_API uint32_t KivSdProcessSessionIdGet(KivSdContext* ctx, uint64_t* id);

/* Whether a process runs.
 *
 * 0 if it does, or KIV_ST_PROCESS_ALIVE; OS error is the wait's result: 0 when the process has
 * ended, 0xFFFFFFFF when that could not be told */
KIVSDU_API uint32_t KivSdProcessCheckAlive(KivSdContext* ctx, KivHandle process);

/* The calling process's priority class.
 *
 * 0, or KIV_ST_ARGUMENT              priorityClass is null
 *       KIV_ST_PROCESS_PRIORITY_GET  not read; priorityClass is left alone */
KIVSDU_API uint32_t KivSdProcessPriorityGet(KivSdContext* ctx, uint32_t* priorityClass);

/* Sets a process's priority class.
 *
 *   process  null for the calling process
 *   id       -1 for the calling process, whatever process is; else not looked at
 *
 * 0, or KIV_ST_PROCESS_PRIORITY_SET */
KIVSDU_API uint32_t KivSdProcessPrioritySet(KivSdContext* ctx, KivHandle process, int32_t id,
                                            uint32_t priorityClass);

/* ---- Fatal exceptions ---- */

/* Records that the calling thread handles a fatal exception. It cannot be taken back. Make the
 * stack below first: from here on KivSdXcptCreateStackHeader, which allocates, ends the process
 * like any request without a stack.
 *
 * From here on the memory manager, while in plain mode, serves this thread alone, from the memory
 * stack below: an allocation is pushed, a reallocation pushes a copy, and a free releases nothing
 * and is KIV_ST_ARGUMENT for a block that is not of the stack. Any other thread that allocates,
 * reallocates or frees is suspended for good. A request for which the stack has no room, or which
 * comes without a stack, ends the process.
 *
 * One thread handles an exception at a time. A second thread that records one waits here until the
 * first has ended, which is for ever where that one ends the process. The same thread may record
 * again, with another value.
 *
 *   value  how the process then ends: 0 through exit(0), anything else through abort()
 *
 * Always 0. */
KIVSDU_API uint32_t KivSdXcptSetFatExceptionOccured(uint8_t value);

/* Makes the memory stack of 1 MiB that is used while a fatal exception is handled, once in the
 * life of the process: neither after a failure nor after it was destroyed is it made again. At
 * start-up and shutdown, on one thread, and before an exception is recorded. */
KIVSDU_API void KivSdXcptCreateStackHeader(void);
KIVSDU_API void KivSdXcptDestroyStackHeader(void);

#endif
