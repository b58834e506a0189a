// Atomic operations: results, widths, signs and wraps; the two waits; the getters of the tuning.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>

#include "kivsdu/sync.h"
#include "support/store_buffering.h"
#include "support/threads.h"

namespace {

using kiv::test::BothMissed;
using kiv::test::OnThreads;

constexpr uint32_t kThreads = 4;
constexpr uint64_t kPattern = 0xA5A5A5A5A5A5A5A5;

// ---- 32 bits ----

// A target between two neighbours, which must stay unchanged.
struct Between32 {
  uint32_t before = 0xA5A5A5A5;
  int32_t target = 0;
  uint32_t after = 0xA5A5A5A5;

  bool NeighboursAreUntouched() const { return before == 0xA5A5A5A5 && after == 0xA5A5A5A5; }
};

struct Sum {
  int32_t before;
  int32_t addend;
  int32_t after;
};
const Sum kSums[] = {
    {0, 0, 0},
    {0, 5, 5},
    {5, -7, -2},
    {-1, 1, 0},
    {-2, -3, -5},
    {INT32_MAX, 1, INT32_MIN},
    {INT32_MIN, -1, INT32_MAX},
    {INT32_MIN, INT32_MIN, 0},
    {INT32_MAX, INT32_MAX, -2},
    {INT32_MIN, INT32_MAX, -1},
};

TEST(AtomicAdd, ReturnsTheSignExtendedOldValueAndWrapsAt32Bits) {
  for (const Sum& sum : kSums) {
    SCOPED_TRACE(testing::Message() << sum.before << " + " << sum.addend);
    Between32 word;
    word.target = sum.before;
    EXPECT_EQ(KivSdAtomicAdd(&word.target, sum.addend), int64_t{sum.before});
    EXPECT_EQ(word.target, sum.after);
    EXPECT_TRUE(word.NeighboursAreUntouched());
  }
}

TEST(AtomicIncrement, AddsOne) {
  for (const int32_t before : {0, 1, -1, -2, INT32_MIN, INT32_MAX - 1}) {
    Between32 word;
    word.target = before;
    EXPECT_EQ(KivSdAtomicIncrement(&word.target), int64_t{before});
    EXPECT_EQ(word.target, before + 1);
    EXPECT_TRUE(word.NeighboursAreUntouched());
  }
}

TEST(AtomicIncrement, WrapsToTheSmallestValue) {
  Between32 word;
  word.target = 0x7FFFFFFF;
  EXPECT_EQ(KivSdAtomicIncrement(&word.target), 2147483647);
  EXPECT_EQ(word.target, INT32_MIN);
  EXPECT_EQ(KivSdAtomicIncrement(&word.target), -2147483648LL);
  EXPECT_TRUE(word.NeighboursAreUntouched());
}

TEST(AtomicDecrement, SubtractsOne) {
  for (const int32_t before : {0, 1, -1, INT32_MAX, INT32_MIN + 1}) {
    Between32 word;
    word.target = before;
    EXPECT_EQ(KivSdAtomicDecrement(&word.target), int64_t{before});
    EXPECT_EQ(word.target, before - 1);
    EXPECT_TRUE(word.NeighboursAreUntouched());
  }
}

TEST(AtomicDecrement, WrapsToTheLargestValue) {
  Between32 word;
  word.target = INT32_MIN;
  EXPECT_EQ(KivSdAtomicDecrement(&word.target), int64_t{INT32_MIN});
  EXPECT_EQ(word.target, INT32_MAX);
  EXPECT_TRUE(word.NeighboursAreUntouched());
}

TEST(AtomicAdd, LosesNoUpdateBetweenThreads) {
  constexpr int32_t kRounds = 10000;
  int32_t up = 0;
  int32_t down = 0;
  int32_t sum = 0;
  OnThreads(kThreads, [&](uint32_t number) {
    for (int32_t round = 0; round < kRounds; ++round) {
      KivSdAtomicIncrement(&up);
      KivSdAtomicDecrement(&down);
      KivSdAtomicAdd(&sum, static_cast<int32_t>(number) - 7);
    }
  });
  EXPECT_EQ(up, int32_t{kThreads} * kRounds);
  EXPECT_EQ(down, -int32_t{kThreads} * kRounds);
  EXPECT_EQ(sum, (0 + 1 + 2 + 3 - 7 * int32_t{kThreads}) * kRounds);
}

// ---- 64 bits ----

struct Between64 {
  uint64_t before = kPattern;
  uint64_t target = 0;
  uint64_t after = kPattern;

