/* Counting semaphores, and sets of semaphores that two processes share.
 *
 * The caller owns the handles: close each one that was created or opened. A context may always be
 * null. Any thread; the library holds no lock during a wait. */
#ifndef KIVSDU_SEMAPHORE_H
#define KIVSDU_SEMAPHORE_H

#include "api.h"
#include "context.h"

/* ---- Counting semaphores ---- */

/* Creates a semaphore. If one of this name exists, opens it and ignores the counts.
 *
 *   name          for other processes; null for a semaphore of this process alone
 *   initialCount  0 to maximumCount
 *   maximumCount  at least 1
 *   semaphore     receives the handle, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT    semaphore is null
 *       KIV_ST_SEM_CREATE  not created, for example because a count or the name is invalid
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdCntSemCreate(KivSdContext* ctx, const char* name, int32_t initialCount,
                                      int32_t maximumCount, KivHandle* semaphore);

/* Opens a semaphore by name, with all access rights. On Windows child processes inherit the handle.
 *
 *   name       must not be null
 *   semaphore  receives the handle, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  name or semaphore is null
 *       KIV_ST_SEM_OPEN  not opened
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdCntSemOpen(KivSdContext* ctx, const char* name, KivHandle* semaphore);

/* Closes a handle. The variable keeps its value.
 *
 * 0, or KIV_ST_ARGUMENT   semaphore is null
 *       KIV_ST_SEM_CLOSE  not closed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdCntSemClose(KivSdContext* ctx, KivHandle* semaphore);

/* Decrements the count. Waits while it is 0.
 *
 *   timeoutMs  milliseconds, of which only the low 32 bits count. 0 does not wait. A value that is
 *              negative as a signed 32-bit number waits without a limit
 *
 * 0, or KIV_ST_ARGUMENT     semaphore is null
 *       KIV_ST_SEM_TIMEOUT  the count stayed 0; OS error 258
 *       KIV_ST_SEM_REQUEST  the wait failed
 * OS error: 258 after a time-out, else GetLastError. */
KIVSDU_API uint32_t KivSdCntSemRequest(KivSdContext* ctx, KivHandle* semaphore, uint64_t timeoutMs);

/* Adds to the count.
 *
 *   releaseCount   at least 1
 *   previousCount  receives the count from before the call; may be null
 *
 * 0, or KIV_ST_ARGUMENT      semaphore is null
 *       KIV_ST_SEM_OVERFLOW  the count would exceed its maximum, and is unchanged; OS error 298,
 *                            on Linux EOVERFLOW
 *       KIV_ST_SEM_CLEAR     not released for any other reason
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdCntSemClear(KivSdContext* ctx, KivHandle* semaphore, int32_t releaseCount,
                                     int32_t* previousCount);

/* ---- Shared semaphore sets ---- */

/* An array of named semaphores. Member i of the set "q" is the semaphore "q_i". Processes that
 * create a set of one name therefore share its semaphores. */
typedef struct KivSdShSemSet {
  uint16_t count;
  KivHandle* members; /* null in an empty set */
} KivSdShSemSet;

KIV_ASSERT_SIZE(KivSdShSemSet, 16);
KIV_ASSERT_FIELD(KivSdShSemSet, count, 0);
KIV_ASSERT_FIELD(KivSdShSemSet, members, 8);

/* Creates a set, or joins the set of this name. The counts of members that exist already are
 * ignored. Only argument errors are written into the context.
 *
 *   name           base name, not empty; must not be null. With "_" and the number it has less than
 *                  260 characters
 *   count          number of members; 0 creates an empty set
 *   ignored        any value
 *   initialCounts  one for each member; must not be null
 *   maximumCounts  one for each member; must not be null
 *   set            receives the set; must not be null. It is null if a member could not be created,
 *                  and must not be used if memory ran out
 *
 * 0, or KIV_ST_ARGUMENT       name is null or empty, or a pointer is null
 *       KIV_ST_OUT_OF_MEMORY  no memory
 *       KIV_ST_SEM_CREATE     a member could not be created; the earlier ones are closed again
 * OS error: not recorded. */
KIVSDU_API uint32_t KivSdShSemSetCreate(KivSdContext* ctx, const char* name, uint16_t count,
                                        uint64_t ignored, const int32_t* initialCounts,
                                        const int32_t* maximumCounts, KivSdShSemSet** set);

/* Closes every member and frees the set. A success does not write the context.
 *
 * 0, or KIV_ST_ARGUMENT  set is null
 * No other thread may be using the set. */
KIVSDU_API uint32_t KivSdShSemSetClose(KivSdContext* ctx, KivSdShSemSet* set);

/* Decrements a member's count. Waits while it is 0. Only argument errors are written into the
 * context.
 *
 *   timeoutMs  milliseconds; 0 does not wait, KIV_WAIT_INFINITE waits without a limit
 *
 * 0, or KIV_ST_ARGUMENT     set is null, or index is not below its count
 *       KIV_ST_SEM_TIMEOUT  the count stayed 0
 *       KIV_ST_SEM_REQUEST  the wait failed
 * OS error: not recorded. */
KIVSDU_API uint32_t KivSdShSemSetRequest(KivSdContext* ctx, uint16_t index, KivSdShSemSet* set,
                                         uint32_t timeoutMs);

/* Increments a member's count. Only argument errors are written into the context.
 *
 * 0, or KIV_ST_ARGUMENT   set is null, or index is not below its count
 *       KIV_ST_SEM_CLEAR  not released, for example because the count is at its maximum
 * OS error: not recorded. */
KIVSDU_API uint32_t KivSdShSemSetClear(KivSdContext* ctx, uint16_t index, KivSdShSemSet* set);

#endif
