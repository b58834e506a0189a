// Thread caches of the memory manager's plain mode, in turn with other allocators.
#include "kivsdu/kivsdu.h"
#include "workloads.h"

namespace {

constexpr char kSource[] = "bench/cache";

// The calling thread has its cache as long as it has one of these.
struct ThreadCache {
  static constexpr char kName[] = "thread cache";

  ThreadCache() { adCreateThreadAlloc(); }
  ~ThreadCache() { adDestroyThreadAlloc(); }

  void* Allocate(uint32_t sizeBytes) {
    void* block = nullptr;
    adMalloc(nullptr, sizeBytes, &block, kSource, __LINE__);
    return block;
  }
  void* Resize(void* block, uint32_t sizeBytes) {
    void* resized = nullptr;
    adRealloc(nullptr, sizeBytes, block, &resized, kSource, __LINE__);
    return resized;
  }
  void Free(void* block) { adFree(block, kSource, __LINE__); }
};

}  // namespace

int main(int argc, char** argv) {
  KivSdSetMemoryManager(1);
  kiv::bench::RegisterAll<ThreadCache>();
  return kiv::bench::Run(argc, argv);
}
