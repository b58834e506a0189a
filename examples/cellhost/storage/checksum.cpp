// Checksums; see checksum.h.
#include "storage/checksum.h"

namespace cellhost {

uint64_t ChecksumOf(const void* bytes, uint64_t lengthBytes, uint64_t before) {
  constexpr uint64_t kFnvPrime = 1099511628211ull;
  const unsigned char* at = static_cast<const unsigned char*>(bytes);
  uint64_t sum = before;
  for (uint64_t left = lengthBytes; left != 0; --left) sum = (sum ^ *at++) * kFnvPrime;
  return sum;
}

}  // namespace cellhost
