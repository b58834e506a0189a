// Lightweight spinlocks: they lie in the caller's storage and get the calling thread's identifier
// themselves. The two designs are those of the heap-allocated spinlocks; sdsync/spinlock.cpp
// explains the memory orders.
//
//   test-and-set  0      4      8       12
//                 | word | mark | count | owner | unused, zero, to 64
//   ticket        0         8      12      16
//                 | serving | next | count | owner | (three words)
#include <cstddef>
#include <cstring>

#include "atomic.h"
#include "compiler.h"
#include "kivsdu/spinlock.h"
#include "os/assertion.h"
#include "sdsync/fence.h"
#include "sdsync/spin.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdlwsync";
constexpr uint32_t kLineReleaseAssertion = 302;
constexpr uint32_t kFree = 0;
constexpr uint32_t kHeld = 1;

// Recursion count and owner of a lock, in eight bytes that change in one store.
struct alignas(8) Holder {
  int16_t count;
  uint16_t unused;
  uint32_t owner;
};
static_assert(offsetof(Holder, count) == 0, "lock layout");
static_assert(offsetof(Holder, owner) == 4, "lock layout");
static_assert(std::atomic<Holder>::is_always_lock_free, "one store");

struct WordLock {
  Atomic<uint32_t> word;
  uint32_t mark;
  Atomic<Holder> holder;
};
static_assert(offsetof(WordLock, word) == 0, "lock layout");
static_assert(offsetof(WordLock, mark) == 4, "lock layout");
static_assert(offsetof(WordLock, holder) == 8, "lock layout");
static_assert(sizeof(WordLock) <= sizeof(KivSdLWSpinlock), "the caller's storage");

struct TicketLock {
  Atomic<int64_t> serving;
  Atomic<int32_t> next;
  Atomic<int32_t> count;
  Atomic<uint32_t> owner;
};
static_assert(offsetof(TicketLock, serving) == 0, "lock layout");
static_assert(offsetof(TicketLock, next) == 8, "lock layout");
static_assert(offsetof(TicketLock, count) == 12, "lock layout");
static_assert(offsetof(TicketLock, owner) == 16, "lock layout");
static_assert(sizeof(TicketLock) == 24, "three words");

WordLock* WordIn(KivSdLWSpinlock* lock) { return reinterpret_cast<WordLock*>(lock->opaque); }

TicketLock* TicketIn(KivSdLWSpinlock* lock) { return reinterpret_cast<TicketLock*>(lock->opaque); }

// ---- Ticket ----

bool IsServed(const TicketLock& lock, int64_t ticket) {
  return lock.serving.load(std::memory_order_acquire) == ticket;
}

void Own(TicketLock* lock, uint32_t thread) {
  lock->count.store(1, std::memory_order_relaxed);
  lock->owner.store(thread, std::memory_order_relaxed);
}

KIV_NOINLINE void AcquireContended(TicketLock* lock, uint32_t thread, int64_t ticket) {
  SpinAndYieldUntil([lock, ticket] { return IsServed(*lock, ticket); });
  Own(lock, thread);
}

