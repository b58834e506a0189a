// The memory manager in plain mode without its switch, in turn with other allocators.
#include "kivsdu/kivsdu.h"
#include "workloads.h"

namespace {

constexpr char kSource[] = "bench/plain";

struct Plain {
  static constexpr char kName[] = "plain";

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
  kiv::bench::RegisterAll<Plain>();
  return kiv::bench::Run(argc, argv);
}
