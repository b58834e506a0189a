// Heap-allocated spinlocks, in two designs.
//
// The lock word or the serving counter orders the guarded data: the holder's release pairs with the
// next holder's acquire. Owner and count are relaxed: only the holder writes them. Other threads
// compare the owner with their own identifier, which no other thread stores, so every value that
// they can read gives the right answer.
//
// Callers are promised a full fence on acquiring and on releasing.
//
// tests/model/spinlock.pml describes both designs for a model checker; change both together.
#include "sdsync/spinlock.h"

#include <cstring>
#include <new>

#include "compiler.h"
#include "kivsdu/manager.h"
#include "kivsdu/spinlock.h"
#include "kivsdu/status.h"
#include "sdsync/spin.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdsync";
constexpr uint32_t kLineAlloc = 617;
constexpr uint32_t kLineFree = 661;

int16_t Plus(int16_t count, int16_t addend) { return static_cast<int16_t>(count + addend); }

template <typename Lock>
bool Reenter(Lock* lock, uint32_t thread) {
  const Holder holder = HolderOf(lock->holder);
  if (holder.owner != thread) [[likely]]
    return false;
  SetHolder(&lock->holder, thread, Plus(holder.count, 1));
  return true;
}

// ---- Test-and-set ----

// Contended paths are out of line so that the uncontended paths save no registers. If the lock was
// free at the first attempt, another thread was quicker, and this thread yields before it retries.
KIV_NOINLINE void AcquireContended(TestAndSetLock* lock, uint32_t thread, bool wasHeld) {
  if (!wasHeld) os::YieldThread();
  while (!TryTake(lock)) os::YieldThread();
  SetHolder(&lock->holder, thread, 1);
}

void Acquire(TestAndSetLock* lock, uint32_t thread) {
  if (Reenter(lock, thread)) return;
  const bool isHeld = !IsFree(*lock);
  if (isHeld || !Take(lock)) [[unlikely]]
    return AcquireContended(lock, thread, isHeld);
  SetHolder(&lock->holder, thread, 1);
}

void Free(TestAndSetLock* lock, int16_t count) {
  SetHolder(&lock->holder, 0, count);
  // seq_cst: publishes the guarded data, and is with the fence the full fence promised on releasing.
  lock->word.exchange(0);
  FenceAfterLocked();
}

// ---- Ticket ----

// seq_cst: with the fence, the full fence promised on acquiring. Reads of the serving counter cannot
// move before it.
int64_t DrawTicket(TicketLock* lock) {
  const int64_t ticket = lock->next.fetch_add(1);
  FenceAfterLocked();
  return ticket;
}

bool IsServed(const TicketLock& lock, int64_t ticket) {
  return lock.serving.load(std::memory_order_acquire) == ticket;
}

void AwaitTurn(const TicketLock& lock, int64_t ticket) {
  SpinOnceAndYieldUntil([&lock, ticket] { return IsServed(lock, ticket); });
}

void Own(TicketLock* lock, uint32_t thread, int64_t ticket) {
  SetHolder(&lock->holder, thread, 1);
  lock->held = ticket;
}

KIV_NOINLINE void AcquireContended(TicketLock* lock, uint32_t thread, int64_t ticket) {
  AwaitTurn(*lock, ticket);
  Own(lock, thread, ticket);
}

void Acquire(TicketLock* lock, uint32_t thread) {
  if (Reenter(lock, thread)) return;
  const int64_t ticket = DrawTicket(lock);
  if (!IsServed(*lock, ticket)) [[unlikely]]
    return AcquireContended(lock, thread, ticket);
  Own(lock, thread, ticket);
}

// Leaves the count unchanged.
void OwnOnce(TicketLock* lock, uint32_t thread, int64_t ticket) {
  SetHolder(&lock->holder, thread, HolderOf(lock->holder).count);
  lock->held = ticket;
}

