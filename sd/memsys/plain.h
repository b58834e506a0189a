// The plain path: memory from the C runtime, with or without a policy header. It serves requests of
// plain mode, and the arenas of heaps and the large blocks of thread-heap mode.
#ifndef KIV_MEMSYS_PLAIN_H
#define KIV_MEMSYS_PLAIN_H

#include <cstdint>

#include "ThreadAllocator/thread_cache.h"
#include "memheap/policy_block.h"
#include "memheap/switches.h"
#include "sdthrw32/exception_stack.h"

namespace kiv {

// Inline fast paths to and from the calling thread's cache, for a process that is in no mode but
// kManagerMode. If one does not succeed, it has changed nothing, and the caller takes the full path
// below.

// Returns null if the cache has no block for the request, or if the request is for 0 bytes.
inline void* TryPlainAllocate(uint64_t sizeBytes, uint8_t policy) {
  // The subtraction wraps for 0, so that one comparison excludes it, too.
  if (sizeBytes - 1 >= kLargestRoundedBytes || policy == kMandatoryPolicy) return nullptr;
  ThreadCache* cache = CurrentThreadCache();
  if (cache == nullptr) return nullptr;
  return TakeFromCache(cache, RoundSmallToClass(static_cast<uint32_t>(sizeBytes)), policy);
}

// Returns whether the cache took the block.
inline bool TryPlainFree(void* block) {
  ThreadCache* cache = CurrentThreadCache();
  return cache != nullptr && PolicyHeaderOf(block)->sizeClass <= kLargestRoundedClass &&
         GiveToCache(cache, block);
}

// Allocates a block. With the memory-manager switch off it is a block of the runtime. With the
// switch on it comes from the thread's cache or has a policy header. Returns null when there is no
// memory, or when the sum of header and payload overflows.
void* PlainAllocate(uint64_t sizeBytes, uint8_t policy);

// Resizes a block of PlainAllocate; a null block allocates a new one under the full policy. Returns
// null on failure; the block is then unchanged. With the switch on, a block without a policy header
// may end the process through an assertion, because the bytes before it are read as a policy.
void* PlainReallocate(void* block, uint64_t newSizeBytes);

// Frees a block. With the switch on, a thread without a cache may also free a block without a
// policy header; a thread with a cache must not.
void PlainFree(void* block);

// ---- After a fatal exception has been recorded ----

// Plain mode then allocates from the exception stack, for the thread that recorded the exception
// alone; any other thread that calls is suspended.

void* FatalAllocate(uint64_t sizeBytes);
void* FatalReallocate(void* block, uint64_t newSizeBytes);

// Releases nothing. Returns 0, or KIV_ST_ARGUMENT if the block does not lie in the stack.
uint32_t FatalFree(void* block);

}  // namespace kiv

#endif
