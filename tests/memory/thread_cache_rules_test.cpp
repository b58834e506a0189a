// Rules of the thread allocator that its exports cannot reach: sizes that no caller requests,
// targets other than 0, the extent of trimming, and frees of the mandatory policy.
#include "ThreadAllocator/thread_cache.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <vector>

#include "support/policy.h"
#include "support/process.h"
#include "support/runtime_watch.h"

namespace {

using kiv::AllocateFromCache;
using kiv::CacheTargets;
using kiv::FillCache;
using kiv::FreeToCache;
using kiv::ThreadCache;
using kiv::TrimCache;
using kiv::test::ExpectHeader;
using kiv::test::RuntimeWatch;

using Sizes = std::vector<size_t>;
using Freed = std::vector<const void*>;

constexpr char kSource[] = "sd/ThreadAllocator";
constexpr CacheTargets kNoTargets = {};
constexpr uint64_t kLimitBytes = 10000;

char* Bytes(void* block) { return static_cast<char*>(block); }

ThreadCache* MakeCache() {
  auto* cache = new (std::malloc(sizeof(ThreadCache))) ThreadCache{};
  cache->limitBytes = kLimitBytes;
  return cache;
}

class CacheRules : public testing::Test {
 protected:
  ~CacheRules() override { kiv::DestroyCache(cache_); }

  // Puts `count` blocks of a class into the cache.
  void Add(uint32_t sizeClass, uint32_t count) {
    CacheTargets targets = {};
    targets.counts[sizeClass] = cache_->counts[sizeClass] + count;
    FillCache(cache_, targets);
  }

  // Expects that the counts and the bytes match the lists.
  void ExpectConsistent() const {
    uint64_t bytes = 0;
    for (uint32_t i = 0; i < kiv::kCacheClasses; ++i) {
      uint32_t count = 0;
      for (const kiv::FullBlock* block = cache_->lists[i]; block != nullptr; block = block->next) {
        ++count;
      }
      EXPECT_EQ(cache_->counts[i], count) << "class " << i;
      bytes += count * ((uint64_t{1} << i) + 64);
    }
    EXPECT_EQ(cache_->cachedBytes, bytes);
  }

