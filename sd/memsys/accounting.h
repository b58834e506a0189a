// Accounted memory: the totals of memory in use, the limit they are held to, and the memory of
// heaps, short heaps and large blocks, which is counted there. Memory that the host takes elsewhere
// is added by host_regions.cpp.
#ifndef KIV_MEMSYS_ACCOUNTING_H
#define KIV_MEMSYS_ACCOUNTING_H

#include <cstdint>

#include "memheap/block.h"
#include "memsys/relaxed.h"

namespace kiv {

// ---- Totals and limit ----

// In bytes. Written under the accounting lock; messages read without it. A mark is the highest
// value since the host last set the marks back, a peak the highest since initialisation.
struct MemoryTotals {
  Relaxed<uint64_t> used;     // held from the system for heaps and large blocks
  Relaxed<uint64_t> aligned;  // registered by the host
  Relaxed<uint64_t> usedMark;
  Relaxed<uint64_t> alignedMark;
  Relaxed<uint64_t> totalMark;
  Relaxed<uint64_t> usedPeak;
  Relaxed<uint64_t> alignedPeak;
  Relaxed<uint64_t> totalPeak;

  // After a change.
  void RaiseUsed();
  void RaiseAligned();
  void RaiseTotal();
};
extern MemoryTotals memoryTotals;

// All to 0; before the host's threads start.
void ResetTotals();

// Used and aligned bytes together.
uint64_t AccountedTotal();

// Whether so many bytes more would pass the limit; without one they never do. Under the accounting
// lock, within which what passed the test is added or reserved: nothing that is refused may be in
// the totals, where it would make other threads' requests fail.
bool PassesMemoryLimit(uint64_t addedBytes);

// The bytes of a region that a thread is registering. Other threads are held to the limit as if the
// region were registered already.
struct Reservation {
  const uint64_t sizeBytes;
  const uint32_t thread;
  Reservation* next;
};

// Both under the accounting lock. A reservation stays where it is in between.
void AddReservation(Reservation* reservation);
void RemoveReservation(Reservation* reservation);

// Whether the total lies above 90% of the limit.
bool PassesWarningMark(uint64_t totalBytes);

// ---- Memory of heaps and large blocks ----

// Memory from the plain path, counted while memory control is on. Null when there is none or when
// it would pass the limit; the totals are then as before.
void* AccountedAllocate(uint64_t sizeBytes);

// `base` is the start of a heap or of a large block, which are told apart by their bytes.
void AccountedFree(void* base);

// Resizes a large block, header included; null when that fails, and the block is still whole.
LargeBlock* AccountedReallocate(LargeBlock* block, uint64_t newTotalBytes);

// ---- Regions of the host ----

// Empties the table of regions, without freeing their records.
void ForgetAlignedRegions();

}  // namespace kiv

#endif
