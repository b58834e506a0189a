#include "memsys/slots.h"

#include "kivsdu/thread.h"
#include "modulus.h"

std::array<kiv::Slot, kiv::kMostSlots> kiv::slots;

namespace {

using kiv::Modulus;

constexpr uint32_t kTicksPerPrime = 10000;

// The 50 consecutive primes from 1297. That the divisor changes moves contexts that happen to
// share a slot away from each other.
constexpr std::array<Modulus, 50> kPrimes = {
    Modulus(1297), Modulus(1301), Modulus(1303), Modulus(1307), Modulus(1319), Modulus(1321),
    Modulus(1327), Modulus(1361), Modulus(1367), Modulus(1373), Modulus(1381), Modulus(1399),
    Modulus(1409), Modulus(1423), Modulus(1427), Modulus(1429), Modulus(1433), Modulus(1439),
    Modulus(1447), Modulus(1451), Modulus(1453), Modulus(1459), Modulus(1471), Modulus(1481),
    Modulus(1483), Modulus(1487), Modulus(1489), Modulus(1493), Modulus(1499), Modulus(1511),
    Modulus(1523), Modulus(1531), Modulus(1543), Modulus(1549), Modulus(1553), Modulus(1559),
    Modulus(1567), Modulus(1571), Modulus(1579), Modulus(1583), Modulus(1597), Modulus(1601),
    Modulus(1607), Modulus(1609), Modulus(1613), Modulus(1619), Modulus(1621), Modulus(1627),
    Modulus(1637), Modulus(1657)};

Modulus slotCount;

}  // namespace

void kiv::SetSlotCount(uint32_t count) { slotCount = Modulus(count); }

uint32_t kiv::SlotOf(uint64_t seed, uint64_t ticks) {
  const Modulus& prime = kPrimes[(ticks / kTicksPerPrime) % kPrimes.size()];
  return slotCount.Of(prime.Of(seed / 8));
}

kiv::Heap* kiv::SettledHeap(uint32_t number) {
  const Slot& slot = slots[number];
  for (;;) {
    Heap* heap = slot.heap.load(std::memory_order_acquire);
    if (slot.current.load(std::memory_order_acquire) == heap) return heap;
    static_cast<void>(KivSdThreadYield(nullptr));
  }
}
