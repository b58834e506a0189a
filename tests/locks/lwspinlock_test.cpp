// Lightweight spinlocks, both designs: layout, reentrance, exclusion, order of entry, and the
// assertion against releasing another thread's lock.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "kivsdu/spinlock.h"
#include "kivsdu/thread.h"
#include "support/block_count.h"
#include "support/lock_design.h"
#include "support/process.h"
#include "support/store_buffering.h"
#include "support/threads.h"

namespace {

using kiv::test::Await;
using kiv::test::BlockCount;
using kiv::test::BothMissed;
using kiv::test::FieldOf;
using kiv::test::kTestAndSet;
using kiv::test::kTicket;
using kiv::test::LockDesignTest;
using kiv::test::OnThreads;

constexpr uint64_t kPattern = 0xA5A5A5A5A5A5A5A5;
constexpr size_t kServing = 0;  // of the ticket design
constexpr size_t kNext = 8;
constexpr size_t kWord = 0;  // of the test-and-set design
constexpr size_t kMark = 4;
constexpr size_t kWords = 8;
constexpr size_t kTicketWords = 3;

uint32_t Me() {
  uint32_t id = 0;
  static_cast<void>(KivSdThreadIdGet(nullptr, &id));
  return id;
}

class LWSpinlock : public LockDesignTest {
 protected:
  LWSpinlock() {
    for (uint64_t& word : lock_.opaque) word = kPattern;
    EXPECT_EQ(KivSdLWSpinlockInit(&lock_), 0u);
  }

  template <typename T>
  T Field(size_t offset) {
    return FieldOf<T>(&lock_, offset).load();
  }
  uint32_t Owner() { return Field<uint32_t>(UsesTickets() ? 16 : 12); }
  int32_t Count() { return UsesTickets() ? Field<int32_t>(12) : Field<int16_t>(8); }
  bool IsHeld() {
    if (!UsesTickets()) return Field<uint32_t>(kWord) == 1;
    return Field<int64_t>(kServing) != int64_t{Field<int32_t>(kNext)};
  }

