// Lightweight spinlocks: in the caller's storage, and finding out by themselves who calls. Two
// designs, as the spinlocks on the heap have (sdsync/spinlock.cpp, where the orders are argued).
//
//   test-and-set  0      4      8       12
//                 | word | mark | count | owner | unused, zero, to 64
//   ticket        0         8      12      16
//                 | serving | next | count | owner | (three words)
#include <cstddef>
#include <cstring>

#include "atomic.h"
#include "kivsdu/spinlock.h"
#include "os/assertion.h"
#include "sdsync/spin.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdlwsync";
constexpr uint32_t kLineReleaseAssertion = 302;
constexpr uint32_t kFree = 0;
constexpr uint32_t kHeld = 1;

constexpr std::memory_order kRelaxed = std::memory_order_relaxed;
constexpr std::memory_order kAcquire = std::memory_order_acquire;
constexpr std::memory_order kRelease = std::memory_order_release;

// How often a lock is held, and by whom: eight bytes, which change in one store.
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
  return lock.serving.load(kAcquire) == ticket;
}

void Own(TicketLock* lock, uint32_t thread) {
  lock->count.store(1, kRelaxed);
  lock->owner.store(thread, kRelaxed);
}

[[gnu::noinline]] void AcquireContended(TicketLock* lock, uint32_t thread, int64_t ticket) {
  SpinAndYieldUntil([lock, ticket] { return IsServed(*lock, ticket); });
  Own(lock, thread);
}

void Acquire(TicketLock* lock, uint32_t thread) {
  if (lock->owner.load(kRelaxed) == thread) [[unlikely]] {
    lock->count.store(lock->count.load(kRelaxed) + 1, kRelaxed);
    return;
  }
  // seq_cst: the full fence of taking.
  const int64_t ticket = lock->next.fetch_add(1);
  if (!IsServed(*lock, ticket)) [[unlikely]]
    return AcquireContended(lock, thread, ticket);
  Own(lock, thread);
}

void Release(TicketLock* lock, uint32_t thread) {
  // Goes on if the runtime's routine returns: a debugger may have told it to.
  if (lock->owner.load(kRelaxed) != thread) [[unlikely]] {
    os::WideAssertionFailed("ThdId == pLWLockticket->ThdId", kSource, kLineReleaseAssertion);
  }
  // Kept at exactly 0: unlike the spinlock on the heap, a surplus release frees nothing.
  const int32_t count = lock->count.load(kRelaxed) - 1;
  lock->count.store(count, kRelaxed);
  if (count != 0) [[unlikely]]
    return;
  // seq_cst: the full fence of giving back, between the owner and the turn.
  lock->owner.exchange(0);
  lock->serving.store(lock->serving.load(kRelaxed) + 1, kRelease);
}

// ---- Test-and-set ----

Holder HolderOf(const WordLock& lock) { return lock.holder.load(kRelaxed); }

// No other thread writes meanwhile.
void SetHolder(WordLock* lock, uint32_t thread, int32_t count) {
  lock->holder.store({static_cast<int16_t>(count), 0, thread}, kRelaxed);
}

bool IsFree(const WordLock& lock) { return lock.word.load(kRelaxed) != kHeld; }

// seq_cst: the full fence of taking.
bool Take(WordLock* lock) { return lock->word.exchange(kHeld) == kFree; }

bool TryTake(WordLock* lock) {
  if (!IsFree(*lock)) SpinWithinBudget([lock] { return IsFree(*lock); });
  return IsFree(*lock) && Take(lock);
}

[[gnu::noinline]] void AcquireContended(WordLock* lock, uint32_t thread, bool wasHeld) {
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
  // seq_cst: releases what was guarded, and is the full fence of giving back.
  lock->word.exchange(kFree);
}

}  // namespace

uint32_t KivSdLWSpinlockInit(KivSdLWSpinlock* lock) {
  // A lock of tickets owns three of the words; what lies behind them is not its own.
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
  const uint32_t owner =
      UsesTickets() ? TicketIn(words)->owner.load(kRelaxed) : HolderOf(*WordIn(words)).owner;
  return owner == os::CurrentThreadId() ? 1 : 0;
}
