// Windows: the Microsoft C runtime's heap.
#ifndef KIV_OS_W32_INLINE_HEAP_H
#define KIV_OS_W32_INLINE_HEAP_H

#include <intrin.h>
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

inline uint64_t RawSize(void* block) {
  constexpr size_t kUnknown = static_cast<size_t>(-1);
  const size_t sizeBytes = _msize(block);
  return sizeBytes == kUnknown ? 0 : sizeBytes;
}

// The older runtime clears 16 bytes at a time. From some hundred bytes on, the processor's own
// instruction is faster, which clears whole cache lines.
inline void ClearBytes(void* memory, uint64_t sizeBytes) {
  constexpr uint64_t kFewBytes = 512;
  if (sizeBytes < kFewBytes) {
    std::memset(memory, 0, sizeBytes);
  } else {
    __stosb(static_cast<unsigned char*>(memory), 0, sizeBytes);
  }
}

}  // namespace kiv::os

#endif
