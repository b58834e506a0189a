// Checksums of what lies in files.
#ifndef CELLHOST_STORAGE_CHECKSUM_H
#define CELLHOST_STORAGE_CHECKSUM_H

#include <stdint.h>

namespace cellhost {

constexpr uint64_t kChecksumStart = 14695981039346656037ull;

// FNV-1a over 64 bits. Bytes that differ in one place alone never have the same checksum, and
// zeros do not have the checksum 0, so that a part of a file that was never written is no record.
//
//   before  the checksum of what comes before, to go on from there
uint64_t ChecksumOf(const void* bytes, uint64_t lengthBytes, uint64_t before = kChecksumStart);

}  // namespace cellhost

#endif
