#include "support/memory_region.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>

namespace kiv::test {
namespace {

constexpr size_t kPageBytes = 4096;

PageAccess AccessOf(const char* permissions) {
  if (permissions[1] == 'w') return PageAccess::kReadWrite;
  return permissions[0] == 'r' ? PageAccess::kRead : PageAccess::kNone;
}

}  // namespace

MemoryRegion RegionOf(const void* address) {
  const auto place = reinterpret_cast<uintptr_t>(address);
  MemoryRegion region = {false, 0, PageAccess::kNone};
  FILE* maps = std::fopen("/proc/self/maps", "re");
  if (maps == nullptr) return region;
  char line[512];
  while (!region.mapped && std::fgets(line, sizeof line, maps) != nullptr) {
    uintptr_t begin = 0;
    uintptr_t end = 0;
    char permissions[5] = "";
    if (std::sscanf(line, "%" SCNxPTR "-%" SCNxPTR " %4s", &begin, &end, permissions) != 3)
      continue;
    if (place >= begin && place < end) region = {true, end - place, AccessOf(permissions)};
  }
  std::fclose(maps);
  return region;
}

void* MapFenced(size_t sizeBytes) {
  void* pages =
      mmap(nullptr, sizeBytes + 2 * kPageBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  EXPECT_NE(pages, MAP_FAILED);
  void* bytes = static_cast<unsigned char*>(pages) + kPageBytes;
  EXPECT_EQ(mprotect(bytes, sizeBytes, PROT_READ | PROT_WRITE), 0);
  return bytes;
}

void UnmapFenced(void* bytes, size_t sizeBytes) {
  munmap(static_cast<unsigned char*>(bytes) - kPageBytes, sizeBytes + 2 * kPageBytes);
}

}  // namespace kiv::test
