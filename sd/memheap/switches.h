// The process-wide switches of the memory manager. The host sets them before its threads start, and
// they are read without a lock: relaxed accesses are enough.
#ifndef KIV_MEMHEAP_SWITCHES_H
#define KIV_MEMHEAP_SWITCHES_H

#include <atomic>
#include <cstdint>

namespace kiv {

struct MemorySwitches {
  std::atomic<uint8_t> manager{0};           // blocks carry policy headers
  std::atomic<uint8_t> noFree{0};            // adFree frees nothing; never reset
  std::atomic<uint8_t> mappedAllocation{0};  // stored for the host; nothing reads it
};

extern MemorySwitches memorySwitches;

inline bool ManagerSwitchIsOn() {
  return memorySwitches.manager.load(std::memory_order_relaxed) != 0;
}

}  // namespace kiv

#endif
