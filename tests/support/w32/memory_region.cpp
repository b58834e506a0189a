#include "support/memory_region.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace kiv::test {
namespace {

constexpr size_t kPageBytes = 4096;

PageAccess AccessOf(DWORD protection) {
  if (protection == PAGE_READWRITE) return PageAccess::kReadWrite;
  return protection == PAGE_READONLY ? PageAccess::kRead : PageAccess::kNone;
}

}  // namespace

MemoryRegion RegionOf(const void* address) {
  MEMORY_BASIC_INFORMATION region = {};
  VirtualQuery(address, &region, sizeof region);
  return {region.State == MEM_COMMIT, region.RegionSize, AccessOf(region.Protect)};
}

void* MapFenced(size_t sizeBytes) {
  auto* pages = static_cast<unsigned char*>(
      VirtualAlloc(nullptr, sizeBytes + 2 * kPageBytes, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS));
  DWORD before = 0;
  EXPECT_TRUE(VirtualProtect(pages + kPageBytes, sizeBytes, PAGE_READWRITE, &before));
  return pages + kPageBytes;
}

void UnmapFenced(void* bytes, size_t /*sizeBytes*/) {
  VirtualFree(static_cast<unsigned char*>(bytes) - kPageBytes, 0, MEM_RELEASE);
}

}  // namespace kiv::test
