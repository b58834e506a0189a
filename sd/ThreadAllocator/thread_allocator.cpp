// A thread's own operations on its cache. Only the calling thread's cache is touched.
#include <new>

#include "ThreadAllocator/thread_cache.h"
#include "kivsdu/status.h"
#include "kivsdu/threadcache.h"
#include "memheap/switches.h"
#include "os/heap.h"
#include "sdsync/tuning.h"

namespace {

namespace os = kiv::os;

// Kept all at 0: the sizes that a server asks for most are its own to measure.
constexpr kiv::CacheTargets kTargets = {};

uint64_t LimitBytes() {
  return kiv::HardwareAcceleration() ? kiv::kAcceleratedCacheLimitBytes : kiv::kCacheLimitBytes;
}

}  // namespace

uint32_t adCreateThreadAlloc() {
  if (!kiv::ManagerSwitchIsOn() || kiv::CurrentThreadCache() != nullptr) return KIV_ST_OK;
  void* memory = os::RawAllocate(sizeof(kiv::ThreadCache));
  // Without memory the thread goes without a cache, as it did before.
  if (memory == nullptr) return KIV_ST_OK;
  auto* cache = new (memory) kiv::ThreadCache{};
  cache->limitBytes = LimitBytes();
  os::WriteThreadWord(cache);
  return KIV_ST_OK;
}

uint32_t adDestroyThreadAlloc() {
  kiv::ThreadCache* cache = kiv::CurrentThreadCache();
  if (cache == nullptr) return KIV_ST_OK;
  os::WriteThreadWord(nullptr);
  kiv::DestroyCache(cache);
  return KIV_ST_OK;
}

void adThreadPrealloc() {
  kiv::ThreadCache* cache = kiv::CurrentThreadCache();
  if (cache == nullptr || !kiv::HardwareAcceleration()) return;
  kiv::FillCache(cache, kTargets);
}

uint32_t adFreelistCompaction() {
  kiv::ThreadCache* cache = kiv::CurrentThreadCache();
  if (cache == nullptr) return KIV_ST_OK;
  kiv::TrimCache(cache, kiv::HardwareAcceleration() ? kiv::kTrimToTargets : 0, kTargets);
  return KIV_ST_OK;
}
