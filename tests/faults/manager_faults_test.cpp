// Fault loops of the memory manager: its start, the requests of thread heaps, and short heaps.
//
// Each run has a manager of its own. The manager keeps its heaps and locks for the rest of a process;
// here they are freed after each run, so that a leak shows.
#include <optional>
#include <string>
#include <vector>

#include "faults/fault_loop.h"
#include "kivsdu/kivsdu.h"
#include "memsys/locks.h"
#include "support/manager.h"

namespace {

using kiv::test::Allocate;
using kiv::test::FaultLoop;
using kiv::test::FaultOutcome;
using kiv::test::FaultRun;
using kiv::test::FaultScenario;
using kiv::test::Free;
using kiv::test::kLargestInHeap;
using kiv::test::kSmall;
using kiv::test::NameOfScenario;
using kiv::test::Recording;
using kiv::test::TakenBlocks;

constexpr char kFile[] = "manager_faults";
constexpr uint32_t kLargeBytes = 100'000;
constexpr uint32_t kSmallBytes = 1000;
const std::string kHeaps = kSmall;
const std::string kHeapsAndCounts = kHeaps + "memoryblockscontrol\n";
const std::string kGrowing = "numheaps 13 numthreadheaps 4 heapsize 512K\n";
const std::string kNoHeaps = kHeaps + "maxblock 0\n";
const std::string kPlain = "numthreadheaps 0\n";

// ---- The manager ----

// A process without a manager; a manager that a run makes ends with the object.
struct NoManager {
  NoManager() { EXPECT_EQ(adMemThreadHeapInit(0, nullptr, "tests", 0), KIV_ST_OK); }
  ~NoManager() {
    EXPECT_EQ(adMemThreadHeapInit(0, nullptr, "tests", 0), KIV_ST_OK);
    kiv::memoryLocks = {};
    kiv::test::TakeMessages();
  }

