// The process-wide switches of the memory manager. The host sets them before its threads start, and
// they are read without a lock: relaxed accesses are enough.
#ifndef KIV_MEMHEAP_SWITCHES_H
#define KIV_MEMHEAP_SWITCHES_H

#include <atomic>
#include <cstdint>

#include "memory_modes.h"

namespace kiv {

struct MemorySwitches {
  std::atomic<uint8_t> manager{0};           // the host's value; any but 0 is kManagerMode
  std::atomic<uint8_t> mappedAllocation{0};  // stored for the host; nothing reads it
};

extern MemorySwitches memorySwitches;

inline bool ManagerSwitchIsOn() { return IsInMode(kManagerMode); }

// Never switched off again.
inline bool NoFreeSwitchIsOn() { return IsInMode(kNoFreeMode); }

}  // namespace kiv

#endif
