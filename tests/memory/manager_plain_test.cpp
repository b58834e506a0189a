// The allocation front in plain mode: the blocks that each entry point takes from the C runtime and
// returns to it, with the memory-manager switch off and on, and with a thread cache.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/manager.h"
#include "support/policy_header.h"
#include "support/process.h"
#include "support/runtime_watch.h"

namespace {

using namespace kiv::test;

using Sizes = std::vector<size_t>;
using Freed = std::vector<const void*>;

void* const kUntouched = reinterpret_cast<void*>(0x5A5A);
constexpr unsigned char kDirt = 0xCD;

char* Bytes(void* block) { return static_cast<char*>(block); }

bool Holds(const void* block, uint64_t sizeBytes, unsigned char byte) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  return std::all_of(bytes, bytes + sizeBytes, [=](unsigned char found) { return found == byte; });
}

// Runs with a host that receives messages.
class PlainFront : public testing::Test {
 protected:
  PlainFront() {
    EXPECT_EQ(Restart(kNoFile), KIV_ST_OK);
    Listen();
  }
};

// ---- Elements ----

void* AllocateElements(int32_t count, uint64_t sizeBytes, uint8_t policy) {
  void* block = kUntouched;
  EXPECT_EQ(adCalloc(nullptr, count, sizeBytes, &block, policy), KIV_ST_OK);
  return block;
}

TEST_F(PlainFront, ElementsAreZeroedRuntimeBlocksWithTheSwitchOff) {
  RuntimeWatch watch;
  watch.FillWith(kDirt);
  for (const uint8_t policy : {uint8_t{AD_POLICY_MANDATORY}, uint8_t{AD_POLICY_FULL}}) {
    watch.Forget();
    void* block = AllocateElements(10, 100, policy);
    EXPECT_EQ(watch.sizes(), Sizes{1000});
    EXPECT_TRUE(Holds(block, 1000, 0));
    Free(block);
    EXPECT_EQ(watch.freed(), Freed{block});
  }
}

TEST_F(PlainFront, ElementsAreZeroedAndHaveTheHeaderOfTheirPolicy) {
  const ManagerSwitchedOn on;
  RuntimeWatch watch;
  watch.FillWith(kDirt);
  void* mandatory = AllocateElements(10, 100, AD_POLICY_MANDATORY);
  EXPECT_EQ(watch.sizes(), Sizes{kMandatoryHeader + 1000});
  ExpectHeader(mandatory, 0, AD_POLICY_MANDATORY);
  EXPECT_TRUE(Holds(mandatory, 1000, 0));
  watch.Forget();
  void* full = AllocateElements(1000, 1, AD_POLICY_FULL);
  EXPECT_EQ(watch.sizes(), Sizes{kFullHeader + 1024});
  ExpectHeader(full, 10, AD_POLICY_FULL);
  EXPECT_TRUE(Holds(full, 1000, 0));
  EXPECT_TRUE(Holds(Bytes(full) + 1000, 24, kDirt)) << "no more than was asked for";
  Free(mandatory);
  Free(full);
}

TEST_F(PlainFront, ElementsFromTheThreadsCacheAreZeroed) {
  const ManagerSwitchedOn on;
  const WithThreadCache cache;
  void* dirty = Allocate(1000);
  Fill(dirty, 1000, 1);
  Free(dirty);
  void* block = AllocateElements(10, 100, AD_POLICY_FULL);
  EXPECT_EQ(block, dirty);
  EXPECT_TRUE(Holds(block, 1000, 0));
  Free(block);
}

// ---- Texts ----

TEST_F(PlainFront, TextsAreCopiedWith4MoreZeroBytes) {
  RuntimeWatch watch;
  watch.FillWith(kDirt);
  for (const size_t length : {size_t{0}, size_t{1}, size_t{100}}) {
    const std::string text(length, 'x');
    watch.Forget();
    char* copy = adStrDup(text.c_str(), "tests", 1);
    EXPECT_EQ(watch.sizes(), Sizes{length + 5});
    EXPECT_EQ(std::string(copy), text);
    EXPECT_TRUE(Holds(copy + length, 5, 0)) << length;
    Free(copy);
  }
}

