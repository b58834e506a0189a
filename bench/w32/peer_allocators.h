// The allocators of others, as contenders (allocators.h). Windows: the system's heap, and allocators
// that are built from their sources.
#ifndef KIV_BENCH_W32_PEER_ALLOCATORS_H
#define KIV_BENCH_W32_PEER_ALLOCATORS_H

#include <mimalloc.h>
#include <oneapi/tbb/scalable_allocator.h>
#include <windows.h>

#include <cstdint>

namespace kiv::bench {

struct SystemHeap {
  static constexpr char kName[] = "HeapAlloc";

  void* Allocate(uint32_t sizeBytes) { return HeapAlloc(heap, 0, sizeBytes); }
  void* Resize(void* block, uint32_t sizeBytes) { return HeapReAlloc(heap, 0, block, sizeBytes); }
  void Free(void* block) { HeapFree(heap, 0, block); }

  HANDLE heap = GetProcessHeap();
};

struct Mimalloc {
  static constexpr char kName[] = "mimalloc";

  void* Allocate(uint32_t sizeBytes) { return mi_malloc(sizeBytes); }
  void* Resize(void* block, uint32_t sizeBytes) { return mi_realloc(block, sizeBytes); }
  void Free(void* block) { mi_free(block); }
};

// A heap for each request: mimalloc's counterpart of short heaps.
class MimallocHeap {
 public:
  static constexpr char kName[] = "mimalloc heap";

  ~MimallocHeap() { mi_heap_destroy(heap_); }

  void* Allocate(uint32_t sizeBytes) { return mi_heap_malloc(heap_, sizeBytes); }
  void DropAll() {
    mi_heap_destroy(heap_);
    heap_ = mi_heap_new();
  }

 private:
  mi_heap_t* heap_ = mi_heap_new();
};

struct Tbbmalloc {
  static constexpr char kName[] = "tbbmalloc";

  void* Allocate(uint32_t sizeBytes) { return scalable_malloc(sizeBytes); }
  void* Resize(void* block, uint32_t sizeBytes) { return scalable_realloc(block, sizeBytes); }
  void Free(void* block) { scalable_free(block); }
};

// X(allocator) for each, and for those that drop all blocks of a request at once.
#define KIV_BENCH_PEERS(X) X(SystemHeap) X(Mimalloc) X(Tbbmalloc)
#define KIV_BENCH_DROPPING_PEERS(X) X(MimallocHeap)

}  // namespace kiv::bench

#endif
