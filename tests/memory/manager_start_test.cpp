// Initialises and terminates the memory manager from each of its states.
#include <gtest/gtest.h>

#include <string>

#include "support/manager.h"
#include "support/process.h"

namespace {

using namespace kiv::test;

constexpr uint32_t kUnavailable = 0xFFFFFFFF;
constexpr uint64_t kMore = uint64_t{1} << 60;  // more memory than any machine has

// Expects that every query of the totals fails and writes nothing.
void ExpectNoMemoryControl() {
  uint64_t words[6] = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(adMemGetUsedMemory(&words[0], &words[1], &words[2], &words[3], &words[4], &words[5]),
            kUnavailable);
  EXPECT_EQ(adMemGetMaxUsedMarkMemory(&words[0], &words[1], &words[2]), kUnavailable);
  for (uint64_t i = 0; i < 6; ++i) EXPECT_EQ(words[i], i + 1);
  EXPECT_EQ(adMemResetMaxUsedMarkMemory(), kUnavailable);
}

void ExpectNoStatistics() {
  uint64_t allocated[AD_BLOCK_CLASSES] = {77};
  uint64_t freed[AD_BLOCK_CLASSES] = {78};
  EXPECT_EQ(adMemGetUsedMemoryBlocks(1, allocated, freed), kUnavailable);
  EXPECT_EQ(allocated[0], 77u);
  EXPECT_EQ(freed[0], 78u);
  EXPECT_EQ(adMemResetUsedMarkMemoryBlocks(), kUnavailable);
}

// Expects that blocks come from the runtime and have no header.
void ExpectPlainMode() {
  void* block = nullptr;
  ASSERT_EQ(adMalloc(nullptr, 100, &block, "tests", 1), KIV_ST_OK);
  std::free(block);
}

void ExpectThreadHeaps() {
  void* block = Allocate(100);
  EXPECT_EQ(WordBefore(block), 0u);
  EXPECT_EQ(SlotOf(block), 0u);
  EXPECT_EQ(BlockBytes(block), 128u);
  Free(block);
}

TEST(ManagerStart, WithoutAFileStaysInPlainMode) {
  IN_FRESH_PROCESS([] {
    ExpectNoMemoryControl();
    ExpectNoStatistics();
    EXPECT_EQ(adMemThreadHeapTerm(), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(Initialize(kNoFile), KIV_ST_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(SettingsNow(), (Settings{0, 0, 0, 0x200000, 0, 0x10000, 0}));
    ExpectNoMemoryControl();
    ExpectNoStatistics();
    ExpectPlainMode();
    EXPECT_EQ(adMemThreadHeapTerm(), 0);
    // Not initialised: the next initialisation does not count as a second one.
    EXPECT_EQ(Initialize(kSmall), KIV_ST_OK);
    ExpectThreadHeaps();
  });
}

TEST(ManagerStart, WithForceMakesDefaultHeapsWithoutAFile) {
  IN_FRESH_PROCESS([] {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Initialize(kNoFile, 1, 1), KIV_ST_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\nMemory configuration:\n\n   Memory limit                 : Undefined\n");
    EXPECT_EQ(SettingsNow(), (Settings{0, 16, 64, 0x200000, 0x50000, 0x10000, 1}));
    EXPECT_EQ(TotalsNow().inHeaps, 24u * 0x200000);
    EXPECT_EQ(TotalsNow().outside, 0u);
    ExpectThreadHeaps();
    EXPECT_EQ(adMemThreadHeapTerm(), -1);
    EXPECT_EQ(adMemThreadHeapTerm(), -1);
  });
}

TEST(ManagerStart, AFileMakesHeapsAndListsItsLimit) {
  IN_FRESH_PROCESS([] {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Initialize(std::string(kSmall) + "memorylimit 10M"), KIV_ST_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\nMemory configuration:\n\n   Memory limit                 : 10240K\n");
    EXPECT_EQ(SettingsNow(), (Settings{10485760, 4, 12, kHeapBytes, 0x50000, 0x10000, 1}));
    const Totals fresh = {0, kFirstHeaps * kHeapBytes, 0, kFirstHeaps * kHeapBytes,
                          0, kFirstHeaps * kHeapBytes};
    EXPECT_EQ(TotalsNow(), fresh);
    ExpectNoStatistics();
    ExpectThreadHeaps();
  });
}

TEST(ManagerStart, WhenNotEnabledReadsNoFile) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(Initialize(kSmall, 0, 1), KIV_ST_OK);
    EXPECT_EQ(SettingsNow(), Settings{});
    ExpectNoMemoryControl();
    ExpectPlainMode();
    EXPECT_EQ(adMemThreadHeapTerm(), 0);
    // The message function is stored nevertheless.
    Listen();
    void* block = &block;
    EXPECT_EQ(adMalloc(nullptr, kMore, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(TakeMessages(), std::vector<Message>{NoMemory(0, 0)});
  });
}

TEST(ManagerStart, WithoutAMessageFunctionNothingIsSent) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(Initialize(kSmall), KIV_ST_OK);
    EXPECT_EQ(adMemThreadHeapInit(0, nullptr, "tests", 0), KIV_ST_OK);
    Listen();
    void* block = nullptr;
    uint64_t size = 0;
    EXPECT_EQ(adMalloc(nullptr, kMore, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(adMallocOnNode(nullptr, kMore, &size, &block), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  });
}

TEST(ManagerStart, WithAContextButNoMessageFunctionNothingIsSent) {
  IN_FRESH_PROCESS([] {
    {
      const ConfigurationFile file(std::string(kSmall) + "memorylimit 10M");
      ASSERT_EQ(adMemThreadHeapInit(1, nullptr, "tests", 0), KIV_ST_OK);
    }
    Listen();
    void* block = &block;
    EXPECT_EQ(adMalloc(nullptr, kMore, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
    // One request above 90% of the limit, one above the limit.
    Free(Allocate(4'000'000));
    int region = 0;
    EXPECT_EQ(adMemAlignedIncCounter(&region, 2000), KIV_ST_ALIGNED_COMMIT);
    adMemSendErrorMessage(1);
    EXPECT_EQ(TakeMessages(), std::vector<Message>{});
    ExpectThreadHeaps();
  });
  IN_FRESH_PROCESS([] {
    {
      const ConfigurationFile file("memorylimit 1M");
      ASSERT_EQ(adMemThreadHeapInit(1, nullptr, "tests", 0), KIV_ST_OK);
    }
    const uint64_t context[27] = {};
    EXPECT_EQ(adMemCheckMemoryMinStatus(context), 0u);
  });
}

TEST(ManagerStart, ASecondInitialisationSwitchesHeapsOffAndAThirdOnAgain) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(Initialize(kSmall), KIV_ST_OK);
    testing::internal::CaptureStdout();
    EXPECT_EQ(Initialize("numthreadheaps 8"), KIV_ST_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(SettingsNow(), (Settings{0, 0, 12, kHeapBytes, 0x50000, 0x10000, 1}));
    ExpectPlainMode();
    // No heap is released, but heaps are not counted while there are no slots.
    const uint64_t peak = kFirstHeaps * kHeapBytes;
    EXPECT_EQ(TotalsNow(), (Totals{0, 0, 0, peak, 0, peak}));
    EXPECT_EQ(adMemThreadHeapTerm(), 0);

    EXPECT_EQ(Initialize("numthreadheaps 8 heapsize 1M shortmemoryoff"), KIV_ST_OK);
    EXPECT_EQ(SettingsNow(), (Settings{0, 8, 64, 0x100000, 0, 0x10000, 1}));
    EXPECT_EQ(TotalsNow().used(), 16u * 0x100000);
    ExpectThreadHeaps();
  });
}

TEST(ManagerStart, AfterATerminationTheNextInitialisationStaysInPlainMode) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(Initialize(kSmall), KIV_ST_OK);
    EXPECT_EQ(adMemThreadHeapTerm(), -1);
    ExpectPlainMode();
    EXPECT_EQ(SettingsNow()[1], UINT64_MAX);
    // The number of slots is -1, not 0: the heaps are still counted.
    EXPECT_EQ(TotalsNow().inHeaps, kFirstHeaps * kHeapBytes);
    EXPECT_EQ(Initialize("numthreadheaps 8"), KIV_ST_OK);
    EXPECT_EQ(SettingsNow()[1], 0u);
    EXPECT_EQ(TotalsNow().inHeaps, 0u);
    EXPECT_EQ(adMemThreadHeapTerm(), 0);
    EXPECT_EQ(Initialize("numthreadheaps 8"), KIV_ST_OK);
    EXPECT_EQ(SettingsNow()[1], 8u);
    ExpectThreadHeaps();
    EXPECT_EQ(adMemThreadHeapTerm(), -1);
  });
}