TEST_F(PlainFront, TextsHaveTheFullHeader) {
  const ManagerSwitchedOn on;
  RuntimeWatch watch;
  watch.FillWith(kDirt);
  char* copy = adStrDup("text", "tests", 1);
  EXPECT_EQ(watch.sizes(), Sizes{kFullHeader + 16});
  ExpectHeader(copy, 4, AD_POLICY_FULL);
  EXPECT_EQ(std::string(copy), "text");
  EXPECT_TRUE(Holds(copy + 4, 5, 0));
  EXPECT_TRUE(Holds(copy + 9, 7, kDirt)) << "no more than 4 bytes behind the terminator";
  Free(copy);
}

// ---- Without memory ----

// Expects that a request without memory fails and sends a message.
template <typename Request>
void ExpectNoMemory(uint64_t sizeBytes, Request request) {
  ASSERT_EQ(Restart(kNoFile), KIV_ST_OK);
  Listen();
  {
    RuntimeWatch watch;
    watch.FailAfter(0);
    request();
  }
  EXPECT_EQ(TakeMessages(), std::vector<Message>{NoMemory(sizeBytes, sizeBytes)});
}

TEST_F(PlainFront, WithoutMemoryARequestFailsAndSendsAMessage) {
  ExpectNoMemory(1000, [] {
    void* block = kUntouched;
    EXPECT_EQ(adCalloc(nullptr, 10, 100, &block, AD_POLICY_FULL), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
  });
  ExpectNoMemory(5, [] { EXPECT_EQ(adStrDup("", "tests", 1), nullptr); });
  ExpectNoMemory(1000, [] {
    void* block = kUntouched;
    EXPECT_EQ(adMallocAligned(nullptr, 0, 1000, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
  });
  ExpectNoMemory(1000, [] {
    void* block = kUntouched;
    uint64_t size = 0;
    EXPECT_EQ(adMallocOnNode(nullptr, 1000, &size, &block), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(size, 1000u);
  });
}

TEST_F(PlainFront, ANegativeCountRequestsNearly2To64Bytes) {
  const auto request = [] {
    void* block = kUntouched;
    EXPECT_EQ(adCalloc(nullptr, -1, 1, &block, AD_POLICY_FULL), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
  };
  request();
  EXPECT_EQ(TakeMessages(), std::vector<Message>{NoMemory(UINT64_MAX, UINT64_MAX)});
  const ManagerSwitchedOn on;
  request();
}

// ---- Alignments ----

void* alignedBlock;

void AllocateAligned(uint64_t alignment) {
  alignedBlock = kUntouched;
  // The assertion ends the process by this signal.
  std::signal(SIGABRT, [](int) {
    if (alignedBlock != kUntouched) std::_Exit(EXIT_FAILURE);
  });
  static_cast<void>(adMallocAligned(nullptr, alignment, 100, &alignedBlock, "tests", 1));
}

TEST_F(PlainFront, AnAlignmentIsAnAssertionThatLeavesTheResultUnchanged) {
  EXPECT_ASSERTION(AllocateAligned(16), "0 && \"Only for Linux\"", "sd/memheap", 348);
  EXPECT_ASSERTION(AllocateAligned(1), "0 && \"Only for Linux\"", "sd/memheap", 348);
}

TEST_F(PlainFront, ASizeOf0IsRefusedBeforeTheAlignmentIsChecked) {
  void* block = kUntouched;
  EXPECT_EQ(adMallocAligned(nullptr, 16, 0, &block, "tests", 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(block, kUntouched);
}

TEST_F(PlainFront, AnAlignmentOf0IsAnOrdinaryRequest) {
  RuntimeWatch watch;
  void* bare = nullptr;
  ASSERT_EQ(adMallocAligned(nullptr, 0, 100, &bare, "tests", 1), KIV_ST_OK);
  EXPECT_EQ(watch.sizes(), Sizes{100});
  Free(bare);
  const ManagerSwitchedOn on;
  void* full = nullptr;
  ASSERT_EQ(adMallocAligned(nullptr, 0, 100, &full, "tests", 1), KIV_ST_OK);
  ExpectHeader(full, 7, AD_POLICY_FULL);
  Free(full);
}

// ---- Freeing blocks that may be aligned ----

TEST_F(PlainFront, ABlockOfAlignedOriginIsFreedAtItsOwnAddress) {
  RuntimeWatch watch;
  void* bare = Allocate(100);
  EXPECT_EQ(adFreeAligned(bare, 1), KIV_ST_OK);
  EXPECT_EQ(watch.freed(), Freed{bare});

  // The bytes before the block do not matter: here they look like a header, which is ignored.
  const ManagerSwitchedOn on;
  void* full = Allocate(100);
  watch.Guard(full, 1);
  watch.Forget();
  EXPECT_EQ(adFreeAligned(full, 0x80), KIV_ST_OK);
  EXPECT_EQ(watch.freed(), Freed{full});
  ExpectHeader(full, 7, AD_POLICY_FULL);
  Free(full);
}

TEST_F(PlainFront, ABlockOfAlignedOriginDoesNotEnterTheThreadsCache) {
  const ManagerSwitchedOn on;
  const WithThreadCache cache;
  RuntimeWatch watch;
  void* full = Allocate(100);
  watch.Guard(full, 1);
  EXPECT_EQ(adFreeAligned(full, 1), KIV_ST_OK);
  EXPECT_EQ(watch.freed(), Freed{full});
  Free(full);
}

TEST_F(PlainFront, ABlockOfAnotherOriginIsFreedLikeAnyOther) {
  RuntimeWatch watch;
  void* bare = Allocate(100);
  EXPECT_EQ(adFreeAligned(bare, 0), KIV_ST_OK);
  EXPECT_EQ(watch.freed(), Freed{bare});
  const ManagerSwitchedOn on;
  void* full = Allocate(100);
  watch.Forget();
  EXPECT_EQ(adFreeAligned(full, 0), KIV_ST_OK);
  EXPECT_EQ(watch.freed(), Freed{Bytes(full) - kFullHeader});
  void* mandatory = AllocateElements(1, 100, AD_POLICY_MANDATORY);
  watch.Forget();
  EXPECT_EQ(adFreeAligned(mandatory, 0), KIV_ST_OK);
  EXPECT_EQ(watch.freed(), Freed{Bytes(mandatory) - kMandatoryHeader});
  const WithThreadCache cache;
  void* cached = Allocate(100);
  watch.Forget();
  EXPECT_EQ(adFreeAligned(cached, 0), KIV_ST_OK);
  EXPECT_EQ(watch.freed(), Freed{});
  EXPECT_EQ(Allocate(100), cached);
  Free(cached);
}

TEST_F(PlainFront, TheNoFreeSwitchDoesNotAffectFreeAligned) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    RuntimeWatch watch;
    void* full = Allocate(100);
    EXPECT_EQ(adFree(full, "tests", 1), KIV_ST_OK);
    EXPECT_EQ(watch.freed(), Freed{});
    EXPECT_EQ(adFreeAligned(full, 0), KIV_ST_OK);
    EXPECT_EQ(watch.freed(), Freed{Bytes(full) - kFullHeader});
    KivSdSetMemoryManager(0);
    void* bare = Allocate(100);
    watch.Forget();
    EXPECT_EQ(adFreeAligned(bare, 1), KIV_ST_OK);
    EXPECT_EQ(watch.freed(), Freed{bare});
    EXPECT_EQ(adFreeAligned(nullptr, 0), KIV_ST_ARGUMENT);
    EXPECT_EQ(adFreeAligned(nullptr, 1), KIV_ST_ARGUMENT);
  });
}

// ---- Blocks of a node ----

TEST_F(PlainFront, BlocksOfANodeAreRuntimeBlocksWithTheSwitchOffAndOn) {
  for (const uint8_t flag : {uint8_t{0}, uint8_t{1}}) {
    const ManagerSwitchedOn on(flag);
    RuntimeWatch watch;
    void* block = nullptr;
    uint64_t size = 0;
    ASSERT_EQ(adMallocOnNode(kUntouched, 1001, &size, &block), KIV_ST_OK);
    EXPECT_EQ(watch.sizes(), Sizes{1001});
    EXPECT_EQ(size, 1001u);
    EXPECT_EQ(adFreeOnNode(1, 2, block), KIV_ST_OK);
    EXPECT_EQ(watch.freed(), Freed{block});
  }
}

// ---- Owners of short heaps ----

// In plain mode a block has no room for the links of an owner's ring.
TEST_F(PlainFront, AnOwnersLargeBlocksAreNotLinkedInItsRing) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  EXPECT_EQ(adMemThreadHeapTerm(), -1);
  const ManagerSwitchedOn on;
  AdShortHeapOwner owner = {};
  adMemShortHeapInit(&owner);
  EXPECT_EQ(adMemShortCheckStatus(&owner), 0);
  RuntimeWatch watch;
  void* block = nullptr;
  ASSERT_EQ(adMemShortHeapMalloc(&owner, 100'000, &block, "tests", 1), KIV_ST_OK);
  EXPECT_EQ(watch.sizes(), Sizes{kFullHeader + 131'072});
  ExpectHeader(block, 17, AD_POLICY_FULL);
  EXPECT_EQ(owner.largeBlocks, nullptr);
  Fill(block, 100'000, 1);

  void* resized = kUntouched;
  ASSERT_EQ(adMemShortHeapRealloc(&owner, 200'000, block, &resized, "tests", 1), KIV_ST_OK);
  ExpectHeader(resized, 18, AD_POLICY_FULL);
  EXPECT_TRUE(IsFilled(resized, 100'000, 1));
  EXPECT_EQ(owner.largeBlocks, nullptr);
  // A block that shrinks to a size for heaps is only resized.
  ASSERT_EQ(adMemShortHeapRealloc(&owner, 100, resized, &block, "tests", 1), KIV_ST_OK);
  ExpectHeader(block, 7, AD_POLICY_FULL);
  EXPECT_TRUE(IsFilled(block, 100, 1));
  resized = kUntouched;
  EXPECT_EQ(adMemShortHeapRealloc(&owner, 0, block, &resized, "tests", 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(resized, kUntouched);

  // A request for a heap fails, because the owner has none.
  EXPECT_EQ(adMemShortHeapMalloc(&owner, 65'536, &resized, "tests", 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(adMemShortHeapRealloc(&owner, 65'536, nullptr, &resized, "tests", 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(resized, kUntouched);
  watch.Forget();
  adMemShortHeapTerm(&owner);
  EXPECT_EQ(watch.freed(), Freed{});
  Free(block);
}

TEST_F(PlainFront, AnOwnerThatEndsAfterTheThreadHeapsKeepsItsHeap) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  AdShortHeapOwner owner = {};
  adMemShortHeapInit(&owner);
  void* const heap = owner.heap;
  ASSERT_NE(heap, nullptr);
  EXPECT_EQ(adMemThreadHeapTerm(), -1);
  const RuntimeWatch watch;
  adMemShortHeapTerm(&owner);
  EXPECT_EQ(owner.heap, heap);
  EXPECT_EQ(watch.freed(), Freed{});
}

TEST_F(PlainFront, ACacheRestsWhileThereAreThreadHeaps) {
  KivSdSetMemoryManager(1);
  ASSERT_EQ(adCreateThreadAlloc(), KIV_ST_OK);
  void* const cached = Allocate(100);
  Free(cached);
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  void* const block = Allocate(100);
  EXPECT_NE(block, cached);
  Free(block);
  EXPECT_EQ(adMemThreadHeapTerm(), -1);
  EXPECT_EQ(Allocate(100), cached);
  EXPECT_NE(Allocate(100), block);
  EXPECT_EQ(adDestroyThreadAlloc(), KIV_ST_OK);
  KivSdSetMemoryManager(0);
}

}  // namespace
