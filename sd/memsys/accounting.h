// Accounted memory: the totals of memory in use, the limit on them, and the allocation of heaps,
// short heaps and large blocks, which the totals count. host_regions.cpp adds memory that the host
// allocates elsewhere.
#ifndef KIV_MEMSYS_ACCOUNTING_H
#define KIV_MEMSYS_ACCOUNTING_H

#include <cstdint>

#include "memheap/block.h"
#include "memsys/relaxed.h"

namespace kiv {

// ---- Totals and limit ----

// In bytes. Written under the accounting lock; messages read them without it. A mark is the highest
// value since the host last reset the marks, a peak the highest since initialisation.
struct MemoryTotals {
  Relaxed<uint64_t> used;     // allocated for heaps, short heaps and large blocks
  Relaxed<uint64_t> aligned;  // registered by the host
  Relaxed<uint64_t> usedMark;
  Relaxed<uint64_t> alignedMark;
  Relaxed<uint64_t> totalMark;
  Relaxed<uint64_t> usedPeak;
  Relaxed<uint64_t> alignedPeak;
  Relaxed<uint64_t> totalPeak;

  // Raise mark and peak after a change of the total.
  void RaiseUsed();
  void RaiseAligned();
  void RaiseTotal();
};
extern MemoryTotals memoryTotals;

// Sets all totals to 0. Called before the host's threads start.
void ResetTotals();

// Returns the sum of used and aligned bytes.
uint64_t AccountedTotal();

// Whether addedBytes more would exceed the limit; false without a limit. The caller holds the
// accounting lock from this test until it has added or reserved the bytes. Bytes must not be added
// before the test: a request that is then refused would make other threads' requests fail.
bool PassesMemoryLimit(uint64_t addedBytes);

// The bytes of a region that a thread is registering. They count against the limit of other threads
// as if the region were registered already.
struct Reservation {
  const uint64_t sizeBytes;
  const uint32_t thread;
  Reservation* next;
};

// The caller holds the accounting lock. A reservation must not move while it is added.
void AddReservation(Reservation* reservation);
void RemoveReservation(Reservation* reservation);

// Whether a total exceeds 90% of the limit; false without a limit.
bool PassesWarningMark(uint64_t totalBytes);

// ---- Memory of heaps and large blocks ----

// Allocates through the plain path, and counts the bytes while memory control is on. Returns null
// when there is no memory or the limit would be exceeded; the totals are then unchanged.
void* AccountedAllocate(uint64_t sizeBytes);

// Frees a heap or a large block that starts at `base`. Its bytes show which of the two it is.
void AccountedFree(void* base);

// Resizes a large block to newTotalBytes, header included. Returns null when there is no memory or
// the limit would be exceeded; the block is then unchanged.
LargeBlock* AccountedReallocate(LargeBlock* block, uint64_t newTotalBytes);

// ---- Regions of the host ----

// Empties the table of regions without freeing their records.
void ForgetAlignedRegions();

}  // namespace kiv

#endif
