// The cache of a thread: freed blocks of the full policy, kept for the thread's next requests of
// the same size class.
//
// It has 32 stacks, one for each class, linked through the first word of the blocks' headers. It is
// reached through a thread-local pointer: only its thread uses it, and nothing is locked. A block
// that another thread allocated enters the cache of the thread that frees it.
//
// TakeFromCache and GiveToCache are inline: they serve most requests of plain mode.
#ifndef KIV_THREADALLOCATOR_THREAD_CACHE_H
#define KIV_THREADALLOCATOR_THREAD_CACHE_H

#include <cstdint>

#include "memheap/policy_block.h"
#include "os/thread_word.h"

namespace kiv {

constexpr uint32_t kCacheClasses = 32;
constexpr uint64_t kCacheLimitBytes = 8 << 20;
constexpr uint64_t kAcceleratedCacheLimitBytes = 100 << 20;  // with the hardware-acceleration flag

struct ThreadCache {
  FullBlock* lists[kCacheClasses];  // stacks of cached blocks by class
  uint32_t counts[kCacheClasses];
  uint64_t limitBytes;
  uint64_t cachedBytes;  // CachedBytes of every block; may pass the limit by one block
};

// Counts of blocks, by class, to which a cache is filled up or trimmed down.
struct CacheTargets {
  uint32_t counts[kCacheClasses];
};

// Bytes that a cached block adds to the cache, header included.
constexpr uint64_t CachedBytes(uint32_t sizeClass) {
  return (uint64_t{1} << sizeClass) + kFullHeaderBytes;
}

// Returns the calling thread's cache; null if it has none.
inline ThreadCache* CurrentThreadCache() { return static_cast<ThreadCache*>(os::ReadThreadWord()); }

// ---- Off the hot path ----

// Adds blocks from the runtime up to the targets. Stops earlier at the limit or without memory.
void FillCache(ThreadCache* cache, const CacheTargets& targets);

constexpr uint32_t kTrimToTargets = 0xFFFFFFFF;

// Frees cached blocks to the runtime, the largest first, until at most `keep` bytes are left. With
// kTrimToTargets it frees the blocks above the targets. Any other `keep` with the top bit set does
// nothing.
void TrimCache(ThreadCache* cache, uint32_t keep, const CacheTargets& targets);

// Frees all cached blocks and the cache itself.
void DestroyCache(ThreadCache* cache);

// ---- Allocating and freeing ----

inline void PushBlock(ThreadCache* cache, FullBlock* block, uint32_t sizeClass) {
  cache->cachedBytes += CachedBytes(sizeClass);
  block->next = cache->lists[sizeClass];
  cache->lists[sizeClass] = block;
  ++cache->counts[sizeClass];
}

// Takes the top block off the stack of a class, which must not be empty, and subtracts its bytes
// from the cache's.
inline FullBlock* PopBlock(ThreadCache* cache, uint32_t sizeClass, uint64_t blockBytes) {
  FullBlock* block = cache->lists[sizeClass];
  cache->lists[sizeClass] = block->next;
  --cache->counts[sizeClass];
  cache->cachedBytes -= blockBytes;
  return block;
}

// Returns the payload of a cached block of a class; null if there is none. The policy must not be
// the mandatory one.
inline void* TakeFromCache(ThreadCache* cache, PayloadSize size, uint8_t policy) {
  if (cache->lists[size.sizeClass] == nullptr) return nullptr;
  // Compatibility: a request of 0 bytes subtracts a payload of 0, although its block added 1 byte.
  FullBlock* block = PopBlock(cache, size.sizeClass, size.sizeBytes + kFullHeaderBytes);
  return WriteHeader(&block->header, policy, size.sizeClass);
}

// Puts a block into the cache if it has the full policy and the cache does not exceed its limit.
// Returns whether it did. The block's class must be below kCacheClasses.
inline bool GiveToCache(ThreadCache* cache, void* payload) {
  FullBlock* block = FullBlockOf(payload);
  PolicyHeader* header = &block->header;
  if (!IsFullHeader(*header) || cache->cachedBytes > cache->limitBytes) return false;
  PushBlock(cache, block, header->sizeClass);
  ClearPolicy(header);
  return true;
}

// Allocates a block from the cache or from the runtime. Returns null when there is no memory.
void* AllocateFromCache(ThreadCache* cache, uint32_t sizeBytes, uint8_t policy);

// Puts a block into the cache or frees it to the runtime. An invalid header ends the process
// through an assertion.
void FreeToCache(ThreadCache* cache, void* payload);

}  // namespace kiv

#endif