 private:
  TakenBlocks blocks_;
};

struct Manager : NoManager {
  explicit Manager(const std::string& text) { EXPECT_EQ(kiv::test::Initialize(text), KIV_ST_OK); }
};

// After a failed start the process can allocate, and the manager can be started again.
template <const std::string& text>
void Start(FaultRun& run) {
  const kiv::test::ConfigurationFile file(text);
  const NoManager none;
  const uint32_t status = run.Call(
      [](KivSdContext*) { return adMemThreadHeapInit(1, &kiv::test::ReceiveMessage, "tests", 0); });
  Free(Allocate(kSmallBytes));
  if (status == KIV_ST_OK) return;
  EXPECT_EQ(adMemThreadHeapTerm(), 0) << "a failed start must leave plain mode";
  EXPECT_EQ(adMemThreadHeapInit(1, &kiv::test::ReceiveMessage, "tests", 0), KIV_ST_OK);
  Free(Allocate(kSmallBytes));
}

// ---- Requests of thread heaps ----

// Fills all heaps with blocks of the largest size.
std::vector<void*> FillHeaps() {
  std::vector<void*> blocks;
  for (;;) {
    void* block = Allocate(kLargestInHeap);
    const bool isLarge = kiv::test::IsLarge(block);
    blocks.push_back(block);
    if (isLarge) break;
  }
  Free(blocks.back());
  blocks.pop_back();
  return blocks;
}

void FreeAll(const std::vector<void*>& blocks) {
  for (void* block : blocks) Free(block);
}

void AllocateBytes(FaultRun& run, uint64_t sizeBytes) {
  void* block = nullptr;
  const kiv::test::Totals before = kiv::test::TotalsNow();
  const uint32_t status = run.Call(
      [&](KivSdContext*) { return adMalloc(nullptr, sizeBytes, &block, kFile, __LINE__); });
  if (status == KIV_ST_OK) return Free(block);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(kiv::test::TotalsNow().used(), before.used());
}

void AllocateLarge(FaultRun& run) {
  const Manager manager(kHeaps);
  AllocateBytes(run, kLargeBytes);
}
void AllocateWithoutHeaps(FaultRun& run) {
  const Manager manager(kNoHeaps);
  AllocateBytes(run, kSmallBytes);
}
void AllocateFromFullHeaps(FaultRun& run) {
  const Manager manager(kHeaps);
  const std::vector<void*> blocks = FillHeaps();
  AllocateBytes(run, kLargestInHeap);
  FreeAll(blocks);
}
// The slot's heap and all spare heaps are full, and a new heap may be made. If it cannot be made, the
// heap of another slot serves.
void AllocateFromNewHeap(FaultRun& run) {
  constexpr int kBlocksInSlotAndSpares = 9 * 7;
  const Manager manager(kGrowing);
  std::vector<void*> blocks;
  for (int i = 0; i < kBlocksInSlotAndSpares; ++i) blocks.push_back(Allocate(kLargestInHeap));
  const uint64_t outside = kiv::test::TotalsNow().outside;
  void* block = nullptr;
  run.Call([&](KivSdContext*) {
    return adMalloc(kiv::test::SeedOfSlot(0), kLargestInHeap, &block, kFile, __LINE__);
  });
  EXPECT_EQ(kiv::test::TotalsNow().outside, outside) << "a heap that was not made is accounted";
  Free(block);
  FreeAll(blocks);
}
void AllocateByPolicy(FaultRun& run) {
  const Manager manager(kHeaps);
  void* block = nullptr;
  const uint32_t status = run.Call([&](KivSdContext*) {
    return adMallocPolicy(nullptr, kLargeBytes, &block, AD_POLICY_FULL, kFile, __LINE__);
  });
  if (status == KIV_ST_OK) Free(block);
}
void AllocateZeroed(FaultRun& run) {
  const Manager manager(kHeaps);
  void* block = nullptr;
  const uint32_t status = run.Call(
      [&](KivSdContext*) { return adCalloc(nullptr, 1, kLargeBytes, &block, AD_POLICY_FULL); });
  if (status == KIV_ST_OK) Free(block);
}
void AllocateAligned(FaultRun& run) {
  const Manager manager(kHeaps);
  void* block = nullptr;
  const uint32_t status = run.Call([&](KivSdContext*) {
    return adMallocAligned(nullptr, 16, kLargeBytes, &block, kFile, __LINE__);
  });
  if (status == KIV_ST_OK) EXPECT_EQ(adFreeAligned(block, 0), KIV_ST_OK);
}
void DuplicateText(FaultRun& run) {
  const Manager manager(kHeaps);
  const std::string text(kLargeBytes, 'x');
  char* copy = nullptr;
  run.Call([&](KivSdContext*) {
    copy = adStrDup(text.c_str(), kFile, __LINE__);
    return copy != nullptr ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY;
  });
  if (copy != nullptr) Free(copy);
}

// A block that could not be resized is unchanged.
template <uint64_t oldBytes, uint64_t newBytes>
void Resize(FaultRun& run) {
  const Manager manager(kHeaps);
  void* block = Allocate(oldBytes);
  kiv::test::Fill(block, oldBytes, 7);
  void* moved = nullptr;
  const uint32_t status = run.Call(
      [&](KivSdContext*) { return adRealloc(nullptr, newBytes, block, &moved, kFile, __LINE__); });
  EXPECT_TRUE(
      kiv::test::IsFilled(status == KIV_ST_OK ? moved : block, std::min(oldBytes, newBytes), 7));
  Free(status == KIV_ST_OK ? moved : block);
}

void RegisterRegion(FaultRun& run) {
  const Manager manager(kHeaps);
  static char region[KIV_PAGE_UNIT];
  const uint32_t status = run.Call([](KivSdContext*) { return adMemAlignedIncCounter(region, 1); });
  EXPECT_EQ(kiv::test::TotalsNow().aligned, status == KIV_ST_OK ? sizeof region : 0u);
  if (status == KIV_ST_OK) adMemAlignedDecCounter(region);
  EXPECT_EQ(kiv::test::TotalsNow().aligned, 0u);
}

// ---- Short heaps ----

struct Owner {
  explicit Owner(const std::string& text = kHeaps) : manager(text) { adMemShortHeapInit(&record); }
  ~Owner() {
    adMemShortHeapTerm(&record);
    EXPECT_EQ(adMemShortCheckStatus(&record), 0);
  }

  void* Take(int32_t sizeBytes) {
    void* block = nullptr;
    EXPECT_EQ(adMemShortHeapMalloc(&record, sizeBytes, &block, kFile, __LINE__), KIV_ST_OK);
    return block;
  }

