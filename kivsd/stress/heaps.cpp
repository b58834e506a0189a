// The heaps: threads allocate, resize and free blocks, and hand blocks to each other. A block is
// filled with a pattern, which must be unchanged when it is freed.
#include <array>
#include <cstring>

#include "kivsdu/manager.h"
#include "kivsdu/shortheap.h"
#include "stress/subject.h"

namespace kivsd {
namespace {

constexpr char kSource[] = "kivsd/stress";
constexpr uint32_t kLine = 1;
constexpr size_t kOwnBlocks = 128;
constexpr size_t kSharedBlocks = 64;
constexpr uint32_t kSmall = 512;
constexpr uint32_t kMedium = 16 * 1024;
constexpr uint32_t kLarge = 300 * 1024;
constexpr uint32_t kRequestBlocks = 40;  // of a unit of work on a short heap

// Lies at the start of each block; the rest repeats `fill`.
struct Label {
  uint32_t sizeBytes;
  uint8_t fill;
};

uint32_t SizeOf(Random* random) {
  const uint32_t kind = Below(random, 100);
  const uint32_t most = kind < 80 ? kSmall : kind < 98 ? kMedium : kLarge;
  return static_cast<uint32_t>(sizeof(Label)) + Below(random, most);
}

void Fill(void* block, uint32_t sizeBytes, uint8_t fill) {
  std::memset(block, fill, sizeBytes);
  const Label label = {sizeBytes, fill};
  std::memcpy(block, &label, sizeof label);
}

// Whether the first `sizeBytes` bytes behind the label are as they were filled.
bool IsIntact(const void* block, const Label& label, uint32_t sizeBytes) {
  const auto* bytes = static_cast<const uint8_t*>(block);
  for (size_t i = sizeof label; i < sizeBytes; ++i) {
    if (bytes[i] != label.fill) return false;
  }
  return true;
}

class HeapSubject : public StressSubject {
 public:
  HeapSubject(StressRun* run, uint32_t threads) : StressSubject("heaps", run), threads_(threads) {}

  ~HeapSubject() override {
    for (std::atomic<void*>& shared : shared_) Free(shared.exchange(nullptr));
  }

  uint32_t ThreadCount() const override { return threads_; }

  void Work(uint32_t thread) override {
    Random random(thread + 1);
    std::array<void*, kOwnBlocks> own = {};
    while (!run()->IsOver()) {
      for (uint32_t i = 0; i < kOwnBlocks; ++i) UseBlock(&own[Below(&random, kOwnBlocks)], &random);
      UseShortHeap(&random);
      Count(kOwnBlocks + kRequestBlocks);
    }
    for (void* block : own) Free(block);
  }

 private:
  void UseBlock(void** block, Random* random) {
    switch (Below(random, 8)) {
      case 0:
        // acq_rel: the block's content passes to the thread that takes it.
        *block = shared_[Below(random, kSharedBlocks)].exchange(*block, std::memory_order_acq_rel);
        break;
      case 1:
        Resize(block, random);
        break;
      default:
        Free(*block);
        *block = Allocate(random);
    }
  }

  void* Allocate(Random* random) {
    void* block = nullptr;
    const uint32_t sizeBytes = SizeOf(random);
    if (!Succeeded(adMalloc(nullptr, sizeBytes, &block, kSource, kLine), "allocate"))
      return nullptr;
    Fill(block, sizeBytes, static_cast<uint8_t>(Below(random, 256)));
    return block;
  }

  Label Check(const void* block, const char* when) {
    Label label;
    std::memcpy(&label, block, sizeof label);
    const bool isPlausible =
        label.sizeBytes >= sizeof label && label.sizeBytes <= kLarge + sizeof label;
    if (!isPlausible || !IsIntact(block, label, label.sizeBytes)) {
      Fail(std::string("a block was changed by another before ") + when);
    }
    return label;
  }

  void Resize(void** block, Random* random) {
    if (*block == nullptr) return;
    const Label old = Check(*block, "it was resized");
    if (run()->IsOver()) return;
    const uint32_t sizeBytes = SizeOf(random);
    void* moved = nullptr;
    if (!Succeeded(adRealloc(nullptr, sizeBytes, *block, &moved, kSource, kLine), "resize")) return;
    if (!IsIntact(moved, old, std::min(old.sizeBytes, sizeBytes))) {
      Fail("a block lost its content when it was resized");
    }
    Fill(moved, sizeBytes, old.fill);
    *block = moved;
  }

  void Free(void* block) {
    if (block == nullptr) return;
    Check(block, "it was freed");
    Succeeded(adFree(block, kSource, kLine), "free");
  }

  // One unit of work: its end releases all blocks.
  void UseShortHeap(Random* random) {
    AdShortHeapOwner owner = {};
    std::array<void*, kRequestBlocks> blocks = {};
    adMemShortHeapInit(&owner);
    for (void*& block : blocks) {
      const uint32_t sizeBytes = SizeOf(random);
      const uint32_t status =
          adMemShortHeapMalloc(&owner, static_cast<int32_t>(sizeBytes), &block, kSource, kLine);
      if (!Succeeded(status, "allocate from a short heap")) break;
      Fill(block, sizeBytes, static_cast<uint8_t>(Below(random, 256)));
    }
    for (const void* block : blocks) {
      if (block != nullptr) Check(block, "its short heap ended");
    }
    adMemShortHeapTerm(&owner);
  }

  const uint32_t threads_;
  std::array<std::atomic<void*>, kSharedBlocks> shared_ = {};
};

}  // namespace

std::unique_ptr<StressSubject> MakeHeapSubject(StressRun* run, uint32_t threads) {
  return std::make_unique<HeapSubject>(run, threads);
}

}  // namespace kivsd
