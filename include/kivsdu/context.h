/* The context record: one caller's last outcome.
 *
 * Nearly every operation takes a context first and stores its outcome there, on success as on
 * failure: a success leaves {0, 0} whatever the record held before. A null context is allowed
 * everywhere; the operation then only returns its status. The record is overwritten by every
 * operation that is given it, so read it before the next one.
 *
 * A context belongs to one caller, in practice one thread. It is not locked: two threads that
 * share one see each other's outcomes.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_CONTEXT_H
#define KIVSDU_CONTEXT_H

#include "api.h"

typedef struct KivSdContext {
  uint32_t status;   /* what the last operation returned; see status.h */
  uint32_t osError;  /* GetLastError after a system call, errno after a call of the C runtime,
                        the wait's result (258) after a wait that timed out; 0 on success and
                        where the failure was the library's own, such as a bad argument */
  uint64_t reserved; /* zero when made; never used */
} KivSdContext;

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
 *       or the allocator's own status as it came
 * Any thread. */
KIVSDU_API uint32_t KivSdInit(KivSdContext** out);

/* Frees a context record made by KivSdInit.
 *
 *   ctx  the record; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  ctx is null
 * Any thread; no other thread may still use the record. */
KIVSDU_API uint32_t KivSdTerm(KivSdContext* ctx);

/* Reports the OS error that the record holds. Does not change the record.
 *
 *   ctx      the record; must not be null
 *   length   size of text in bytes. At 0 or 1 no text is written. At 2 or more the text is
 *            written whole, whatever the length says: give it at least 12 bytes, the room of
 *            any 32-bit number with its sign and terminator
 *   text     receives the OS error as signed decimal digits; may be null
 *   osError  receives the OS error; may be null
 *
 * 0, or KIV_ST_ARGUMENT  ctx is null
 * Any thread. */
KIVSDU_API uint32_t KivSdLastErrGet(const KivSdContext* ctx, uint32_t length, char* text,
                                    uint32_t* osError);

/* Operations that exist on other platforms only. They are one entry with one address, take any
 * arguments after the context, and do nothing with them.
 *
 *   ctx  may be null; receives {KIV_ST_NOT_SUPPORTED, 0}
 *
 * Always KIV_ST_NOT_SUPPORTED. Any thread. */
KIVSDU_API uint32_t KivSdConsoleRead(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemFixedAlloc(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemFixedFree(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemPoolFixedInit(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemPoolFixedTerm(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdThreadConcurrencyLevGet(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdThreadConcurrencyLevSet(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdUIResStringAllocLoad(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdUIResStringLoad(KivSdContext* ctx, ...);

/* Operations that have nothing to do on this platform. They are one entry with one address and
 * take any arguments after the context.
 *
 *   ctx  may be null; receives {0, 0}
 *
 * Always 0. Any thread. */
KIVSDU_API uint32_t KivSdMemInit(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemTerm(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemPoolInit(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdMemPoolTerm(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdFileLock(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdFileLockProcInfo(KivSdContext* ctx, ...);
KIVSDU_API uint32_t KivSdFileUnlock(KivSdContext* ctx, ...);

#endif