  KivSdLWSpinlock lock_;
};

class TicketLWSpinlock : public LWSpinlock {};
class WordLWSpinlock : public LWSpinlock {};

INSTANTIATE_TEST_SUITE_P(Design, LWSpinlock, testing::Values(kTestAndSet, kTicket),
                         kiv::test::DesignName);
INSTANTIATE_TEST_SUITE_P(Design, WordLWSpinlock, testing::Values(kTestAndSet),
                         kiv::test::DesignName);
INSTANTIATE_TEST_SUITE_P(Design, TicketLWSpinlock, testing::Values(kTicket), kiv::test::DesignName);

// ---- Layout ----

TEST_P(TicketLWSpinlock, InitZeroesItsThreeWordsAndNoMore) {
  for (size_t word = 0; word < kWords; ++word) {
    EXPECT_EQ(lock_.opaque[word], word < kTicketWords ? 0 : kPattern) << "word " << word;
  }
}

TEST_P(TicketLWSpinlock, DestroyZeroesItsThreeWordsAndNoMore) {
  KivSdLWSpinlockAcquire(&lock_);
  EXPECT_EQ(KivSdLWSpinlockDestroy(&lock_), 0u);
  for (size_t word = 0; word < kWords; ++word) {
    EXPECT_EQ(lock_.opaque[word], word < kTicketWords ? 0 : kPattern) << "word " << word;
  }
}

TEST_P(WordLWSpinlock, InitZeroesAllWordsAndSetsTheMark) {
  EXPECT_EQ(Field<uint32_t>(kWord), 0u);
  EXPECT_EQ(Field<uint32_t>(kMark), 256u);
  for (size_t word = 1; word < kWords; ++word) EXPECT_EQ(lock_.opaque[word], 0u);
}

TEST_P(WordLWSpinlock, DestroyClearsOwnerAndCountOnly) {
  KivSdLWSpinlockAcquire(&lock_);
  for (size_t word = 2; word < kWords; ++word) lock_.opaque[word] = kPattern;
  EXPECT_EQ(KivSdLWSpinlockDestroy(&lock_), 0u);
  EXPECT_EQ(Field<uint32_t>(kWord), 1u) << "left as it is";
  EXPECT_EQ(Field<uint32_t>(kMark), 256u);
  EXPECT_EQ(Field<int16_t>(8), 0);
  EXPECT_EQ(Field<uint32_t>(12), 0u);
  for (size_t word = 2; word < kWords; ++word) EXPECT_EQ(lock_.opaque[word], kPattern);
}

TEST_P(TicketLWSpinlock, KeepsItsFieldsInThreeWords) {
  for (int32_t entry = 0; entry < 3; ++entry) {
    KivSdLWSpinlockAcquire(&lock_);
    EXPECT_EQ(Field<int64_t>(kServing), entry);
    EXPECT_EQ(Field<int32_t>(kNext), entry + 1);
    EXPECT_EQ(Field<int32_t>(12), 1);
    EXPECT_EQ(Field<uint32_t>(16), Me());
    EXPECT_EQ(Field<uint32_t>(20), 0u);
    KivSdLWSpinlockRelease(&lock_);
    EXPECT_EQ(Field<int64_t>(kServing), entry + 1);
    EXPECT_EQ(Field<int32_t>(kNext), entry + 1);
    EXPECT_EQ(Field<int32_t>(12), 0);
    EXPECT_EQ(Field<uint32_t>(16), 0u);
  }
}

TEST_P(WordLWSpinlock, KeepsItsFieldsInTwoWords) {
  KivSdLWSpinlockAcquire(&lock_);
  EXPECT_EQ(Field<uint32_t>(kWord), 1u);
  EXPECT_EQ(Field<uint32_t>(kMark), 256u);
  EXPECT_EQ(Field<int16_t>(8), 1);
  EXPECT_EQ(Field<uint32_t>(12), Me());
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_EQ(Field<uint32_t>(kWord), 0u);
  EXPECT_EQ(Field<uint32_t>(kMark), 256u);
  EXPECT_EQ(Field<uint64_t>(8), 0u);
}

// ---- One thread ----

TEST(LWSpinlockDesign, IsTicketsForEveryFlagButZero) {
  KivSdSetHardwareAcceleration(kiv::test::kAnyOtherFlag);
  KivSdLWSpinlock lock;
  EXPECT_EQ(KivSdLWSpinlockInit(&lock), 0u);
  KivSdLWSpinlockAcquire(&lock);
  EXPECT_EQ(FieldOf<int32_t>(&lock, kNext).load(), 1);
  KivSdSetHardwareAcceleration(0);
}

TEST_P(LWSpinlock, IsHeldUntilReleasedAsOftenAsAcquired) {
  EXPECT_EQ(KivSdLWSpinlockOwner(&lock_), 0);
  for (int32_t depth = 1; depth <= 3; ++depth) {
    KivSdLWSpinlockAcquire(&lock_);
    EXPECT_EQ(Count(), depth);
    EXPECT_EQ(KivSdLWSpinlockOwner(&lock_), 1);
  }
  for (int32_t left = 2; left >= 1; --left) {
    KivSdLWSpinlockRelease(&lock_);
    EXPECT_EQ(Count(), left);
    EXPECT_TRUE(IsHeld());
    EXPECT_EQ(KivSdLWSpinlockOwner(&lock_), 1);
  }
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_EQ(Count(), 0);
  EXPECT_EQ(Owner(), 0u);
  EXPECT_FALSE(IsHeld());
  EXPECT_EQ(KivSdLWSpinlockOwner(&lock_), 0);
}

TEST_P(LWSpinlock, OwnerIsTheCallingThreadOnly) {
  KivSdLWSpinlockAcquire(&lock_);
  int32_t othersAnswer = -1;
  std::thread([&] { othersAnswer = KivSdLWSpinlockOwner(&lock_); }).join();
  EXPECT_EQ(othersAnswer, 0);
  KivSdLWSpinlockRelease(&lock_);
}

TEST_P(LWSpinlock, AllocatesAndFreesNoMemory) {
  const BlockCount count;
  for (int round = 0; round < 100; ++round) {
    KivSdLWSpinlock lock;
    EXPECT_EQ(KivSdLWSpinlockInit(&lock), 0u);
    KivSdLWSpinlockAcquire(&lock);
    KivSdLWSpinlockAcquire(&lock);
    KivSdLWSpinlockRelease(&lock);
    KivSdLWSpinlockRelease(&lock);
    EXPECT_EQ(KivSdLWSpinlockDestroy(&lock), 0u);
  }
  EXPECT_EQ(count.allocated(), 0u);
  EXPECT_EQ(count.freed(), 0u);
}

TEST_P(WordLWSpinlock, AReleaseBeforeTheFirstAcquireLeavesTheCountBelowZero) {
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_EQ(Count(), -1);
  EXPECT_FALSE(IsHeld());
  KivSdLWSpinlockAcquire(&lock_);
  EXPECT_EQ(Count(), 1) << "counted anew";
  EXPECT_TRUE(IsHeld());
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_FALSE(IsHeld());
}

// Unlike a heap-allocated spinlock, which is freed at 0 or below.
TEST_P(WordLWSpinlock, IsFreedAtExactlyZero) {
  KivSdLWSpinlockAcquire(&lock_);
  FieldOf<int16_t>(&lock_, 8) = 0;
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_EQ(Count(), -1);
  EXPECT_TRUE(IsHeld());
  EXPECT_EQ(KivSdLWSpinlockOwner(&lock_), 1);
}

TEST_P(TicketLWSpinlock, IsFreedAtExactlyZero) {
  KivSdLWSpinlockAcquire(&lock_);
  FieldOf<int32_t>(&lock_, 12) = 0;
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_EQ(Count(), -1);
  EXPECT_TRUE(IsHeld());
  EXPECT_EQ(KivSdLWSpinlockOwner(&lock_), 1);
}

TEST_P(WordLWSpinlock, CanBeReleasedByAnyThread) {
  std::thread([this] { KivSdLWSpinlockAcquire(&lock_); }).join();
  EXPECT_TRUE(IsHeld());
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_FALSE(IsHeld());
  EXPECT_EQ(Owner(), 0u);
}

TEST_P(WordLWSpinlock, HeldTwiceStaysHeldAfterOneReleaseByAnotherThread) {
  KivSdLWSpinlockAcquire(&lock_);
  KivSdLWSpinlockAcquire(&lock_);
  std::thread([this] { KivSdLWSpinlockRelease(&lock_); }).join();
  EXPECT_TRUE(IsHeld());
  EXPECT_EQ(Owner(), Me());
  EXPECT_EQ(Count(), 1);
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_FALSE(IsHeld());
  EXPECT_EQ(Owner(), 0u);
}

TEST_P(WordLWSpinlock, CountHas16Bits) {
  constexpr size_t kBehindCount = 10;
  KivSdLWSpinlockAcquire(&lock_);
  FieldOf<int16_t>(&lock_, 8) = INT16_MAX;
  KivSdLWSpinlockAcquire(&lock_);
  EXPECT_EQ(Count(), INT16_MIN);
  FieldOf<int16_t>(&lock_, 8) = -1;
  KivSdLWSpinlockAcquire(&lock_);
  EXPECT_EQ(Count(), 0);
  EXPECT_EQ(Field<uint16_t>(kBehindCount), 0u) << "no carry";
  // 65536 acquisitions leave a count of 0: one release undoes one more acquisition.
  KivSdLWSpinlockAcquire(&lock_);
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_FALSE(IsHeld());
  EXPECT_EQ(Field<uint16_t>(kBehindCount), 0u);
}

TEST(LWSpinlockAssertion, FailsOnReleaseByAThreadThatDoesNotHoldTheLock) {
  KivSdSetHardwareAcceleration(1);
  KivSdLWSpinlock lock;
  KivSdLWSpinlockInit(&lock);
  EXPECT_ASSERTION(KivSdLWSpinlockRelease(&lock), "ThdId == pLWLockticket->ThdId", "sd/sdlwsync",
                   302);
  std::thread([&] { KivSdLWSpinlockAcquire(&lock); }).join();
  EXPECT_ASSERTION(KivSdLWSpinlockRelease(&lock), "ThdId == pLWLockticket->ThdId", "sd/sdlwsync",
                   302);
  KivSdSetHardwareAcceleration(0);
}

// ---- Several threads ----

TEST_P(LWSpinlock, AdmitsOneThreadAtATime) {
  constexpr uint32_t kRoundsOfTwo = 1000;  // for 2 threads; fewer for more, as handovers take time
  for (const int32_t budget : {0, 200}) {
    KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = budget;
    for (const uint32_t threads : {2u, 3u, 8u, 16u}) {
      const uint32_t rounds = kRoundsOfTwo * 4 / (threads * threads);
      uint32_t count = 0;
      OnThreads(threads, [&](uint32_t) {
        for (uint32_t round = 0; round < rounds; ++round) {
          KivSdLWSpinlockAcquire(&lock_);
          if (round % 3 == 0) {
            KivSdLWSpinlockAcquire(&lock_);
            ++count;
            KivSdLWSpinlockRelease(&lock_);
          } else {
            ++count;
          }
          KivSdLWSpinlockRelease(&lock_);
        }
      });
      EXPECT_EQ(count, rounds * threads) << threads << " threads";
      EXPECT_FALSE(IsHeld());
    }
  }
}

TEST_P(TicketLWSpinlock, AdmitsThreadsInOrderOfArrival) {
  constexpr int32_t kWaiters = 5;
  std::vector<int32_t> order;  // guarded by the lock
  std::vector<std::thread> threads;
  KivSdLWSpinlockAcquire(&lock_);
  for (int32_t waiter = 0; waiter < kWaiters; ++waiter) {
    threads.emplace_back([this, waiter, &order] {
      KivSdLWSpinlockAcquire(&lock_);
      order.push_back(waiter);
      KivSdLWSpinlockRelease(&lock_);
    });
    Await([this, waiter] { return Field<int32_t>(kNext) == waiter + 2; });
  }
  KivSdLWSpinlockRelease(&lock_);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(order, (std::vector<int32_t>{0, 1, 2, 3, 4}));
}

// Each thread has its own lock, so only the fence is tested.
class LWSpinlockFence : public LWSpinlock {
 protected:
  LWSpinlockFence() { EXPECT_EQ(KivSdLWSpinlockInit(&other_), 0u); }

