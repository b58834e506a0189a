// Memory from the C runtime, bare or behind a policy header: what plain mode serves its callers
// from, and what heaps and large blocks are made of.
#ifndef KIV_MEMSYS_PLAIN_H
#define KIV_MEMSYS_PLAIN_H

#include <cstdint>

#include "ThreadAllocator/thread_cache.h"
#include "memheap/policy_block.h"
#include "memheap/switches.h"
#include "sdthrw32/exception_stack.h"

namespace kiv {

// The shortest ways: to and from the calling thread's cache, without a call. What they do not serve
// is left as it was, and is for the whole operations.

// Null where the cache has no block for it.
inline void* TryPlainAllocate(uint64_t sizeBytes, uint8_t policy) {
  if (!ManagerSwitchIsOn() || sizeBytes - 1 >= kLargestRoundedBytes || policy == kMandatoryPolicy) {
    return nullptr;
  }
  ThreadCache* cache = CurrentThreadCache();
  return cache == nullptr ? nullptr
                          : TakeFromCache(cache, static_cast<uint32_t>(sizeBytes), policy);
}

// Whether the cache took the block.
inline bool TryPlainFree(void* block) {
  if (!ManagerSwitchIsOn()) return false;
  ThreadCache* cache = CurrentThreadCache();
  return cache != nullptr && PolicyHeaderOf(block)->sizeClass <= kLargestRoundedClass &&
         GiveToCache(cache, block);
}

// With the memory-manager switch off the runtime's own block; with it on, a block of the thread's
// allocator cache or one behind a policy header. Null when there is no memory, or when the header
// makes the size wrap.
void* PlainAllocate(uint64_t sizeBytes, uint8_t policy);

// The same for a block that PlainAllocate made; null asks for a new one of the full policy. On
// failure null, and the block is still whole. With the switch on, a block from before, or of the
// runtime's own, may end the process through an assertion: what lies in front of it is read as a
// policy.
void* PlainReallocate(void* block, uint64_t newSizeBytes);

// Takes blocks from before the switch too, but not from a thread with an allocator cache.
void PlainFree(void* block);

// ---- Once a fatal exception has been recorded ----

// Plain mode then serves from the exception stack, and the thread that raised the exception alone;
// any other that asks is suspended. The front asks first whether that is so.
inline bool FatalExceptionOccurred() {
  // acquire: pairs with the release that records the exception.
  return fatalExceptionFlag.load(std::memory_order_acquire) != 0;
}

void* FatalAllocate(uint64_t sizeBytes);
void* FatalReallocate(void* block, uint64_t newSizeBytes);

// Releases nothing: 0, or KIV_ST_ARGUMENT when the block does not lie in the stack.
uint32_t FatalFree(void* block);

}  // namespace kiv

#endif
