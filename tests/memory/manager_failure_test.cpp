// The memory manager without memory: each of its allocations from the runtime fails in turn. The
// request then fails with the right status and message, or is served from elsewhere. Nothing leaks,
// the totals are unchanged, and the next request is served.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>

#include "support/manager.h"
#include "support/one_processor.h"
#include "support/process.h"
#include "support/runtime_hook.h"
#include "support/runtime_memory.h"

namespace {

using namespace kiv::test;

constexpr uint64_t kHeaps = kFirstHeaps * kHeapBytes;
using Messages = std::vector<Message>;

// More allocations than any operation here makes.
constexpr uint64_t kMaxAllocations = 500;

// ---- Initialisation ----

uint32_t InitializeNow() {
  const OneProcessor oneProcessor;
  return adMemThreadHeapInit(1, &ReceiveMessage, "tests", 0);
}

// Returns to the uninitialised state.
void SwitchOff() { EXPECT_EQ(adMemThreadHeapInit(0, &ReceiveMessage, "tests", 0), KIV_ST_OK); }

uint64_t HeapsHeld() {
  EXPECT_EQ(adMemResetMaxUsedMarkMemory(), 0u);
  const uint64_t used = MarksNow().used;
  EXPECT_EQ(used % kHeapBytes, 0u);
  return used / kHeapBytes;
}

// kPlain has the words of kCounted and more, but makes no heaps and no lock. It shows how many
// allocations the reader makes.
const std::string kCounted = std::string(kSmall) + "memoryblockscontrol\n";
const std::string kPlain = kCounted + "numthreadheaps 0 nomemorycontrol\n";

uint64_t AllocationsOfTheReader() {
  const ConfigurationFile file(kPlain);
  const RuntimeMemory memory;
  EXPECT_EQ(InitializeNow(), KIV_ST_OK);
  EXPECT_EQ(memory.live(), 0);
  return memory.allocations();
}

TEST(ManagerFailure, InitialisationStaysInPlainModeAndKeepsTheHeapsMadeSoFar) {
  IN_FRESH_PROCESS([] {
    KivSyncEnvInit();  // the first lock would call it, and threads that it starts allocate
    const uint64_t reading = AllocationsOfTheReader();
    EXPECT_GT(reading, 0u);
    constexpr int64_t kManagerLocks = 4;
    int64_t locks = 0;
    uint64_t failures = 0;
    for (uint64_t number = reading + 1; number < kMaxAllocations;) {
      SCOPED_TRACE(number);
      const ConfigurationFile file(kCounted);
      const RuntimeMemory memory(number);
      const uint32_t status = InitializeNow();
      const bool failed = memory.failed();
      const int64_t live = memory.live();
      EXPECT_EQ(status, failed ? KIV_ST_OUT_OF_MEMORY : KIV_ST_OK);
      if (!failed) {
        EXPECT_EQ(TotalsNow().used(), kHeaps);
        // Each heap has an arena and a lock. The manager's locks are made only once.
        EXPECT_EQ(live, int64_t{2 * kFirstHeaps} + kManagerLocks - locks);
        break;
      }
      ++failures;
      EXPECT_EQ(adMemThreadHeapTerm(), 0) << "a failed start must leave plain mode";
      const int64_t made =
          SettingsNow()[6] == 0 ? live : live - 2 * static_cast<int64_t>(HeapsHeld());
      ASSERT_GE(made, 0) << "more was released than taken";
      locks += made;
      ASSERT_LE(locks, kManagerLocks) << "leaked";
      void* block = nullptr;
      EXPECT_EQ(adMalloc(nullptr, 100, &block, "tests", 1), KIV_ST_OK);
      EXPECT_EQ(adFree(block, "tests", 1), KIV_ST_OK);
      AdShortHeapOwner owner = {};
      adMemShortHeapInit(&owner);
      EXPECT_EQ(adMemShortCheckStatus(&owner), 0);
      uint64_t counts[AD_BLOCK_CLASSES];
      EXPECT_EQ(adMemGetUsedMemoryBlocks(1, counts, counts), 0xFFFFFFFF);
      // If a lock was made, the next initialisation does not make it again: the same number is then
      // another allocation.
      if (made == 0) ++number;
    }
    // The context, four locks, and two for each heap.
    EXPECT_EQ(failures, 1 + 4 + 2 * kFirstHeaps);
    EXPECT_EQ(TakeMessages(), Messages{});
    Free(Allocate(100));
  });
}

// Without memory for its name a file counts as missing; without memory for a word the file ends.
TEST(ManagerFailure, ReadingTheFileDoesNotFail) {
  IN_FRESH_PROCESS([] {
    const uint64_t reading = AllocationsOfTheReader();
    for (uint64_t number = 1; number <= reading; ++number) {
      SCOPED_TRACE(number);
      const ConfigurationFile file(kPlain);
      const RuntimeMemory memory(number);
      EXPECT_EQ(InitializeNow(), KIV_ST_OK);
      EXPECT_TRUE(memory.failed());
      SwitchOff();
    }
  });
}

// Plain mode with memory control needs one lock, which registered regions use.
TEST(ManagerFailure, PlainModeWithoutMemoryForItsLockHasNoMemoryControl) {
  IN_FRESH_PROCESS([] {
    KivSyncEnvInit();
    const uint64_t reading = AllocationsOfTheReader();
    const ConfigurationFile file(kCounted + "numthreadheaps 0\n");
    {
      const RuntimeMemory memory(reading + 1);
      EXPECT_EQ(InitializeNow(), KIV_ST_OUT_OF_MEMORY);
      EXPECT_TRUE(memory.failed());
      EXPECT_EQ(memory.live(), 0);
    }
    EXPECT_EQ(SettingsNow()[6], 0u);
    Free(Allocate(100));
    EXPECT_EQ(InitializeNow(), KIV_ST_OK);
    EXPECT_EQ(SettingsNow()[6], 1u);
  });
}

#ifdef _WIN32  // elsewhere the sanitizers report every access to such a heap

// Makes the runtime return one heap at an address that is not a multiple of 8.
class MisalignedHeap : public RuntimeHook {
 public:
  explicit MisalignedHeap(uint64_t number) : left_(number) {}

