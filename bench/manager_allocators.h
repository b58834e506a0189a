// The memory manager's modes, each as an allocator of one thread, and the function that starts
// heaps.
#ifndef KIV_BENCH_MANAGER_ALLOCATORS_H
#define KIV_BENCH_MANAGER_ALLOCATORS_H

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "kivsdu/kivsdu.h"
#include "own_process.h"

namespace kiv::bench {

constexpr char kManagerSource[] = "bench/manager";

// Plain mode.
struct Plain {
  static constexpr char kName[] = "plain";

  void* Allocate(uint32_t sizeBytes) {
    void* block = nullptr;
    adMalloc(nullptr, sizeBytes, &block, kManagerSource, __LINE__);
    return block;
  }
  void* Resize(void* block, uint32_t sizeBytes) {
    void* resized = nullptr;
    adRealloc(nullptr, sizeBytes, block, &resized, kManagerSource, __LINE__);
    return resized;
  }
  void Free(void* block) { adFree(block, kManagerSource, __LINE__); }
};

// Plain mode after KivSdSetMemoryManager(1). The calling thread has a cache for the lifetime of the
// object.
struct ThreadCache : Plain {
  static constexpr char kName[] = "thread cache";

  ThreadCache() { adCreateThreadAlloc(); }
  ~ThreadCache() { adDestroyThreadAlloc(); }
};

// Needs StartHeaps. Its address takes the place of the context that a host's thread passes.
class ThreadHeap {
 public:
  static constexpr char kName[] = "thread heap";

  void* Allocate(uint32_t sizeBytes) {
    void* block = nullptr;
    adMalloc(this, sizeBytes, &block, kManagerSource, __LINE__);
    return block;
  }
  void* Resize(void* block, uint32_t sizeBytes) {
    void* resized = nullptr;
    adRealloc(this, sizeBytes, block, &resized, kManagerSource, __LINE__);
    return resized;
  }
  void Free(void* block) { adFree(block, kManagerSource, __LINE__); }

 private:
  [[maybe_unused]] uint64_t context_ = 0;
};

// Needs StartHeaps.
class ShortHeap {
 public:
  static constexpr char kName[] = "short heap";

  ShortHeap() { adMemShortHeapInit(&owner_); }
  ~ShortHeap() { adMemShortHeapTerm(&owner_); }

  void* Allocate(uint32_t sizeBytes) {
    void* block = nullptr;
    adMemShortHeapMalloc(&owner_, static_cast<int32_t>(sizeBytes), &block, kManagerSource,
                         __LINE__);
    return block;
  }
  void* Resize(void* block, uint32_t sizeBytes) {
    void* resized = nullptr;
    adMemShortHeapRealloc(&owner_, static_cast<int32_t>(sizeBytes), block, &resized, kManagerSource,
                          __LINE__);
    return resized;
  }
  void Free(void* block) { adFree(block, kManagerSource, __LINE__); }
  void DropAll() {
    adMemShortHeapTerm(&owner_);
    adMemShortHeapInit(&owner_);
  }

 private:
  AdShortHeapOwner owner_ = {};
};

// A memory stack, which frees pieces only together.
class MemoryStack {
 public:
  static constexpr char kName[] = "memory stack";

  MemoryStack() { KivSdMemStackCreate(nullptr, &stack_, 8, kBlockBytes); }
  ~MemoryStack() { KivSdMemStackDelete(nullptr, stack_); }

  void* Allocate(uint32_t sizeBytes) {
    void* piece = nullptr;
    KivSdMemStackAllocAndPush(&ctx_, stack_, sizeBytes, &piece);
    return piece;
  }
  void DropAll() { KivSdMemStackReset(&ctx_, stack_); }

 private:
  static constexpr uint32_t kBlockBytes = 1 << 20;

  KivSdContext ctx_ = {};
  KivSdMemStack* stack_ = nullptr;
};

// Starts thread heaps with this many slots, room for the largest window, and defaults otherwise.
// Returns false if they cannot be started.
inline bool StartHeaps(int64_t slots = 16) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::temp_directory_path() / "kivsdu-bench";
  fs::create_directories(folder / "bin");
  std::ofstream(folder / "bin" / "config.mem") << "numheaps 1024\nnumthreadheaps " << slots << '\n';
  SetVariable("MOLTAPATH", folder.string());
  const uint32_t status = adMemThreadHeapInit(1, nullptr, "bench", 0);
  fs::remove_all(folder);
  return status == KIV_ST_OK;
}

}  // namespace kiv::bench

#endif
