// What the checked flavour finds in blocks: each misuse in each kind of memory, and that correct use
// of all kinds is not reported.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <thread>

#include "checked/misuse.h"
#include "support/manager.h"

namespace {

using namespace kiv::test;

constexpr uint32_t kBytes = 100;
constexpr uint64_t kLarge = 2 * kLargestInHeap;

// The kinds of memory that adMalloc serves.
enum class Kind { kRuntime, kPolicy, kHeaps };

void Start(Kind kind) {
  if (kind == Kind::kPolicy) KivSdSetMemoryManager(1);
  if (kind == Kind::kHeaps) EXPECT_EQ(Initialize(kSmall), KIV_ST_OK);
}

unsigned char* Allocate(uint64_t sizeBytes = kBytes, uint32_t line = 10) {
  void* block = nullptr;
  EXPECT_EQ(adMalloc(nullptr, sizeBytes, &block, "made.c", line), KIV_ST_OK);
  return static_cast<unsigned char*>(block);
}

void Free(void* block, uint32_t line = 20) { EXPECT_EQ(adFree(block, "freed.c", line), KIV_ST_OK); }

void SetEnvironment(const char* setting) {
#ifdef _WIN32
  ASSERT_EQ(_putenv(setting), 0);
#else
  ASSERT_EQ(putenv(const_cast<char*>(setting)), 0);
#endif
}

// Frees so many blocks that all freed before have left the quarantine.
void FlushQuarantine() {
  for (uint32_t i = 0; i < 1100; ++i) Free(Allocate(kBytes, 30), 40);
}

class EachKind : public testing::TestWithParam<Kind> {};

TEST_P(EachKind, FindsABlockFreedTwice) {
  const auto freeTwice = [] {
    Start(GetParam());
    unsigned char* block = Allocate();
    Free(block, 20);
    Free(block, 21);
  };
  EXPECT_MISUSE(freeTwice(), "block freed twice: block ",
                " of 100 bytes, made at made.c:10, freed at freed.c:20", "freed.c", "21");
}

TEST_P(EachKind, FindsOneByteWrittenPastTheEnd) {
  const auto write = [] {
    Start(GetParam());
    unsigned char* block = Allocate();
    block[kBytes] = 0;
    Free(block, 22);
  };
  EXPECT_MISUSE(write(), "write past the end of block ", " of 100 bytes, made at made.c:10",
                "freed.c", "22");
}

TEST_P(EachKind, FindsAWritePastTheEndOfALargeBlock) {
  const auto write = [] {
    Start(GetParam());
    unsigned char* block = Allocate(kLarge + 1);
    block[kLarge + 16] = 0;
    Free(block);
  };
  EXPECT_MISUSE(write(), "write past the end of block ", " of 131073 bytes, made at made.c:10");
}

TEST_P(EachKind, FindsAWriteAfterTheFree) {
  const auto write = [] {
    Start(GetParam());
    unsigned char* block = Allocate();
    Free(block);
    block[kBytes - 1] = 0;
    FlushQuarantine();
  };
  EXPECT_MISUSE(write(), "write to a freed block: block ",
                " of 100 bytes, made at made.c:10, freed at freed.c:20");
}

TEST_P(EachKind, FindsAUseOfTheOldAddressOfAMovedBlock) {
  const auto freeOld = [] {
    Start(GetParam());
    unsigned char* block = Allocate();
    void* moved = nullptr;
    EXPECT_EQ(adRealloc(nullptr, kBytes, block, &moved, "moved.c", 15), KIV_ST_OK);
    Free(block);
  };
  EXPECT_MISUSE(freeOld(), "block freed twice: ", "made at made.c:10, freed at moved.c:15");
}

TEST_P(EachKind, FindsAWritePastTheEndBeforeAMove) {
  const auto write = [] {
    Start(GetParam());
    unsigned char* block = Allocate();
    block[kBytes] = 0;
    void* moved = nullptr;
    static_cast<void>(adRealloc(nullptr, kBytes, block, &moved, "moved.c", 15));
  };
  EXPECT_MISUSE(write(), "write past the end of block ", "made at made.c:10", "moved.c", "15");
}

TEST_P(EachKind, FindsAWritePastACopiedText) {
  const auto write = [] {
    Start(GetParam());
    char* copy = adStrDup("text", "made.c", 11);
    copy[9] = 'x';  // 5 bytes and 4 of zero precede
    Free(copy);
  };
  EXPECT_MISUSE(write(), "write past the end of block ", " of 9 bytes, made at made.c:11");
}

TEST_P(EachKind, FindsAWritePastZeroedElements) {
  const auto write = [] {
    Start(GetParam());
    void* block = nullptr;
    static_cast<void>(adCalloc(nullptr, 3, 7, &block, AD_POLICY_FULL));
    static_cast<unsigned char*>(block)[21] = 1;
    Free(block);
  };
  EXPECT_MISUSE(write(), "write past the end of block ", " of 21 bytes, made at adCalloc:0");
}

TEST_P(EachKind, FindsABlockOfANodeFreedAsAnother) {
  const auto freeNode = [] {
    Start(GetParam());
    uint64_t size = 0;
    void* block = nullptr;
    EXPECT_EQ(adMallocOnNode(nullptr, kBytes, &size, &block), KIV_ST_OK);
    EXPECT_EQ(size, kBytes);
    Free(block);
  };
  EXPECT_MISUSE(freeNode(), "block freed by another family: ", " by adMallocOnNode", "freed.c");
}

TEST_P(EachKind, FindsAnotherBlockFreedAsOneOfANode) {
  const auto freeOnNode = [] {
    Start(GetParam());
    static_cast<void>(adFreeOnNode(0, 0, Allocate()));
  };
  EXPECT_MISUSE(freeOnNode(), "block freed by another family: ", "made at made.c:10",
                " by adMalloc or its relatives", "adFreeOnNode");
}

TEST_P(EachKind, AcceptsCorrectUse) {
  const auto use = [] {
    Start(GetParam());
    for (uint32_t sizeBytes = 1; sizeBytes < 5000; sizeBytes = sizeBytes * 3 / 2 + 1) {
      unsigned char* block = Allocate(sizeBytes);
      std::memset(block, 1, sizeBytes);
      void* moved = nullptr;
      ASSERT_EQ(adRealloc(nullptr, sizeBytes + 3, block, &moved, "moved.c", 15), KIV_ST_OK);
      ASSERT_EQ(std::memchr(moved, 1, 1), moved);
      Free(moved);
    }
    Free(Allocate(kLarge));
    Free(Allocate(20u << 20));  // too large for the quarantine
    FlushQuarantine();
    void* node = nullptr;
    uint64_t size = 0;
    ASSERT_EQ(adMallocOnNode(nullptr, kBytes, &size, &node), KIV_ST_OK);
    std::memset(node, 1, kBytes);
    ASSERT_EQ(adFreeOnNode(0, 0, node), KIV_ST_OK);
    void* aligned = nullptr;
    ASSERT_EQ(adMallocAligned(nullptr, 0, kBytes, &aligned, "made.c", 1), KIV_ST_OK);
    ASSERT_EQ(adFreeAligned(aligned, 0), KIV_ST_OK);
    adMemThreadHeapTerm();
  };
  EXPECT_NO_MISUSE(use());
}

INSTANTIATE_TEST_SUITE_P(Blocks, EachKind,
                         testing::Values(Kind::kRuntime, Kind::kPolicy, Kind::kHeaps));

// ---- Headers ----

class WithHeaders : public testing::TestWithParam<Kind> {};

TEST_P(WithHeaders, FindAWriteBeforeTheStart) {
  const auto write = [] {
    Start(GetParam());
    unsigned char* block = Allocate();
    block[-1] ^= 1;
    Free(block);
  };
  EXPECT_MISUSE(write(), "write before the start of block ", " of 100 bytes, made at made.c:10");
}

INSTANTIATE_TEST_SUITE_P(Blocks, WithHeaders, testing::Values(Kind::kPolicy, Kind::kHeaps));

TEST(PolicyBlock, IsFoundWhenFreedAsARuntimeBlock) {
  const auto freeAligned = [] {
    Start(Kind::kPolicy);
    static_cast<void>(adFreeAligned(Allocate(), 1));
  };
  EXPECT_MISUSE(freeAligned(), "block with a header freed as one without: ", "made.c:10");
}

TEST(PolicyBlock, IsFoundWhenFreedAfterTheSwitchIsOff) {
  const auto freeLater = [] {
    Start(Kind::kPolicy);
    unsigned char* block = Allocate();
    KivSdSetMemoryManager(0);
    Free(block);
  };
  EXPECT_MISUSE(freeLater(), "block with a header freed as one without: ", "made.c:10");
}

TEST(PolicyBlock, MayLeaveTheQuarantineAfterTheSwitchIsOff) {
  const auto freeAndSwitch = [] {
    Start(Kind::kPolicy);
    Free(Allocate());
    KivSdSetMemoryManager(0);
    FlushQuarantine();
  };
  EXPECT_NO_MISUSE(freeAndSwitch());
}

// ---- Thread heaps ----

TEST(ThreadHeaps, FindABlockThatIsNotTheirs) {
  const auto freeForeign = [] {
    Start(Kind::kHeaps);
    static uint64_t foreign[4];
    Free(&foreign[2]);
  };
  EXPECT_MISUSE(freeForeign(), "is not of the library, or was freed long ago", "freed.c", "20");
}

TEST(ThreadHeaps, FindAnAddressInsideABlock) {
  const auto freeInside = [] {
    Start(Kind::kHeaps);
    Free(Allocate() + 8);
  };
  EXPECT_MISUSE(freeInside(), "is not of the library, or was freed long ago");
}

TEST(ThreadHeaps, FindABlockOfPlainMode) {
  const auto freeOld = [] {
    unsigned char* block = Allocate();
    Start(Kind::kHeaps);
    Free(block);
  };
  EXPECT_MISUSE(freeOld(), "block freed in another mode: ", "made at made.c:10 in plain mode");
}

TEST(PlainMode, FindsABlockOfThreadHeaps) {
  const auto freeLate = [] {
    Start(Kind::kHeaps);
    unsigned char* block = Allocate();
    adMemThreadHeapTerm();
    Free(block);
  };
  EXPECT_MISUSE(freeLate(), "block freed in another mode: ", "made.c:10 in thread-heap mode");
}

TEST(PlainMode, TakesABlockOfTheRuntime) {
  const auto mix = [] {
    Free(std::malloc(10));
    std::free(Allocate());
    void* moved = nullptr;
    ASSERT_EQ(adRealloc(nullptr, 20, std::malloc(10), &moved, "moved.c", 1), KIV_ST_OK);
    Free(moved);
  };
  EXPECT_NO_MISUSE(mix());
}

TEST(ThreadHeaps, FindDamageWhenTheyEnd) {
  const auto write = [] {
    Start(Kind::kHeaps);
    Allocate()[kBytes] = 1;
    adMemThreadHeapTerm();
  };
  EXPECT_MISUSE(write(), "write past the end of block ", "made at made.c:10");
}

TEST(ThreadHeaps, FindWritesAfterTheFreeWhenTheyEnd) {
  const auto write = [] {
    Start(Kind::kHeaps);
    unsigned char* block = Allocate();
    Free(block);
    block[0] = 1;
    adMemThreadHeapTerm();
  };
  EXPECT_MISUSE(write(), "write to a freed block: ", "freed at freed.c:20");
}

TEST(Quarantine, IsGivenBackWhenMemoryIsShort) {
  const auto fill = [] {
    // The limit leaves room for the heaps and for one of the blocks.
    ASSERT_EQ(Initialize("numheaps 12 numthreadheaps 4 heapsize 512K\n"
                         "memorylimit 12M\n"),
              KIV_ST_OK);
    for (int i = 0; i < 20; ++i) Free(Allocate(3u << 20));
  };
  EXPECT_NO_MISUSE(fill());
}

// ---- Short heaps ----

AdShortHeapOwner owner;

unsigned char* AllocateShort(int32_t sizeBytes = kBytes) {
  void* block = nullptr;
  EXPECT_EQ(adMemShortHeapMalloc(&owner, sizeBytes, &block, "short.c", 50), KIV_ST_OK);
  return static_cast<unsigned char*>(block);
}

void StartShort() {
  Start(Kind::kHeaps);
  adMemShortHeapInit(&owner);
  ASSERT_EQ(adMemShortCheckStatus(&owner), 1);
}

TEST(ShortHeap, FindsABlockFreedByAnotherThread) {
  const auto freeElsewhere = [] {
    StartShort();
    unsigned char* block = AllocateShort();
    std::thread([block] { Free(block); }).join();
  };
  EXPECT_MISUSE(freeElsewhere(), "block of a short heap freed by thread ", "made at short.c:50");
}

TEST(ShortHeap, FindsABlockFreedTwice) {
  const auto freeTwice = [] {
    StartShort();
    unsigned char* block = AllocateShort();
    Free(block, 20);
    Free(block, 21);
  };
  EXPECT_MISUSE(freeTwice(), "block freed twice: ", "made at short.c:50, freed at freed.c:20");
}

TEST(ShortHeap, FindsDamageWhenItsOwnerEnds) {
  const auto write = [] {
    StartShort();
    AllocateShort()[kBytes] = 1;
    adMemShortHeapTerm(&owner);
  };
  EXPECT_MISUSE(write(), "write past the end of block ", "made at short.c:50");
}

TEST(ShortHeap, FindsABlockOfAnOwnerThatEnded) {
  const auto freeLate = [] {
    StartShort();
    unsigned char* block = AllocateShort();
    adMemShortHeapTerm(&owner);
    Free(block);
  };
  EXPECT_MISUSE(freeLate(), "is not of the library, or was freed long ago");
}

TEST(ShortHeap, AcceptsCorrectUse) {
  const auto use = [] {
    SetEnvironment("KIV_CHECKED_LEAKS=assert");
    StartShort();
    for (int round = 0; round < 3; ++round) {
      for (int32_t sizeBytes = 1; sizeBytes < 200000; sizeBytes = sizeBytes * 3 / 2 + 1) {
        unsigned char* block = AllocateShort(sizeBytes);
        std::memset(block, 1, static_cast<size_t>(sizeBytes));
        void* moved = nullptr;
        ASSERT_EQ(adMemShortHeapRealloc(&owner, sizeBytes + 9, block, &moved, "short.c", 51),
                  KIV_ST_OK);
        if (sizeBytes % 2 == 0) Free(moved);
      }
      void* moved = nullptr;
      ASSERT_EQ(adRealloc(nullptr, 200, AllocateShort(), &moved, "short.c", 52), KIV_ST_OK);
      adMemShortHeapTerm(&owner);
      adMemShortHeapInit(&owner);
    }
    adMemShortHeapTerm(&owner);
    adMemThreadHeapTerm();
  };
  EXPECT_NO_MISUSE(use());
}

// ---- Leaks ----

TEST(Leaks, AreListedByPlaceWhenThreadHeapsEnd) {
  const auto leak = [] {
    Start(Kind::kHeaps);
    for (int i = 0; i < 3; ++i) Allocate(200, 60);
    Allocate(50, 61);
    Free(Allocate(1000, 62));
    adMemThreadHeapTerm();
    std::_Exit(0);
  };
  EXPECT_EXIT(leak(), testing::ExitedWithCode(0),
              Parts({"when thread heaps ended, 650 bytes in 4 blocks were never freed:\n"
                     "  600 bytes in 3 blocks, made at made.c:60\n"
                     "  50 bytes in 1 blocks, made at made.c:61\n"}));
}

TEST(Leaks, AreListedWhenTheLibraryIsUnloaded) {
  const auto leak = [] {
    Allocate(200, 60);
    std::exit(0);
  };
  EXPECT_EXIT(leak(), testing::ExitedWithCode(0),
              Parts({"when the library was unloaded, 200 bytes in 1 blocks were never freed:\n"
                     "  200 bytes in 1 blocks, made at made.c:60\n"}));
}

TEST(Leaks, EndTheProcessOnRequest) {
  const auto leak = [] {
    SetEnvironment("KIV_CHECKED_LEAKS=assert");
    Start(Kind::kHeaps);
    Allocate(200, 60);
    adMemThreadHeapTerm();
  };
  EXPECT_MISUSE(leak(), "1 blocks of 200 bytes were never freed", "made.c", "60");
}

}  // namespace
