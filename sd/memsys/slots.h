// The slots of thread heaps: the choice of a slot for a request, and the exchange of a slot's heap
// for a spare or new one when it has no room.
//
// tests/model/heap_exchange.pml describes the exchange for a model checker; change both together.
#ifndef KIV_MEMSYS_SLOTS_H
#define KIV_MEMSYS_SLOTS_H

#include <array>
#include <cstdint>

#include "atomic.h"
#include "memheap/heap.h"
#include "memsys/allocation_clock.h"
#include "memsys/modulus.h"
#include "memsys/settings.h"

namespace kiv {

// Both members point to the same heap, except during an exchange: `current` then points to the heap
// that is being tried or made for the slot.
struct Slot {
  Atomic<Heap*> heap;
  Atomic<Heap*> current;

  void Settle(Heap* owner) {
    // release: pairs with the acquire loads of SettledHeap and AwaitSettledHeap. A thread that
    // finds the two equal sees an initialised heap.
    current.store(owner, std::memory_order_release);
    heap.store(owner, std::memory_order_release);
  }
};
inline std::array<Slot, kMaxThreadHeaps> slots;

// Written before the host's threads start.
inline NarrowModulus slotCount{1};

constexpr uint32_t kTicksPerPrime = 10000;

// The index of the prime lies in the low bits of AllocationClock::period().
constexpr uint32_t kPrimeIndexBits = 6;
constexpr uint64_t kPrimeIndexMask = (1 << kPrimeIndexBits) - 1;

// The 50 consecutive primes from 1297. Changing the divisor separates contexts that happen to share
// a slot.
inline constexpr std::array<WideModulus, 50> kSlotPrimes = {
    WideModulus(1297), WideModulus(1301), WideModulus(1303), WideModulus(1307), WideModulus(1319),
    WideModulus(1321), WideModulus(1327), WideModulus(1361), WideModulus(1367), WideModulus(1373),
    WideModulus(1381), WideModulus(1399), WideModulus(1409), WideModulus(1423), WideModulus(1427),
    WideModulus(1429), WideModulus(1433), WideModulus(1439), WideModulus(1447), WideModulus(1451),
    WideModulus(1453), WideModulus(1459), WideModulus(1471), WideModulus(1481), WideModulus(1483),
    WideModulus(1487), WideModulus(1489), WideModulus(1493), WideModulus(1499), WideModulus(1511),
    WideModulus(1523), WideModulus(1531), WideModulus(1543), WideModulus(1549), WideModulus(1553),
    WideModulus(1559), WideModulus(1567), WideModulus(1571), WideModulus(1579), WideModulus(1583),
    WideModulus(1597), WideModulus(1601), WideModulus(1607), WideModulus(1609), WideModulus(1613),
    WideModulus(1619), WideModulus(1621), WideModulus(1627), WideModulus(1637), WideModulus(1657)};

// A period is a stretch of 10,000 ticks with one prime: its first tick and the prime's index.
inline bool IsInPeriod(uint64_t ticks, uint64_t period) {
  return ticks - (period >> kPrimeIndexBits) < kTicksPerPrime;
}

// Finds the period of a tick and keeps it for the next requests.
uint64_t StartPrimePeriod(uint64_t ticks);

// Returns the slot of a seed in a period.
inline uint32_t SlotInPeriod(uint64_t seed, uint64_t period) {
  return slotCount.Of(kSlotPrimes[period & kPrimeIndexMask].Of(seed / 8));
}

// Returns the slot of a seed at a tick.
inline uint32_t SlotOf(uint64_t seed, uint64_t ticks) {
  const uint64_t period = allocationClock.period();
  return SlotInPeriod(seed, IsInPeriod(ticks, period) ? period : StartPrimePeriod(ticks));
}

// Waits until the slot is not being exchanged and returns its heap.
Heap* AwaitSettledHeap(const Slot& slot);

// Returns the heap of a slot that is not being exchanged. Usually it is not: that case is inline.
inline Heap* SettledHeap(uint32_t number) {
  const Slot& slot = slots[number];
  Heap* heap = slot.heap.load(std::memory_order_acquire);
  return slot.current.load(std::memory_order_acquire) == heap ? heap : AwaitSettledHeap(slot);
}

// ---- Exchange ----

// A request for a payload from a slot.
struct SlotRequest {
  uint32_t slot;
  uint32_t payloadBytes;
  uint32_t bin;  // of the payload size; for probes
};

enum class ExchangeOutcome : uint8_t {
  kServed,  // the payload comes from the slot's new heap
  kRetry,   // another thread exchanged the slot meanwhile
  kNoHeap,  // no spare heap has room, and there is no budget or memory for a new one
};

struct Exchanged {
  ExchangeOutcome outcome;
  void* payload;  // null unless served
};

// Exchanges the slot's heap `dry`, which could not serve the request, and serves the request from
// the slot's new heap.
Exchanged ExchangeHeap(const SlotRequest& request, Heap* dry);

// Makes an accounted arena into a locked heap with the index of a spare heap. Returns null when
// there is no memory.
Heap* MakeThreadHeap();

// ---- The spare ring and the budget of heaps ----

// Empties the ring and sets the budget to `heaps` in total, but at least to `made`, the heaps that
// the caller is about to make.
void PrepareSpareHeaps(int32_t heaps, int32_t made);

// Adds a heap at the tail of the ring.
void AddSpareHeap(Heap* heap);

}  // namespace kiv

#endif
