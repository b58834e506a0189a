/* A host for the tests of the debuggers' printers. It holds every kind of lock while other threads
 * wait for them, has an object of every other kind, and breaks a block of a heap. Then it calls
 * Settle again and again; the test stops it there when all threads wait.
 *
 *   debugged_host DESIGN NAME   DESIGN is "words" or "tickets", the design of the spinlocks; NAME is
 *                               for the objects that processes share */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kivsdu/kivsdu.h"

enum {
  kMaySleep = 1,
  kSlot = 0,
  kBlockBytes = 200,
  kPastTheEnd = 8,
  kPieceBytes = 100,
  kFreedBytes = 48,
  kPauseMs = 2
};

KivSdContext lastContext;
KivSdSpinlock* spinlock;
KivSdLWSpinlock lightweight;
KivSdCritSec section;
KivRWLock rwlock;
KivHandle mutex, event, never, semaphore, readEnd, writeEnd;
KivSharedMemSeg* segment;
KivSdMemStack* stack;
AdShortHeapOwner owner;
void* block;
void* overrun;
KivHandle waiters[7];

static void Check(uint32_t status, const char* action) {
  if (status == KIV_ST_OK) return;
  fprintf(stderr, "debugged_host: cannot %s: status %u\n", action, status);
  exit(EXIT_FAILURE);
}

static uint32_t Own(void) {
  uint32_t thread;
  Check(KivSdThreadIdGet(KIV_NULL, &thread), "get the thread's identifier");
  return thread;
}

/* ---- The waiting threads. None of these calls returns ---- */

static uint32_t AwaitSpinlock(void* argument) {
  (void)argument;
  KivSdSpinlockAcquire(spinlock, Own());
  return 0;
}

static uint32_t AwaitLightweight(void* argument) {
  (void)argument;
  KivSdLWSpinlockAcquire(&lightweight);
  return 0;
}

static uint32_t AwaitSection(void* argument) {
  (void)argument;
  return KivSdCritSecEnter(KIV_NULL, &section);
}

static uint32_t AwaitReading(void* argument) {
  KivRWLockTable table = {0};
  (void)argument;
  return KivSdStartRead(KIV_NULL, &table, &rwlock);
}

static uint32_t AwaitWriting(void* argument) {
  KivRWLockTable table = {0};
  (void)argument;
  return KivSdStartWrite(KIV_NULL, &table, &rwlock);
}

static uint32_t AwaitMutex(void* argument) {
  (void)argument;
  return KivSdMutexRequest(KIV_NULL, &mutex, KIV_WAIT_INFINITE);
}

static uint32_t AwaitEvent(void* argument) {
  (void)argument;
  return KivSdStdEventWait(KIV_NULL, &event);
}

static void StartWaiters(void) {
  static const KivSdThreadRoutine kRoutines[] = {AwaitSpinlock, AwaitLightweight, AwaitSection,
                                                 AwaitReading,  AwaitWriting,     AwaitMutex,
                                                 AwaitEvent};
  uint32_t id;
  for (size_t i = 0; i < sizeof kRoutines / sizeof *kRoutines; i++) {
    Check(KivSdThreadCreate(KIV_NULL, kRoutines[i], 0, 0, KIV_NULL, &id, &waiters[i]),
          "start a thread");
  }
}

/* ---- The objects ---- */

static void HoldLocks(void) {
  static KivRWLockTable table;
  spinlock = KivSdSpinlockCreate(KIV_NULL, 0);
  Check(spinlock != KIV_NULL ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY, "make a spinlock");
  KivSdSpinlockAcquire(spinlock, Own());
  KivSdSpinlockAcquire(spinlock, Own());
  Check(KivSdLWSpinlockInit(&lightweight), "make a lightweight spinlock");
  KivSdLWSpinlockAcquire(&lightweight);
  Check(KivSdCritSecInit(KIV_NULL, &section), "make a critical section");
  Check(KivSdCritSecEnter(KIV_NULL, &section), "enter it");
  Check(KivRWLockInit(KIV_NULL, 0, &rwlock, kMaySleep, kSlot), "make a reader-writer lock");
  Check(KivSdStartWrite(KIV_NULL, &table, &rwlock), "lock for writing");
  Check(KivSdMutexCreate(KIV_NULL, KIV_NULL, &mutex), "make a mutex");
  Check(KivSdMutexRequest(KIV_NULL, &mutex, 0), "take it");
}

static void MakeObjects(const char* name) {
  static KivSharedMemSeg* list;
  uint32_t mappingId;
  int32_t chunk;
  void* view;
  void* piece;
  Check(KivSdStdEventCreate(KIV_NULL, &event), "make an event");
  Check(KivSdStdEventCreate(KIV_NULL, &never), "make an event that nobody signals");
  Check(KivSdCntSemCreate(KIV_NULL, KIV_NULL, 2, 5, &semaphore), "make a semaphore");
  Check(KivSdPipeCreate(KIV_NULL, &readEnd, &writeEnd, 0), "make a pipe");
  Check(KivFindShareMemSeg(KIV_NULL, name, 1, &list, 1, 0, 0, KIV_NULL, KIV_NULL, &segment),
        "make a descriptor");
  Check(KivCreateSharedMemSeg(KIV_NULL, name, 1, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                              KIV_SHAREDMEM_PAGES_READ_WRITE, segment, 1000, &mappingId, &view),
        "set up a segment");
  Check(KivSetSharedMemSegBuffer(KIV_NULL, segment, view), "set the view");
  Check(KivGetSharedMemChunk(KIV_NULL, segment, &chunk), "take a chunk");
  Check(KivWriteSharedMemChunk(KIV_NULL, segment, chunk, 5, 1, 1, "hello"), "send a message");
  Check(KivSdMemStackCreate(KIV_NULL, &stack, 16, 4096), "make a memory stack");
  Check(KivSdMemStackAllocAndPush(KIV_NULL, stack, kPieceBytes, &piece), "push a piece");
}

/* In a short heap nobody else allocates. Each block lies in front of the one before it. */
static void BreakBlock(void) {
  void* freed;
  void* broken;
  adMemShortHeapInit(&owner);
  Check(adMemShortHeapMalloc(&owner, kFreedBytes, &freed, "debugged_host", __LINE__), "allocate");
  Check(adMemShortHeapMalloc(&owner, kBlockBytes, &block, "debugged_host", __LINE__), "allocate");
  Check(adMemShortHeapMalloc(&owner, kBlockBytes, &broken, "debugged_host", __LINE__), "allocate");
  Check(adMemShortHeapMalloc(&owner, kBlockBytes, &overrun, "debugged_host", __LINE__), "allocate");
  Check(adFree(freed, "debugged_host", __LINE__), "free");
  memset(overrun, 'A', kBlockBytes + kPastTheEnd);
}

void Settle(void) {}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "debugged_host: expected a design and a name\n");
    return EXIT_FAILURE;
  }
  KivSdSetHardwareAcceleration(strcmp(argv[1], "tickets") == 0);
  Check(adMemThreadHeapInit(1, KIV_NULL, "debugged", 0), "start the memory manager");
  HoldLocks();
  MakeObjects(argv[2]);
  BreakBlock();
  StartWaiters();
  lastContext.status = KIV_ST_SEM_TIMEOUT;
  lastContext.osError = KIV_OS_TIMED_OUT;
  for (;;) {
    Settle();
    (void)KivSdStdEventTimedWait(KIV_NULL, &never, kPauseMs);
  }
}