KIV_NOINLINE void AcquireOnceContended(TicketLock* lock, uint32_t thread, int64_t ticket) {
  AwaitTurn(*lock, ticket);
  OwnOnce(lock, thread, ticket);
}

void AcquireOnce(TicketLock* lock, uint32_t thread) {
  const int64_t ticket = DrawTicket(lock);
  if (!IsServed(*lock, ticket)) [[unlikely]]
    return AcquireOnceContended(lock, thread, ticket);
  OwnOnce(lock, thread, ticket);
}

void Free(TicketLock* lock, int16_t count) {
  // seq_cst: with the fence, the full fence promised on releasing. It lies between clearing the owner
  // and passing on the turn.
  lock->holder.exchange({0, count, 0});
  FenceAfterLocked();
  // No locked instruction, because only the holder writes `serving`. The store follows the fence,
  // so that waiters see the turn as soon as the cache line reaches them.
  lock->serving.store(lock->held + 1, std::memory_order_release);
}

template <typename Lock>
void Release(Lock* lock) {
  const Holder holder = HolderOf(lock->holder);
  if (holder.count == 1) [[likely]]
    return Free(lock, 0);
  const int16_t count = Plus(holder.count, -1);
  // Compatibility: frees at 0 or below, and callers rely on it. A surplus release frees a free lock
  // once more; the next acquisition sets the count to 1.
  if (count <= 0) return Free(lock, count);
  SetHolder(&lock->holder, holder.owner, count);
}

Holder HolderOf(const KivSdSpinlock& lock) {
  return HolderOf(UsesTickets() ? lock.ticket.holder : lock.word.holder);
}

}  // namespace

KivSdSpinlock* kiv::InitializeSpinlock(void* memory) {
  std::memset(memory, 0, sizeof(KivSdSpinlock));
  auto* lock = static_cast<KivSdSpinlock*>(memory);
  if (!UsesTickets()) lock->word.mark = kCreationMark;
  return lock;
}

KivSdSpinlock* KivSdSpinlockCreate(void* /*ignored*/, uint32_t /*alsoIgnored*/) {
  KivSyncEnvInit();
  void* memory = nullptr;
  const uint32_t status = adMalloc(nullptr, sizeof(KivSdSpinlock), &memory, kSource, kLineAlloc);
  return status == KIV_ST_OK ? InitializeSpinlock(memory) : nullptr;
}

void KivSdSpinlockDestroy(void* /*ignored*/, KivSdSpinlock* lock) {
  if (lock != nullptr) static_cast<void>(adFree(lock, kSource, kLineFree));
}

// Test-and-set is the default: its uncontended path is straight.
void KivSdSpinlockAcquire(KivSdSpinlock* lock, uint32_t thread) {
  if (UsesTickets()) [[unlikely]]
    return Acquire(&lock->ticket, thread);
  Acquire(&lock->word, thread);
}

void KivSdSpinlockRelease(KivSdSpinlock* lock) {
  if (UsesTickets()) [[unlikely]]
    return Release(&lock->ticket);
  Release(&lock->word);
}

void KivSdSpinlockAcquireNonReentrant(KivSdSpinlock* lock, uint32_t thread) {
  if (UsesTickets()) {
    AcquireOnce(&lock->ticket, thread);
  } else {
    // Compatibility: test-and-set has one acquire only, so a holder that acquires again is counted.
    Acquire(&lock->word, thread);
  }
}

void KivSdSpinlockReleaseNonReentrant(KivSdSpinlock* lock) {
  if (UsesTickets()) {
    Free(&lock->ticket, HolderOf(lock->ticket.holder).count);
  } else {
    Free(&lock->word, Plus(HolderOf(lock->word.holder).count, -1));
  }
}

int32_t KivSdSpinlockOwner(const KivSdSpinlock* lock, uint32_t thread) {
  return HolderOf(*lock).owner == thread ? 1 : 0;
}

uint32_t KivSdGetSpinlockRefCount(const KivSdSpinlock* lock) {
  return static_cast<uint16_t>(HolderOf(*lock).count);
}
