// The modes of the process that decide which part of the memory manager serves a request.
//
// They are bits of one word: one load shows that none of them concerns a request. The host sets most
// of them before its threads start; a fatal exception may be recorded at any time.
#ifndef KIV_MEMORY_MODES_H
#define KIV_MEMORY_MODES_H

#include <atomic>
#include <cstdint>

namespace kiv {

enum MemoryMode : uint32_t {
  kHeapsMode = 1,           // thread heaps serve all requests
  kManagerMode = 2,         // blocks of plain mode carry policy headers
  kNoFreeMode = 4,          // adFree frees nothing
  kFatalExceptionMode = 8,  // a fatal exception was recorded
};

// Defined in this header, like every variable that each request reads: a variable that is only
// declared might lie in another module, and compilers access it through a pointer.
inline std::atomic<uint32_t> memoryModes{0};

// acquire: pairs with SetMemoryMode. A thread that finds a mode sees what was stored before it.
inline uint32_t MemoryModes() { return memoryModes.load(std::memory_order_acquire); }

inline bool IsInMode(MemoryMode mode) { return (MemoryModes() & mode) != 0; }

inline void SetMemoryMode(MemoryMode mode, bool isOn) {
  if (isOn) {
    memoryModes.fetch_or(mode, std::memory_order_release);
  } else {
    memoryModes.fetch_and(~uint32_t{mode}, std::memory_order_release);
  }
}

}  // namespace kiv

#endif
