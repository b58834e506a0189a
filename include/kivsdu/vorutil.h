/* Per-thread utility storage: one pointer for each thread, for the host's own use.
 *
 * Call KivSdVorUtilTlsInit and KivSdVorUtilTlsTerm once each, on one thread, at start-up and
 * shutdown. Between them, any thread may set and get. Each thread sees only its own value.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_VORUTIL_H
#define KIVSDU_VORUTIL_H

#include "api.h"

typedef struct KivSdVorUtilGlobalsRecord {
  void* hostValue;  /* the host's own; the library does not use it */
  uint32_t* tlsKey; /* index of the slot, allocated on the heap; null if there is no slot */
} KivSdVorUtilGlobalsRecord;

KIV_ASSERT_SIZE(KivSdVorUtilGlobalsRecord, 16);
KIV_ASSERT_FIELD(KivSdVorUtilGlobalsRecord, hostValue, 0);
KIV_ASSERT_FIELD(KivSdVorUtilGlobalsRecord, tlsKey, 8);

/* Returns the process's utility record; never null. Any thread. */
KIVSDU_API KivSdVorUtilGlobalsRecord* KivSdVorUtilGlobals(void);

/* Makes the per-thread slot. A second call is a programming error: it ends the process through the
 * runtime's assertion "KivSdVorUtilGlobals()->tlsKey == KIV_NULL".
 *
 * 0, or KIV_ST_THREAD_SLOT  the system has no slot left
 *       another status      of the memory manager, such as KIV_ST_OUT_OF_MEMORY
 * One thread. */
KIVSDU_API uint32_t KivSdVorUtilTlsInit(void);

/* Stores the calling thread's value. A call before KivSdVorUtilTlsInit is a programming error: it
 * ends the process through the runtime's assertion "key != KIV_NULL".
 *
 *   value  any pointer, also null
 *
 * 0, or KIV_ST_THREAD_SLOT  the system could not store the value
 * Any thread. */
KIVSDU_API uint32_t KivSdVorUtilTlsSet(void* value);

/* Returns the calling thread's value: null if the thread has set none, or if there is no slot. Any
 * thread. */
KIVSDU_API void* KivSdVorUtilTlsGet(void);

/* Releases the slot. Does nothing if there is none. One thread. */
KIVSDU_API void KivSdVorUtilTlsTerm(void);

#endif
