/* Per-thread utility storage: one pointer of the host's own for every thread.
 *
 * KivSdVorUtilTlsInit and KivSdVorUtilTlsTerm run once each, on one thread, at start-up and
 * shutdown. Set and get run on any thread in between and touch that thread's value alone.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_VORUTIL_H
#define KIVSDU_VORUTIL_H

#include "api.h"

typedef struct KivSdVorUtilGlobalsRecord {
  void* hostValue;  /* for the host; the library does not use it */
  uint32_t* tlsKey; /* the slot's index on the heap; null while there is no slot */
} KivSdVorUtilGlobalsRecord;

KIV_ASSERT_SIZE(KivSdVorUtilGlobalsRecord, 16);
KIV_ASSERT_FIELD(KivSdVorUtilGlobalsRecord, hostValue, 0);
KIV_ASSERT_FIELD(KivSdVorUtilGlobalsRecord, tlsKey, 8);

/* The process's one utility record; never null. Any thread. */
KIVSDU_API KivSdVorUtilGlobalsRecord* KivSdVorUtilGlobals(void);

/* Makes the slot. Doing so twice is a programming error: the second call ends the process
 * through the runtime's assertion "KivSdVorUtilGlobals()->tlsKey == KIV_NULL".
 *
 * 0, or KIV_ST_THREAD_SLOT  the system has no slot left
 *       or the allocator's own status (KIV_ST_OUT_OF_MEMORY) */
KIVSDU_API uint32_t KivSdVorUtilTlsInit(void);

/* Stores the calling thread's value. Before KivSdVorUtilTlsInit this is a programming error that
 * ends the process through the runtime's assertion "key != KIV_NULL".
 *
 * 0, or KIV_ST_THREAD_SLOT  the system could not store the value */
KIVSDU_API uint32_t KivSdVorUtilTlsSet(void* value);

/* The calling thread's value; null before the thread set one, and while there is no slot. */
KIVSDU_API void* KivSdVorUtilTlsGet(void);

/* Gives the slot back; does nothing while there is none. */
KIVSDU_API void KivSdVorUtilTlsTerm(void);

#endif