  bool NeighboursAreUntouched() const { return before == kPattern && after == kPattern; }
};

TEST(CmpXchgPtr, StoresWhenAll64BitsMatch) {
  for (const uint64_t expected : {uint64_t{0}, uint64_t{1}, kPattern, UINT64_MAX}) {
    Between64 word;
    word.target = expected;
    EXPECT_EQ(KivSdCmpXchgPtr(expected, ~expected, &word.target), 1);
    EXPECT_EQ(word.target, ~expected);
    EXPECT_TRUE(word.NeighboursAreUntouched());
  }
}

TEST(CmpXchgPtr, StoresNothingWhenAnyBitDiffers) {
  for (uint32_t bit = 0; bit < 64; ++bit) {
    Between64 word;
    word.target = kPattern ^ (uint64_t{1} << bit);
    const uint64_t before = word.target;
    EXPECT_EQ(KivSdCmpXchgPtr(kPattern, 1, &word.target), 0) << "bit " << bit;
    EXPECT_EQ(word.target, before);
  }
}

TEST(CmpXchgPtr, SucceedsWhenTheNewValueEqualsTheOld) {
  uint64_t word = 5;
  EXPECT_EQ(KivSdCmpXchgPtr(5, 5, &word), 1);
  EXPECT_EQ(word, 5u);
}

TEST(CmpXchg2, AlwaysReturnsFalse) { EXPECT_EQ(KivSdCmpXchg2(), 0); }

TEST(AtomicSet, ChangesOnlyZeroToOne) {
  for (const uint64_t before :
       {uint64_t{0}, uint64_t{1}, uint64_t{2}, uint64_t{1} << 32, UINT64_MAX}) {
    Between64 word;
    word.target = before;
    EXPECT_EQ(KivSdAtomicSet(&word.target), before);
    EXPECT_EQ(word.target, before == 0 ? 1 : before);
    EXPECT_TRUE(word.NeighboursAreUntouched());
  }
}

TEST(AtomicUnset, ChangesOnlyOneToZero) {
  for (const uint64_t before :
       {uint64_t{0}, uint64_t{1}, uint64_t{2}, (uint64_t{1} << 32) + 1, UINT64_MAX}) {
    Between64 word;
    word.target = before;
    EXPECT_EQ(KivSdAtomicUnset(&word.target), before);
    EXPECT_EQ(word.target, before == 1 ? 0 : before);
    EXPECT_TRUE(word.NeighboursAreUntouched());
  }
}

TEST(AtomicSet, WorksAsALockForOneThreadAtATime) {
  constexpr int32_t kRounds = 2000;
  uint64_t word = 0;
  int32_t count = 0;  // guarded by the word
  OnThreads(kThreads, [&](uint32_t) {
    for (int32_t round = 0; round < kRounds; ++round) {
      while (KivSdAtomicSet(&word) != 0) std::this_thread::yield();
      ++count;
      EXPECT_EQ(KivSdAtomicUnset(&word), 1u);
    }
  });
  EXPECT_EQ(count, int32_t{kThreads} * kRounds);
  EXPECT_EQ(word, 0u);
}

TEST(AtomicCompareAndSwap, SignExtendsBothValues) {
  const int32_t values[] = {0, 1, -1, INT32_MIN, INT32_MAX};
  for (const int32_t expected : values) {
    for (const int32_t newValue : values) {
      SCOPED_TRACE(testing::Message() << expected << " to " << newValue);
      Between64 word;
      word.target = static_cast<uint64_t>(int64_t{expected});
      EXPECT_EQ(KivSdAtomicCompareAndSwap(&word.target, expected, newValue), 1);
      EXPECT_EQ(word.target, static_cast<uint64_t>(int64_t{newValue}));
      EXPECT_TRUE(word.NeighboursAreUntouched());
    }
  }
}

TEST(AtomicCompareAndSwap, ComparesTheHighHalfToo) {
  for (const uint64_t before : {uint64_t{0xFFFFFFFF}, (uint64_t{1} << 32) + 5, uint64_t{6}}) {
    uint64_t word = before;
    EXPECT_EQ(KivSdAtomicCompareAndSwap(&word, -1, 0), 0);
    EXPECT_EQ(KivSdAtomicCompareAndSwap(&word, 5, 0), 0);
    EXPECT_EQ(word, before);
  }
}

// ---- Order ----

// Every operation that is a full barrier; a compare-and-swap both when it stores and when it fails.
struct Barrier {
  const char* name;
  void (*make)(uint64_t* word);  // called on a word that holds 0 and that no other thread uses
};

// The target of a 32-bit operation.
int32_t* Low(uint64_t* word) { return reinterpret_cast<int32_t*>(word); }
uint8_t* Byte(uint64_t* word) { return reinterpret_cast<uint8_t*>(word); }

const Barrier kBarriers[] = {
    {"MemoryBarrier", [](uint64_t*) { KivSdMemoryBarrier(); }},
    {"CmpXchgPtrThatStores", [](uint64_t* word) { KivSdCmpXchgPtr(0, 1, word); }},
    {"CmpXchgPtrThatDoesNot", [](uint64_t* word) { KivSdCmpXchgPtr(1, 2, word); }},
    {"AtomicAdd", [](uint64_t* word) { KivSdAtomicAdd(Low(word), 0); }},
    {"AtomicIncrement", [](uint64_t* word) { KivSdAtomicIncrement(Low(word)); }},
    {"AtomicDecrement", [](uint64_t* word) { KivSdAtomicDecrement(Low(word)); }},
    {"AtomicSet", [](uint64_t* word) { KivSdAtomicSet(word); }},
    {"AtomicUnsetThatDoesNot", [](uint64_t* word) { KivSdAtomicUnset(word); }},
    {"AtomicCompareAndSwap", [](uint64_t* word) { KivSdAtomicCompareAndSwap(word, 0, 1); }},
    {"WaitUntilFalse", [](uint64_t* word) { KivSdWaitUntilFalse(Byte(word)); }},
    {"WaitUntilTrue",
     [](uint64_t*) {
       static const uint8_t always = 1;
       KivSdWaitUntilTrue(&always);
     }},
};

class AtomicBarrier : public testing::TestWithParam<Barrier> {};

TEST_P(AtomicBarrier, OrdersAReadAfterAnEarlierWrite) {
  struct alignas(64) Line {
    uint64_t word;
  };
  Line lines[2];
  EXPECT_EQ(BothMissed([&](uint32_t number) { lines[number].word = 0; },
                       [&](uint32_t number) { GetParam().make(&lines[number].word); }),
            0);
}

INSTANTIATE_TEST_SUITE_P(Of, AtomicBarrier, testing::ValuesIn(kBarriers),
                         [](const auto& barrier) { return barrier.param.name; });

// ---- Waits ----

TEST(WaitUntilTrue, ReturnsANonZeroByteAtOnce) {
  for (const uint8_t value : {uint8_t{1}, uint8_t{2}, uint8_t{0x80}, uint8_t{0xFF}}) {
    EXPECT_EQ(KivSdWaitUntilTrue(&value), value);
  }
}

TEST(WaitUntilFalse, ReturnsAtOnceOnZero) {
  const uint8_t value[] = {0xFF, 0, 0xFF};
  EXPECT_EQ(KivSdWaitUntilFalse(&value[1]), 0);
}

// Starts a thread that waits, and sets the byte when that thread is about to wait.
template <typename Wait>
uint8_t SetWhileWaiting(Wait wait, uint8_t from, uint8_t to) {
  uint8_t flag = from;
  uint8_t result = 0xEE;
  int32_t written = 0;  // published by the byte
  int32_t seen = 0;
  std::atomic<bool> waiting{false};
  std::thread waiter([&] {
    waiting = true;
    result = wait(&flag);
    seen = written;
  });
  while (!waiting) std::this_thread::yield();
  written = 4711;
  std::atomic_ref<uint8_t>(flag).store(to, std::memory_order_release);
  waiter.join();
  EXPECT_EQ(seen, 4711);
  return result;
}

TEST(WaitUntilTrue, WaitsForAnotherThreadAndSeesWhatItWrote) {
  for (int32_t round = 0; round < 20; ++round) {
    EXPECT_EQ(SetWhileWaiting(KivSdWaitUntilTrue, 0, 0x80), 0x80);
  }
}

TEST(WaitUntilFalse, WaitsForAnotherThreadAndSeesWhatItWrote) {
  for (int32_t round = 0; round < 20; ++round) {
    EXPECT_EQ(SetWhileWaiting(KivSdWaitUntilFalse, 0x80, 0), 0);
  }
}

// ---- Tuning ----

TEST(SpinBudget, Is20000BeforeItIsMeasured) { EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, 20000); }

TEST(Spinlocks, AreNotListed) {
  EXPECT_EQ(KivSdGetSpinlockCount(), 0u);
  EXPECT_EQ(KivSdGetFirstAllocSpinlock(), nullptr);
}

}  // namespace
