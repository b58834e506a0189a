#include "checked/lock_registry.h"

#include "checked/gate.h"
#include "checked/report.h"
#include "checked/slab.h"
#include "os/thread.h"

namespace kiv::checked {
namespace {

constexpr uint32_t kBuckets = 1u << 10;
constexpr uint32_t kMostHeld = 32;  // by one thread at a time

struct HeldLock {
  const void* lock;
  const void* table;
  uint32_t count;
};

// A thread that holds locks.
struct Holder {
  Holder* next;
  uint32_t thread;
  uint32_t heldCount;
  HeldLock held[kMostHeld];
};

// A thread took `second` while it held `first`.
struct Pair {
  Pair* next;
  const void* first;
  const void* second;
  uint32_t thread;
};

struct KnownLock {
  KnownLock* next;
  const void* lock;
};

struct LockRegistry {
  Holder* holders[kBuckets];
  Pair* pairs[kBuckets];  // by the first lock
  KnownLock* spinlocks[kBuckets];
  Slab<Holder> holderRecords;
  Slab<Pair> pairRecords;
  Slab<KnownLock> spinlockRecords;
  // A lock could not be noted, for want of memory or because a thread holds too many. Releases are
  // no longer checked.
  bool isIncomplete;
};

// The gate guards it.
constinit LockRegistry registry = {};

uint32_t HashOf(const void* address) {
  const uint64_t mixed = (reinterpret_cast<uint64_t>(address) >> 3) * 0x9E3779B97F4A7C15;
  return static_cast<uint32_t>(mixed >> 40) % kBuckets;
}

// ---- Holders ----

Holder** LinkToHolder(uint32_t thread) {
  Holder** link = &registry.holders[thread % kBuckets];
  while (*link != nullptr && (*link)->thread != thread) link = &(*link)->next;
  return link;
}

HeldLock* FindHeld(Holder* holder, const void* lock) {
  for (uint32_t i = 0; holder != nullptr && i < holder->heldCount; ++i) {
    if (holder->held[i].lock == lock) return &holder->held[i];
  }
  return nullptr;
}

// Calls visit(holder, held) for each held lock, until it returns true.
template <typename Visit>
void ForEachHeld(const Visit& visit) {
  for (Holder* bucket : registry.holders) {
    for (Holder* holder = bucket; holder != nullptr; holder = holder->next) {
      for (uint32_t i = 0; i < holder->heldCount; ++i) visit(*holder, holder->held[i]);
    }
  }
}

uint32_t HolderOf(const void* lock) {
  uint32_t thread = 0;
  ForEachHeld([&thread, lock](const Holder& holder, const HeldLock& held) {
    if (held.lock == lock) thread = holder.thread;
  });
  return thread;
}

Holder* CurrentHolder() {
  const uint32_t thread = os::CurrentThreadId();
  Holder** link = LinkToHolder(thread);
  if (*link == nullptr) {
    *link = registry.holderRecords.Take();
    if (*link != nullptr) (*link)->thread = thread;
  }
  return *link;
}

void RemoveHeld(Holder** link, HeldLock* held) {
  Holder* holder = *link;
  // The order of the others does not matter.
  *held = holder->held[--holder->heldCount];
  if (holder->heldCount != 0) return;
  *link = holder->next;
  registry.holderRecords.Give(holder);
}

// ---- Pairs ----

const Pair* FindPair(const void* first, const void* second) {
  const Pair* pair = registry.pairs[HashOf(first)];
  while (pair != nullptr && (pair->first != first || pair->second != second)) pair = pair->next;
  return pair;
}

// Without memory, the pair is not kept.
void AddPair(const void* first, const void* second) {
  if (FindPair(first, second) != nullptr) return;
  Pair* pair = registry.pairRecords.Take();
  if (pair == nullptr) return;
  Pair** bucket = &registry.pairs[HashOf(first)];
  *pair = {*bucket, first, second, os::CurrentThreadId()};
  *bucket = pair;
}

void ForgetPairs(const void* lock) {
  for (Pair*& bucket : registry.pairs) {
    for (Pair** link = &bucket; *link != nullptr;) {
      Pair* pair = *link;
      if (pair->first != lock && pair->second != lock) {
        link = &pair->next;
        continue;
      }
      *link = pair->next;
      registry.pairRecords.Give(pair);
    }
  }
}

// ---- Spinlocks ----

KnownLock** LinkToSpinlock(const void* lock) {
  KnownLock** link = &registry.spinlocks[HashOf(lock)];
  while (*link != nullptr && (*link)->lock != lock) link = &(*link)->next;
  return link;
}

}  // namespace

void AddSpinlock(const void* lock) {
  const Gate gate;
  KnownLock** link = LinkToSpinlock(lock);
  if (*link != nullptr) return;
  *link = registry.spinlockRecords.Take();
  if (*link != nullptr) (*link)->lock = lock;
}

bool IsKnownSpinlock(const void* lock) {
  const Gate gate;
  return *LinkToSpinlock(lock) != nullptr;
}

void ForgetSpinlock(const void* lock) {
  const Gate gate;
  KnownLock** link = LinkToSpinlock(lock);
  KnownLock* known = *link;
  if (known == nullptr) return;
  *link = known->next;
  registry.spinlockRecords.Give(known);
}

LockChecked CheckAcquire(const void* lock, bool counts) {
  const Gate gate;
  Holder* holder = *LinkToHolder(os::CurrentThreadId());
  if (FindHeld(holder, lock) != nullptr) {
    return {counts ? LockMisuse::kNone : LockMisuse::kReentered, nullptr, 0};
  }
  for (uint32_t i = 0; holder != nullptr && i < holder->heldCount; ++i) {
    const void* held = holder->held[i].lock;
    if (const Pair* inverse = FindPair(lock, held)) {
      return {LockMisuse::kInverted, held, inverse->thread};
    }
    AddPair(held, lock);
  }
  return {LockMisuse::kNone, nullptr, 0};
}

void NoteAcquired(const void* lock, const void* table) {
  const Gate gate;
  Holder* holder = CurrentHolder();
  if (HeldLock* held = FindHeld(holder, lock)) {
    ++held->count;
  } else if (holder == nullptr || holder->heldCount == kMostHeld) {
    registry.isIncomplete = true;
  } else {
    holder->held[holder->heldCount++] = {lock, table, 1};
  }
}

LockChecked CheckRelease(const void* lock) {
  const Gate gate;
  const bool isHeld = FindHeld(*LinkToHolder(os::CurrentThreadId()), lock) != nullptr;
  if (isHeld || registry.isIncomplete) return {LockMisuse::kNone, nullptr, 0};
  return {LockMisuse::kNotHeld, nullptr, HolderOf(lock)};
}

void NoteReleased(const void* lock, bool all) {
  const Gate gate;
  Holder** link = LinkToHolder(os::CurrentThreadId());
  HeldLock* held = FindHeld(*link, lock);
  if (held != nullptr && (all || --held->count == 0)) RemoveHeld(link, held);
}

LockChecked CheckEnd(const void* lock) {
  const Gate gate;
  const uint32_t thread = HolderOf(lock);
  ForgetPairs(lock);
  return {thread == 0 ? LockMisuse::kNone : LockMisuse::kEndedHeld, nullptr, thread};
}

LockChecked CheckTableEnd(const void* table) {
  const Gate gate;
  LockChecked checked = {LockMisuse::kNone, nullptr, 0};
  ForEachHeld([&checked, table](const Holder& holder, const HeldLock& held) {
    if (held.table == table) checked = {LockMisuse::kEndedHeld, held.lock, holder.thread};
  });
  return checked;
}

void NoteBegin(const void* lock) {
  const Gate gate;
  ForgetPairs(lock);
}

void ReportLock(const LockChecked& checked, const void* lock, const char* kind) {
  const Place place = MakePlace(kSource, 0);
  const uint32_t thread = os::CurrentThreadId();
  switch (checked.misuse) {
    case LockMisuse::kInverted:
      Fail(place,
           "lock order: thread %u takes %s %p while it holds lock %p, and thread %u took %p while "
           "it held %p",
           thread, kind, lock, checked.other, checked.thread, checked.other, lock);
    case LockMisuse::kReentered:
      Fail(place, "thread %u acquires %s %p again, which does not count", thread, kind, lock);
    case LockMisuse::kNotHeld:
      if (checked.thread == 0) {
        Fail(place, "thread %u releases %s %p, which no thread holds", thread, kind, lock);
      }
      Fail(place, "thread %u releases %s %p, which thread %u holds", thread, kind, lock,
           checked.thread);
    case LockMisuse::kEndedHeld:
      Fail(place, "thread %u ends %s %p, while thread %u holds %p", thread, kind, lock,
           checked.thread, checked.other != nullptr ? checked.other : lock);
    default:
      break;
  }
}

}  // namespace kiv::checked
