// The memory manager's allocation front in plain mode: blocks are the C runtime's own, without a
// header, so that callers may give them to the runtime's free and the other way round.
//
// No state of its own: any thread may call, and free what another allocated.
#include "kivsdu/manager.h"

#include "kivsdu/status.h"
#include "memheap/plain.h"
#include "memheap/switches.h"

kiv::MemorySwitches kiv::memorySwitches;

namespace {

// Stores what an allocation yielded and says whether it is a block.
uint32_t Yield(void* made, void** block) {
  *block = made;
  return made != nullptr ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY;
}

}  // namespace

uint32_t adMallocPolicy(void* /*owner*/, uint64_t sizeBytes, void** block, uint8_t policy,
                        const char* /*file*/, uint32_t /*line*/) {
  if (sizeBytes == 0) return KIV_ST_ARGUMENT;
  if (kiv::FatalExceptionOccurred()) return Yield(kiv::FatalAllocate(sizeBytes), block);
  return Yield(kiv::PlainAllocate(sizeBytes, policy), block);
}

uint32_t adMalloc(void* owner, uint64_t sizeBytes, void** block, const char* file, uint32_t line) {
  return adMallocPolicy(owner, sizeBytes, block, AD_POLICY_FULL, file, line);
}

uint32_t adRealloc(void* owner, uint64_t newSizeBytes, void* oldBlock, void** newBlock,
                   const char* file, uint32_t line) {
  if (oldBlock == nullptr) return adMalloc(owner, newSizeBytes, newBlock, file, line);
  if (newSizeBytes == 0) return KIV_ST_ARGUMENT;
  if (kiv::FatalExceptionOccurred()) {
    return Yield(kiv::FatalReallocate(oldBlock, newSizeBytes), newBlock);
  }
  return Yield(kiv::PlainReallocate(oldBlock, newSizeBytes), newBlock);
}

uint32_t adFree(void* block, const char* /*file*/, uint32_t /*line*/) {
  // Before the null check: once freeing is off, a free of anything succeeds.
  if (kiv::memorySwitches.noFree.load(std::memory_order_relaxed) != 0) return KIV_ST_OK;
  if (block == nullptr) return KIV_ST_ARGUMENT;
  if (kiv::FatalExceptionOccurred()) return kiv::FatalFree(block);
  kiv::PlainFree(block);
  return KIV_ST_OK;
}