  void* Allocate(size_t sizeBytes) override {
    if (sizeBytes != kHeapBytes || --left_ != 0) return RealAllocate(sizeBytes);
    return static_cast<char*>(RealAllocate(sizeBytes + 8)) + 4;
  }
  void* Reallocate(void* block, size_t sizeBytes) override {
    return RealReallocate(block, sizeBytes);
  }
  void Free(void* block) override { RealFree(block); }

 private:
  uint64_t left_;
};

uint32_t InitializeWithMisalignedHeap(uint64_t number) {
  const ConfigurationFile file(kSmall);
  MisalignedHeap hook(number);
  const RuntimeHooked hooked(&hook);
  return InitializeNow();
}

TEST(ManagerFailure, InitialisationRejectsAMisalignedFirstSpareHeap) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(InitializeWithMisalignedHeap(kSlots + 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(HeapsHeld(), kSlots + 1) << "what was made stays";
    EXPECT_EQ(adMemThreadHeapTerm(), 0) << "a failed start must leave plain mode";
    for (const uint64_t number : {kSlots, kSlots + 2}) {
      EXPECT_EQ(InitializeWithMisalignedHeap(number), KIV_ST_OK) << number;
      SwitchOff();
    }
  });
}

#endif

// ---- Requests ----

// Runs an operation with each of its allocations failing in turn. Checks after each run that
// nothing leaked. Returns the number of failures.
uint64_t FailInTurn(const std::function<void(bool failed)>& check,
                    const std::function<void()>& operation) {
  for (uint64_t number = 1; number < kMaxAllocations; ++number) {
    SCOPED_TRACE(number);
    bool failed = false;
    int64_t live = 0;
    {
      const RuntimeMemory memory(number);
      operation();
      failed = memory.failed();
      live = memory.live();
    }
    check(failed);
    if (!failed) return number - 1;
    EXPECT_EQ(live, 0);
  }
  ADD_FAILURE() << "no end of allocations";
  return 0;
}