TEST(ManagerStart, SwitchingOffIsNotAnInitialisation) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(Initialize(kSmall), KIV_ST_OK);
    EXPECT_EQ(Initialize(kSmall, 0), KIV_ST_OK);
    EXPECT_EQ(adMemThreadHeapTerm(), 0);
    ExpectPlainMode();
    EXPECT_EQ(Initialize(kSmall), KIV_ST_OK);
    ExpectThreadHeaps();
    EXPECT_EQ(adMemThreadHeapTerm(), -1);
    EXPECT_EQ(Initialize(kSmall, 0), KIV_ST_OK);
    EXPECT_EQ(adMemThreadHeapTerm(), 0);
    EXPECT_EQ(Initialize(kSmall), KIV_ST_OK);
    ExpectThreadHeaps();
  });
}

TEST(ManagerStart, ClearsTheTotalsAndTheContext) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(Initialize(std::string(kSmall) + "memoryblockscontrol memorylimit 10M"), KIV_ST_OK);
    Listen();
    int region = 0;
    EXPECT_EQ(adMemAlignedIncCounter(&region, 4), KIV_ST_OK);
    Allocate(100'000);
    void* block = nullptr;
    EXPECT_EQ(adMalloc(nullptr, kMore, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(TakeMessages().size(), 1u);
    EXPECT_NE(CountsNow(), Counts{});

    EXPECT_EQ(Restart(std::string(kSmall) + "memoryblockscontrol memorylimit 10M"), KIV_ST_OK);
    const uint64_t used = kFirstHeaps * kHeapBytes;
    EXPECT_EQ(TotalsNow(), (Totals{0, used, 0, used, 0, used}));
    EXPECT_EQ(MarksNow(), (Marks{used, 0, used}));
    EXPECT_EQ(CountsNow(kSinceStart), Counts{});
    EXPECT_EQ(CountsNow(kSinceReset), Counts{});
    adMemAlignedDecCounter(&region);
    EXPECT_EQ(TotalsNow().aligned, 0u);
    // The old context is cleared. With a new one the first failure sends a message, although the
    // last message was less than 1000 allocations ago.
    EXPECT_EQ(adMalloc(nullptr, kMore, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(TakeMessages(), std::vector<Message>{});
    EXPECT_EQ(Restart(std::string(kSmall) + "memorylimit 10M"), KIV_ST_OK);
    Listen();
    EXPECT_EQ(adMalloc(nullptr, kMore, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(TakeMessages(), std::vector<Message>{Refused(used, 0)});
    ExpectNoStatistics();
  });
}

TEST(ManagerStart, AMaxblockOf0MakesNoHeaps) {
  IN_FRESH_PROCESS([] {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Initialize("numheaps 100 numthreadheaps 8 maxblock 0 memorylimit 20M"), KIV_ST_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\nMemory configuration:\n\n   Memory limit                 : 20480K\n");
    EXPECT_EQ(SettingsNow(), (Settings{20971520, 0, 0, 0, 0, 0, 1}));
    EXPECT_EQ(TotalsNow(), Totals{});
    for (const uint64_t size : {1u, 24u, 160u, 65536u}) {
      void* block = Allocate(size);
      ExpectLarge(block, size);
      Fill(block, size, size);
      EXPECT_EQ(TotalsNow().outside, size + kLargeHeaderBytes);
      EXPECT_EQ(TotalsNow().inHeaps, 0u);
      Free(block);
      EXPECT_EQ(TotalsNow().outside, 0u);
    }
    EXPECT_EQ(adMemThreadHeapTerm(), -1);
  });
}

TEST(ManagerStart, RejectsALimitBelow10MiBAndStaysInPlainMode) {
  IN_FRESH_PROCESS([] {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Initialize(std::string(kSmall) + "memoryblockscontrol memorylimit 10485759"),
              KIV_ST_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Memory Limit is 10485759, Default is  10485760");
    ExpectNoMemoryControl();
    ExpectNoStatistics();
    ExpectPlainMode();
    EXPECT_EQ(SettingsNow(), (Settings{10485759, 0, 0, kHeapBytes, 0, 0x10000, 0}));
    AdShortHeapOwner owner = {};
    adMemShortHeapInit(&owner);
    EXPECT_EQ(adMemShortCheckStatus(&owner), 0);

    uint64_t context[27] = {};
    context[26] = 99;
    AnswerMessages(4711);
    EXPECT_EQ(adMemCheckMemoryMinStatus(context), 4711u);
    EXPECT_EQ(TakeMessages(),
              (std::vector<Message>{{99, KIV_ST_MSG_LIMIT_TOO_LOW, 4, 10485759, 10240}}));
    // Every call sends the message again.
    EXPECT_EQ(adMemCheckMemoryMinStatus(context), 4711u);
    EXPECT_EQ(TakeMessages().size(), 1u);

    // A valid file turns thread heaps on.
    EXPECT_EQ(Initialize(std::string(kSmall) + "memorylimit 10485760"), KIV_ST_OK);
    EXPECT_EQ(adMemCheckMemoryMinStatus(context), 0u);
    EXPECT_EQ(TakeMessages(), std::vector<Message>{});
    ExpectThreadHeaps();
  });
}

TEST(ManagerStart, FailsIfTheHeapsExceedTheLimit) {
  IN_FRESH_PROCESS([] {
    // Of 12 heaps of 1 MiB, the 11th exceeds the limit.
    testing::internal::CaptureStdout();
    EXPECT_EQ(Initialize("numthreadheaps 4 heapsize 1M memorylimit 10M"), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(SettingsNow()[1], 0u);
    EXPECT_EQ(adMemThreadHeapTerm(), 0);
    ExpectPlainMode();
    EXPECT_EQ(TotalsNow().usedPeak, 10u * 0x100000);
    AdShortHeapOwner owner = {};
    adMemShortHeapInit(&owner);
    EXPECT_EQ(adMemShortCheckStatus(&owner), 0);
    // Of the 24 default heaps of 2 MiB, the 6th exceeds the limit.
    EXPECT_EQ(Initialize("memorylimit 10M"), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(TotalsNow().usedPeak, 5u * 0x200000);
    ExpectPlainMode();
    // Not initialised: the next initialisation does not count as a second one.
    EXPECT_EQ(Initialize("numthreadheaps 4 heapsize 1M memorylimit 12M"), KIV_ST_OK);
    EXPECT_EQ(TotalsNow().used(), 12u * 0x100000);
    ExpectThreadHeaps();
  });
}

TEST(ManagerStart, WithoutMemoryControlHeapsAreNotCounted) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(Initialize(std::string(kSmall) + "memorylimit 10M nomemorycontrol"), KIV_ST_OK);
    EXPECT_EQ(SettingsNow(), (Settings{10485760, 4, 12, kHeapBytes, 0x50000, 0x10000, 0}));
    ExpectNoMemoryControl();
    ExpectThreadHeaps();
    // The limit has no effect either.
    void* large = Allocate(16 << 20);
    ExpectLarge(large, 16 << 20);
    void* moved = nullptr;
    EXPECT_EQ(adRealloc(nullptr, 17 << 20, large, &moved, "tests", 1), KIV_ST_OK);
    ExpectLarge(moved, 17 << 20);
    Free(moved);
    Listen();
    int region = 0;
    EXPECT_EQ(adMemAlignedIncCounter(&region, 4096), KIV_ST_OK);
    adMemAlignedDecCounter(&region);
    adMemSendErrorMessage(1);
    EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  });
}

TEST(ManagerStart, CountsRegionsIfTheFileSelectsNoThreadHeaps) {
  IN_FRESH_PROCESS([] {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Initialize("numthreadheaps 0 memoryblockscontrol"), KIV_ST_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    ExpectPlainMode();
    ExpectNoStatistics();
    EXPECT_EQ(SettingsNow(), (Settings{0, 0, 0, 0x200000, 0, 0x10000, 1}));
    int region = 0;
    EXPECT_EQ(adMemAlignedIncCounter(&region, 2), KIV_ST_OK);
    EXPECT_EQ(TotalsNow(), (Totals{0, 0, 16384, 0, 16384, 16384}));
    EXPECT_EQ(MarksNow(), (Marks{0, 16384, 16384}));
    adMemAlignedDecCounter(&region);
    EXPECT_EQ(TotalsNow(), (Totals{0, 0, 0, 0, 16384, 16384}));
    EXPECT_EQ(adMemResetMaxUsedMarkMemory(), 0u);
    EXPECT_EQ(MarksNow(), Marks{});
  });
}

// Requests after the termination are not counted; the counts from before remain.
TEST(ManagerStart, KeepsTheStatisticsAfterATermination) {
  IN_FRESH_PROCESS([] {
    ASSERT_EQ(Initialize(std::string(kSmall) + "memoryblockscontrol"), KIV_ST_OK);
    Free(Allocate(100));
    const Counts counts = CountsNow();
    EXPECT_EQ(counts.allocated[0], 1u);
    EXPECT_EQ(counts.freed[0], 1u);
    EXPECT_EQ(adMemThreadHeapTerm(), -1);
    void* block = nullptr;
    ASSERT_EQ(adMalloc(nullptr, 100, &block, "tests", 1), KIV_ST_OK);
    EXPECT_EQ(adFree(block, "tests", 1), KIV_ST_OK);
    EXPECT_EQ(CountsNow(), counts);
  });
}

TEST(ManagerStart, AllowsAtLeastTheHeapsThatItMakes) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(Initialize("numheaps 3 numthreadheaps 5 heapsize 512K"), KIV_ST_OK);
    EXPECT_EQ(SettingsNow()[2], 13u);
    EXPECT_EQ(TotalsNow().inHeaps, 13 * kHeapBytes);
    EXPECT_EQ(Restart("numheaps 14 numthreadheaps 5 heapsize 512K"), KIV_ST_OK);
    EXPECT_EQ(SettingsNow()[2], 14u);
    EXPECT_EQ(TotalsNow().inHeaps, 13 * kHeapBytes);
  });
}

}  // namespace