  ThreadCache* cache_ = MakeCache();
  RuntimeWatch watch_;
};

// ---- Allocating ----

TEST_F(CacheRules, ASizeOfZeroAllocatesAHeaderOnly) {
  void* block = AllocateFromCache(cache_, 0, AD_POLICY_FULL);
  EXPECT_EQ(watch_.sizes(), Sizes{64});
  ExpectHeader(block, 0, AD_POLICY_FULL);
  FreeToCache(cache_, block);
  EXPECT_EQ(cache_->cachedBytes, 65u);
  // Its rounded size is 0: taking the block subtracts one byte less than its free added.
  EXPECT_EQ(AllocateFromCache(cache_, 0, AD_POLICY_FULL), block);
  EXPECT_EQ(cache_->cachedBytes, 1u);
  EXPECT_EQ(cache_->counts[0], 0u);
  std::free(Bytes(block) - 64);
}

TEST_F(CacheRules, SizesAboveTwoMebibytesAreAlsoRounded) {
  void* block = AllocateFromCache(cache_, (2 << 20) + 1, AD_POLICY_FULL);
  EXPECT_EQ(watch_.sizes(), Sizes{(4 << 20) + 64});
  ExpectHeader(block, 22, AD_POLICY_FULL);
  FreeToCache(cache_, block);
  EXPECT_EQ(cache_->counts[22], 1u);
  EXPECT_EQ(AllocateFromCache(cache_, 3 << 20, AD_POLICY_FULL), block);
  std::free(Bytes(block) - 64);
}

TEST_F(CacheRules, SizesAboveTwoGibibytesAreOutOfMemory) {
  watch_.FailAfter(0);
  EXPECT_EQ(AllocateFromCache(cache_, 1U << 31, AD_POLICY_FULL), nullptr);
  EXPECT_EQ(AllocateFromCache(cache_, (1U << 31) + 1, AD_POLICY_FULL), nullptr);
  EXPECT_EQ(AllocateFromCache(cache_, UINT32_MAX, AD_POLICY_FULL), nullptr);
  EXPECT_EQ(AllocateFromCache(cache_, UINT32_MAX, AD_POLICY_MANDATORY), nullptr);
  EXPECT_EQ(watch_.sizes(), (Sizes{(UINT64_C(1) << 31) + 64, 64, 64, UINT64_C(0xFFFFFFFF) + 8}));
}

TEST_F(CacheRules, AnUnknownPolicyIsWrittenUnchanged) {
  for (const uint8_t policy : {uint8_t{3}, uint8_t{255}}) {
    void* fresh = AllocateFromCache(cache_, 100, policy);
    ExpectHeader(fresh, 7, policy);
    kiv::test::WritePolicyBefore(fresh, AD_POLICY_FULL);
    FreeToCache(cache_, fresh);
    EXPECT_EQ(AllocateFromCache(cache_, 100, policy), fresh);
    ExpectHeader(fresh, 7, policy);
    std::free(Bytes(fresh) - 64);
  }
}

TEST_F(CacheRules, MandatoryBlocksComeFromTheRuntimeAndReturnToIt) {
  Add(0, 1);
  watch_.Forget();
  void* block = AllocateFromCache(cache_, 1, AD_POLICY_MANDATORY);
  EXPECT_EQ(watch_.sizes(), Sizes{9});
  FreeToCache(cache_, block);
  EXPECT_EQ(watch_.freed(), Freed{Bytes(block) - 8});
  EXPECT_EQ(cache_->counts[0], 1u);
}

void FreeMandatoryWithLength(uint8_t headerBytes) {
  ThreadCache* cache = MakeCache();
  void* block = AllocateFromCache(cache, 100, AD_POLICY_MANDATORY);
  kiv::test::WriteHeaderLengthBefore(block, headerBytes);
  FreeToCache(cache, block);
}

TEST(CacheFree, OfAMandatoryBlockWithAWrongHeaderLengthIsAnAssertion) {
  EXPECT_ASSERTION(FreeMandatoryWithLength(64), "pHdr->hlen == MEMORY_BLOCK_MANDATORY_HEADER_SIZE",
                   kSource, 218);
}

// ---- Filling ----

TEST_F(CacheRules, FillingGoesUpToTheTargets) {
  Add(3, 1);
  CacheTargets targets = {};
  targets.counts[0] = 2;
  targets.counts[3] = 3;
  targets.counts[10] = 1;
  watch_.Forget();
  FillCache(cache_, targets);
  EXPECT_EQ(watch_.sizes(), (Sizes{65, 65, 72, 72, 1088}));
  ExpectConsistent();
  FillCache(cache_, targets);
  EXPECT_EQ(watch_.sizes().size(), 5u);
  void* block = AllocateFromCache(cache_, 1000, AD_POLICY_FULL);
  ExpectHeader(block, 10, AD_POLICY_FULL);
  EXPECT_EQ(watch_.sizes().size(), 5u);
  FreeToCache(cache_, block);
}

TEST_F(CacheRules, FillingStopsOnceTheLimitIsExceeded) {
  CacheTargets targets = {};
  targets.counts[12] = 5;  // 4160 bytes each
  targets.counts[13] = 1;
  FillCache(cache_, targets);
  EXPECT_EQ(watch_.sizes(), (Sizes{4160, 4160, 4160}));
  ExpectConsistent();
  targets.counts[0] = 1;
  FillCache(cache_, targets);
  EXPECT_EQ(watch_.sizes().size(), 3u);
}

TEST_F(CacheRules, FillingAlsoStopsBetweenClasses) {
  CacheTargets targets = {};
  targets.counts[14] = 1;  // exceeds the limit by itself
  targets.counts[15] = 1;
  FillCache(cache_, targets);
  EXPECT_EQ(watch_.sizes(), Sizes{(1 << 14) + 64});
}

TEST_F(CacheRules, FillingStopsWithoutMemory) {
  CacheTargets targets = {};
  targets.counts[0] = 2;
  targets.counts[1] = 2;
  watch_.FailAfter(1);
  FillCache(cache_, targets);
  EXPECT_EQ(watch_.sizes(), (Sizes{65, 65}));
  ExpectConsistent();
}

// ---- Trimming ----

TEST_F(CacheRules, TrimmingToTheTargetsFreesTheLargestClassFirst) {
  Add(2, 3);
  Add(10, 2);
  const Freed expected = {cache_->lists[10], cache_->lists[10]->next, cache_->lists[2]};
  CacheTargets targets = {};
  targets.counts[2] = 2;
  targets.counts[20] = 7;
  watch_.Forget();
  TrimCache(cache_, 0xFFFFFFFF, targets);
  EXPECT_EQ(watch_.freed(), expected);
  EXPECT_EQ(cache_->counts[2], 2u);
  ExpectConsistent();
}

TEST_F(CacheRules, TrimmingToBytesStopsAtThatNumber) {
  Add(2, 3);   // 68 bytes each
  Add(10, 2);  // 1088 bytes each
  const Freed expected = {cache_->lists[10], cache_->lists[10]->next, cache_->lists[2]};
  watch_.Forget();
  TrimCache(cache_, 2 * 1088 + 3 * 68, kNoTargets);
  EXPECT_TRUE(watch_.freed().empty());
  TrimCache(cache_, 2 * 1088 + 3 * 68 - 1, kNoTargets);
  EXPECT_EQ(watch_.freed().size(), 1u);
  TrimCache(cache_, 136, kNoTargets);
  EXPECT_EQ(watch_.freed(), expected);
  EXPECT_EQ(cache_->cachedBytes, 136u);
  ExpectConsistent();
  TrimCache(cache_, 0, kNoTargets);
  EXPECT_EQ(cache_->cachedBytes, 0u);
  ExpectConsistent();
}

TEST_F(CacheRules, TrimmingToOtherNumbersWithTheTopBitDoesNothing) {
  Add(2, 3);
  watch_.Forget();
  constexpr uint64_t kMoreThanAnyNumber = UINT64_C(1) << 40;
  cache_->cachedBytes += kMoreThanAnyNumber;
  for (const uint32_t keep : {0x80000000u, 0x80000001u, 0xFFFFFFFEu}) {
    TrimCache(cache_, keep, kNoTargets);
  }
  cache_->cachedBytes -= kMoreThanAnyNumber;
  TrimCache(cache_, 0x7FFFFFFF, kNoTargets);
  EXPECT_TRUE(watch_.freed().empty());
}

TEST_F(CacheRules, TheLastClassIsFilledAndTrimmed) {
  CacheTargets targets = {};
  targets.counts[31] = 1;
  watch_.FailAfter(0);
  FillCache(cache_, targets);
  EXPECT_EQ(watch_.sizes(), Sizes{(UINT64_C(1) << 31) + 64});
  watch_.FailNoMore();
  kiv::PushBlock(cache_, static_cast<kiv::FullBlock*>(std::malloc(64)), 31);
  ExpectConsistent();
  TrimCache(cache_, 0, kNoTargets);
  EXPECT_EQ(cache_->counts[31], 0u);
  ExpectConsistent();
}

}  // namespace
