/* Mutexes of the kernel, which processes share by name, and critical sections, which are faster and
 * stay inside a process. The owner of either may take it again, and must release it as often.
 *
 * A context may always be null. Any thread; the library holds no lock during a wait. */
#ifndef KIVSDU_MUTEX_H
#define KIVSDU_MUTEX_H

#include "api.h"
#include "context.h"

/* ---- Mutexes ---- */

/* Creates a mutex without an owner. If one of this name exists, opens it.
 *
 *   name   for other processes; null for a mutex of this process alone
 *   mutex  receives the handle, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT      mutex is null
 *       KIV_ST_MUTEX_CREATE  not created
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdMutexCreate(KivSdContext* ctx, const char* name, KivHandle* mutex);

/* Opens a mutex by name, with all access rights. On Windows child processes inherit the handle.
 *
 *   name   must not be null
 *   mutex  receives the handle, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT    name or mutex is null
 *       KIV_ST_MUTEX_OPEN  not opened
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdMutexOpen(KivSdContext* ctx, const char* name, KivHandle* mutex);

/* Closes a handle and sets the variable to null. Compatibility: the variable is null even if the
 * close failed; hosts close once and never retry.
 *
 * 0, or KIV_ST_ARGUMENT     mutex is null
 *       KIV_ST_MUTEX_CLOSE  not closed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdMutexClose(KivSdContext* ctx, KivHandle* mutex);

/* Takes the mutex. Waits while another thread owns it.
 *
 *   timeoutMs  milliseconds; 0 does not wait, KIV_WAIT_INFINITE waits without a limit
 *
 * 0, or KIV_ST_ARGUMENT       mutex is null
 *       KIV_ST_MUTEX_TIMEOUT  another thread still owns it; OS error 258
 *       KIV_ST_MUTEX_REQUEST  any other result. If the last owner ended without releasing the
 *                             mutex, the caller owns it in spite of this status, and must release
 *                             it; OS error EOWNERDEAD on Linux
 * OS error: 258 after a time-out, else GetLastError. */
KIVSDU_API uint32_t KivSdMutexRequest(KivSdContext* ctx, KivHandle* mutex, uint32_t timeoutMs);

/* Releases the mutex.
 *
 * 0, or KIV_ST_ARGUMENT     mutex is null
 *       KIV_ST_MUTEX_CLEAR  not released, for example because the calling thread does not own it
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdMutexClear(KivSdContext* ctx, KivHandle* mutex);

/* ---- Critical sections ---- */

/* A critical section, in the caller's storage: a CRITICAL_SECTION on Windows. */
typedef struct KivSdCritSec {
  uint64_t opaque[5];
} KivSdCritSec;

KIV_ASSERT_SIZE(KivSdCritSec, 40);

/* Initialise, delete, enter and leave a critical section. Entering waits without a limit. Leaving a
 * critical section that the thread does not own is undefined.
 *
 * 0, or KIV_ST_ARGUMENT  section is null
 * Initialise and delete while no other thread uses it. */
KIVSDU_API uint32_t KivSdCritSecInit(KivSdContext* ctx, KivSdCritSec* section);
KIVSDU_API uint32_t KivSdCritSecDelete(KivSdContext* ctx, KivSdCritSec* section);
KIVSDU_API uint32_t KivSdCritSecEnter(KivSdContext* ctx, KivSdCritSec* section);
KIVSDU_API uint32_t KivSdCritSecExit(KivSdContext* ctx, KivSdCritSec* section);

#endif
