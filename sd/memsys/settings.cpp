// The defaults, ranges and listing of the memory manager's settings.
#include "memsys/settings.h"

#include <algorithm>
#include <cstdio>

#include "memsys/configuration.h"

using namespace kiv;

namespace kiv {
namespace {

constexpr uint32_t kKiB = 1024;
constexpr uint32_t kMiB = 1024 * kKiB;

constexpr MemorySettings kDefaults = {
    .heapBudget = 64,
    .threadHeaps = 0,
    .heapBytes = 2 * kMiB,
    .shortHeapBytes = 320 * kKiB,
    .largestBlockBytes = 64 * kKiB,
    .limitBytes = 0,
    .allocatedFill = 0xFF,
    .freedFill = 0xAB,
    .shortPoolMost = 16,
    .shortPoolDrainedAbove = 4,
    .memoryControl = false,
    .blockStatistics = false,
    .shortHeaps = true,
    .limitRejected = false,
    .directBytes = 0,
};

constexpr int32_t kMinThreadHeaps = 4;
constexpr uint32_t kMinHeapBytes = 512 * kKiB;
constexpr uint32_t kMaxHeapBytes = 16 * kMiB;
constexpr uint32_t kMinShortHeapBytes = 320 * kKiB;
constexpr uint32_t kMaxShortHeapBytes = 16 * kMiB;
constexpr uint32_t kMaxLargestBlockBytes = 256 * kKiB;

// Compatibility: messages show the low 32 bits of a number as a signed number. Hosts know them so.
int32_t Shown(uint64_t number) { return static_cast<int32_t>(static_cast<uint32_t>(number)); }

void RejectLimit(MemorySettings* settings) {
  // Compatibility: two spaces and no line feed, as hosts know the message.
  std::printf("Memory Limit is %d, Default is  %d", Shown(settings->limitBytes),
              Shown(kMinLimitBytes));
  settings->threadHeaps = 0;
  settings->memoryControl = false;
  settings->limitRejected = true;
}

}  // namespace

MemorySettings DefaultMemorySettings() { return kDefaults; }

void ValidateMemorySettings(MemorySettings* settings) {
  if (settings->limitBytes != 0 && settings->limitBytes < kMinLimitBytes) RejectLimit(settings);
  if (settings->threadHeaps == 0) {
    settings->shortHeaps = false;
    return;
  }
  settings->threadHeaps = std::clamp(settings->threadHeaps, kMinThreadHeaps, kMaxThreadHeaps);
  settings->heapBytes = std::clamp(settings->heapBytes, kMinHeapBytes, kMaxHeapBytes);
  if (settings->shortHeaps) {
    settings->shortHeapBytes =
        std::clamp(settings->shortHeapBytes, kMinShortHeapBytes, kMaxShortHeapBytes);
  }
  settings->largestBlockBytes = std::min(settings->largestBlockBytes, kMaxLargestBlockBytes);
  settings->directBytes = settings->blockStatistics ? 0 : settings->largestBlockBytes;
}

void ListMemoryConfiguration(const MemorySettings& settings) {
  std::printf("\nMemory configuration:\n\n");
  std::printf("   Memory limit                 : ");
  if (settings.limitBytes != 0) {
    std::printf("%dK\n", Shown(settings.limitBytes / kKiB));
  } else {
    std::printf("Undefined\n");
  }
}

}  // namespace kiv
