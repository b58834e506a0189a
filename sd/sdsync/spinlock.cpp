// Spinlocks on the heap, in two designs.
//
// What a lock guards is ordered by its word, or by its serving counter: the holder's release
// pairs with the next holder's acquire. `owner` and `count` are the holder's; others only compare
// `owner` with their own identifier, which they alone store, so that any value they read gives
// the right answer: relaxed.
//
// Callers are promised a full fence on taking and on giving back.
#include "sdsync/spinlock.h"

#include <cstring>
#include <new>

#include "fence.h"
#include "kivsdu/manager.h"
#include "kivsdu/spinlock.h"
#include "kivsdu/status.h"
#include "memheap/plain.h"
#include "sdsync/spin.h"

namespace {

using kiv::TestAndSetLock;
using kiv::TicketLock;
using kiv::UsesTickets;

constexpr char kSource[] = "sd/sdsync";
constexpr uint32_t kLineAlloc = 617;
constexpr uint32_t kLineFree = 661;

constexpr std::memory_order kRelaxed = std::memory_order_relaxed;
constexpr std::memory_order kAcquire = std::memory_order_acquire;
constexpr std::memory_order kRelease = std::memory_order_release;

// A holder's own counting; no other thread writes meanwhile.
template <typename Lock>
int16_t AddToCount(Lock* lock, int16_t addend) {
  const auto count = static_cast<int16_t>(lock->count.load(kRelaxed) + addend);
  lock->count.store(count, kRelaxed);
  return count;
}

template <typename Lock>
bool Reenter(Lock* lock, uint32_t thread) {
  if (lock->owner.load(kRelaxed) != thread) return false;
  AddToCount(lock, 1);
  return true;
}

// ---- Test-and-set ----

bool IsFree(const TestAndSetLock& lock) { return lock.word.load(kRelaxed) != 1; }

bool TryTake(TestAndSetLock* lock) {
  if (!IsFree(*lock)) kiv::SpinWithinBudget([lock] { return IsFree(*lock); });
  // seq_cst: a locked instruction, and so the full fence of taking as well.
  return IsFree(*lock) && lock->word.exchange(1) == 0;
}

void Acquire(TestAndSetLock* lock, uint32_t thread) {
  if (Reenter(lock, thread)) return;
  while (!TryTake(lock)) kiv::os::YieldThread();
  lock->owner.store(thread, kRelaxed);
  lock->count.store(1, kRelaxed);
}

void Free(TestAndSetLock* lock) {
  lock->owner.store(0, kRelaxed);
  // seq_cst: releases what was guarded, and is the full fence of giving back as well.
  lock->word.exchange(0);
}

// ---- Ticket ----

int64_t WaitForTurn(TicketLock* lock) {
  // seq_cst: a locked instruction, and so the full fence of taking as well; what the wait below
  // reads cannot come before it.
  const int64_t ticket = lock->next.fetch_add(1);
  const auto isServed = [lock, ticket] { return lock->serving.load(kAcquire) == ticket; };
  if (!isServed()) kiv::SpinOnceAndYieldUntil(isServed);
  return ticket;
}

void Acquire(TicketLock* lock, uint32_t thread) {
  if (Reenter(lock, thread)) return;
  lock->held = WaitForTurn(lock);
  lock->owner.store(thread, kRelaxed);
  lock->count.store(1, kRelaxed);
}

void AcquireOnce(TicketLock* lock, uint32_t thread) {
  lock->held = WaitForTurn(lock);
  lock->owner.store(thread, kRelaxed);
}

void Free(TicketLock* lock) {
  lock->owner.store(0, kRelaxed);
  kiv::FullFence();
  // A plain store, for only the holder writes it. It lies behind the fence, so that waiters see
  // the turn as soon as the line reaches them.
  lock->serving.store(lock->held + 1, kRelease);
}

template <typename Lock>
void Release(Lock* lock) {
  // Kept at "0 or below": a surplus release frees again what is free, and the next taking starts
  // the count anew.
  if (AddToCount(lock, -1) <= 0) Free(lock);
}

KivSdSpinlock* Initialize(void* memory) {
  std::memset(memory, 0, sizeof(KivSdSpinlock));
  auto* lock = static_cast<KivSdSpinlock*>(memory);
  if (!UsesTickets()) lock->word.mark = kiv::kCreationMark;
  return lock;
}

}  // namespace

KivSdSpinlock* kiv::CreatePlainSpinlock() {
  KivSyncEnvInit();
  void* memory = PlainAllocate(sizeof(KivSdSpinlock), AD_POLICY_FULL);
  return memory == nullptr ? nullptr : Initialize(memory);
}

KivSdSpinlock* KivSdSpinlockCreate(void* /*ignored*/, uint32_t /*alsoIgnored*/) {
  KivSyncEnvInit();
  void* memory = nullptr;
  const uint32_t status = adMalloc(nullptr, sizeof(KivSdSpinlock), &memory, kSource, kLineAlloc);
  return status == KIV_ST_OK ? Initialize(memory) : nullptr;
}

void KivSdSpinlockDestroy(void* /*ignored*/, KivSdSpinlock* lock) {
  if (lock != nullptr) static_cast<void>(adFree(lock, kSource, kLineFree));
}

void KivSdSpinlockAcquire(KivSdSpinlock* lock, uint32_t thread) {
  if (UsesTickets()) {
    Acquire(&lock->ticket, thread);
  } else {
    Acquire(&lock->word, thread);
  }
}

void KivSdSpinlockRelease(KivSdSpinlock* lock) {
  if (UsesTickets()) {
    Release(&lock->ticket);
  } else {
    Release(&lock->word);
  }
}

void KivSdSpinlockAcquireNonReentrant(KivSdSpinlock* lock, uint32_t thread) {
  if (UsesTickets()) {
    AcquireOnce(&lock->ticket, thread);
  } else {
    // Kept: one word has one way in, and a holder that comes again is counted.
    Acquire(&lock->word, thread);
  }
}

void KivSdSpinlockReleaseNonReentrant(KivSdSpinlock* lock) {
  if (UsesTickets()) {
    Free(&lock->ticket);
  } else {
    AddToCount(&lock->word, -1);
    Free(&lock->word);
  }
}

int32_t KivSdSpinlockOwner(const KivSdSpinlock* lock, uint32_t thread) {
  const kiv::Atomic<uint32_t>& owner = UsesTickets() ? lock->ticket.owner : lock->word.owner;
  return owner.load(kRelaxed) == thread ? 1 : 0;
}

uint32_t KivSdGetSpinlockRefCount(const KivSdSpinlock* lock) {
  const kiv::Atomic<int16_t>& count = UsesTickets() ? lock->ticket.count : lock->word.count;
  return static_cast<uint16_t>(count.load(kRelaxed));
}
