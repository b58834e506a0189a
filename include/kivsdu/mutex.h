/* Mutexes of the kernel, which processes share by name, and critical sections, which are faster
 * and stay inside a process. The thread that holds one may take it again and gives it back as
 * often.
 *
 * Any thread; the library holds no lock while a request waits. A context may always be null. */
#ifndef KIVSDU_MUTEX_H
#define KIVSDU_MUTEX_H

#include "api.h"
#include "context.h"

/* ---- Mutexes ---- */

/* Makes a mutex that nobody holds, or opens the one that has the name already.
 *
 *   name   for other processes; null for a mutex of this process alone
 *   mutex  receives the handle, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT      mutex is null
 *       KIV_ST_MUTEX_CREATE  not made */
KIVSDU_API uint32_t KivSdMutexCreate(KivSdContext* ctx, const char* name, KivHandle* mutex);

/* Opens a mutex by name, for every access; child processes inherit the handle.
 *
 *   mutex  receives the handle, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT    name or mutex is null
 *       KIV_ST_MUTEX_OPEN  not opened */
KIVSDU_API uint32_t KivSdMutexOpen(KivSdContext* ctx, const char* name, KivHandle* mutex);

/* Closes a handle and sets the variable to null, also when the close fails.
 *
 * 0, or KIV_ST_ARGUMENT     mutex is null
 *       KIV_ST_MUTEX_CLOSE  not closed */
KIVSDU_API uint32_t KivSdMutexClose(KivSdContext* ctx, KivHandle* mutex);

/* Takes the mutex.
 *
 *   timeoutMs  milliseconds; 0 only tries, 0xFFFFFFFF waits for ever
 *
 * 0, or KIV_ST_ARGUMENT       mutex is null
 *       KIV_ST_MUTEX_TIMEOUT  another thread held it; OS error 258
 *       KIV_ST_MUTEX_REQUEST  anything else. That includes a mutex whose holder ended without
 *                             giving it back: the caller holds it then and must give it back */
KIVSDU_API uint32_t KivSdMutexRequest(KivSdContext* ctx, KivHandle* mutex, uint32_t timeoutMs);

/* Gives the mutex back.
 *
 * 0, or KIV_ST_ARGUMENT     mutex is null
 *       KIV_ST_MUTEX_CLEAR  not given back: the calling thread does not hold it */
KIVSDU_API uint32_t KivSdMutexClear(KivSdContext* ctx, KivHandle* mutex);

/* ---- Critical sections ---- */

/* The caller's storage of a critical section: a CRITICAL_SECTION on Windows. */
typedef struct KivSdCritSec {
  uint64_t opaque[5];
} KivSdCritSec;

KIV_ASSERT_SIZE(KivSdCritSec, 40);

/* Prepare, end, take and give back a critical section. Entering waits for ever; leaving one that
 * the thread does not hold is undefined.
 *
 * 0, or KIV_ST_ARGUMENT  section is null */
KIVSDU_API uint32_t KivSdCritSecInit(KivSdContext* ctx, KivSdCritSec* section);
KIVSDU_API uint32_t KivSdCritSecDelete(KivSdContext* ctx, KivSdCritSec* section);
KIVSDU_API uint32_t KivSdCritSecEnter(KivSdContext* ctx, KivSdCritSec* section);
KIVSDU_API uint32_t KivSdCritSecExit(KivSdContext* ctx, KivSdCritSec* section);

#endif
