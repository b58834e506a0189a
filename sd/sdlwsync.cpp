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
#include "fence.h"
#include "kivsdu/spinlock.h"
#include "os/assertion.h"
#include "sdsync/spin.h"

namespace {

namespace os = kiv::os;
using kiv::UsesTickets;

constexpr char kSource[] = "sd/sdlwsync";
constexpr uint32_t kLineReleaseAssertion = 302;
constexpr uint32_t kCreationMark = 256;
constexpr uint32_t kFree = 0;
constexpr uint32_t kHeld = 1;

constexpr std::memory_order kRelaxed = std::memory_order_relaxed;
constexpr std::memory_order kAcquire = std::memory_order_acquire;
constexpr std::memory_order kRelease = std::memory_order_release;

struct WordLock {
  kiv::Atomic<uint32_t> word;
  uint32_t mark;
  kiv::Atomic<int16_t> count;
  kiv::Atomic<uint32_t> owner;
};
static_assert(offsetof(WordLock, word) == 0, "lock layout");
static_assert(offsetof(WordLock, mark) == 4, "lock layout");
static_assert(offsetof(WordLock, count) == 8, "lock layout");
static_assert(offsetof(WordLock, owner) == 12, "lock layout");
static_assert(sizeof(WordLock) <= sizeof(KivSdLWSpinlock), "the caller's storage");

struct TicketLock {
  kiv::Atomic<int64_t> serving;
  kiv::Atomic<int32_t> next;
  kiv::Atomic<int32_t> count;
  kiv::Atomic<uint32_t> owner;
};
static_assert(offsetof(TicketLock, serving) == 0, "lock layout");
static_assert(offsetof(TicketLock, next) == 8, "lock layout");
static_assert(offsetof(TicketLock, count) == 12, "lock layout");
static_assert(offsetof(TicketLock, owner) == 16, "lock layout");
static_assert(sizeof(TicketLock) == 24, "three words");

WordLock* WordIn(KivSdLWSpinlock* lock) { return reinterpret_cast<WordLock*>(lock->opaque); }

TicketLock* TicketIn(KivSdLWSpinlock* lock) { return reinterpret_cast<TicketLock*>(lock->opaque); }

template <typename Lock>
bool Reenter(Lock* lock, uint32_t thread) {
  if (lock->owner.load(kRelaxed) != thread) return false;
  lock->count.store(static_cast<int16_t>(lock->count.load(kRelaxed) + 1), kRelaxed);
  return true;
}

void AcquireTicket(TicketLock* lock, uint32_t thread) {
  if (lock->owner.load(kRelaxed) == thread) {
    lock->count.store(lock->count.load(kRelaxed) + 1, kRelaxed);
    return;
  }
  // seq_cst: the full fence of taking.
  const int64_t ticket = lock->next.fetch_add(1);
  const auto isServed = [lock, ticket] { return lock->serving.load(kAcquire) == ticket; };
  kiv::SpinAndYieldUntil(isServed);
  lock->count.store(1, kRelaxed);
  lock->owner.store(thread, kRelaxed);
}

void ReleaseTicket(TicketLock* lock, uint32_t thread) {
  // Goes on if the runtime's routine returns: a debugger may have told it to.
  if (lock->owner.load(kRelaxed) != thread) {
    os::WideAssertionFailed("ThdId == pLWLockticket->ThdId", kSource, kLineReleaseAssertion);
  }
  // Kept at exactly 0: unlike the spinlock on the heap, a surplus release frees nothing.
  const int32_t count = lock->count.load(kRelaxed) - 1;
  lock->count.store(count, kRelaxed);
  if (count != 0) return;
  lock->owner.store(0, kRelaxed);
  kiv::FullFence();
  lock->serving.store(lock->serving.load(kRelaxed) + 1, kRelease);
}

bool IsFree(const WordLock& lock) { return lock.word.load(kRelaxed) != kHeld; }

bool TryTake(WordLock* lock) {
  if (!IsFree(*lock)) kiv::SpinWithinBudget([lock] { return IsFree(*lock); });
  // seq_cst: the full fence of taking.
  return IsFree(*lock) && lock->word.exchange(kHeld) == kFree;
}

void AcquireWord(WordLock* lock, uint32_t thread) {
  if (Reenter(lock, thread)) return;
  while (!TryTake(lock)) os::YieldThread();
  lock->owner.store(thread, kRelaxed);
  lock->count.store(1, kRelaxed);
}

void ReleaseWord(WordLock* lock) {
  const auto count = static_cast<int16_t>(lock->count.load(kRelaxed) - 1);
  lock->count.store(count, kRelaxed);
  if (count != 0) return;
  lock->owner.store(0, kRelaxed);
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
    WordIn(lock)->owner.store(0, kRelaxed);
    WordIn(lock)->count.store(0, kRelaxed);
  }
  return 0;
}

void KivSdLWSpinlockAcquire(KivSdLWSpinlock* lock) {
  const uint32_t thread = os::CurrentThreadId();
  if (UsesTickets()) {
    AcquireTicket(TicketIn(lock), thread);
  } else {
    AcquireWord(WordIn(lock), thread);
  }
}

void KivSdLWSpinlockRelease(KivSdLWSpinlock* lock) {
  if (UsesTickets()) {
    ReleaseTicket(TicketIn(lock), os::CurrentThreadId());
  } else {
    ReleaseWord(WordIn(lock));
  }
}

int32_t KivSdLWSpinlockOwner(const KivSdLWSpinlock* lock) {
  auto* words = const_cast<KivSdLWSpinlock*>(lock);
  const kiv::Atomic<uint32_t>& owner =
      UsesTickets() ? TicketIn(words)->owner : WordIn(words)->owner;
  return owner.load(kRelaxed) == os::CurrentThreadId() ? 1 : 0;
}
