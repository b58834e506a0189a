// The slow paths of a thread's cache: filling, trimming, destroying, and the full operations.
#include "ThreadAllocator/thread_cache.h"

#include "os/heap.h"
#include "require.h"

namespace kiv {
namespace {

constexpr char kSource[] = "sd/ThreadAllocator";
constexpr uint32_t kLineNoPolicyAssertion = 206;
constexpr uint32_t kLineMandatoryAssertion = 218;
constexpr uint32_t kLineFullAssertion = 230;
constexpr uint32_t kLineOtherPolicyAssertion = 264;

void FreeTop(ThreadCache* cache, uint32_t sizeClass) {
  os::RawFree(PopBlock(cache, sizeClass, CachedBytes(sizeClass)));
}

bool IsWithinLimit(const ThreadCache& cache) { return cache.cachedBytes <= cache.limitBytes; }

// Returns false when there is no memory.
bool FillClass(ThreadCache* cache, uint32_t sizeClass, uint32_t target) {
  while (cache->counts[sizeClass] < target && IsWithinLimit(*cache)) {
    void* raw = os::RawAllocate(CachedBytes(sizeClass));
    if (raw == nullptr) return false;
    PushBlock(cache, static_cast<FullBlock*>(raw), sizeClass);
  }
  return true;
}

void TrimToTargets(ThreadCache* cache, const CacheTargets& targets) {
  for (uint32_t i = kCacheClasses; i-- > 0;) {
    while (cache->counts[i] > targets.counts[i]) FreeTop(cache, i);
  }
}

void TrimToBytes(ThreadCache* cache, uint32_t keepBytes) {
  for (uint32_t i = kCacheClasses; i-- > 0;) {
    while (cache->cachedBytes > keepBytes && cache->lists[i] != nullptr) {
      FreeTop(cache, i);
    }
  }
}

// Asserts that the header has one of the two policies and the header length of that policy.
void RequirePolicy(const PolicyHeader& header) {
  Require(header.policy != kNoPolicy, "pHdr->policy != 0", kSource, kLineNoPolicyAssertion);
  Require(header.policy != kMandatoryPolicy || header.headerBytes == kMandatoryHeaderBytes,
          "pHdr->hlen == MEMORY_BLOCK_MANDATORY_HEADER_SIZE", kSource, kLineMandatoryAssertion);
  Require(header.policy != kFullPolicy || header.headerBytes == kFullHeaderBytes,
          "pHdr->hlen == MEMORY_BLOCK_HEADER_SIZE", kSource, kLineFullAssertion);
  Require(header.policy == kMandatoryPolicy || header.policy == kFullPolicy, "AD_FALSE", kSource,
          kLineOtherPolicyAssertion);
}

}  // namespace

void FillCache(ThreadCache* cache, const CacheTargets& targets) {
  for (uint32_t i = 0; i < kCacheClasses; ++i) {
    if (!FillClass(cache, i, targets.counts[i])) return;
  }
}

void TrimCache(ThreadCache* cache, uint32_t keep, const CacheTargets& targets) {
  if (keep == kTrimToTargets) return TrimToTargets(cache, targets);
  // Compatibility: the bytes to keep are a signed number, and a negative one trims nothing.
  if (static_cast<int32_t>(keep) < 0) return;
  TrimToBytes(cache, keep);
}

void DestroyCache(ThreadCache* cache) {
  for (uint32_t i = 0; i < kCacheClasses; ++i) {
    while (cache->lists[i] != nullptr) FreeTop(cache, i);
  }
  os::RawFree(cache);
}

void* AllocateFromCache(ThreadCache* cache, uint32_t sizeBytes, uint8_t policy) {
  if (policy == kMandatoryPolicy) return AllocatePolicyBlock(sizeBytes, 0, policy);
  const PayloadSize size = RoundToClass(sizeBytes);
  void* payload = TakeFromCache(cache, size, policy);
  if (payload != nullptr) return payload;
  return AllocatePolicyBlock(size.sizeBytes, size.sizeClass, policy);
}

void FreeToCache(ThreadCache* cache, void* payload) {
  PolicyHeader* header = PolicyHeaderOf(payload);
  RequirePolicy(*header);
  if (header->policy == kMandatoryPolicy) return os::RawFree(header);
  if (GiveToCache(cache, payload)) return;
  ClearPolicy(header);
  os::RawFree(FullBlockOf(payload));
}

}  // namespace kiv
