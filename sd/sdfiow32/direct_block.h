// Blocks, and the files whose blocks they are, as direct I/O carries them.
#ifndef KIV_SDFIOW32_DIRECT_BLOCK_H
#define KIV_SDFIOW32_DIRECT_BLOCK_H

#include <bit>
#include <cstdint>

#include "kivsdu/api.h"

namespace kiv {

// Kept in 32 bits, and so modulo 4 GiB: block 524288 is block 0. Hosts lay out their files within
// that limit.
constexpr uint32_t BytesOf(uint32_t blocks) { return blocks * KIV_PAGE_UNIT; }

constexpr uint32_t WholeBlocks(uint32_t sizeBytes) { return sizeBytes / KIV_PAGE_UNIT; }

// Counts a block of which there is only a part. Does not pass 32 bits on the way.
constexpr uint32_t StartedBlocks(uint32_t sizeBytes) {
  return sizeBytes / KIV_PAGE_UNIT + (sizeBytes % KIV_PAGE_UNIT != 0 ? 1 : 0);
}

// A handle has no more than 32 bits that count. With its sign, so that the invalid one stays so.
inline void* HandleOf(uint32_t file) {
  return std::bit_cast<void*>(static_cast<intptr_t>(static_cast<int32_t>(file)));
}

inline uint32_t FileOf(const void* handle) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(handle));
}

}  // namespace kiv

#endif
