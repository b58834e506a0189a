// The slots of thread heaps: the choice of a slot for a request, and the exchange of a slot's heap
// for a spare or new one when it has no room.
#ifndef KIV_MEMSYS_SLOTS_H
#define KIV_MEMSYS_SLOTS_H

#include <array>
#include <cstdint>

#include "atomic.h"
#include "memheap/heap.h"
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
extern std::array<Slot, kMaxThreadHeaps> slots;

// Written before the host's threads start.
extern Modulus slotCount;

constexpr uint32_t kTicksPerPrime = 10000;

// The 50 consecutive primes from 1297. Changing the divisor separates contexts that happen to share
// a slot.
inline constexpr std::array<Modulus, 50> kSlotPrimes = {
    Modulus(1297), Modulus(1301), Modulus(1303), Modulus(1307), Modulus(1319), Modulus(1321),
    Modulus(1327), Modulus(1361), Modulus(1367), Modulus(1373), Modulus(1381), Modulus(1399),
    Modulus(1409), Modulus(1423), Modulus(1427), Modulus(1429), Modulus(1433), Modulus(1439),
    Modulus(1447), Modulus(1451), Modulus(1453), Modulus(1459), Modulus(1471), Modulus(1481),
    Modulus(1483), Modulus(1487), Modulus(1489), Modulus(1493), Modulus(1499), Modulus(1511),
    Modulus(1523), Modulus(1531), Modulus(1543), Modulus(1549), Modulus(1553), Modulus(1559),
    Modulus(1567), Modulus(1571), Modulus(1579), Modulus(1583), Modulus(1597), Modulus(1601),
    Modulus(1607), Modulus(1609), Modulus(1613), Modulus(1619), Modulus(1621), Modulus(1627),
    Modulus(1637), Modulus(1657)};

// Returns the slot of a seed at a tick of the allocation clock. It changes every 10,000 ticks.
inline uint32_t SlotOf(uint64_t seed, uint64_t ticks) {
  const Modulus& prime = kSlotPrimes[(ticks / kTicksPerPrime) % kSlotPrimes.size()];
  return slotCount.Of(prime.Of(seed / 8));
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
