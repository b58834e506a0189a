// The record of a spinlock, which two designs lay out differently.
#ifndef KIV_SDSYNC_SPINLOCK_H
#define KIV_SDSYNC_SPINLOCK_H

#include <cstddef>
#include <cstdint>

#include "atomic.h"

namespace kiv {

constexpr size_t kSpinlockBytes = 256;  // four lines of 64

struct TestAndSetLock {
  Atomic<uint32_t> word;  // 0 free, 1 held; changed by exchange alone
  uint32_t mark;          // kCreationMark; for people who look at memory
  Atomic<uint32_t> owner;
  Atomic<int16_t> count;
};
static_assert(offsetof(TestAndSetLock, word) == 0, "spinlock layout");
static_assert(offsetof(TestAndSetLock, mark) == 4, "spinlock layout");
static_assert(offsetof(TestAndSetLock, owner) == 8, "spinlock layout");
static_assert(offsetof(TestAndSetLock, count) == 12, "spinlock layout");

constexpr uint32_t kCreationMark = 256;

// Three lines for three kinds of access: arrivals write `next`, waiters read `serving`, the
// holder writes the rest. The first line is left to whatever lies in front of the record. Lines
// count from the record, which the allocator aligns to 16 bytes: neighbours in this record are
// apart even so.
struct TicketLock {
  unsigned char unused[64];
  int64_t held;  // ticket of the holder, or of the last; the holder's alone
  Atomic<uint32_t> owner;
  Atomic<int16_t> count;
  unsigned char gap1[128 - 78];
  Atomic<int64_t> serving;  // ticket that may enter; only the holder writes it
  unsigned char gap2[192 - 136];
  Atomic<int32_t> next;  // drawn in 32 bits and widened with its sign
  unsigned char gap3[256 - 196];
};
static_assert(offsetof(TicketLock, held) == 64, "spinlock layout");
static_assert(offsetof(TicketLock, owner) == 72, "spinlock layout");
static_assert(offsetof(TicketLock, count) == 76, "spinlock layout");
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

// A free lock as KivSdSpinlockCreate makes it, but of plain memory: for the memory manager, whose
// heaps cannot hold the locks that guard them. Null without memory.
KivSdSpinlock* CreatePlainSpinlock();

}  // namespace kiv

#endif
