// The thread allocator, through its exports: which blocks enter and leave a thread's cache, its
// limit, and which blocks a thread with a cache must not free.
#include "kivsdu/threadcache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/policy.h"
#include "support/process.h"
#include "support/runtime_watch.h"
#include "support/threads.h"

namespace {

using kiv::test::Allocate;
using kiv::test::ExpectHeader;
using kiv::test::Fill;
using kiv::test::Free;
using kiv::test::HeaderBefore;
using kiv::test::IsFilled;
using kiv::test::kTwoMebibytes;
using kiv::test::ManagerSwitchedOn;
using kiv::test::Reallocate;
using kiv::test::RuntimeWatch;
using kiv::test::WithThreadCache;

using Sizes = std::vector<size_t>;
using Freed = std::vector<const void*>;

constexpr char kSource[] = "sd/ThreadAllocator";

char* Bytes(void* block) { return static_cast<char*>(block); }

std::vector<void*> AllocateSome(size_t count, uint64_t sizeBytes) {
  std::vector<void*> blocks;
  for (size_t i = 0; i < count; ++i) blocks.push_back(Allocate(sizeBytes));
  return blocks;
}

// Runs with the switch on, a cache, and a watch on the runtime.
class ThreadCacheTest : public testing::Test {
 protected:
  ~ThreadCacheTest() override { KivSdSetHardwareAcceleration(0); }

  // Frees these blocks and returns how many of them the cache took.
  size_t Cached(const std::vector<void*>& blocks) {
    watch_.Forget();
    for (void* block : blocks) Free(block);
    return blocks.size() - watch_.freed().size();
  }

