/* Threads and processes, and the memory reserved for handling a fatal exception.
 *
 * Most operations are one system call: handles and priorities are the system's. Where a result is
 * said to be ignored, the operation succeeds even if its system call fails. A context may always be
 * null. Any thread.
 *
 * Example: examples/locks.c. */
#ifndef KIVSDU_THREAD_H
#define KIVSDU_THREAD_H

#include "api.h"
#include "context.h"

/* A thread's routine. It returns the thread's exit code. */
typedef uint32_t (*KivSdThreadRoutine)(void* argument);

/* ---- Threads ---- */

/* Priorities of a thread, within the priority class of its process. */
#define KIV_THREAD_PRIORITY_IDLE (-15)
#define KIV_THREAD_PRIORITY_LOWEST (-2)
#define KIV_THREAD_PRIORITY_BELOW_NORMAL (-1)
#define KIV_THREAD_PRIORITY_NORMAL 0
#define KIV_THREAD_PRIORITY_ABOVE_NORMAL 1
#define KIV_THREAD_PRIORITY_HIGHEST 2
#define KIV_THREAD_PRIORITY_TIME_CRITICAL 15

/* Starts a thread.
 *
 *   routine     must not be null
 *   ignored     any value
 *   stackBytes  bytes; 0 for the system's default. The system raises small values
 *   argument    passed to the routine
 *   id          receives the thread's identifier; must not be null
 *   thread      receives the handle, null on failure; must not be null. Close it with
 *               KivSdThreadDelete
 *
 * 0, or KIV_ST_ARGUMENT       routine, id or thread is null; no thread is started
 *       KIV_ST_THREAD_CREATE  not started
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdThreadCreate(KivSdContext* ctx, KivSdThreadRoutine routine,
                                      uint64_t ignored, uint32_t stackBytes, void* argument,
                                      uint32_t* id, KivHandle* thread);

/* Closes a thread's handle. The thread runs on, and the variable keeps its value.
 *
 * 0, or KIV_ST_ARGUMENT       thread is null
 *       KIV_ST_THREAD_DELETE  not closed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdThreadDelete(KivSdContext* ctx, KivHandle* thread);

/* Ends the calling thread. Does not return, and does not write the context.
 *
 * Linux: destructors in the frames of a thread that the host started itself do run. */
KIVSDU_API void KivSdThreadExit(KivSdContext* ctx, uint32_t exitCode);

/* Yields the rest of the time slice. Always returns 0. */
KIVSDU_API uint32_t KivSdThreadYield(KivSdContext* ctx);

/* Suspends a thread until it is resumed as often as it was suspended.
 *
 *   thread  null for the calling thread
 *
 * Always returns 0: the result of the call is ignored.
 *
 * Linux: another thread is stopped by the signal SIGRTMAX - 5. The call has no effect if the host
 * has a handler for that signal, or if the thread blocks it. */
KIVSDU_API uint32_t KivSdThreadSuspend(KivSdContext* ctx, KivHandle* thread);

/* Resumes a suspended thread. The result of the call is ignored.
 *
 * 0, or KIV_ST_ARGUMENT  thread is null */
KIVSDU_API uint32_t KivSdThreadResume(KivSdContext* ctx, KivHandle* thread);

/* Waits without a limit until a thread has ended.
 *
 *   thread  null for the calling thread; the call then never returns
 *
 * Always returns 0: the result of the wait is ignored. */
KIVSDU_API uint32_t KivSdThreadJoin(KivSdContext* ctx, KivHandle* thread);

/* Returns the calling thread's identifier.
 *
 *   id  receives it; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  id is null */
KIVSDU_API uint32_t KivSdThreadIdGet(KivSdContext* ctx, uint32_t* id);

/* Get and set a thread's priority, on the system's scale.
 *
 *   thread    null for the calling thread
 *   priority  KIV_THREAD_PRIORITY_...; (get) receives it; unchanged on failure
 *
 * 0, or KIV_ST_ARGUMENT             (get) priority is null
 *       KIV_ST_THREAD_PRIORITY_GET  (get) not read
 *       KIV_ST_THREAD_PRIORITY_SET  (set) not set
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdThreadPriorityGet(KivSdContext* ctx, KivHandle* thread, int32_t* priority);
KIVSDU_API uint32_t KivSdThreadPrioritySet(KivSdContext* ctx, KivHandle* thread, int32_t priority);

/* Return the normal priority, which is 0, and the highest, which is 2.
 *
 *   ignored  any value
 *
 * 0, or KIV_ST_ARGUMENT  priority is null */
KIVSDU_API uint32_t KivSdThreadBasePriorityGet(KivSdContext* ctx, KivHandle ignored,
                                               int32_t* priority);
