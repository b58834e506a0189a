// What the memory configuration file sets.
#ifndef KIV_MEMSYS_SETTINGS_H
#define KIV_MEMSYS_SETTINGS_H

#include <cstdint>

namespace kiv {

constexpr int32_t kConfiguredThreadHeaps = 16;  // unless the file says otherwise
constexpr int32_t kMaxThreadHeaps = 64;         // slots that there are
constexpr uint32_t kMinLimitKiB = 10 * 1024;    // below it a limit is rejected
constexpr uint32_t kMinLimitBytes = kMinLimitKiB * 1024;

// What questions about memory in use return while it is not counted.
constexpr uint32_t kUnavailable = 0xFFFFFFFF;

// Written while the memory manager is initialised, before the host's threads start; read without a
// lock afterwards. All zero until then.
struct MemorySettings {
  int32_t heapBudget;             // "numheaps": thread heaps that may exist in all
  int32_t threadHeaps;            // "numthreadheaps": slots; 0 is plain mode
  uint32_t heapBytes;             // "heapsize": arena of a thread heap
  uint32_t shortHeapBytes;        // "shortheapsize": arena of a short heap
  uint32_t largestBlockBytes;     // "maxblock": larger requests become large blocks
  uint64_t limitBytes;            // "memorylimit": 0 is none
  uint8_t allocatedFill;          // kept for the file's sake; nothing reads either
  uint8_t freedFill;              // "mallocmemoryinit" and "freememoryinit"
  int32_t shortPoolMost;          // "maxshortmemorypoolsize": spare short heaps kept
  int32_t shortPoolDrainedAbove;  // "limitshortheapsforremove"
  bool memoryControl;             // accounting and limit; off by "nomemorycontrol"
  bool blockStatistics;           // "memoryblockscontrol"
  bool shortHeaps;                // off by "shortmemoryoff"
  bool limitRejected;             // the limit was too small to run with

  // What follows from these: requests up to here take the shortest way there is. 0 while blocks are
  // counted.
  uint32_t directBytes;
};

extern MemorySettings memorySettings;

}  // namespace kiv

#endif
