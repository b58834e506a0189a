// Raw memory from the C runtime. The library and its callers share these blocks: either side may
// free a block that the other allocated.
//
//   void* RawAllocate(uint64_t sizeBytes)            16-byte aligned; null if out of memory
//   void* RawReallocate(void* block, uint64_t size)  null if out of memory; block is then untouched
//   void RawFree(void* block)                        null is ignored
//   uint64_t RawSize(void* block)                    usable bytes of the block; 0 if unknown
//
//   void ClearBytes(void* memory, uint64_t sizeBytes)  fills any memory with zero bytes
//
// Inline: every allocation uses them.
#ifndef KIV_OS_HEAP_H
#define KIV_OS_HEAP_H

#include "inline/heap.h"
#include "os/os.h"

#endif
