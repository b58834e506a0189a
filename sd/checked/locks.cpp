// The checked operations of spinlocks, lightweight spinlocks and the reader-writer lock. A check that
// may find a deadlock comes before the wait. A release is noted before it happens, because another
// thread may have the lock, or have ended it, directly afterwards.
#include "checked/lock_registry.h"
#include "checked/unchecked_locks.h"
#include "kivsdu/status.h"

using namespace kiv::checked;

namespace {

constexpr char kSpinlock[] = "spinlock";
constexpr char kLightweight[] = "lightweight spinlock";
constexpr char kReaderWriter[] = "reader-writer lock";
constexpr char kTable[] = "lock table";

void BeforeAcquire(const void* lock, const char* kind, bool counts = true) {
  ReportLock(CheckAcquire(lock, counts), lock, kind);
}

void BeforeRelease(const void* lock, const char* kind, bool all = false) {
  ReportLock(CheckRelease(lock), lock, kind);
  NoteReleased(lock, all);
}

template <typename Start>
uint32_t StartRW(Start start, void* owner, KivRWLockTable* table, KivRWLock* lock) {
  BeforeAcquire(lock, kReaderWriter);
  const uint32_t status = start(owner, table, lock);
  if (status == KIV_ST_OK) NoteAcquired(lock, table);
  return status;
}

}  // namespace

KivSdSpinlock* KivSdSpinlockCreate(void* ignored, uint32_t alsoIgnored) {
  KivSdSpinlock* lock = KivUncheckedSpinlockCreate(ignored, alsoIgnored);
  if (lock != nullptr) AddSpinlock(lock);
  return lock;
}

void KivSdSpinlockDestroy(void* ignored, KivSdSpinlock* lock) {
  if (lock != nullptr) {
    ReportLock(CheckEnd(lock), lock, kSpinlock);
    ForgetSpinlock(lock);
  }
  KivUncheckedSpinlockDestroy(ignored, lock);
}

void KivSdSpinlockAcquire(KivSdSpinlock* lock, uint32_t thread) {
  if (!IsKnownSpinlock(lock)) return KivUncheckedSpinlockAcquire(lock, thread);
  BeforeAcquire(lock, kSpinlock);
  KivUncheckedSpinlockAcquire(lock, thread);
  NoteAcquired(lock, nullptr);
}

void KivSdSpinlockRelease(KivSdSpinlock* lock) {
  if (IsKnownSpinlock(lock)) BeforeRelease(lock, kSpinlock);
  KivUncheckedSpinlockRelease(lock);
}

void KivSdSpinlockAcquireNonReentrant(KivSdSpinlock* lock, uint32_t thread) {
  if (!IsKnownSpinlock(lock)) return KivUncheckedSpinlockAcquireNonReentrant(lock, thread);
  BeforeAcquire(lock, kSpinlock, false);
  KivUncheckedSpinlockAcquireNonReentrant(lock, thread);
  NoteAcquired(lock, nullptr);
}

void KivSdSpinlockReleaseNonReentrant(KivSdSpinlock* lock) {
  if (IsKnownSpinlock(lock)) BeforeRelease(lock, kSpinlock, true);
  KivUncheckedSpinlockReleaseNonReentrant(lock);
}

uint32_t KivSdLWSpinlockInit(KivSdLWSpinlock* lock) {
  NoteBegin(lock);
  return KivUncheckedLWSpinlockInit(lock);
}

uint32_t KivSdLWSpinlockDestroy(KivSdLWSpinlock* lock) {
  ReportLock(CheckEnd(lock), lock, kLightweight);
  return KivUncheckedLWSpinlockDestroy(lock);
}

void KivSdLWSpinlockAcquire(KivSdLWSpinlock* lock) {
  BeforeAcquire(lock, kLightweight);
  KivUncheckedLWSpinlockAcquire(lock);
  NoteAcquired(lock, nullptr);
}

void KivSdLWSpinlockRelease(KivSdLWSpinlock* lock) {
  BeforeRelease(lock, kLightweight);
  KivUncheckedLWSpinlockRelease(lock);
}

uint32_t KivRWLockInit(void* ignored, int32_t callerValue, KivRWLock* lock, uint8_t blockingAllowed,
                       int32_t slot) {
  NoteBegin(lock);
  return KivUncheckedRWLockInit(ignored, callerValue, lock, blockingAllowed, slot);
}

uint32_t KivSdStartRead(void* owner, KivRWLockTable* table, KivRWLock* lock) {
  return StartRW(KivUncheckedStartRead, owner, table, lock);
}

uint32_t KivSdStartWrite(void* owner, KivRWLockTable* table, KivRWLock* lock) {
  return StartRW(KivUncheckedStartWrite, owner, table, lock);
}

// A thread that does not hold the lock gets a status. A table that does, but in another thread, is
// misuse.
uint32_t KivSdEndRW(void* owner, KivRWLockTable* table, KivRWLock* lock) {
  if (KivSdModeRW(nullptr, table, lock) != KIV_RWLOCK_FREE) BeforeRelease(lock, kReaderWriter);
  return KivUncheckedEndRW(owner, table, lock);
}

uint32_t KivRWLockFreeQNodes(KivRWLockTable* table) {
  ReportLock(CheckTableEnd(table), table, kTable);
  return KivUncheckedRWLockFreeQNodes(table);
}
