// Chooses the path of a plain request: the runtime, the thread's cache or a policy block. Keeps no
// state.
#include "memsys/plain.h"

#include "ThreadAllocator/thread_cache.h"
#include "memheap/policy_block.h"
#include "memheap/switches.h"
#include "os/heap.h"

namespace kiv {
namespace {

// Whether a freed block goes to the thread's cache: blocks of a rounded size, and blocks of an
// unknown policy, which the cache rejects by an assertion. All others go straight to the runtime.
bool IsForCache(const PolicyHeader& header) {
  if (header.policy == kFullPolicy) return header.sizeClass <= kLargestRoundedClass;
  return header.policy != kMandatoryPolicy;
}

}  // namespace

void* PlainAllocate(uint64_t sizeBytes, uint8_t policy) {
  if (!ManagerSwitchIsOn()) return os::RawAllocate(sizeBytes);
  ThreadCache* cache = CurrentThreadCache();
  if (cache != nullptr && sizeBytes <= kLargestRoundedBytes) {
    return AllocateFromCache(cache, static_cast<uint32_t>(sizeBytes), policy);
  }
  const PayloadSize size = PayloadSizeOf(sizeBytes, policy);
  return AllocatePolicyBlock(size.sizeBytes, size.sizeClass, policy);
}

void* PlainReallocate(void* block, uint64_t newSizeBytes) {
  if (block == nullptr) return PlainAllocate(newSizeBytes, kFullPolicy);
  if (!ManagerSwitchIsOn()) return os::RawReallocate(block, newSizeBytes);
  return ReallocatePolicyBlock(block, newSizeBytes);
}

void PlainFree(void* block) {
  if (!ManagerSwitchIsOn()) return os::RawFree(block);
  ThreadCache* cache = CurrentThreadCache();
  if (cache != nullptr && IsForCache(*PolicyHeaderOf(block))) return FreeToCache(cache, block);
  FreePolicyBlock(block);
}

}  // namespace kiv
