// The slots of thread heaps: which slot a request goes to, and the exchange of a slot's heap that has
// no room for a spare heap or a new one.
#ifndef KIV_MEMSYS_SLOTS_H
#define KIV_MEMSYS_SLOTS_H

#include <array>
#include <cstdint>

#include "atomic.h"
#include "memheap/heap.h"
#include "memsys/modulus.h"
#include "memsys/settings.h"

namespace kiv {

// Both name the same heap, except while the slot is being exchanged: `current` is then the heap
// that is tried or made for it.
struct Slot {
  Atomic<Heap*> heap;
  Atomic<Heap*> current;

  void Settle(Heap* owner) {
    // release: who finds the two equal finds a heap that is ready.
    current.store(owner, std::memory_order_release);
    heap.store(owner, std::memory_order_release);
  }
};
extern std::array<Slot, kMaxThreadHeaps> slots;

// Written before the host's threads start.
extern Modulus slotCount;

constexpr uint32_t kTicksPerPrime = 10000;

// The 50 consecutive primes from 1297. That the divisor changes moves contexts that happen to
// share a slot away from each other.
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

// The slot of a seed at a time of the allocation clock. A seed moves on every 10,000 ticks.
inline uint32_t SlotOf(uint64_t seed, uint64_t ticks) {
  const Modulus& prime = kSlotPrimes[(ticks / kTicksPerPrime) % kSlotPrimes.size()];
  return slotCount.Of(prime.Of(seed / 8));
}

// The heap of a slot, once the slot is not being exchanged.
Heap* AwaitSettledHeap(const Slot& slot);

// The same, mostly at once.
inline Heap* SettledHeap(uint32_t number) {
  const Slot& slot = slots[number];
  Heap* heap = slot.heap.load(std::memory_order_acquire);
  return slot.current.load(std::memory_order_acquire) == heap ? heap : AwaitSettledHeap(slot);
}

// ---- Exchange ----

// A payload wanted in a slot.
struct SlotRequest {
  uint32_t slot;
  uint32_t payloadBytes;
  uint32_t bin;  // of the payload; for probes
};

enum class ExchangeOutcome : uint8_t {
  kServed,  // the payload comes from the slot's new heap
  kRetry,   // another thread exchanged the slot meanwhile
  kNoHeap,  // no spare heap has room, and there is no budget or memory for another
};

struct Exchanged {
  ExchangeOutcome outcome;
  void* payload;  // null unless served
};

// `dry` is the slot's heap that could not serve the request.
Exchanged ExchangeHeap(const SlotRequest& request, Heap* dry);

// An accounted arena, made a locked heap with the index of a spare one. Null without memory.
Heap* MakeThreadHeap();

// ---- The spare ring and the budget of heaps ----

// Empties the ring and sets the budget: `heaps` in all, of which `made` are about to be made. At
// least those are allowed.
void PrepareSpareHeaps(int32_t heaps, int32_t made);

// At the tail of the ring.
void AddSpareHeap(Heap* heap);

}  // namespace kiv

#endif