// Allocates blocks of the largest size until no heap has room for another one.
std::vector<void*> FillHeaps() {
  std::vector<void*> blocks;
  for (;;) {
    void* block = Allocate(kLargestInHeap);
    if (IsLarge(block)) {
      Free(block);
      return blocks;
    }
    blocks.push_back(block);
  }
}

// Allocates blocks of all sizes until no heap has room for any block.
std::vector<void*> FillHeapsWhole() {
  std::vector<void*> blocks = FillHeaps();
  for (const uint64_t size : {4096u, 512u, 64u, 24u}) {
    for (void* block = Allocate(size);; block = Allocate(size)) {
      if (IsLarge(block)) {
        Free(block);
        break;
      }
      blocks.push_back(block);
    }
  }
  return blocks;
}

void FreeAll(const std::vector<void*>& blocks) {
  for (void* block : blocks) Free(block);
}

struct Outcome {
  uint32_t status;
  void* block;
};
Outcome outcome;

TEST(ManagerFailure, ALargeBlockFails) {
  for (const std::string& text : {std::string(kSmall), kSmall + std::string("memorylimit 20M")}) {
    ASSERT_EQ(Restart(text), KIV_ST_OK);
    Listen();
    const Totals before = TotalsNow();
    const auto message = text == kSmall ? &NoMemory : &Refused;
    const uint64_t failures = FailInTurn(
        [&](bool failed) {
          EXPECT_EQ(outcome.status, failed ? KIV_ST_OUT_OF_MEMORY : KIV_ST_OK);
          if (!failed) return Free(outcome.block);
          EXPECT_EQ(outcome.block, nullptr);
          EXPECT_EQ(TotalsNow(), before);
          EXPECT_EQ(TakeMessages(), Messages{message(kHeaps + 100'000, 100'000)});
        },
        [] {
          outcome.block = &outcome;
          outcome.status = adMalloc(nullptr, 100'000, &outcome.block, "tests", 1);
        });
    EXPECT_EQ(failures, 1u);
    EXPECT_EQ(TotalsNow().outside, 0u);
  }
}

// A block that exceeds the limit is allocated first and then released.
TEST(ManagerFailure, ARequestAboveTheLimitLeaksNothing) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 10M"), KIV_ST_OK);
  const std::vector<void*> blocks = FillHeapsWhole();
  void* most = Allocate(10485760 - kHeaps - 32 - 1000);
  int region = 0;
  AdShortHeapOwner without = {};
  void* block = nullptr;
  {
    const RuntimeMemory memory;
    EXPECT_EQ(adMalloc(nullptr, 969, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(adMalloc(nullptr, 100'000, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(adRealloc(nullptr, 100'000, blocks[0], &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(adRealloc(nullptr, 9'000'000, most, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    adMemShortHeapInit(&without);
    EXPECT_EQ(memory.live(), 0);
  }
  EXPECT_EQ(adMemShortCheckStatus(&without), 0);
  EXPECT_EQ(adMemAlignedIncCounter(&region, 1), KIV_ST_ALIGNED_COMMIT);
  Free(most);
  FreeAll(blocks);
  EXPECT_EQ(TotalsNow().used(), kHeaps);
}

TEST(ManagerFailure, EveryEntryPointFails) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Listen();
  static const std::string text(99'995, 'x');
  const std::function<void()> operations[] = {
      [] {
        outcome.status =
            adMallocPolicy(nullptr, 100'000, &outcome.block, AD_POLICY_MANDATORY, "tests", 1);
      },
      [] { outcome.status = adMallocAligned(nullptr, 64, 100'000, &outcome.block, "tests", 1); },
      [] { outcome.status = adCalloc(nullptr, 1000, 100, &outcome.block, AD_POLICY_FULL); },
      [] { outcome.status = adRealloc(nullptr, 100'000, nullptr, &outcome.block, "tests", 1); },
      [] {
        outcome.block = adStrDup(text.c_str(), "tests", 1);
        outcome.status = outcome.block != nullptr ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY;
      },
  };
  for (const auto& operation : operations) {
    for (int i = 0; i < 1000; ++i) Free(Allocate(8));  // past the throttle of the last message
    const uint64_t failures = FailInTurn(
        [&](bool failed) {
          EXPECT_EQ(outcome.status, failed ? KIV_ST_OUT_OF_MEMORY : KIV_ST_OK);
          if (!failed) return Free(outcome.block);
          EXPECT_EQ(outcome.block, nullptr);
          EXPECT_EQ(TotalsNow().outside, 0u);
          EXPECT_EQ(TakeMessages(), Messages{NoMemory(kHeaps + 100'000, 100'000)});
        },
        [&] {
          outcome.block = &outcome;
          operation();
        });
    EXPECT_EQ(failures, 1u);
  }
}

TEST(ManagerFailure, ABlockOfANodeFails) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Listen();
  static uint64_t size;
  const uint64_t failures = FailInTurn(
      [](bool failed) {
        EXPECT_EQ(outcome.status, failed ? KIV_ST_OUT_OF_MEMORY : KIV_ST_OK);
        EXPECT_EQ(size, 1000u);
        if (!failed) {
          EXPECT_EQ(adFreeOnNode(0, 0, outcome.block), KIV_ST_OK);
          return;
        }
        EXPECT_EQ(outcome.block, nullptr);
        EXPECT_EQ(TakeMessages(), Messages{NoMemory(kHeaps + 1000, 1000)});
      },
      [] { outcome.status = adMallocOnNode(nullptr, 1000, &size, &outcome.block); });
  EXPECT_EQ(failures, 1u);
}

// A heap that could not be made does not use up the budget.
TEST(ManagerFailure, AnotherSlotServesIfANewHeapCannotBeMade) {
  ASSERT_EQ(Restart("numheaps 13 numthreadheaps 4 heapsize 512K"), KIV_ST_OK);
  Listen();
  std::vector<void*> blocks;
  for (int i = 0; i < 9 * 7; ++i) blocks.push_back(Allocate(kLargestInHeap));
  const Totals before = TotalsNow();
  const uint64_t failures = FailInTurn(
      [&](bool failed) {
        EXPECT_EQ(outcome.status, KIV_ST_OK);
        EXPECT_EQ(SlotOf(outcome.block), failed ? 1u : 0u);
        Free(outcome.block);
        if (failed) {
          EXPECT_EQ(TotalsNow().used(), before.used());
          EXPECT_EQ(TotalsNow().inHeaps, before.inHeaps);
        }
      },
      [] { outcome.status = adMalloc(SeedOfSlot(0), kLargestInHeap, &outcome.block, "tests", 1); });
  EXPECT_EQ(failures, 2u) << "an arena, and its lock";
  EXPECT_EQ(TotalsNow().inHeaps, 13 * kHeapBytes);
  EXPECT_EQ(TakeMessages(), Messages{});
  FreeAll(blocks);
}

TEST(ManagerFailure, ARequestFailsIfItsLargeBlockCannotBeMade) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Listen();
  const std::vector<void*> blocks = FillHeaps();
  const uint64_t failures = FailInTurn(
      [](bool failed) {
        EXPECT_EQ(outcome.status, failed ? KIV_ST_OUT_OF_MEMORY : KIV_ST_OK);
        if (!failed) return Free(outcome.block);
        EXPECT_EQ(outcome.block, nullptr);
        EXPECT_EQ(TotalsNow().used(), kHeaps);
        EXPECT_EQ(TakeMessages(), Messages{NoMemory(kHeaps + kLargestInHeap, kLargestInHeap)});
      },
      [] { outcome.status = adMalloc(nullptr, kLargestInHeap, &outcome.block, "tests", 1); });
  EXPECT_EQ(failures, 1u);
  FreeAll(blocks);
  Free(Allocate(kLargestInHeap));
  EXPECT_EQ(TotalsNow().outside, 0u);
}

// ---- Reallocation ----

TEST(ManagerFailure, AFailedReallocationLeavesTheBlockUnchanged) {
  struct Case {
    uint64_t from;
    uint64_t to;
    uint64_t failures;
  };
  for (const Case& c : {Case{1000, 100'000, 1}, Case{100'000, 500'000, 1}, Case{500'000, 70'000, 1},
                        Case{100'000, 1000, 0}, Case{1000, 5000, 0}}) {
    SCOPED_TRACE(c.from);
    ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
    Listen();
    static void* old;
    static uint64_t newBytes;
    old = Allocate(c.from);
    newBytes = c.to;
    Fill(old, c.from, 1);
    const Totals before = TotalsNow();
    const uint64_t failures = FailInTurn(
        [&](bool failed) {
          EXPECT_EQ(outcome.status, failed ? KIV_ST_OUT_OF_MEMORY : KIV_ST_OK);
          if (!failed) {
            EXPECT_TRUE(IsFilled(outcome.block, std::min(c.from, c.to), 1));
            return Free(outcome.block);
          }
          EXPECT_EQ(outcome.block, nullptr);
          EXPECT_TRUE(IsFilled(old, c.from, 1));
          EXPECT_EQ(TotalsNow(), before);
          EXPECT_EQ(TakeMessages(), Messages{NoMemory(before.used() + c.to, c.to)});
        },
        [] {
          outcome.block = &outcome;
          outcome.status = adRealloc(SeedOfSlot(0), newBytes, old, &outcome.block, "tests", 1);
        });
    EXPECT_EQ(failures, c.failures);
    EXPECT_EQ(TotalsNow().outside, 0u);
  }
}

// ---- Short heaps ----

AdShortHeapOwner owner;

TEST(ManagerFailure, AnOwnersFirstHeapFails) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memoryblockscontrol"), KIV_ST_OK);
  Listen();
  owner = {};
  const uint64_t failures = FailInTurn(
      [](bool failed) {
        EXPECT_EQ(adMemShortCheckStatus(&owner), failed ? 0 : 1);
        if (!failed) return;
        EXPECT_EQ(TotalsNow().used(), kHeaps);
        EXPECT_EQ(CountsNow(), Counts{});
        EXPECT_EQ(TakeMessages(), Messages{NoMemory(kHeaps + kShortHeapBytes, kShortHeapBytes)});
      },
      [] { adMemShortHeapInit(&owner); });
  EXPECT_EQ(failures, 1u);
  adMemShortHeapTerm(&owner);
}

TEST(ManagerFailure, AnOwnersFurtherHeapFails) {
  // The pool keeps no heap.
  ASSERT_EQ(Restart(std::string(kSmall) + "maxshortmemorypoolsize 0"), KIV_ST_OK);
  Listen();
  owner = {};
  adMemShortHeapInit(&owner);
  void* block = nullptr;
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(adMemShortHeapMalloc(&owner, 65536, &block, "tests", 1), KIV_ST_OK);
  }
  void* const heap = owner.heap;
  const Totals before = TotalsNow();
  const uint64_t failures = FailInTurn(
      [&](bool failed) {
        EXPECT_EQ(outcome.status, failed ? KIV_ST_OUT_OF_MEMORY : KIV_ST_OK);
        if (!failed) return;
        EXPECT_EQ(outcome.block, nullptr);
        EXPECT_EQ(owner.heap, heap);
        EXPECT_EQ(NextInRing(heap), heap);
        EXPECT_EQ(TotalsNow(), before);
        EXPECT_EQ(TakeMessages(),
                  Messages{NoMemory(before.used() + kShortHeapBytes, kShortHeapBytes)});
      },
      [] {
        outcome.block = &outcome;
        outcome.status = adMemShortHeapMalloc(&owner, 65536, &outcome.block, "tests", 1);
      });
  EXPECT_EQ(failures, 1u);
  EXPECT_NE(owner.heap, heap);
  EXPECT_EQ(TotalsNow().outside, 2 * kShortHeapBytes);
  adMemShortHeapTerm(&owner);
  EXPECT_EQ(TotalsNow().outside, 0u);
}

TEST(ManagerFailure, AnOwnersFailedHeapDoesNotCountAsInUse) {
  ASSERT_EQ(Restart(std::string(kSmall) + "limitshortheapsforremove 0"), KIV_ST_OK);
  owner = {};
  EXPECT_EQ(FailInTurn([](bool) {}, [] { adMemShortHeapInit(&owner); }), 1u);
  // The only owner ends. If the failed heap counted as in use, the pool would not be drained.
  adMemShortHeapTerm(&owner);
  EXPECT_EQ(TotalsNow().outside, 0u);
}

TEST(ManagerFailure, AnOwnersFailedReallocationLeavesItTheBlock) {
  struct Case {
    int32_t from;
    int32_t to;
  };
  for (const Case& c : {Case{1000, 100'000}, Case{100'000, 500'000}, Case{500'000, 70'000}}) {
    SCOPED_TRACE(c.from);
    ASSERT_EQ(Restart(std::string(kSmall) + "maxshortmemorypoolsize 0"), KIV_ST_OK);
    Listen();
    owner = {};
    adMemShortHeapInit(&owner);
    static void* old;
    static int32_t newBytes;
    const auto from = static_cast<uint64_t>(c.from);
    const auto to = static_cast<uint64_t>(c.to);
    ASSERT_EQ(adMemShortHeapMalloc(&owner, c.from, &old, "tests", 1), KIV_ST_OK);
    void* const ring = owner.largeBlocks;
    newBytes = c.to;
    Fill(old, from, 1);
    const Totals before = TotalsNow();
    const uint64_t failures = FailInTurn(
        [&](bool failed) {
          EXPECT_EQ(outcome.status, failed ? KIV_ST_OUT_OF_MEMORY : KIV_ST_OK);
          if (!failed) {
            EXPECT_TRUE(IsFilled(outcome.block, std::min(from, to), 1));
            EXPECT_EQ(owner.largeBlocks, static_cast<char*>(outcome.block) - 32);
            return;
          }
          EXPECT_TRUE(IsFilled(old, from, 1));
          EXPECT_EQ(owner.largeBlocks, ring);
          EXPECT_EQ(TotalsNow(), before);
          EXPECT_EQ(TakeMessages(), Messages{NoMemory(before.used() + to, to)});
        },
        [] {
          outcome.status = adMemShortHeapRealloc(&owner, newBytes, old, &outcome.block, "tests", 1);
        });
    EXPECT_EQ(failures, 1u);
    adMemShortHeapTerm(&owner);
    EXPECT_EQ(TotalsNow().outside, 0u);
  }
}

// ---- Regions ----

TEST(ManagerFailure, ARegionWithoutMemoryForItsRecordIsNotRegistered) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  const std::vector<void*> blocks = FillHeapsWhole();
  Listen();
  static int region;
  const Totals before = TotalsNow();
  const uint64_t failures = FailInTurn(
      [&](bool failed) {
        EXPECT_EQ(outcome.status, failed ? KIV_ST_ALIGNED_COMMIT : KIV_ST_OK);
        if (!failed) return;
        EXPECT_EQ(TotalsNow(), before);
        EXPECT_EQ(TakeMessages(), Messages{NoMemory(before.used() + 24, 24)});
      },
      [] { outcome.status = adMemAlignedIncCounter(&region, 3); });
  EXPECT_EQ(failures, 1u);
  EXPECT_EQ(TotalsNow().aligned, 3u * AD_MEMORY_UNIT);
  EXPECT_EQ(TotalsNow().outside, 24u + 32);
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(TotalsNow().aligned, 0u);
  EXPECT_EQ(TotalsNow().outside, 0u);
  FreeAll(blocks);
}

// While the region was being registered, its bytes were reserved.
TEST(ManagerFailure, ARegionWithoutMemoryForItsRecordReleasesItsReservation) {
  ASSERT_EQ(Restart("numthreadheaps 4 maxblock 0 memorylimit 10M"), KIV_ST_OK);
  constexpr uint32_t kMax = 10485760 / AD_MEMORY_UNIT;
  static int region;
  {
    const RuntimeMemory memory(1);
    EXPECT_EQ(adMemAlignedIncCounter(&region, kMax), KIV_ST_ALIGNED_COMMIT);
    EXPECT_TRUE(memory.failed());
  }
  EXPECT_EQ(TotalsNow().aligned, 0u);
  uint32_t status = KIV_ST_ALIGNED_COMMIT;
  std::thread([&] { status = adMemAlignedIncCounter(&region, kMax); }).join();
  EXPECT_EQ(status, KIV_ST_OK);
  adMemAlignedDecCounter(&region);
}

}  // namespace