KIVSDU_API uint32_t KivSdThreadHighPriorityGet(KivSdContext* ctx, KivHandle ignored,
                                               int32_t* priority);

/* Returns a handle of the calling thread that other threads can use. Child processes do not inherit
 * it. Close it with KivSdThreadDelete.
 *
 *   thread  receives the handle; must not be null
 *
 * 0, or KIV_ST_ARGUMENT       thread is null
 *       KIV_ST_THREAD_HANDLE  not obtained
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdThreadHandleGet(KivSdContext* ctx, KivHandle* thread);

/* ---- Processes ---- */

/* Priority classes of a process. */
#define KIV_PRIORITY_CLASS_IDLE 0x40u
#define KIV_PRIORITY_CLASS_BELOW_NORMAL 0x4000u
#define KIV_PRIORITY_CLASS_NORMAL 0x20u
#define KIV_PRIORITY_CLASS_ABOVE_NORMAL 0x8000u
#define KIV_PRIORITY_CLASS_HIGH 0x80u
#define KIV_PRIORITY_CLASS_REALTIME 0x100u

/* Ends a process with exit code 0.
 *
 *   process  Linux: the identifier of the process as a pointer, or -1 for the calling process
 *
 * 0, or KIV_ST_PROCESS_DELETE  access is denied, OS error 5 (Linux: EPERM). Windows also denies
 *                              access to a process that has ended
 * OS error: GetLastError.
 *
 * Linux: only the calling process ends with an exit code; others end as by SIGKILL.
 *
 * Compatibility: if the call fails with any other OS error, the status is 0, and only the context
 * holds the OS error. */
KIVSDU_API uint32_t KivSdProcessDelete(KivSdContext* ctx, KivHandle process);

/* Returns the calling process's identifier.
 *
 *   id  receives it; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  id is null */
KIVSDU_API uint32_t KivSdProcessIdGet(KivSdContext* ctx, uint32_t* id);

/* Returns the pseudo-handle of the calling process as a number. Compatibility: the name promises a
 * session identifier, but hosts rely on the handle.
 *
 *   id  receives it; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  id is null */
KIVSDU_API uint32_t KivSdProcessSessionIdGet(KivSdContext* ctx, uint64_t* id);

/* Tests whether a process is running.
 *
 * 0                     it is running
 * KIV_ST_PROCESS_ALIVE  it has ended, OS error 0; or the test failed, OS error 0xFFFFFFFF
 * OS error: the wait's result. */
KIVSDU_API uint32_t KivSdProcessCheckAlive(KivSdContext* ctx, KivHandle process);

/* Returns the calling process's priority class.
 *
 *   priorityClass  receives it, KIV_PRIORITY_CLASS_...; unchanged on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT              priorityClass is null
 *       KIV_ST_PROCESS_PRIORITY_GET  not read
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdProcessPriorityGet(KivSdContext* ctx, uint32_t* priorityClass);

/* Sets a process's priority class.
 *
 *   process  null for the calling process
 *   id       -1 for the calling process, whatever `process` holds; other values are ignored
 *
 * 0, or KIV_ST_PROCESS_PRIORITY_SET  not set
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdProcessPrioritySet(KivSdContext* ctx, KivHandle process, int32_t id,
                                            uint32_t priorityClass);

/* ---- Fatal exceptions ---- */

/* Declares that the calling thread handles a fatal exception. This cannot be undone.
 *
 * In plain mode, the memory manager from then on serves this thread alone, from the memory stack of
 * KivSdXcptCreateStackHeader. An allocation pushes a block, a reallocation pushes a copy, and a
 * free releases nothing; freeing a block from elsewhere fails with KIV_ST_ARGUMENT. A request ends
 * the process if the stack has no room or does not exist. Any other thread that allocates,
 * reallocates or frees is suspended for good.
 *
 * Create the stack before this call. Afterwards KivSdXcptCreateStackHeader ends the process,
 * because it allocates.
 *
 * One thread handles an exception at a time. A second thread that calls this waits until the first
 * thread has ended; if the first thread ends the process, the second never returns. The first
 * thread may call it again, with another value.
 *
 *   value  how a request without room in the stack ends the process: 0 calls exit(0), any other
 *          value calls abort()
 *
 * Always returns 0. */
KIVSDU_API uint32_t KivSdXcptSetFatExceptionOccured(uint8_t value);

/* Create and destroy the memory stack of 1 MiB that serves the handling of a fatal exception. It is
 * created once in a process: a second creation does nothing, also after a failure or after the
 * stack was destroyed. Call these on one thread, at start-up and shutdown, and before a fatal
 * exception. */
KIVSDU_API void KivSdXcptCreateStackHeader(void);
KIVSDU_API void KivSdXcptDestroyStackHeader(void);

#endif
