// Mapped memory of the test's own process, as the system sees it.
#ifndef KIV_TESTS_MEMORY_REGION_H
#define KIV_TESTS_MEMORY_REGION_H

#include <cstddef>

namespace kiv::test {

enum class PageAccess { kNone, kRead, kReadWrite };

struct MemoryRegion {
  bool mapped;
  size_t sizeBytes;  // from the address to the region's end
  PageAccess access;
};

MemoryRegion RegionOf(const void* address);

// Maps zeroed bytes with an inaccessible page directly before and behind them. The size is a
// multiple of 4096.
void* MapFenced(size_t sizeBytes);
void UnmapFenced(void* bytes, size_t sizeBytes);

}  // namespace kiv::test

#endif
