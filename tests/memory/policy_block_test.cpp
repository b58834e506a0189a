// Blocks with policy headers: size classes, the bytes of the headers, and how a free and a
// reallocation recognise a block. No thread has a cache here; thread_cache_test covers caches.
#include "memheap/policy_block.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/policy.h"
#include "support/process.h"
#include "support/runtime_watch.h"
#include "support/sanitizers.h"

namespace {

using kiv::PayloadSize;
using kiv::PayloadSizeOf;
using kiv::RoundToClass;
using kiv::test::Allocate;
using kiv::test::ExpectHeader;
using kiv::test::Fill;
using kiv::test::Free;
using kiv::test::HeaderBefore;
using kiv::test::IsFilled;
using kiv::test::kFullHeader;
using kiv::test::kMandatoryHeader;
using kiv::test::kTwoMebibytes;
using kiv::test::ManagerSwitchedOn;
using kiv::test::Reallocate;
using kiv::test::RuntimeWatch;

using Sizes = std::vector<size_t>;
using Freed = std::vector<const void*>;

char* Bytes(void* block) { return static_cast<char*>(block); }

// ---- Size classes ----

// A second way to round to a class: shifts, ors and five bit tests.
uint32_t ShiftedPower(uint32_t size) {
  uint32_t bits = size - 1;
  for (const uint32_t shift : {1u, 2u, 4u, 8u, 16u}) bits |= bits >> shift;
  return bits + 1;
}

uint32_t TestedExponent(uint32_t power) {
  uint32_t exponent = 0;
  if (power >= 0x10000) exponent += 16;
  if ((power & 0xFF00FF00) != 0) exponent += 8;
  if ((power & 0xF0F0F0F0) != 0) exponent += 4;
  if ((power & 0xCCCCCCCC) != 0) exponent += 2;
  if ((power & 0xAAAAAAAA) != 0) exponent += 1;
  return exponent;
}

void ExpectRounded(uint32_t size) {
  const uint32_t power = ShiftedPower(size);
  const PayloadSize rounded = RoundToClass(size);
  ASSERT_EQ(rounded.sizeBytes, power) << size;
  ASSERT_EQ(rounded.sizeClass, TestedExponent(power)) << size;
  if (size == 0 || size > kiv::kLargestRoundedBytes) return;
  const PayloadSize small = kiv::RoundSmallToClass(size);
  ASSERT_EQ(small.sizeBytes, rounded.sizeBytes) << size;
  ASSERT_EQ(small.sizeClass, rounded.sizeClass) << size;
}

TEST(SizeClasses, ArePowersOfTwoTakenIn32Bits) {
  for (uint32_t size = 0; size < 100000; ++size) ExpectRounded(size);
  for (uint32_t exponent = 0; exponent < 32; ++exponent) {
    for (const uint32_t beside : {UINT32_MAX, 0u, 1u}) ExpectRounded((1u << exponent) + beside);
  }
  ExpectRounded(UINT32_MAX);
  std::mt19937 random(20260101);
  for (int i = 0; i < 1000000; ++i) ExpectRounded(static_cast<uint32_t>(random()));
}

TEST(SizeClasses, OfOneAndOfZeroAreZero) {
  EXPECT_EQ(RoundToClass(1).sizeBytes, 1u);
  EXPECT_EQ(RoundToClass(1).sizeClass, 0u);
  EXPECT_EQ(RoundToClass(0).sizeBytes, 0u);
  EXPECT_EQ(RoundToClass(0).sizeClass, 0u);
}

TEST(SizeClasses, AreTheBitWidthAboveTwoMebibytes) {
  const struct {
    uint64_t size;
    uint64_t payload;
    uint32_t sizeClass;
  } cases[] = {{kTwoMebibytes - 1, kTwoMebibytes, 21},
               {kTwoMebibytes, kTwoMebibytes, 21},
               {kTwoMebibytes + 1, kTwoMebibytes + 1, 22},
               {2 * kTwoMebibytes - 1, 2 * kTwoMebibytes - 1, 22},
               {2 * kTwoMebibytes, 2 * kTwoMebibytes, 23},
               {UINT64_C(1) << 32, UINT64_C(1) << 32, 33},
               {UINT64_MAX, UINT64_MAX, 64}};
  for (const auto& [size, payload, sizeClass] : cases) {
    EXPECT_EQ(PayloadSizeOf(size, AD_POLICY_FULL).sizeBytes, payload) << size;
    EXPECT_EQ(PayloadSizeOf(size, AD_POLICY_FULL).sizeClass, sizeClass) << size;
    EXPECT_EQ(PayloadSizeOf(size, AD_POLICY_MANDATORY).sizeBytes, size);
    EXPECT_EQ(PayloadSizeOf(size, AD_POLICY_MANDATORY).sizeClass, 0u);
  }
}

// ---- Headers ----

TEST(MandatoryPolicy, TakesEightBytesMoreThanTheRequest) {
  const ManagerSwitchedOn on;
  RuntimeWatch watch;
  for (const uint64_t size : {uint64_t{1}, uint64_t{100}, kTwoMebibytes, kTwoMebibytes + 1}) {
    watch.Forget();
    void* block = Allocate(size, AD_POLICY_MANDATORY);
    EXPECT_EQ(watch.sizes(), (Sizes{size + 8}));
    ExpectHeader(block, 0, AD_POLICY_MANDATORY);
    Fill(block, size);
    ExpectHeader(block, 0, AD_POLICY_MANDATORY);
    Free(block);
    EXPECT_EQ(watch.freed(), (Freed{Bytes(block) - 8}));
  }
}

TEST(FullPolicy, TakesSixtyFourBytesMoreThanTheRoundedRequest) {
  const ManagerSwitchedOn on;
  RuntimeWatch watch;
  const struct {
    uint64_t size;
    uint64_t payload;
    uint32_t sizeClass;
  } cases[] = {{1, 1, 0},
               {2, 2, 1},
               {3, 4, 2},
               {100, 128, 7},
               {128, 128, 7},
               {129, 256, 8},
               {kTwoMebibytes / 2 + 1, kTwoMebibytes, 21},
               {kTwoMebibytes, kTwoMebibytes, 21},
               {kTwoMebibytes + 1, kTwoMebibytes + 1, 22}};
  for (const auto& [size, payload, sizeClass] : cases) {
    watch.Forget();
    void* block = Allocate(size);
    EXPECT_EQ(watch.sizes(), (Sizes{payload + 64}));
    ExpectHeader(block, sizeClass, AD_POLICY_FULL);
    Fill(block, payload);
    ExpectHeader(block, sizeClass, AD_POLICY_FULL);
    Free(block);
    EXPECT_EQ(watch.freed(), (Freed{Bytes(block) - 64}));
  }
}

TEST(FullPolicy, IsUsedByEveryOtherEntryPoint) {
  const ManagerSwitchedOn on;
  void* block = nullptr;
  ASSERT_EQ(adMalloc(nullptr, 100, &block, nullptr, 0), KIV_ST_OK);
  ExpectHeader(block, 7, AD_POLICY_FULL);
  Free(block);
  ASSERT_EQ(adRealloc(nullptr, 100, nullptr, &block, nullptr, 0), KIV_ST_OK);
  ExpectHeader(block, 7, AD_POLICY_FULL);
  Free(block);
}

// Expects that all bytes before the payload still have the fill, except the given ones.
void ExpectFillBut(void* payload, size_t headerBytes, size_t writtenFrom, unsigned char fill) {
  const auto* start = static_cast<unsigned char*>(payload) - headerBytes;
  for (size_t i = 0; i < headerBytes; ++i) {
    const size_t fromEnd = headerBytes - i;
    const bool written = i >= writtenFrom && (fromEnd > 4 || fromEnd < 3);
    EXPECT_EQ(start[i] == fill, !written) << "byte " << i;
  }
}

TEST(PolicyHeaders, LeaveUnnamedBytesUnchanged) {
  constexpr unsigned char kFill = 0xEE;
  const ManagerSwitchedOn on;
  RuntimeWatch watch;
  watch.FillWith(kFill);
  void* mandatory = Allocate(100, AD_POLICY_MANDATORY);
  void* full = Allocate(100);
  ExpectFillBut(mandatory, kMandatoryHeader, 0, kFill);
  ExpectFillBut(full, kFullHeader, 56, kFill);
  Free(mandatory);
  Free(full);
}

TEST(PolicyHeaders, AreWrittenForEveryNonZeroSwitch) {
  for (const uint32_t flag : {1u, 2u, 255u}) {
    const ManagerSwitchedOn on(static_cast<uint8_t>(flag));
    void* block = Allocate(100);
    ExpectHeader(block, 7, AD_POLICY_FULL);
    Free(block);
  }
}

TEST(PolicyHeaders, AreMissingWithTheSwitchOff) {
  RuntimeWatch watch;
  for (const uint8_t policy : {uint8_t{AD_POLICY_MANDATORY}, uint8_t{AD_POLICY_FULL}}) {
    watch.Forget();
    void* block = Allocate(100, policy);
    void* moved = Reallocate(block, 300);
    EXPECT_EQ(watch.resized(), (std::vector<RuntimeWatch::Resized>{{block, 300}}));
    Free(moved);
    EXPECT_EQ(watch.sizes(), (Sizes{100}));
    EXPECT_EQ(watch.freed(), (Freed{moved}));
  }
}

TEST(PolicyBlocks, OfASizeThatOverflowsAreOutOfMemory) {
  const ManagerSwitchedOn on;
  RuntimeWatch watch;
  for (const uint64_t size : {UINT64_MAX, UINT64_MAX - 63}) {
    EXPECT_EQ(Allocate(size), nullptr);
  }
  for (const uint64_t size : {UINT64_MAX, UINT64_MAX - 7}) {
    EXPECT_EQ(Allocate(size, AD_POLICY_MANDATORY), nullptr);
  }
  EXPECT_EQ(watch.sizes(), Sizes{});
  watch.FailAfter(0);
  EXPECT_EQ(Allocate(UINT64_MAX - 64), nullptr);
  EXPECT_EQ(Allocate(UINT64_MAX - 8, AD_POLICY_MANDATORY), nullptr);
  EXPECT_EQ(watch.sizes(), (Sizes{UINT64_MAX, UINT64_MAX}));
}

TEST(PolicyBlocks, WithoutMemoryAreNull) {
  const ManagerSwitchedOn on;
  RuntimeWatch watch;
  watch.FailAfter(0);
  EXPECT_EQ(Allocate(100), nullptr);
  EXPECT_EQ(Allocate(100, AD_POLICY_MANDATORY), nullptr);
  EXPECT_EQ(Allocate(kTwoMebibytes + 1), nullptr);
  EXPECT_EQ(watch.sizes(), (Sizes{192, 108, kTwoMebibytes + 65}));
}

// ---- Reallocation ----

TEST(PolicyReallocation, KeepsABlockOfTheSameClassInPlace) {
  const ManagerSwitchedOn on;
  void* block = Allocate(100);
  Fill(block, 100);
  RuntimeWatch watch;
  for (const uint64_t size : {128u, 65u, 100u}) EXPECT_EQ(Reallocate(block, size), block);
  EXPECT_TRUE(IsFilled(block, 100));
  ExpectHeader(block, 7, AD_POLICY_FULL);
  void* largest = Allocate(kTwoMebibytes);
  EXPECT_EQ(Reallocate(largest, kTwoMebibytes / 2 + 1), largest);
  EXPECT_TRUE(watch.resized().empty());
  Free(block);
  Free(largest);
}

TEST(PolicyReallocation, MovesABlockOfAnotherClassWithItsHeader) {
  const ManagerSwitchedOn on;
  void* block = Allocate(100);
  Fill(block, 100);
  RuntimeWatch watch;
  uint64_t kept = 100;
  const struct {
    uint64_t size;
    uint64_t payload;
    uint32_t sizeClass;
  } cases[] = {{129, 256, 8},
               {5000, 8192, 13},
               {kTwoMebibytes, kTwoMebibytes, 21},
               {kTwoMebibytes + 1, kTwoMebibytes + 1, 22},
               {64, 64, 6},
               {1, 1, 0}};
  for (const auto& [size, payload, sizeClass] : cases) {
    watch.Forget();
    char* raw = Bytes(block) - 64;
    block = Reallocate(block, size);
    EXPECT_EQ(watch.resized(), (std::vector<RuntimeWatch::Resized>{{raw, payload + 64}}));
    kept = std::min(kept, size);
    EXPECT_TRUE(IsFilled(block, kept));
    ExpectHeader(block, sizeClass, AD_POLICY_FULL);
  }
  Free(block);
}

TEST(PolicyReallocation, OfALargeBlockGoesToTheRuntimeEvenWithinItsClass) {
  const ManagerSwitchedOn on;
  void* block = Allocate(kTwoMebibytes + 1);
  Fill(block, 1000);
  RuntimeWatch watch;
  char* raw = Bytes(block) - 64;
  block = Reallocate(block, kTwoMebibytes + 2);
  EXPECT_EQ(watch.resized(), (std::vector<RuntimeWatch::Resized>{{raw, kTwoMebibytes + 66}}));
  ExpectHeader(block, 22, AD_POLICY_FULL);
  EXPECT_TRUE(IsFilled(block, 1000));
  Free(block);
}

TEST(PolicyReallocation, OfAMandatoryBlockAlwaysGoesToTheRuntime) {
  const ManagerSwitchedOn on;
  void* block = Allocate(100, AD_POLICY_MANDATORY);
  Fill(block, 100);
  RuntimeWatch watch;
  for (const uint64_t size : {uint64_t{100}, uint64_t{101}, kTwoMebibytes + 1}) {
    watch.Forget();
    char* raw = Bytes(block) - 8;
    block = Reallocate(block, size);
    EXPECT_EQ(watch.resized(), (std::vector<RuntimeWatch::Resized>{{raw, size + 8}}));
    ExpectHeader(block, 0, AD_POLICY_MANDATORY);
    EXPECT_TRUE(IsFilled(block, 100));
  }
  Free(block);
}

TEST(PolicyReallocation, ClearsThePolicyWhileTheRuntimeHasTheBlock) {
  const ManagerSwitchedOn on;
  for (const uint8_t policy : {uint8_t{AD_POLICY_MANDATORY}, uint8_t{AD_POLICY_FULL}}) {
    void* block = Allocate(100, policy);
    RuntimeWatch watch;
    int shown = 0;
    watch.Show([&](const void*) {
      ++shown;
      EXPECT_EQ(HeaderBefore(block).policy, 0);
    });
    void* moved = Reallocate(block, 10000);
    EXPECT_EQ(shown, 1);
    watch.Show(nullptr);
    Free(moved);
  }
}

TEST(PolicyReallocation, WithoutMemoryLeavesTheBlockUnchanged) {
  const ManagerSwitchedOn on;
  for (const uint8_t policy : {uint8_t{AD_POLICY_MANDATORY}, uint8_t{AD_POLICY_FULL}}) {
    const uint32_t sizeClass = policy == AD_POLICY_FULL ? 7 : 0;
    void* block = Allocate(100, policy);
    Fill(block, 100);
    RuntimeWatch watch;
    watch.FailAfter(0);
    EXPECT_EQ(Reallocate(block, 10000), nullptr);
    EXPECT_EQ(watch.resized().size(), 1u);
    // If the size with its header overflows, the runtime is not called.
    EXPECT_EQ(Reallocate(block, UINT64_MAX - 7), nullptr);
    EXPECT_EQ(watch.resized().size(), 1u);
    ExpectHeader(block, sizeClass, policy);
    EXPECT_TRUE(IsFilled(block, 100));
    watch.FailNoMore();
    Free(block);
    EXPECT_EQ(watch.freed(), (Freed{Bytes(block) - (policy == AD_POLICY_FULL ? 64 : 8)}));
  }
}

void ReallocateWithPolicyZero() {
  KivSdSetMemoryManager(1);
  void* block = Allocate(100);
  kiv::test::WritePolicyBefore(block, 0);
  Reallocate(block, 100);
}

TEST(PolicyReallocation, OfPolicyZeroIsAnAssertion) {
  EXPECT_ASSERTION(ReallocateWithPolicyZero(), "policy != 0", "sd/memheap", 246);
}

// ---- Recognition ----

// A payload in the test's own memory, so that the bytes before it can have any value.
class MadeUpBlock : public testing::Test {
 protected:
  static constexpr size_t kPayloadAt = 256;
  static constexpr size_t kPlaceBytes = 512;

