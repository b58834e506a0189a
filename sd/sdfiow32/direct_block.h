// Conversions of direct I/O: blocks to bytes and back, 32-bit file numbers to handles and back.
#ifndef KIV_SDFIOW32_DIRECT_BLOCK_H
#define KIV_SDFIOW32_DIRECT_BLOCK_H

#include <bit>
#include <cstdint>

#include "kivsdu/api.h"

namespace kiv {

// Compatibility: the product wraps at 32 bits, which is 4 GiB: block 524288 is block 0. Hosts lay
// out their files within that limit.
constexpr uint32_t BytesOf(uint32_t blocks) { return blocks * KIV_PAGE_UNIT; }

constexpr uint32_t WholeBlocks(uint32_t sizeBytes) { return sizeBytes / KIV_PAGE_UNIT; }

// Rounds up: counts a partial block. No intermediate result exceeds 32 bits.
constexpr uint32_t StartedBlocks(uint32_t sizeBytes) {
  return sizeBytes / KIV_PAGE_UNIT + (sizeBytes % KIV_PAGE_UNIT != 0 ? 1 : 0);
}

// A handle has at most 32 significant bits. Sign extension keeps the invalid handle, -1, invalid.
inline void* HandleOf(uint32_t file) {
  return std::bit_cast<void*>(static_cast<intptr_t>(static_cast<int32_t>(file)));
}

inline uint32_t FileOf(const void* handle) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(handle));
}

}  // namespace kiv

#endif