  KivSdLWSpinlock* LockOf(uint32_t number) { return number == 0 ? &lock_ : &other_; }

  alignas(64) KivSdLWSpinlock other_;  // threads that share a line may hide a missing fence
};
INSTANTIATE_TEST_SUITE_P(Design, LWSpinlockFence, testing::Values(kTestAndSet, kTicket),
                         kiv::test::DesignName);

TEST_P(LWSpinlockFence, IsMadeByAcquire) {
  bool taken[2] = {};
  EXPECT_EQ(BothMissed(
                [&](uint32_t number) {
                  if (taken[number]) KivSdLWSpinlockRelease(LockOf(number));
                },
                [&](uint32_t number) {
                  KivSdLWSpinlockAcquire(LockOf(number));
                  taken[number] = true;
                }),
            0);
}

TEST_P(LWSpinlockFence, IsMadeByRelease) {
  EXPECT_EQ(BothMissed([this](uint32_t number) { KivSdLWSpinlockAcquire(LockOf(number)); },
                       [this](uint32_t number) { KivSdLWSpinlockRelease(LockOf(number)); }),
            0);
}

// The 32-bit ticket becomes negative while the 64-bit serving counter keeps growing.
TEST_P(TicketLWSpinlock, GrantsNoEntryAfterTwoToThe31st) {
  FieldOf<int32_t>(&lock_, kNext) = INT32_MAX;
  FieldOf<int64_t>(&lock_, kServing) = INT32_MAX;
  KivSdLWSpinlockAcquire(&lock_);
  KivSdLWSpinlockRelease(&lock_);
  EXPECT_EQ(Field<int64_t>(kServing), int64_t{INT32_MAX} + 1);
  EXPECT_EQ(Field<int32_t>(kNext), INT32_MIN);

  std::thread late([this] { KivSdLWSpinlockAcquire(&lock_); });
  Await([this] { return Field<int32_t>(kNext) == INT32_MIN + 1; });
  EXPECT_EQ(Owner(), 0u);
  FieldOf<int64_t>(&lock_, kServing) = INT32_MIN;  // ends the thread's wait
  late.join();
  EXPECT_EQ(Count(), 1);
  EXPECT_NE(Owner(), 0u);
}

}  // namespace
