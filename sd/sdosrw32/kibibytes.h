// Sizes as records hold them: in KiB, clamped to 32 bits.
#ifndef KIV_SDOSRW32_KIBIBYTES_H
#define KIV_SDOSRW32_KIBIBYTES_H

#include <algorithm>
#include <cstdint>

namespace kiv {

inline uint32_t ClampedKiB(uint64_t bytes) {
  return static_cast<uint32_t>(std::min<uint64_t>(bytes / 1024, UINT32_MAX));
}

}  // namespace kiv

#endif
