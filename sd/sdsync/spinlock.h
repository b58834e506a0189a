// The spinlock record. The test-and-set and the ticket design lay it out differently.
#ifndef KIV_SDSYNC_SPINLOCK_H
#define KIV_SDSYNC_SPINLOCK_H

#include <cstddef>
#include <cstdint>

#include "atomic.h"
#include "compiler.h"
#include "kivsdu/spinlock.h"
#include "sdsync/fence.h"
#include "sdsync/tuning.h"

namespace kiv {

constexpr size_t kSpinlockBytes = 256;  // four lines of 64

// Owner and recursion count of a lock, in eight bytes that change in one store. A locked
// instruction waits for all earlier stores to complete, so each store saved saves time.
struct alignas(8) Holder {
  uint32_t owner;  // thread identifier of the holder; 0 when the lock is free
  int16_t count;   // unreleased acquisitions
  uint16_t unused;
};
static_assert(offsetof(Holder, owner) == 0, "spinlock layout");
static_assert(offsetof(Holder, count) == 4, "spinlock layout");
static_assert(sizeof(Holder) == 8 && std::atomic<Holder>::is_always_lock_free, "one store");

struct TestAndSetLock {
  Atomic<uint32_t> word;  // 0 free, 1 held
  uint32_t mark;          // kCreationMark; nothing reads it
  Atomic<Holder> holder;
};
static_assert(offsetof(TestAndSetLock, word) == 0, "spinlock layout");
static_assert(offsetof(TestAndSetLock, mark) == 4, "spinlock layout");
static_assert(offsetof(TestAndSetLock, holder) == 8, "spinlock layout");

// Three 64-byte lines for three kinds of access: arrivals write `next`, waiters read `serving`, the
// holder writes the rest. The first line is unused, so that no field shares a cache line with the
// memory in front of the record. The allocator aligns the record to 16 bytes only; the three groups
// lie in different cache lines even so.
struct TicketLock {
  unsigned char unused[64];
  int64_t held;  // ticket of the current or last holder; only the holder uses it
  Atomic<Holder> holder;
  unsigned char gap1[128 - 80];
  Atomic<int64_t> serving;  // ticket that may enter; only the holder writes it
  unsigned char gap2[192 - 136];
  Atomic<int32_t> next;  // sign-extended to 64 bits when a ticket is drawn
  unsigned char gap3[256 - 196];
};
static_assert(offsetof(TicketLock, held) == 64, "spinlock layout");
static_assert(offsetof(TicketLock, holder) == 72, "spinlock layout");
static_assert(offsetof(TicketLock, serving) == 128, "spinlock layout");
static_assert(offsetof(TicketLock, next) == 192, "spinlock layout");
static_assert(sizeof(TicketLock) == kSpinlockBytes, "spinlock layout");

}  // namespace kiv

// The process's design selects the member, for the lock's whole life.
struct KivSdSpinlock {
  union {
    kiv::TestAndSetLock word;
    kiv::TicketLock ticket;
  };
};
static_assert(sizeof(KivSdSpinlock) == kiv::kSpinlockBytes, "spinlock layout");

namespace kiv {

// Initialises a free lock of the process's design in kSpinlockBytes of memory. Call KivSyncEnvInit
// before the first lock is made.
KivSdSpinlock* InitializeSpinlock(void* memory);

// ---- Steps ----

inline Holder HolderOf(const Atomic<Holder>& holder) {
  return holder.load(std::memory_order_relaxed);
}

// No other thread may write at the same time.
inline void SetHolder(Atomic<Holder>* holder, uint32_t thread, int16_t count) {
  holder->store({thread, count, 0}, std::memory_order_relaxed);
}

inline bool IsFree(const TestAndSetLock& lock) {
  return lock.word.load(std::memory_order_relaxed) != 1;
}

// seq_cst: with the fence, the full fence promised on acquiring. On x86-64 both are one locked
// instruction.
inline bool Take(TestAndSetLock* lock) {
  const bool taken = lock->word.exchange(1) == 0;
  FenceAfterLocked();
  return taken;
}

// Draws a ticket if it is served at once. Then no thread waits, and none is overtaken: `serving` never
// passes `next`, so equal values mean that nobody has the ticket, and the exchange fails if somebody
// draws it first.
inline bool TryTake(TicketLock* lock) {
  int32_t ticket = lock->next.load(std::memory_order_relaxed);
  if (lock->serving.load(std::memory_order_acquire) != ticket) return false;
  const auto following = static_cast<int32_t>(static_cast<uint32_t>(ticket) + 1);
  if (!lock->next.compare_exchange_strong(ticket, following)) return false;
  FenceAfterLocked();
  lock->held = ticket;
  return true;
}

// ---- The library's own locks ----
// The memory manager acquires and releases some of them in every request. Usually they are
// uncontended and not re-entered: that case is inline, in unoptimised builds as well: tests compile
// some callers with atomics that stop at each access, and must not pass these bodies on to others. All
// other cases call the exported operation.

// Fails if a thread holds the lock, even if it is this one.
KIV_ALWAYS_INLINE bool TryAcquireOwnLock(KivSdSpinlock* lock, uint32_t thread) {
  if (UsesTickets()) [[unlikely]] {
    if (!TryTake(&lock->ticket)) return false;
    SetHolder(&lock->ticket.holder, thread, 1);
    return true;
  }
  if (!IsFree(lock->word) || !Take(&lock->word)) [[unlikely]]
    return false;
  SetHolder(&lock->word.holder, thread, 1);
  return true;
}

inline void AcquireOwnLock(KivSdSpinlock* lock, uint32_t thread) {
  if (!TryAcquireOwnLock(lock, thread)) [[unlikely]]
    KivSdSpinlockAcquire(lock, thread);
}

// Releases a lock that this thread holds once. Publishes the guarded data with a release store. Omits
// the full fence that KivSdSpinlockRelease promises to callers: it would be a second locked
// instruction in every request.
KIV_ALWAYS_INLINE void ReleaseHeldOnce(KivSdSpinlock* lock) {
  if (UsesTickets()) [[unlikely]] {
    SetHolder(&lock->ticket.holder, 0, 0);
    lock->ticket.serving.store(lock->ticket.held + 1, std::memory_order_release);
    return;
  }
  SetHolder(&lock->word.holder, 0, 0);
  lock->word.word.store(0, std::memory_order_release);
}

inline void ReleaseOwnLock(KivSdSpinlock* lock) {
  const Atomic<Holder>& holder = UsesTickets() ? lock->ticket.holder : lock->word.holder;
  if (HolderOf(holder).count != 1) [[unlikely]]
    return KivSdSpinlockRelease(lock);
  ReleaseHeldOnce(lock);
}

}  // namespace kiv

#endif