  void* payload() { return place_ + kPayloadAt; }

  void Write(uint8_t policy, uint8_t headerBytes, uint32_t sizeClass) {
    kiv::test::WritePolicyBefore(payload(), policy);
    kiv::test::WriteHeaderLengthBefore(payload(), headerBytes);
    kiv::test::WriteClassBefore(payload(), sizeClass);
  }

  alignas(16) unsigned char place_[kPlaceBytes] = {};
  const ManagerSwitchedOn on_;
};

TEST_F(MadeUpBlock, IsFreedWithItsHeaderOnlyWhenPolicyAndLengthMatch) {
  RuntimeWatch watch;
  watch.Guard(place_, sizeof place_);
  for (uint32_t policy = 0; policy < 256; ++policy) {
    for (uint32_t length = 0; length < 256; ++length) {
      watch.Forget();
      Write(static_cast<uint8_t>(policy), static_cast<uint8_t>(length), 7);
      Free(payload());
      const bool headed = (policy == 1 && length == 8) || (policy == 2 && length == 64);
      ASSERT_EQ(watch.freed(), (Freed{Bytes(payload()) - (headed ? length : 0)}))
          << policy << " " << length;
    }
  }
}

TEST_F(MadeUpBlock, WithoutAHeaderIsResizedAtItsOwnAddress) {
  RuntimeWatch watch;
  watch.Guard(place_, sizeof place_);
  for (uint32_t policy = 1; policy < 256; ++policy) {
    for (const uint8_t length : {uint8_t{0}, uint8_t{8}, uint8_t{64}, uint8_t{255}}) {
      if ((policy == 1 && length == 8) || (policy == 2 && length == 64)) continue;
      watch.Forget();
      Write(static_cast<uint8_t>(policy), length, 7);
      EXPECT_EQ(Reallocate(payload(), 100), nullptr);
      ASSERT_EQ(watch.resized(), (std::vector<RuntimeWatch::Resized>{{payload(), 100}}));
      ASSERT_EQ(HeaderBefore(payload()).policy, policy);
    }
  }
}

TEST_F(MadeUpBlock, IsFreedAtItsOwnAddressWithTheSwitchOff) {
  RuntimeWatch watch;
  watch.Guard(place_, sizeof place_);
  Write(2, 64, 7);
  KivSdSetMemoryManager(0);
  Free(payload());
  EXPECT_EQ(watch.freed(), (Freed{payload()}));
}

TEST(PolicyBlocks, MayBeFreedByOtherThreads) {
  const ManagerSwitchedOn on;
  std::vector<void*> blocks;
  for (uint32_t i = 0; i < 1000; ++i) {
    blocks.push_back(Allocate(i + 1, i % 2 == 0 ? AD_POLICY_FULL : AD_POLICY_MANDATORY));
  }
  std::thread([&] {
    for (void* block : blocks) Free(block);
  }).join();
}

TEST(RuntimeBlock, FromBeforeTheSwitchIsFreedAtItsOwnAddress) {
  if (kiv::test::kUnderAddressSanitizer || kiv::test::kUnderThreadSanitizer) {
    GTEST_SKIP() << "the sanitizer's allocator keeps its own data before a block";
  }
  std::vector<void*> blocks;
  for (const uint64_t size : {uint64_t{1}, uint64_t{100}, uint64_t{5000}, kTwoMebibytes}) {
    blocks.push_back(Allocate(size));
  }
  const ManagerSwitchedOn on;
  RuntimeWatch watch;
  for (void* block : blocks) Free(block);
  EXPECT_EQ(watch.freed(), Freed(blocks.begin(), blocks.end()));
}

}  // namespace
