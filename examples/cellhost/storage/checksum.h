// Checksums for files.
#ifndef CELLHOST_STORAGE_CHECKSUM_H
#define CELLHOST_STORAGE_CHECKSUM_H

#include <stdint.h>

namespace cellhost {

constexpr uint64_t kChecksumStart = 14695981039346656037ull;

// Returns the 64-bit FNV-1a checksum of bytes. Two texts that differ in a single byte always have
// different checksums. The checksum of zeros is not 0; a part of a file that was never written is
// therefore not a valid record.
//
//   before  checksum of the preceding bytes, to continue from
uint64_t ChecksumOf(const void* bytes, uint64_t lengthBytes, uint64_t before = kChecksumStart);

}  // namespace cellhost

#endif
