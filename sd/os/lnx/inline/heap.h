// Linux: the C library's heap.
#ifndef KIV_OS_LNX_INLINE_HEAP_H
#define KIV_OS_LNX_INLINE_HEAP_H

#include <malloc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace kiv::os {

inline void* RawAllocate(uint64_t sizeBytes) { return std::malloc(sizeBytes); }

inline void* RawReallocate(void* block, uint64_t sizeBytes) {
  return std::realloc(block, sizeBytes);
}

inline void RawFree(void* block) { std::free(block); }

inline uint64_t RawSize(void* block) { return malloc_usable_size(block); }

inline void ClearBytes(void* memory, uint64_t sizeBytes) { std::memset(memory, 0, sizeBytes); }

}  // namespace kiv::os

#endif
