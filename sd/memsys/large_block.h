// Large blocks: requests that no heap serves, each an accounted allocation of its own.
#ifndef KIV_MEMSYS_LARGE_BLOCK_H
#define KIV_MEMSYS_LARGE_BLOCK_H

#include <cstdint>

#include "memheap/block.h"

namespace kiv {

// A payload without an owner; null without memory, and when the size with its header wraps.
void* AllocateLarge(uint64_t sizeBytes);

// Leaves the owner's ring, if it is in one.
void FreeLarge(LargeBlock* block);

// The block resized, without an owner; null when that fails, and the block is where it was.
LargeBlock* ReallocateLarge(LargeBlock* block, uint64_t sizeBytes);

// Puts the block at the tail of the ring that starts at *head. The head lies in a record of the
// host's, where it is a pointer to anything.
void LinkLarge(void** head, LargeBlock* block);

}  // namespace kiv

#endif
