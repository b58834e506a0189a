/* Locks: threads read two numbers under a reader-writer lock while the main thread changes them. A
 * spinlock guards the total of all threads. The last thread wakes the main thread with an event. */
#include <stdio.h>
#include <stdlib.h>

#include "kivsdu/kivsdu.h"

enum { kThreads = 4, kReads = 200, kWrites = 200, kMaySleep = 1, kSlot = 0 };

static KivRWLock priceLock; /* guards bid and ask */
static int bid = 100, ask = 101;

static KivSdSpinlock* totalLock; /* guards tornTotal and running */
static int tornTotal, running = kThreads;

static KivHandle finished; /* signalled by the last thread */

static void Check(uint32_t status, const char* action) {
  if (status == KIV_ST_OK) return;
  fprintf(stderr, "locks: cannot %s: status %u\n", action, status);
  exit(EXIT_FAILURE);
}

static uint32_t Read(void* argument) {
  KivRWLockTable table = {0}; /* each thread has one, for all its reader-writer locks */
  uint32_t thread;
  int torn = 0;
  (void)argument;
  for (int i = 0; i < kReads; i++) {
    Check(KivSdStartRead(KIV_NULL, &table, &priceLock), "lock for reading");
    torn += ask != bid + 1;
    Check(KivSdEndRW(KIV_NULL, &table, &priceLock), "unlock");
  }
  Check(KivRWLockFreeQNodes(&table), "free the table");

  Check(KivSdThreadIdGet(KIV_NULL, &thread), "get the thread's identifier");
  KivSdSpinlockAcquire(totalLock, thread); /* briefly: a holder must not block */
  tornTotal += torn;
  const int isLast = --running == 0;
  KivSdSpinlockRelease(totalLock);
  if (isLast) Check(KivSdStdEventSet(KIV_NULL, &finished), "signal the event");
  return 0;
}

static void Write(void) {
  KivRWLockTable table = {0};
  for (int i = 0; i < kWrites; i++) {
    Check(KivSdStartWrite(KIV_NULL, &table, &priceLock), "lock for writing");
    bid++;
    ask++;
    Check(KivSdEndRW(KIV_NULL, &table, &priceLock), "unlock");
  }
  Check(KivRWLockFreeQNodes(&table), "free the table");
}

int main(void) {
  KivHandle threads[kThreads];
  uint32_t id;
  totalLock = KivSdSpinlockCreate(KIV_NULL, 0);
  Check(totalLock != KIV_NULL ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY, "make a spinlock");
  Check(KivRWLockInit(KIV_NULL, 0, &priceLock, kMaySleep, kSlot), "make a reader-writer lock");
  Check(KivSdStdEventCreate(KIV_NULL, &finished), "make an event");
  for (int i = 0; i < kThreads; i++) {
    Check(KivSdThreadCreate(KIV_NULL, Read, 0, 0, KIV_NULL, &id, &threads[i]), "start a thread");
  }
  Write();
  Check(KivSdStdEventWait(KIV_NULL, &finished), "wait for the threads");
  printf("%d threads read %d times each during %d writes: %d torn reads\n", kThreads, kReads,
         kWrites, tornTotal);
  for (int i = 0; i < kThreads; i++) {
    Check(KivSdThreadJoin(KIV_NULL, &threads[i]), "wait for a thread's end");
    Check(KivSdThreadDelete(KIV_NULL, &threads[i]), "close a thread's handle");
  }
  Check(KivSdStdEventClose(KIV_NULL, &finished), "close the event");
  KivSdSpinlockDestroy(KIV_NULL, totalLock);
  return tornTotal == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
