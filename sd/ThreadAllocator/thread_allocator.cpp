// The operations of a thread on its own cache.
#include <new>

#include "ThreadAllocator/thread_cache.h"
#include "kivsdu/status.h"
#include "kivsdu/threadcache.h"
#include "memheap/switches.h"
#include "os/heap.h"
#include "sdsync/tuning.h"

using namespace kiv;

namespace {

// Compatibility: all targets are 0, so that preallocating adds no block and compaction keeps none.
constexpr CacheTargets kTargets = {};

uint64_t LimitBytes() {
  return HardwareAcceleration() ? kAcceleratedCacheLimitBytes : kCacheLimitBytes;
}

}  // namespace

uint32_t adCreateThreadAlloc() {
  if (!ManagerSwitchIsOn() || CurrentThreadCache() != nullptr) return KIV_ST_OK;
  void* memory = os::RawAllocate(sizeof(ThreadCache));
  // Without memory the thread has no cache, which is not an error.
  if (memory == nullptr) return KIV_ST_OK;
  auto* cache = new (memory) ThreadCache{};
  cache->limitBytes = LimitBytes();
  os::WriteThreadWord(cache);
  return KIV_ST_OK;
}

uint32_t adDestroyThreadAlloc() {
  ThreadCache* cache = CurrentThreadCache();
  if (cache == nullptr) return KIV_ST_OK;
  os::WriteThreadWord(nullptr);
  DestroyCache(cache);
  return KIV_ST_OK;
}

void adThreadPrealloc() {
  ThreadCache* cache = CurrentThreadCache();
  if (cache == nullptr || !HardwareAcceleration()) return;
  FillCache(cache, kTargets);
}

uint32_t adFreelistCompaction() {
  ThreadCache* cache = CurrentThreadCache();
  if (cache == nullptr) return KIV_ST_OK;
  TrimCache(cache, HardwareAcceleration() ? kTrimToTargets : 0, kTargets);
  return KIV_ST_OK;
}
