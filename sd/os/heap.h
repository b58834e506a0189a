// Raw memory from the C runtime. Its blocks are shared with the library's callers: either side
// may free what the other allocated.
//
//   void* RawAllocate(uint64_t sizeBytes)            null when there is no memory
//   void* RawReallocate(void* block, uint64_t size)  null when there is none; block is then whole
//   void RawFree(void* block)                        null is ignored
//   uint64_t RawSize(void* block)                    what the block has room for, or 0
//
// Inline: they lie on every allocation's path.
#ifndef KIV_OS_HEAP_H
#define KIV_OS_HEAP_H

#include "inline/heap.h"
#include "os/os.h"

#endif
