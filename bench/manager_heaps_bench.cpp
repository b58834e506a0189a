// Thread heaps and short heaps of the memory manager, in turn with other allocators.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "kivsdu/kivsdu.h"
#include "workloads.h"

namespace {

namespace fs = std::filesystem;

constexpr char kSource[] = "bench/heaps";

// Its address stands for the context that a host's thread passes.
class ThreadHeap {
 public:
  static constexpr char kName[] = "thread heap";

  void* Allocate(uint32_t sizeBytes) {
    void* block = nullptr;
    adMalloc(this, sizeBytes, &block, kSource, __LINE__);
    return block;
  }
  void* Resize(void* block, uint32_t sizeBytes) {
    void* resized = nullptr;
    adRealloc(this, sizeBytes, block, &resized, kSource, __LINE__);
    return resized;
  }
  void Free(void* block) { adFree(block, kSource, __LINE__); }

 private:
  [[maybe_unused]] uint64_t context_ = 0;
};

class ShortHeap {
 public:
  static constexpr char kName[] = "short heap";

  ShortHeap() { adMemShortHeapInit(&owner_); }
  ~ShortHeap() { adMemShortHeapTerm(&owner_); }

  void* Allocate(uint32_t sizeBytes) {
    void* block = nullptr;
    adMemShortHeapMalloc(&owner_, static_cast<int32_t>(sizeBytes), &block, kSource, __LINE__);
    return block;
  }
  void* Resize(void* block, uint32_t sizeBytes) {
    void* resized = nullptr;
    adMemShortHeapRealloc(&owner_, static_cast<int32_t>(sizeBytes), block, &resized, kSource,
                          __LINE__);
    return resized;
  }
  void Free(void* block) { adFree(block, kSource, __LINE__); }
  void DropAll() {
    adMemShortHeapTerm(&owner_);
    adMemShortHeapInit(&owner_);
  }

 private:
  AdShortHeapOwner owner_ = {};
};

// With room for the largest window; all else as it comes.
bool Start() {
  const fs::path folder = fs::temp_directory_path() / "kivsdu-bench";
  fs::create_directories(folder / "bin");
  std::ofstream(folder / "bin" / "config.mem") << "numheaps 1024 numthreadheaps 16\n";
  _putenv(("MOLTAPATH=" + folder.string()).c_str());
  const uint32_t status = adMemThreadHeapInit(1, nullptr, "bench", 0);
  fs::remove_all(folder);
  return status == KIV_ST_OK;
}

}  // namespace

int main(int argc, char** argv) {
  if (!Start()) {
    std::fputs("The memory manager could not be started.\n", stderr);
    return 1;
  }
  kiv::bench::RegisterAll<ThreadHeap>();
  kiv::bench::RegisterPairs<ShortHeap>();
  kiv::bench::RegisterRequests<ShortHeap>();
  kiv::bench::RegisterGrowth<ShortHeap>();
  return kiv::bench::Run(argc, argv);
}
