/* The context record: the outcome of a caller's last operation.
 *
 * Nearly every operation takes a context first and stores its outcome there, also on success: a
 * success stores {0, 0} whatever the record held before. A null context is allowed everywhere but
 * in KivSdTerm and KivSdLastErrGet; the operation then only returns its status. Each operation
 * overwrites the record that it is given: read it before the next operation.
 *
 * A declaration whose operation can fail in the system ends its statuses with a line "OS error",
 * which names the kind of the number on Windows:
 *
 *   GetLastError   of the system call that failed; KivSdModuleGetErrorMessage has its text
 *   errno          of the function of the C runtime that failed; strerror has its text
 *   wait's result  258 after a time-out, 128 after an abandoned wait
 *   not recorded   the context does not change
 *
 * Without the line the OS error is 0, unless a status says otherwise. On Linux every kind is errno,
 * except for the numbers that docs/linux.md lists as outcomes (38, 128, 258, 535, 997).
 *
 * docs/exceptions.md lists the operations that take no context and the results that are no status.
 *
 * A context belongs to one caller, in practice one thread. It is not locked: two threads that share
 * one see each other's outcomes.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_CONTEXT_H
#define KIVSDU_CONTEXT_H

#include "api.h"

typedef struct KivSdContext {
  uint32_t status;   /* status of the last operation; see status.h */
  uint32_t osError;  /* see above; 0 on success and if no system call failed, as for a bad
                        argument */
  uint64_t reserved; /* initialised to 0; not used */
} KivSdContext;

/* OS errors that hosts test for, with the same number on every platform. */
#define KIV_OS_END_OF_FILE 38u  /* no data behind the position */
#define KIV_OS_TIMED_OUT 258u   /* a wait's result: the time is over */
#define KIV_OS_IN_PROGRESS 997u /* the transfer goes on after the call */

KIV_ASSERT_SIZE(KivSdContext, 16);
KIV_ASSERT_FIELD(KivSdContext, status, 0);
KIV_ASSERT_FIELD(KivSdContext, osError, 4);
KIV_ASSERT_FIELD(KivSdContext, reserved, 8);

/* Makes a zeroed context record.
 *
 *   out  receives the record; must not be null. Free it with KivSdTerm
 *
 * 0, or KIV_ST_ARGUMENT       out is null
 *       KIV_ST_OUT_OF_MEMORY  no memory
 *       another status        of the memory manager, passed on unchanged
 * Any thread. */
KIVSDU_API uint32_t KivSdInit(KivSdContext** out);

/* Frees a context record made by KivSdInit.
 *
 *   ctx  the record; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  ctx is null
 * Any thread. No other thread may be using the record. */
KIVSDU_API uint32_t KivSdTerm(KivSdContext* ctx);

/* Returns the OS error that the record holds. Does not change the record.
 *
 *   ctx      the record; must not be null
 *   length   size of text in bytes. If 0 or 1, no text is written. If 2 or more, the whole text is
 *            written, even past length: provide at least 12 bytes, which hold any 32-bit number
 *            with its sign and terminator
 *   text     receives the OS error as signed decimal digits; may be null
 *   osError  receives the OS error; may be null
 *
 * 0, or KIV_ST_ARGUMENT  ctx is null
 * Any thread. */
KIVSDU_API uint32_t KivSdLastErrGet(const KivSdContext* ctx, uint32_t length, char* text,
                                    uint32_t* osError);

/* Operations that exist on other platforms only. All these names export one function. It ignores
 * all arguments after the context.
 *
 *   ctx  may be null; receives {KIV_ST_NOT_SUPPORTED, 0}
 *
 * Always returns KIV_ST_NOT_SUPPORTED. Any thread. */
KIVSDU_API uint32_t KivSdConsoleRead(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemFixedAlloc(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemFixedFree(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemPoolFixedInit(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemPoolFixedTerm(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdThreadConcurrencyLevGet(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdThreadConcurrencyLevSet(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdUIResStringAllocLoad(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdUIResStringLoad(KivSdContext* ctx, ...);

/* Operations that have nothing to do on this platform. All these names export one function. It
 * ignores all arguments after the context.
 *
 *   ctx  may be null; receives {0, 0}
 *
 * Always returns 0. Any thread. */
KIVSDU_API uint32_t KivSdMemInit(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemTerm(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemPoolInit(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemPoolTerm(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdFileLock(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdFileLockProcInfo(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdFileUnlock(KivSdContext* ctx, ...);

#endif
