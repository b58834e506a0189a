// The memory manager's settings, which the memory configuration file can change.
#ifndef KIV_MEMSYS_SETTINGS_H
#define KIV_MEMSYS_SETTINGS_H

#include <cstdint>

namespace kiv {

constexpr int32_t kConfiguredThreadHeaps = 16;  // default once heaps are on
constexpr int32_t kMaxThreadHeaps = 64;         // size of the slot array
constexpr int32_t kSpareHeaps = 8;              // made at start, besides the heaps of the slots
constexpr uint32_t kMinLimitKiB = 10 * 1024;    // a smaller limit is rejected
constexpr uint32_t kMinLimitBytes = kMinLimitKiB * 1024;

// Result of the queries about memory in use while it is not counted.
constexpr uint32_t kUnavailable = 0xFFFFFFFF;

// Written while the memory manager is initialised, before the host's threads start; read without a
// lock afterwards. All fields are 0 before the first initialisation.
struct MemorySettings {
  int32_t heapBudget;             // "numheaps": maximum of thread heaps in total
  int32_t threadHeaps;            // "numthreadheaps": slots; 0 is plain mode
  uint32_t heapBytes;             // "heapsize": arena of a thread heap
  uint32_t shortHeapBytes;        // "shortheapsize": arena of a short heap
  uint32_t largestBlockBytes;     // "maxblock": larger requests become large blocks
  uint64_t limitBytes;            // "memorylimit": 0 for no limit
  uint8_t allocatedFill;          // keeps its default; nothing reads it
  uint8_t freedFill;              // "mallocmemoryinit" and "freememoryinit"; nothing reads it
  int32_t shortPoolMost;          // "maxshortmemorypoolsize": maximum of pooled short heaps
  int32_t shortPoolDrainedAbove;  // "limitshortheapsforremove"
  bool memoryControl;             // accounting and limit; "nomemorycontrol" clears it
  bool blockStatistics;           // "memoryblockscontrol"
  bool shortHeaps;                // "shortmemoryoff" clears it
  bool limitRejected;             // the file's limit was too small

  // Computed from the others: the largest request that may take the inline fast path; 0 if block
  // statistics are on.
  uint32_t directBytes;
};

// Inline like the variables of memory_modes.h, here and below in the manager.
inline MemorySettings memorySettings;

}  // namespace kiv

#endif
