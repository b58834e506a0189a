// Large blocks: requests that no heap serves. Each is an accounted allocation of its own.
#ifndef KIV_MEMSYS_LARGE_BLOCK_H
#define KIV_MEMSYS_LARGE_BLOCK_H

#include <cstdint>

#include "memheap/block.h"

namespace kiv {

// Allocates a large block without an owner and returns its payload. Returns null when there is no
// memory, or when the sum of header and payload overflows.
void* AllocateLarge(uint64_t sizeBytes);

// Frees a large block. Takes it out of its owner's ring first, if it has an owner.
void FreeLarge(LargeBlock* block);

// Resizes a large block, which then has no owner. Returns null on failure; the block is then
// unchanged and at the tail of its owner's ring.
LargeBlock* ReallocateLarge(LargeBlock* block, uint64_t sizeBytes);

// Adds the block at the tail of the ring that starts at *head. The head is a void pointer because
// it lies in a public record of the host.
void LinkLarge(void** head, LargeBlock* block);

}  // namespace kiv

#endif