  const Manager manager;
  AdShortHeapOwner record = {};
};

constexpr auto kLargestInShortHeap = static_cast<int32_t>(kLargestInHeap);
constexpr int kBlocksInShortHeap = 4;  // of that size

void MakeOwner(FaultRun& run) {
  const Manager manager(kHeaps);
  AdShortHeapOwner owner = {};
  run.Call([&](KivSdContext*) {
    adMemShortHeapInit(&owner);
    return adMemShortCheckStatus(&owner) != 0 ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY;
  });
  adMemShortHeapTerm(&owner);
}
void TakeShort(FaultRun& run, Owner* owner, int32_t sizeBytes) {
  void* block = nullptr;
  const uint32_t status = run.Call([&](KivSdContext*) {
    return adMemShortHeapMalloc(&owner->record, sizeBytes, &block, kFile, __LINE__);
  });
  if (status == KIV_ST_OK) Free(block);
}
void TakeFromFurtherHeap(FaultRun& run) {
  Owner owner;
  for (int i = 0; i < kBlocksInShortHeap; ++i) owner.Take(kLargestInShortHeap);
  TakeShort(run, &owner, kLargestInShortHeap);
}
void TakeLargeOfOwner(FaultRun& run) {
  Owner owner;
  TakeShort(run, &owner, kLargeBytes);
}
template <int32_t oldBytes, int32_t newBytes, int others>
void ResizeOfOwner(FaultRun& run) {
  Owner owner;
  void* block = owner.Take(oldBytes);
  for (int i = 0; i < others; ++i) owner.Take(kLargestInShortHeap);
  kiv::test::Fill(block, oldBytes, 9);
  void* moved = nullptr;
  const uint32_t status = run.Call([&](KivSdContext*) {
    return adMemShortHeapRealloc(&owner.record, newBytes, block, &moved, kFile, __LINE__);
  });
  EXPECT_TRUE(
      kiv::test::IsFilled(status == KIV_ST_OK ? moved : block, std::min(oldBytes, newBytes), 9));
}

const std::vector<FaultOutcome> kNoMemory = {{"malloc", KIV_ST_OUT_OF_MEMORY},
                                             {"realloc", KIV_ST_OUT_OF_MEMORY}};

// Without memory for the file's name the file counts as missing, and without memory for a word the
// file ends there. The process then stays in plain mode, or has the heaps that the words so far ask
// for.
const std::vector<FaultOutcome> kStartOutcomes = {{"malloc", KIV_ST_OUT_OF_MEMORY},
                                                  {"malloc", KIV_ST_OK},
                                                  {"realloc", KIV_ST_OUT_OF_MEMORY},
                                                  {"realloc", KIV_ST_OK},
                                                  {"fopen", KIV_ST_OK}};

// Another slot serves without a new heap.
const std::vector<FaultOutcome> kNewHeapOutcomes = {{"malloc", KIV_ST_OK}};

FaultScenario Of(const char* operation, void (*body)(FaultRun&),
                 const std::vector<FaultOutcome>& outcomes = kNoMemory) {
  return {operation, body, outcomes, {}, Recording::kNothing};
}

const FaultScenario kScenarios[] = {
    Of("adMemThreadHeapInit", Start<kHeapsAndCounts>, kStartOutcomes),
    Of("adMemThreadHeapInit_growing", Start<kGrowing>, kStartOutcomes),
    Of("adMemThreadHeapInit_without_heaps", Start<kNoHeaps>, kStartOutcomes),
    Of("adMemThreadHeapInit_plain", Start<kPlain>, kStartOutcomes),
    Of("adMalloc_large", AllocateLarge),
    Of("adMalloc_without_heaps", AllocateWithoutHeaps),
    Of("adMalloc_full_heaps", AllocateFromFullHeaps),
    Of("adMalloc_new_heap", AllocateFromNewHeap, kNewHeapOutcomes),
    Of("adMallocPolicy_large", AllocateByPolicy),
    Of("adCalloc_large", AllocateZeroed),
    Of("adMallocAligned_large", AllocateAligned),
    Of("adStrDup_large", DuplicateText),
    Of("adRealloc_to_large", Resize<kSmallBytes, kLargeBytes>),
    Of("adRealloc_large", Resize<kLargeBytes, 2 * kLargeBytes>),
    Of("adRealloc_from_large", Resize<kLargeBytes, kSmallBytes>),
    Of("adMemAlignedIncCounter", RegisterRegion),
    Of("adMemShortHeapInit", MakeOwner),
    Of("adMemShortHeapMalloc", TakeFromFurtherHeap),
    Of("adMemShortHeapMalloc_large", TakeLargeOfOwner),
    Of("adMemShortHeapRealloc",
       ResizeOfOwner<kSmallBytes, kLargestInShortHeap, kBlocksInShortHeap>),
    Of("adMemShortHeapRealloc_to_large", ResizeOfOwner<kSmallBytes, kLargeBytes, 0>),
    Of("adMemShortHeapRealloc_large", ResizeOfOwner<kLargeBytes, 2 * kLargeBytes, 0>),
    Of("adMemShortHeapRealloc_from_large", ResizeOfOwner<kLargeBytes, kSmallBytes, 0>),
};

INSTANTIATE_TEST_SUITE_P(Manager, FaultLoop, testing::ValuesIn(kScenarios), NameOfScenario);

}  // namespace