void Acquire(TicketLock* lock, uint32_t thread) {
  if (lock->owner.load(std::memory_order_relaxed) == thread) [[unlikely]] {
    lock->count.store(lock->count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    return;
  }
  // seq_cst: with the fence, the full fence promised on acquiring.
  const int64_t ticket = lock->next.fetch_add(1);
  FenceAfterLocked();
  if (!IsServed(*lock, ticket)) [[unlikely]]
    return AcquireContended(lock, thread, ticket);
  Own(lock, thread);
}

void Release(TicketLock* lock, uint32_t thread) {
  // If the assertion routine returns, for example under a debugger, the release continues.
  if (lock->owner.load(std::memory_order_relaxed) != thread) [[unlikely]] {
    os::WideAssertionFailed("ThdId == pLWLockticket->ThdId", kSource, kLineReleaseAssertion);
  }
  // Compatibility: frees at exactly 0. Unlike with the heap-allocated spinlock, a surplus release
  // frees nothing.
  const int32_t count = lock->count.load(std::memory_order_relaxed) - 1;
  lock->count.store(count, std::memory_order_relaxed);
  if (count != 0) [[unlikely]]
    return;
  // seq_cst: with the fence, the full fence promised on releasing, between clearing the owner and
  // passing on the turn.
  lock->owner.exchange(0);
  FenceAfterLocked();
  lock->serving.store(lock->serving.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

// ---- Test-and-set ----

Holder HolderOf(const WordLock& lock) { return lock.holder.load(std::memory_order_relaxed); }

// No other thread may write at the same time.
void SetHolder(WordLock* lock, uint32_t thread, int32_t count) {
  lock->holder.store({static_cast<int16_t>(count), 0, thread}, std::memory_order_relaxed);
}

bool IsFree(const WordLock& lock) { return lock.word.load(std::memory_order_relaxed) != kHeld; }

// seq_cst: with the fence, the full fence promised on acquiring.
bool Take(WordLock* lock) {
  const bool taken = lock->word.exchange(kHeld) == kFree;
  FenceAfterLocked();
  return taken;
}

KIV_NOINLINE void AcquireContended(WordLock* lock, uint32_t thread, bool wasHeld) {
  if (!wasHeld) os::YieldThread();
  while (!TryTake(lock)) os::YieldThread();
  SetHolder(lock, thread, 1);
}

void Acquire(WordLock* lock, uint32_t thread) {
  const Holder holder = HolderOf(*lock);
  if (holder.owner == thread) [[unlikely]]
    return SetHolder(lock, thread, holder.count + 1);
  const bool isHeld = !IsFree(*lock);
  if (isHeld || !Take(lock)) [[unlikely]]
    return AcquireContended(lock, thread, isHeld);
  SetHolder(lock, thread, 1);
}

void Release(WordLock* lock) {
  const Holder holder = HolderOf(*lock);
  const auto count = static_cast<int16_t>(holder.count - 1);
  if (count != 0) [[unlikely]]
    return SetHolder(lock, holder.owner, count);
  SetHolder(lock, 0, 0);
  // seq_cst: publishes the guarded data, and is with the fence the full fence promised on releasing.
  lock->word.exchange(kFree);
  FenceAfterLocked();
}

}  // namespace

uint32_t KivSdLWSpinlockInit(KivSdLWSpinlock* lock) {
  // The ticket design owns the first three words only.
  std::memset(lock->opaque, 0, UsesTickets() ? sizeof(TicketLock) : sizeof lock->opaque);
  if (!UsesTickets()) WordIn(lock)->mark = kCreationMark;
  return 0;
}

uint32_t KivSdLWSpinlockDestroy(KivSdLWSpinlock* lock) {
  if (UsesTickets()) {
    std::memset(lock->opaque, 0, sizeof(TicketLock));
  } else {
    SetHolder(WordIn(lock), 0, 0);
  }
  return 0;
}

void KivSdLWSpinlockAcquire(KivSdLWSpinlock* lock) {
  const uint32_t thread = os::CurrentThreadId();
  if (UsesTickets()) {
    Acquire(TicketIn(lock), thread);
  } else {
    Acquire(WordIn(lock), thread);
  }
}

void KivSdLWSpinlockRelease(KivSdLWSpinlock* lock) {
  if (UsesTickets()) {
    Release(TicketIn(lock), os::CurrentThreadId());
  } else {
    Release(WordIn(lock));
  }
}

int32_t KivSdLWSpinlockOwner(const KivSdLWSpinlock* lock) {
  auto* words = const_cast<KivSdLWSpinlock*>(lock);
  const uint32_t owner = UsesTickets() ? TicketIn(words)->owner.load(std::memory_order_relaxed)
                                       : HolderOf(*WordIn(words)).owner;
  return owner == os::CurrentThreadId() ? 1 : 0;
}