  const ManagerSwitchedOn on_;
  const WithThreadCache cache_;
  RuntimeWatch watch_;
};

TEST_F(ThreadCacheTest, ReusesAFreedBlockForTheNextRequestOfItsClass) {
  void* block = Allocate(100);
  ExpectHeader(block, 7, AD_POLICY_FULL);
  EXPECT_EQ(watch_.sizes(), Sizes{192});
  Free(block);
  EXPECT_EQ(Allocate(120), block);
  ExpectHeader(block, 7, AD_POLICY_FULL);
  EXPECT_EQ(watch_.sizes(), Sizes{192});
  EXPECT_TRUE(watch_.freed().empty());
  Free(block);
}

TEST_F(ThreadCacheTest, ReusesTheNewestBlockFirst) {
  const std::vector<void*> blocks = AllocateSome(10, 100);
  for (void* block : blocks) Free(block);
  for (size_t i = blocks.size(); i-- > 0;) EXPECT_EQ(Allocate(65), blocks[i]);
  EXPECT_EQ(Cached(blocks), blocks.size());
}

TEST_F(ThreadCacheTest, KeepsTheClassesSeparate) {
  std::vector<void*> blocks;
  for (uint32_t sizeClass = 0; sizeClass <= 21; ++sizeClass) {
    blocks.push_back(Allocate(uint64_t{1} << sizeClass));
    ExpectHeader(blocks.back(), sizeClass, AD_POLICY_FULL);
  }
  EXPECT_EQ(Cached(blocks), blocks.size());
  watch_.Forget();
  for (uint32_t sizeClass = 0; sizeClass <= 21; ++sizeClass) {
    EXPECT_EQ(Allocate(uint64_t{1} << sizeClass), blocks[sizeClass]);
    ExpectHeader(blocks[sizeClass], sizeClass, AD_POLICY_FULL);
  }
  EXPECT_TRUE(watch_.sizes().empty());
  EXPECT_EQ(Cached(blocks), blocks.size());
}

TEST_F(ThreadCacheTest, ClearsThePolicyOfACachedBlock) {
  void* block = Allocate(100);
  Free(block);
  EXPECT_EQ(HeaderBefore(block).policy, 0);
  EXPECT_EQ(HeaderBefore(block).headerBytes, 64);
  EXPECT_EQ(HeaderBefore(block).sizeClass, 7u);
}

TEST_F(ThreadCacheTest, LinksItsBlocksThroughTheirFirstWord) {
  const std::vector<void*> blocks = AllocateSome(3, 100);
  for (void* block : blocks) Free(block);
  const auto link = [&](size_t i) {
    const void* next = nullptr;
    std::memcpy(&next, Bytes(blocks[i]) - 64, sizeof next);
    return next;
  };
  EXPECT_EQ(link(0), nullptr);
  EXPECT_EQ(link(1), Bytes(blocks[0]) - 64);
  EXPECT_EQ(link(2), Bytes(blocks[1]) - 64);
}

TEST_F(ThreadCacheTest, NeverTakesBlocksOfTheMandatoryPolicy) {
  void* block = Allocate(100, AD_POLICY_MANDATORY);
  ExpectHeader(block, 0, AD_POLICY_MANDATORY);
  EXPECT_EQ(watch_.sizes(), Sizes{108});
  Free(block);
  EXPECT_EQ(watch_.freed(), Freed{Bytes(block) - 8});
}

TEST_F(ThreadCacheTest, ServesNoMandatoryRequest) {
  Free(Allocate(1));
  watch_.Forget();
  void* block = Allocate(1, AD_POLICY_MANDATORY);
  EXPECT_EQ(watch_.sizes(), Sizes{9});
  Free(block);
}

TEST_F(ThreadCacheTest, TakesTwoMebibytesAndNoByteMore) {
  void* within = Allocate(kTwoMebibytes);
  void* beyond = Allocate(kTwoMebibytes + 1);
  EXPECT_EQ(watch_.sizes(), (Sizes{kTwoMebibytes + 64, kTwoMebibytes + 65}));
  ExpectHeader(beyond, 22, AD_POLICY_FULL);
  Free(within);
  EXPECT_TRUE(watch_.freed().empty());
  Free(beyond);
  EXPECT_EQ(watch_.freed(), Freed{Bytes(beyond) - 64});
}

TEST_F(ThreadCacheTest, ReadsAll64BitsOfASize) {
  constexpr uint64_t kFourGibibytes = UINT64_C(1) << 32;
  Free(Allocate(100));
  watch_.Forget();
  watch_.FailAfter(0);
  EXPECT_EQ(Allocate(kFourGibibytes + 100), nullptr);
  EXPECT_EQ(watch_.sizes(), Sizes{kFourGibibytes + 164});
}

TEST_F(ThreadCacheTest, TakesNothingWhileTheSwitchIsOff) {
  void* block = Allocate(100);
  KivSdSetMemoryManager(0);
  // The bytes before the block make no difference.
  watch_.Guard(Bytes(block) - 64, 192);
  Free(block);
  EXPECT_EQ(watch_.freed(), Freed{block});
  watch_.Forget();
  watch_.Guard(nullptr, 0);
  void* bare = Allocate(100);
  EXPECT_EQ(watch_.sizes().back(), 100u);
  Free(bare);
  EXPECT_EQ(watch_.freed(), Freed{bare});
  KivSdSetMemoryManager(1);
  Free(block);
  EXPECT_EQ(watch_.freed().size(), 1u);
}

TEST_F(ThreadCacheTest, WithoutMemoryYieldsNull) {
  watch_.FailAfter(0);
  EXPECT_EQ(Allocate(100), nullptr);
  EXPECT_EQ(Allocate(100, AD_POLICY_MANDATORY), nullptr);
  EXPECT_EQ(Allocate(kTwoMebibytes + 1), nullptr);
  EXPECT_EQ(watch_.sizes(), (Sizes{192, 108, kTwoMebibytes + 65}));
}

TEST_F(ThreadCacheTest, ServesCachedBlocksWithoutMemory) {
  void* block = Allocate(100);
  Free(block);
  watch_.FailAfter(0);
  EXPECT_EQ(Allocate(100), block);
  EXPECT_EQ(Allocate(100), nullptr);
  Free(block);
}

TEST_F(ThreadCacheTest, TakesABlockThatWasReallocated) {
  void* block = Reallocate(Allocate(100), 1000);
  ExpectHeader(block, 10, AD_POLICY_FULL);
  Free(block);
  EXPECT_TRUE(watch_.freed().empty());
  EXPECT_EQ(Allocate(600), block);
  Free(block);
}

// ---- The limit ----

// Of blocks of 2 MiB with their headers, three stay below 8 MiB and the fourth exceeds it.
constexpr size_t kFillLimit = 4;

TEST_F(ThreadCacheTest, TakesBlocksUntilTheyExceedEightMebibytes) {
  EXPECT_EQ(Cached(AllocateSome(10, kTwoMebibytes)), kFillLimit);
}

TEST_F(ThreadCacheTest, CountsTheHeadersInItsLimit) {
  // 65536 blocks of 64 bytes with headers of 64 bytes are exactly 8 MiB, the limit.
  constexpr size_t kExactly = 65536;
  const std::vector<void*> blocks = AllocateSome(kExactly + 3, 64);
  watch_.Forget();
  for (size_t i = 0; i <= kExactly; ++i) Free(blocks[i]);
  EXPECT_TRUE(watch_.freed().empty());
  Free(blocks[kExactly + 1]);
  Free(blocks[kExactly + 2]);
  EXPECT_EQ(watch_.freed(),
            (Freed{Bytes(blocks[kExactly + 1]) - 64, Bytes(blocks[kExactly + 2]) - 64}));
}

TEST_F(ThreadCacheTest, TakesBlocksAgainAfterItServedOne) {
  EXPECT_EQ(Cached(AllocateSome(10, kTwoMebibytes)), kFillLimit);
  void* small = Allocate(100);
  EXPECT_EQ(Cached({small}), 0u);
  void* taken = Allocate(kTwoMebibytes);
  small = Allocate(100);
  EXPECT_EQ(Cached({small, taken}), 2u);
  EXPECT_EQ(Cached({Allocate(50)}), 0u);
}

TEST_F(ThreadCacheTest, ClearsThePolicyOfABlockThatItDoesNotTake) {
  const std::vector<void*> blocks = AllocateSome(kFillLimit + 1, kTwoMebibytes);
  for (size_t i = 0; i < kFillLimit; ++i) Free(blocks[i]);
  int shown = 0;
  watch_.Show([&](const void* block) {
    ++shown;
    EXPECT_EQ(block, Bytes(blocks.back()) - 64);
    EXPECT_EQ(HeaderBefore(blocks.back()).policy, 0);
  });
  Free(blocks.back());
  EXPECT_EQ(shown, 1);
  watch_.Show(nullptr);
}

TEST(ThreadCacheLimit, IsAHundredMebibytesWithHardwareAcceleration) {
  const ManagerSwitchedOn on;
  KivSdSetHardwareAcceleration(0x80);
  const WithThreadCache cache;
  // Only the flag's value at the creation of the cache matters.
  KivSdSetHardwareAcceleration(0);
  constexpr uint64_t kLimit = 100 << 20;
  constexpr uint64_t kLarge = kTwoMebibytes + 64;
  constexpr uint64_t kSmall = 4096 + 64;
  // Fills the cache with large blocks, and finds the exact limit with small ones.
  const std::vector<void*> large = AllocateSome(kLimit / kLarge, kTwoMebibytes);
  const std::vector<void*> small = AllocateSome(1000, 4096);
  const RuntimeWatch watch;
  for (void* block : large) Free(block);
  EXPECT_TRUE(watch.freed().empty());
  for (void* block : small) Free(block);
  EXPECT_EQ(small.size() - watch.freed().size(), kLimit % kLarge / kSmall + 1);
}

// ---- Creating and destroying ----

TEST(ThreadCacheCreate, DoesNothingWithTheSwitchOff) {
  RuntimeWatch watch;
  EXPECT_EQ(adCreateThreadAlloc(), 0u);
  EXPECT_TRUE(watch.sizes().empty());
  const ManagerSwitchedOn on;
  void* block = Allocate(100);
  Free(block);
  EXPECT_EQ(watch.freed(), Freed{Bytes(block) - 64});
  EXPECT_EQ(adDestroyThreadAlloc(), 0u);
}

TEST(ThreadCacheCreate, KeepsAnExistingCache) {
  const ManagerSwitchedOn on;
  const WithThreadCache cache;
  void* block = Allocate(100);
  Free(block);
  RuntimeWatch watch;
  EXPECT_EQ(adCreateThreadAlloc(), 0u);
  EXPECT_TRUE(watch.sizes().empty());
  EXPECT_EQ(Allocate(100), block);
  Free(block);
}

TEST(ThreadCacheCreate, WithoutMemoryTheThreadHasNoCache) {
  const ManagerSwitchedOn on;
  RuntimeWatch watch;
  watch.FailAfter(0);
  EXPECT_EQ(adCreateThreadAlloc(), 0u);
  EXPECT_EQ(watch.sizes().size(), 1u);
  watch.FailNoMore();
  void* block = Allocate(100);
  Free(block);
  EXPECT_EQ(watch.freed(), Freed{Bytes(block) - 64});
  EXPECT_EQ(adCreateThreadAlloc(), 0u);
  watch.Forget();
  Free(Allocate(100));
  EXPECT_TRUE(watch.freed().empty());
  EXPECT_EQ(adDestroyThreadAlloc(), 0u);
}

TEST(ThreadCacheDestroy, FreesEveryBlockAndTheCache) {
  const ManagerSwitchedOn on;
  RuntimeWatch watch;
  EXPECT_EQ(adCreateThreadAlloc(), 0u);
  std::vector<void*> blocks = AllocateSome(5, 100);
  for (const uint64_t size : {uint64_t{1}, uint64_t{5000}, kTwoMebibytes}) {
    blocks.push_back(Allocate(size));
  }
  const size_t taken = watch.sizes().size();
  for (void* block : blocks) Free(block);
  EXPECT_TRUE(watch.freed().empty());
  EXPECT_EQ(adDestroyThreadAlloc(), 0u);
  Freed freed = watch.freed();
  EXPECT_EQ(freed.size(), taken);
  std::sort(freed.begin(), freed.end());
  for (void* block : blocks) {
    EXPECT_TRUE(std::binary_search(freed.begin(), freed.end(), Bytes(block) - 64));
  }
}

TEST(ThreadCacheDestroy, WithoutACacheDoesNothing) {
  const RuntimeWatch watch;
  EXPECT_EQ(adDestroyThreadAlloc(), 0u);
  const ManagerSwitchedOn on;
  EXPECT_EQ(adDestroyThreadAlloc(), 0u);
  EXPECT_TRUE(watch.freed().empty());
}

TEST(ThreadCacheDestroy, WorksWithTheSwitchOffAgain) {
  RuntimeWatch watch;
  {
    const ManagerSwitchedOn on;
    EXPECT_EQ(adCreateThreadAlloc(), 0u);
    Free(Allocate(100));
  }
  EXPECT_EQ(adDestroyThreadAlloc(), 0u);
  EXPECT_EQ(watch.freed().size(), 2u);
  EXPECT_EQ(adDestroyThreadAlloc(), 0u);
  EXPECT_EQ(watch.freed().size(), 2u);
}

TEST(ThreadCacheDestroy, CanBeFollowedByANewCache) {
  const ManagerSwitchedOn on;
  for (int round = 0; round < 3; ++round) {
    const WithThreadCache cache;
    void* block = Allocate(100);
    Free(block);
    EXPECT_EQ(Allocate(100), block);
    Free(block);
  }
}

// ---- Compaction and preallocation ----

TEST_F(ThreadCacheTest, CompactionEmptiesItWithAndWithoutHardwareAcceleration) {
  for (const uint8_t flag : {uint8_t{0}, uint8_t{1}, uint8_t{255}}) {
    KivSdSetHardwareAcceleration(flag);
    const std::vector<void*> blocks = {Allocate(1), Allocate(100), Allocate(100), Allocate(70000)};
    for (void* block : blocks) Free(block);
    watch_.Forget();
    EXPECT_EQ(adFreelistCompaction(), 0u);
    // The largest class first; within a class, the newest block first.
    EXPECT_EQ(watch_.freed(), (Freed{Bytes(blocks[3]) - 64, Bytes(blocks[2]) - 64,
                                     Bytes(blocks[1]) - 64, Bytes(blocks[0]) - 64}));
    EXPECT_EQ(adFreelistCompaction(), 0u);
    EXPECT_EQ(watch_.freed().size(), 4u);
    watch_.Forget();
    void* block = Allocate(100);
    EXPECT_EQ(watch_.sizes(), Sizes{192});
    Free(block);
    EXPECT_TRUE(watch_.freed().empty());
    EXPECT_EQ(adFreelistCompaction(), 0u);
  }
}

TEST_F(ThreadCacheTest, CompactionFreesTheWholeLimit) {
  EXPECT_EQ(Cached(AllocateSome(10, kTwoMebibytes)), kFillLimit);
  EXPECT_EQ(adFreelistCompaction(), 0u);
  EXPECT_EQ(Cached(AllocateSome(10, kTwoMebibytes)), kFillLimit);
}

TEST_F(ThreadCacheTest, PreallocationAllocatesNothing) {
  for (const uint8_t flag : {uint8_t{0}, uint8_t{1}}) {
    KivSdSetHardwareAcceleration(flag);
    watch_.Forget();
    adThreadPrealloc();
    EXPECT_TRUE(watch_.sizes().empty());
    EXPECT_TRUE(watch_.freed().empty());
  }
}

TEST(NoThreadCache, CompactionAndPreallocationDoNothing) {
  const ManagerSwitchedOn on;
  const RuntimeWatch watch;
  EXPECT_EQ(adFreelistCompaction(), 0u);
  KivSdSetHardwareAcceleration(1);
  EXPECT_EQ(adFreelistCompaction(), 0u);
  adThreadPrealloc();
  KivSdSetHardwareAcceleration(0);
  EXPECT_TRUE(watch.sizes().empty());
  EXPECT_TRUE(watch.freed().empty());
}

// ---- Threads ----

TEST(ThreadCaches, TakeBlocksThatAnotherThreadAllocated) {
  const ManagerSwitchedOn on;
  const WithThreadCache cache;
  void* block = Allocate(100);
  std::thread([&] {
    const WithThreadCache another;
    Free(block);
    EXPECT_EQ(Allocate(100), block);
    Fill(block, 128);
  }).join();
  EXPECT_TRUE(IsFilled(block, 128));
  Free(block);
  EXPECT_EQ(Allocate(100), block);
  Free(block);
}

TEST(ThreadCaches, ServeTheirOwnThreadAlone) {
  const ManagerSwitchedOn on;
  const WithThreadCache cache;
  void* block = Allocate(100);
  Free(block);
  std::thread([&] {
    void* other = Allocate(100);
    EXPECT_NE(other, block);
    Free(other);
    const WithThreadCache another;
    other = Allocate(100);
    EXPECT_NE(other, block);
    Free(other);
  }).join();
  EXPECT_EQ(Allocate(100), block);
  Free(block);
}

// In every round each thread allocates blocks, passes them to the next thread and frees the blocks
// of the previous thread. The content shows whether two threads ever had the same block.
TEST(ThreadCaches, ServeManyThreadsThatFreeEachOthersBlocks) {
  constexpr uint32_t kThreads = 4;
  constexpr uint32_t kRounds = 200;
  constexpr size_t kBlocks = 50;
  const ManagerSwitchedOn on;
  std::vector<void*> handed[2][kThreads];
  std::atomic<uint32_t> arrived{0};
  const auto meet = [&](uint32_t round) {
    arrived.fetch_add(1);
    while (arrived.load() < (round + 1) * kThreads) std::this_thread::yield();
  };
  kiv::test::OnThreads(kThreads, [&](uint32_t self) {
    const WithThreadCache cache;
    for (uint32_t round = 0; round < kRounds; ++round) {
      std::vector<void*>& mine = handed[round % 2][self];
      for (size_t i = 0; i < kBlocks; ++i) {
        const uint64_t size = 1 + (i * 37 + self * 11) % 3000;
        mine.push_back(Allocate(size, i % 8 == 7 ? AD_POLICY_MANDATORY : AD_POLICY_FULL));
        Fill(mine.back(), size);
      }
      meet(round);
      const uint32_t before = (self + kThreads - 1) % kThreads;
      std::vector<void*>& theirs = handed[round % 2][before];
      for (size_t i = 0; i < kBlocks; ++i) {
        EXPECT_TRUE(IsFilled(theirs[i], 1 + (i * 37 + before * 11) % 3000));
        Free(theirs[i]);
      }
      theirs.clear();
    }
  });
}

// ---- Assertions of a free ----

// Frees a block with one changed byte of its header, on a thread with a cache.
void FreeChanged(uint8_t policy, uint8_t headerBytes, uint32_t sizeClass) {
  KivSdSetMemoryManager(1);
  adCreateThreadAlloc();
  void* block = Allocate(100);
  kiv::test::WritePolicyBefore(block, policy);
  kiv::test::WriteHeaderLengthBefore(block, headerBytes);
  kiv::test::WriteClassBefore(block, sizeClass);
  Free(block);
}

TEST(ThreadCacheFree, OfPolicyZeroIsAnAssertion) {
  EXPECT_ASSERTION(FreeChanged(0, 64, 7), "pHdr->policy != 0", kSource, 206);
}

void FreeTwice() {
  KivSdSetMemoryManager(1);
  adCreateThreadAlloc();
  void* block = Allocate(100);
  Free(block);
  Free(block);
}

TEST(ThreadCacheFree, OfACachedBlockIsAnAssertion) {
  EXPECT_ASSERTION(FreeTwice(), "pHdr->policy != 0", kSource, 206);
}

TEST(ThreadCacheFree, OfAFullBlockWithAWrongHeaderLengthIsAnAssertion) {
  EXPECT_ASSERTION(FreeChanged(2, 8, 21), "pHdr->hlen == MEMORY_BLOCK_HEADER_SIZE", kSource, 230);
}

TEST(ThreadCacheFree, OfAnotherPolicyIsAnAssertion) {
  EXPECT_ASSERTION(FreeChanged(3, 64, 7), "AD_FALSE", kSource, 264);
  EXPECT_ASSERTION(FreeChanged(255, 0, 100), "AD_FALSE", kSource, 264);
}

TEST_F(ThreadCacheTest, FreesMandatoryAndLargeBlocksWithAWrongHeaderLengthAsRuntimeBlocks) {
  alignas(16) unsigned char place[256] = {};
  void* payload = place + 128;
  watch_.Guard(place, sizeof place);
  const auto freed = [&](uint8_t policy, uint8_t length, uint32_t sizeClass) {
    kiv::test::WritePolicyBefore(payload, policy);
    kiv::test::WriteHeaderLengthBefore(payload, length);
    kiv::test::WriteClassBefore(payload, sizeClass);
    watch_.Forget();
    Free(payload);
    return watch_.freed();
  };
  EXPECT_EQ(freed(1, 8, 7), Freed{Bytes(payload) - 8});
  EXPECT_EQ(freed(1, 64, 7), Freed{payload});
  EXPECT_EQ(freed(2, 64, 22), Freed{Bytes(payload) - 64});
  EXPECT_EQ(freed(2, 8, 22), Freed{payload});
  EXPECT_EQ(freed(2, 64, UINT32_MAX), Freed{Bytes(payload) - 64});
}

}  // namespace
