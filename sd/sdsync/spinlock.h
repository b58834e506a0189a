// The record of a spinlock, which two designs lay out differently.
#ifndef KIV_SDSYNC_SPINLOCK_H
#define KIV_SDSYNC_SPINLOCK_H

#include <cstddef>
#include <cstdint>

#include "atomic.h"
#include "kivsdu/spinlock.h"
#include "sdsync/tuning.h"

namespace kiv {

constexpr size_t kSpinlockBytes = 256;  // four lines of 64

// Who holds a lock, and how often: eight bytes, which change in one store. A locked instruction
// waits until every store before it is done, so that each store less is time saved.
struct alignas(8) Holder {
  uint32_t owner;  // identifier of the holder's thread; 0 when the lock is free
  int16_t count;   // takings not given back
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

// Three lines for three kinds of access: arrivals write `next`, waiters read `serving`, the
// holder writes the rest. The first line is left to whatever lies in front of the record. Lines
// count from the record, which the allocator aligns to 16 bytes: neighbours in this record are
// apart even so.
struct TicketLock {
  unsigned char unused[64];
  int64_t held;  // ticket of the holder, or of the last; the holder's alone
  Atomic<Holder> holder;
  unsigned char gap1[128 - 80];
  Atomic<int64_t> serving;  // ticket that may enter; only the holder writes it
  unsigned char gap2[192 - 136];
  Atomic<int32_t> next;  // drawn in 32 bits and widened with its sign
  unsigned char gap3[256 - 196];
};
static_assert(offsetof(TicketLock, held) == 64, "spinlock layout");
static_assert(offsetof(TicketLock, holder) == 72, "spinlock layout");
static_assert(offsetof(TicketLock, serving) == 128, "spinlock layout");
static_assert(offsetof(TicketLock, next) == 192, "spinlock layout");
static_assert(sizeof(TicketLock) == kSpinlockBytes, "spinlock layout");

}  // namespace kiv

// One or the other, as the process's design says, for the lock's whole life.
struct KivSdSpinlock {
  union {
    kiv::TestAndSetLock word;
    kiv::TicketLock ticket;
  };
};
static_assert(sizeof(KivSdSpinlock) == kiv::kSpinlockBytes, "spinlock layout");

namespace kiv {

// Makes a free lock of the process's design in kSpinlockBytes of memory. Call KivSyncEnvInit before
// the first one.
KivSdSpinlock* InitializeSpinlock(void* memory);

// ---- Steps ----

inline Holder HolderOf(const Atomic<Holder>& holder) {
  return holder.load(std::memory_order_relaxed);
}

// No other thread writes meanwhile.
inline void SetHolder(Atomic<Holder>* holder, uint32_t thread, int16_t count) {
  holder->store({thread, count, 0}, std::memory_order_relaxed);
}

inline bool IsFree(const TestAndSetLock& lock) {
  return lock.word.load(std::memory_order_relaxed) != 1;
}

// seq_cst: a locked instruction, and so the full fence of taking as well.
inline bool Take(TestAndSetLock* lock) { return lock->word.exchange(1) == 0; }

// ---- The library's own locks ----
// Of the memory manager, which take and give back some of them in every request. Mostly they are
// free and given back by who took them once: that is inline, and all else is left to the whole
// operations.

inline void AcquireOwnLock(KivSdSpinlock* lock, uint32_t thread) {
  if (UsesTickets() || !IsFree(lock->word) || !Take(&lock->word)) [[unlikely]]
    return KivSdSpinlockAcquire(lock, thread);
  SetHolder(&lock->word.holder, thread, 1);
}

// Orders what was guarded before the lock is free, and nothing else: the full fence of the whole
// operation is promised to callers, and would be a second locked instruction in every request.
inline void ReleaseOwnLock(KivSdSpinlock* lock) {
  if (UsesTickets() || HolderOf(lock->word.holder).count != 1) [[unlikely]]
    return KivSdSpinlockRelease(lock);
  SetHolder(&lock->word.holder, 0, 0);
  lock->word.word.store(0, std::memory_order_release);
}

}  // namespace kiv

#endif
