/* Counting semaphores, and sets of them that two processes share.
 *
 * Any thread; the library holds no lock while a request waits. A context may always be null.
 * Handles belong to the caller: each create and open is paired with one close. */
#ifndef KIVSDU_SEMAPHORE_H
#define KIVSDU_SEMAPHORE_H

#include "api.h"
#include "context.h"

/* A wait that never times out. */
#define KIV_WAIT_INFINITE 0xFFFFFFFFu

/* ---- Counting semaphores ---- */

/* Makes a semaphore, or opens the one that has the name already; the counts then do not matter.
 *
 *   name          for other processes; null for a semaphore of this process alone
 *   initialCount  0 to maximumCount
 *   maximumCount  at least 1
 *   semaphore     receives the handle, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT    semaphore is null
 *       KIV_ST_SEM_CREATE  not made (bad counts or a bad name included) */
KIVSDU_API uint32_t KivSdCntSemCreate(KivSdContext* ctx, const char* name, int32_t initialCount,
                                      int32_t maximumCount, KivHandle* semaphore);

/* Opens a semaphore by name, for every access; child processes inherit the handle.
 *
 *   semaphore  receives the handle, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  name or semaphore is null
 *       KIV_ST_SEM_OPEN  not opened */
KIVSDU_API uint32_t KivSdCntSemOpen(KivSdContext* ctx, const char* name, KivHandle* semaphore);

/* Closes a handle; the variable keeps its value.
 *
 * 0, or KIV_ST_ARGUMENT   semaphore is null
 *       KIV_ST_SEM_CLOSE  not closed */
KIVSDU_API uint32_t KivSdCntSemClose(KivSdContext* ctx, KivHandle* semaphore);

/* Takes one from the count, waiting while it is 0.
 *
 *   timeoutMs  milliseconds, the low 32 bits alone; 0 only tries; negative as a signed 32-bit
 *              number waits for ever
 *
 * 0, or KIV_ST_ARGUMENT     semaphore is null
 *       KIV_ST_SEM_TIMEOUT  the count stayed 0; OS error 258
 *       KIV_ST_SEM_REQUEST  the wait failed */
KIVSDU_API uint32_t KivSdCntSemRequest(KivSdContext* ctx, KivHandle* semaphore, uint64_t timeoutMs);

/* Gives to the count.
 *
 *   releaseCount   at least 1
 *   previousCount  receives the count before; may be null
 *
 * 0, or KIV_ST_ARGUMENT      semaphore is null
 *       KIV_ST_SEM_OVERFLOW  the count would pass its maximum; OS error 298; nothing is given
 *       KIV_ST_SEM_CLEAR     not released for any other reason */
KIVSDU_API uint32_t KivSdCntSemClear(KivSdContext* ctx, KivHandle* semaphore, int32_t releaseCount,
                                     int32_t* previousCount);

/* ---- Shared semaphore sets ---- */

/* An array of named semaphores. Member i of the set "q" is the semaphore "q_i", so that a set
 * made by another process under the same name is the same set. */
typedef struct KivSdShSemSet {
  uint16_t count;
  KivHandle* members; /* null in an empty set */
} KivSdShSemSet;

KIV_ASSERT_SIZE(KivSdShSemSet, 16);
KIV_ASSERT_FIELD(KivSdShSemSet, count, 0);
KIV_ASSERT_FIELD(KivSdShSemSet, members, 8);

/* Makes a set, or joins the one that has the name; the counts of members that exist already do
 * not matter. Only argument errors are written into the context.
 *
 *   name           base name, not empty; with "_" and the number below 260 characters
 *   count          of members; 0 makes an empty set
 *   ignored        any value
 *   initialCounts  one for each member; must not be null
 *   maximumCounts  one for each member; must not be null
 *   set            receives the set, null when a member could not be made; must not be null.
 *                  After KIV_ST_OUT_OF_MEMORY it must not be used
 *
 * 0, or KIV_ST_ARGUMENT       name is null or empty, or a pointer is null
 *       KIV_ST_OUT_OF_MEMORY  no memory
 *       KIV_ST_SEM_CREATE     a member could not be made; those made before are closed */
KIVSDU_API uint32_t KivSdShSemSetCreate(KivSdContext* ctx, const char* name, uint16_t count,
                                        uint64_t ignored, const int32_t* initialCounts,
                                        const int32_t* maximumCounts, KivSdShSemSet** set);

/* Closes every member and frees the set. A success leaves the context as it was.
 *
 * 0, or KIV_ST_ARGUMENT  set is null */
KIVSDU_API uint32_t KivSdShSemSetClose(KivSdContext* ctx, KivSdShSemSet* set);

/* Takes one from a member's count. Only argument errors are written into the context.
 *
 *   timeoutMs  milliseconds; 0 only tries, KIV_WAIT_INFINITE waits for ever
 *
 * 0, or KIV_ST_ARGUMENT     set is null, or index is not below its count
 *       KIV_ST_SEM_TIMEOUT  the count stayed 0
 *       KIV_ST_SEM_REQUEST  the wait failed */
KIVSDU_API uint32_t KivSdShSemSetRequest(KivSdContext* ctx, uint16_t index, KivSdShSemSet* set,
                                         uint32_t timeoutMs);

/* Gives one to a member's count. Only argument errors are written into the context.
 *
 * 0, or KIV_ST_ARGUMENT   set is null, or index is not below its count
 *       KIV_ST_SEM_CLEAR  not released (a full count included) */
KIVSDU_API uint32_t KivSdShSemSetClear(KivSdContext* ctx, uint16_t index, KivSdShSemSet* set);

#endif
