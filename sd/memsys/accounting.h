// Accounted memory: what heaps, short heaps and large blocks are made of, counted against the
// limit of the configuration.
#ifndef KIV_MEMSYS_ACCOUNTING_H
#define KIV_MEMSYS_ACCOUNTING_H

#include <cstdint>

#include "memheap/block.h"

namespace kiv {

// Memory from the plain path, counted while memory control is on. Null when there is none or when
// it would pass the limit; the totals are then as before.
void* AccountedAllocate(uint64_t sizeBytes);

// `base` is the start of a heap or of a large block, which are told apart by their bytes.
void AccountedFree(void* base);

// Resizes a large block, header included; null when that fails, and the block is still whole.
LargeBlock* AccountedReallocate(LargeBlock* block, uint64_t newTotalBytes);
}  // namespace kiv

#endif
