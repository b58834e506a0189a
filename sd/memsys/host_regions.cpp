// Regions: memory that the host allocates elsewhere and registers by address.
//
// The records of regions are chained in a hash table, guarded by the accounting lock. Initialising
// the memory manager again empties the table without freeing the records.
//
// A record is a block of the manager, whose allocation takes the accounting lock. Registering
// therefore reserves the region's bytes, releases the lock, allocates the record and takes the lock
// again.
#include "memsys/accounting.h"

#include <array>

#include "kivsdu/manager.h"
#include "kivsdu/memusage.h"
#include "kivsdu/status.h"
#include "memheap/switches.h"
#include "memsys/locks.h"
#include "memsys/messages.h"
#include "memsys/settings.h"
#include "os/thread.h"
#include "sdsync/spinlock_guard.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/memsys";
constexpr uint32_t kLine = 0;
constexpr size_t kChains = 131;

struct Region {
  uint64_t sizeBytes;
  uint64_t address;
  Region* next;
};
static_assert(sizeof(Region) == 24, "region layout");
static_assert(offsetof(Region, address) == 8, "region layout");
static_assert(offsetof(Region, next) == 16, "region layout");

std::array<Region*, kChains> chains;

Region** ChainOf(uint64_t address) { return &chains[(address / 8) % kChains]; }

// Compatibility: the product is taken in 32 bits and widened with its sign. From 262144 blocks on
// it is negative or wraps.
uint64_t RegionBytes(uint32_t blockCount) {
  return static_cast<uint64_t>(int64_t{static_cast<int32_t>(blockCount * AD_MEMORY_UNIT)});
}

// Reserves the region's bytes. Returns false if they would exceed the limit. `isNear` receives
// whether the host must be warned.
bool Reserve(Reservation* reservation, bool* isNear) {
  const SpinlockGuard guard(memoryLocks.accounting);
  const uint64_t total = AccountedTotal();
  if (PassesMemoryLimit(reservation->sizeBytes)) {
    messageState.failedTotal = static_cast<uint32_t>(total);
    return false;
  }
  const uint64_t newTotal = total + reservation->sizeBytes;
  *isNear = messageState.warningPending == 0 && PassesWarningMark(newTotal);
  if (*isNear) messageState.failedTotal = static_cast<uint32_t>(newTotal);
  AddReservation(reservation);
  return true;
}

// Reserves the region's bytes, then sends the message of a refusal or a warning without the lock.
bool ReserveOrReport(Reservation* reservation) {
  bool isNear = false;
  if (!Reserve(reservation, &isNear)) {
    ReportOutOfMemory(reservation->sizeBytes);
    return false;
  }
  if (isNear) SendWarning();
  return true;
}

void Withdraw(Reservation* reservation) {
  const SpinlockGuard guard(memoryLocks.accounting);
  RemoveReservation(reservation);
}

void Register(Region* region, Reservation* reservation) {
  const SpinlockGuard guard(memoryLocks.accounting);
  Region** chain = ChainOf(region->address);
  region->next = *chain;
  *chain = region;
  RemoveReservation(reservation);
  memoryTotals.aligned += region->sizeBytes;
  memoryTotals.RaiseAligned();
  memoryTotals.RaiseTotal();
}

// Takes a region out of its chain and the totals and returns its record; null if there is none.
Region* Unregister(uint64_t address) {
  const SpinlockGuard guard(memoryLocks.accounting);
  for (Region** link = ChainOf(address); *link != nullptr; link = &(*link)->next) {
    Region* region = *link;
    if (region->address != address) continue;
    *link = region->next;
    memoryTotals.aligned -= region->sizeBytes;
    return region;
  }
  return nullptr;
}

}  // namespace

void kiv::ForgetAlignedRegions() { chains = {}; }

uint32_t adMemAlignedIncCounter(const void* address, uint32_t blockCount) {
  if (!memorySettings.memoryControl) return KIV_ST_OK;
  Reservation reservation = {RegionBytes(blockCount), os::CurrentThreadId(), nullptr};
  if (!ReserveOrReport(&reservation)) return KIV_ST_ALIGNED_COMMIT;
  void* record = nullptr;
  const uint32_t status = adMalloc(nullptr, sizeof(Region), &record, kSource, kLine);
  if (status != KIV_ST_OK) {
    Withdraw(&reservation);
    return KIV_ST_ALIGNED_COMMIT;
  }
  auto* region = static_cast<Region*>(record);
  region->sizeBytes = reservation.sizeBytes;
  region->address = reinterpret_cast<uint64_t>(address);
  Register(region, &reservation);
  return KIV_ST_OK;
}

void adMemAlignedDecCounter(const void* address) {
  if (!memorySettings.memoryControl || address == nullptr) return;
  Region* region = Unregister(reinterpret_cast<uint64_t>(address));
  if (region != nullptr) static_cast<void>(adFree(region, kSource, kLine));
}
