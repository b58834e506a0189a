// The allocators of others, as contenders (allocators.h). Linux: the shared libraries of Debian's
// packages, loaded beside the C library's allocator, which stays the process's own. A call goes
// through a pointer, as a call of a shared library does.
//
// jemalloc and tcmalloc need thread-local storage that the loader sets aside at start:
// GLIBC_TUNABLES=glibc.rtld.optional_static_tls=16384, which './dev bench' sets.
#ifndef KIV_BENCH_LNX_PEER_ALLOCATORS_H
#define KIV_BENCH_LNX_PEER_ALLOCATORS_H

#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace kiv::bench {

// The functions of an allocator.
struct AllocatorCalls {
  void* (*allocate)(size_t sizeBytes);
  void* (*resize)(void* block, size_t sizeBytes);
  void (*free)(void* block);
};

template <typename Function>
Function Entry(void* library, const char* name) {
  void* entry = dlsym(library, name);
  if (entry == nullptr) {
    std::fprintf(stderr, "bench: %s\n", dlerror());
    std::exit(1);
  }
  return reinterpret_cast<Function>(entry);
}

// Ends the program if the library or one of its functions is missing.
inline AllocatorCalls LoadAllocator(const char* library, const char* allocate, const char* resize,
                                    const char* release) {
  void* loaded = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  if (loaded == nullptr) {
    std::fprintf(stderr, "bench: %s\n", dlerror());
    std::exit(1);
  }
  return {Entry<void* (*)(size_t)>(loaded, allocate),
          Entry<void* (*)(void*, size_t)>(loaded, resize), Entry<void (*)(void*)>(loaded, release)};
}

// An allocator whose functions are in Peer::Calls().
template <typename Peer>
struct LoadedAllocator {
  void* Allocate(uint32_t sizeBytes) { return Calls().allocate(sizeBytes); }
  void* Resize(void* block, uint32_t sizeBytes) { return Calls().resize(block, sizeBytes); }
  void Free(void* block) { Calls().free(block); }

 private:
  static const AllocatorCalls& Calls() {
    static const AllocatorCalls calls = Peer::Load();
    return calls;
  }
};

struct Mimalloc : LoadedAllocator<Mimalloc> {
  static constexpr char kName[] = "mimalloc";
  static AllocatorCalls Load() {
    return LoadAllocator("libmimalloc.so.2", "mi_malloc", "mi_realloc", "mi_free");
  }
};

struct Jemalloc : LoadedAllocator<Jemalloc> {
  static constexpr char kName[] = "jemalloc";
  static AllocatorCalls Load() {
    return LoadAllocator("libjemalloc.so.2", "malloc", "realloc", "free");
  }
};

struct Tcmalloc : LoadedAllocator<Tcmalloc> {
  static constexpr char kName[] = "tcmalloc";
  static AllocatorCalls Load() {
    return LoadAllocator("libtcmalloc_minimal.so.4", "tc_malloc", "tc_realloc", "tc_free");
  }
};

struct Tbbmalloc : LoadedAllocator<Tbbmalloc> {
  static constexpr char kName[] = "tbbmalloc";
  static AllocatorCalls Load() {
    return LoadAllocator("libtbbmalloc.so.2", "scalable_malloc", "scalable_realloc",
                         "scalable_free");
  }
};

// A heap for each request: mimalloc's counterpart of short heaps.
class MimallocHeap {
 public:
  static constexpr char kName[] = "mimalloc heap";

  ~MimallocHeap() { Heaps().destroy(heap_); }

  void* Allocate(uint32_t sizeBytes) { return Heaps().allocate(heap_, sizeBytes); }
  void DropAll() {
    Heaps().destroy(heap_);
    heap_ = Heaps().make();
  }

 private:
  struct HeapCalls {
    void* (*make)();
    void* (*allocate)(void* heap, size_t sizeBytes);
    void (*destroy)(void* heap);
  };

  static const HeapCalls& Heaps() {
    static const HeapCalls calls = [] {
      void* loaded = dlopen("libmimalloc.so.2", RTLD_NOW | RTLD_LOCAL);
      return HeapCalls{Entry<void* (*)()>(loaded, "mi_heap_new"),
                       Entry<void* (*)(void*, size_t)>(loaded, "mi_heap_malloc"),
                       Entry<void (*)(void*)>(loaded, "mi_heap_destroy")};
    }();
    return calls;
  }

  void* heap_ = Heaps().make();
};

// X(allocator) for each, and for those that drop all blocks of a request at once.
#define KIV_BENCH_PEERS(X) X(Mimalloc) X(Jemalloc) X(Tcmalloc) X(Tbbmalloc)
#define KIV_BENCH_DROPPING_PEERS(X) X(MimallocHeap)

}  // namespace kiv::bench

#endif
