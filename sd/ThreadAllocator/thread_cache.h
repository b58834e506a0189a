// The cache of a thread: freed blocks of the full policy, kept for the thread's next requests of
// the same class.
//
// 32 stacks by size class, linked through the first word of the blocks' headers. The thread's own
// pointer leads to it, so that nothing is locked and nobody else ever sees it; a block that another
// thread allocated stays here when this one frees it.
//
// Taking and giving are inline: they are the whole way of most requests in plain mode.
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
  FullBlock* lists[kCacheClasses];  // last in, first out
  uint32_t counts[kCacheClasses];
  uint64_t limitBytes;
  uint64_t cachedBytes;  // CachedBytes of every block; may pass the limit by one block
};

// How many blocks of each class a cache is filled up to, and keeps when it is trimmed to them.
struct CacheTargets {
  uint32_t counts[kCacheClasses];
};

// What a cached block counts for.
constexpr uint64_t CachedBytes(uint32_t sizeClass) {
  return (uint64_t{1} << sizeClass) + kFullHeaderBytes;
}

// The calling thread's; null while it has none.
inline ThreadCache* CurrentThreadCache() { return static_cast<ThreadCache*>(os::ReadThreadWord()); }

// ---- Off the hot path ----

// Adds blocks from the runtime up to the targets, as far as limit and memory go.
void FillCache(ThreadCache* cache, const CacheTargets& targets);

constexpr uint32_t kTrimToTargets = 0xFFFFFFFF;

// Gives cached blocks back to the runtime, the largest first, until no more than `keep` bytes are
// left, or no more blocks than the targets. Any other value with the top bit set trims nothing.
void TrimCache(ThreadCache* cache, uint32_t keep, const CacheTargets& targets);

// Gives all blocks and the cache itself back.
void DestroyCache(ThreadCache* cache);

// ---- Allocating and freeing ----

inline void PushBlock(ThreadCache* cache, FullBlock* block, uint32_t sizeClass) {
  block->next = cache->lists[sizeClass];
  cache->lists[sizeClass] = block;
  ++cache->counts[sizeClass];
  cache->cachedBytes += CachedBytes(sizeClass);
}

// A cached block of the request's class; null when there is none. The policy is not the mandatory
// one.
inline void* TakeFromCache(ThreadCache* cache, uint32_t sizeBytes, uint8_t policy) {
  const PayloadSize size = RoundToClass(sizeBytes);
  FullBlock* block = cache->lists[size.sizeClass];
  if (block == nullptr) return nullptr;
  cache->lists[size.sizeClass] = block->next;
  --cache->counts[size.sizeClass];
  cache->cachedBytes -= size.sizeBytes + kFullHeaderBytes;
  return WriteHeader(&block->header, policy, size.sizeClass);
}

// Whether the cache took the block: one of the full policy and of a class below kCacheClasses,
// while the limit is not exceeded.
inline bool GiveToCache(ThreadCache* cache, void* payload) {
  FullBlock* block = FullBlockOf(payload);
  PolicyHeader* header = &block->header;
  if (header->policy != kFullPolicy || header->headerBytes != kFullHeaderBytes ||
      cache->cachedBytes > cache->limitBytes) {
    return false;
  }
  ClearPolicy(header);
  PushBlock(cache, block, header->sizeClass);
  return true;
}

// A block from the cache or from the runtime; null when there is no memory.
void* AllocateFromCache(ThreadCache* cache, uint32_t sizeBytes, uint8_t policy);

// Gives a block to the cache or to the runtime. One whose header is none of a policy ends the
// process through an assertion.
void FreeToCache(ThreadCache* cache, void* payload);

}  // namespace kiv

#endif
