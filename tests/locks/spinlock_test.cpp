// Heap-allocated spinlocks, both designs: layout, reentrance, exclusion and order of entry.
#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "kivsdu/spinlock.h"
#include "support/block_count.h"
#include "support/lock_design.h"
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

constexpr uint32_t kMe = 0x80000007;
constexpr uint32_t kOther = 8;
constexpr uint32_t kRecordBytes = 256;
constexpr size_t kHeld = 64;  // of the ticket design
constexpr size_t kServing = 128;
constexpr size_t kNext = 192;
constexpr size_t kWord = 0;  // of the test-and-set design
constexpr size_t kMark = 4;

class Spinlock : public LockDesignTest {
 protected:
  Spinlock() : lock_(KivSdSpinlockCreate(nullptr, 0)) {}
  ~Spinlock() override { KivSdSpinlockDestroy(nullptr, lock_); }

  template <typename T>
  T Field(size_t offset) const {
    return FieldOf<T>(lock_, offset).load();
  }
  uint32_t Owner() const { return Field<uint32_t>(UsesTickets() ? 72 : 8); }
  int16_t Count() const { return Field<int16_t>(UsesTickets() ? 76 : 12); }
  bool IsHeld() const {
    if (!UsesTickets()) return Field<uint32_t>(kWord) == 1;
    return Field<int64_t>(kServing) != int64_t{Field<int32_t>(kNext)};
  }

  KivSdSpinlock* const lock_;
};

class TicketSpinlock : public Spinlock {};
class WordSpinlock : public Spinlock {};

INSTANTIATE_TEST_SUITE_P(Design, Spinlock, testing::Values(kTestAndSet, kTicket),
                         kiv::test::DesignName);
INSTANTIATE_TEST_SUITE_P(Design, WordSpinlock, testing::Values(kTestAndSet), kiv::test::DesignName);
INSTANTIATE_TEST_SUITE_P(Design, TicketSpinlock, testing::Values(kTicket), kiv::test::DesignName);

// ---- Layout ----

TEST_P(Spinlock, IsZeroedOnCreationExceptForTheTestAndSetMark) {
  ASSERT_NE(lock_, nullptr);
  for (size_t offset = 0; offset < kRecordBytes; offset += 4) {
    const bool isMark = !UsesTickets() && offset == kMark;
    EXPECT_EQ(Field<uint32_t>(offset), isMark ? 256u : 0u) << "at " << offset;
  }
}

TEST_P(TicketSpinlock, KeepsItsFieldsOnThreeLines) {
  for (int32_t entry = 0; entry < 3; ++entry) {
    KivSdSpinlockAcquire(lock_, kMe);
    EXPECT_EQ(Field<int64_t>(kHeld), entry);
    EXPECT_EQ(Field<uint32_t>(72), kMe);
    EXPECT_EQ(Field<int16_t>(76), 1);
    EXPECT_EQ(Field<int64_t>(kServing), entry);
    EXPECT_EQ(Field<int32_t>(kNext), entry + 1);
    KivSdSpinlockRelease(lock_);
    EXPECT_EQ(Field<int64_t>(kHeld), entry) << "of the last holder";
    EXPECT_EQ(Field<uint32_t>(72), 0u);
    EXPECT_EQ(Field<int16_t>(76), 0);
    EXPECT_EQ(Field<int64_t>(kServing), entry + 1);
    EXPECT_EQ(Field<int32_t>(kNext), entry + 1);
  }
  for (size_t offset = 0; offset < kHeld; offset += 8) EXPECT_EQ(Field<uint64_t>(offset), 0u);
}

TEST_P(WordSpinlock, KeepsItsFieldsInTheFirstWords) {
  KivSdSpinlockAcquire(lock_, kMe);
  EXPECT_EQ(Field<uint32_t>(kWord), 1u);
  EXPECT_EQ(Field<uint32_t>(kMark), 256u);
  EXPECT_EQ(Field<uint32_t>(8), kMe);
  EXPECT_EQ(Field<int16_t>(12), 1);
  KivSdSpinlockRelease(lock_);
  EXPECT_EQ(Field<uint32_t>(kWord), 0u);
  EXPECT_EQ(Field<uint32_t>(kMark), 256u);
  EXPECT_EQ(Field<uint32_t>(8), 0u);
  EXPECT_EQ(Field<int16_t>(12), 0);
  for (size_t offset = 16; offset < kRecordBytes; offset += 8) {
    EXPECT_EQ(Field<uint64_t>(offset), 0u) << "at " << offset;
  }
}

// ---- One thread ----

TEST(SpinlockDesign, IsTicketsForEveryFlagButZero) {
  KivSdSetHardwareAcceleration(kiv::test::kAnyOtherFlag);
  KivSdSpinlock* lock = KivSdSpinlockCreate(nullptr, 0);
  ASSERT_NE(lock, nullptr);
  KivSdSpinlockAcquire(lock, kMe);
  EXPECT_EQ(FieldOf<int32_t>(lock, kNext).load(), 1);
  KivSdSpinlockRelease(lock);
  KivSdSpinlockDestroy(nullptr, lock);
  KivSdSetHardwareAcceleration(0);
}

TEST_P(Spinlock, IsHeldUntilReleasedAsOftenAsAcquired) {
  for (uint32_t depth = 1; depth <= 3; ++depth) {
    KivSdSpinlockAcquire(lock_, kMe);
    EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), depth);
  }
  for (uint32_t left = 2; left >= 1; --left) {
    KivSdSpinlockRelease(lock_);
    EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), left);
    EXPECT_TRUE(IsHeld());
    EXPECT_EQ(KivSdSpinlockOwner(lock_, kMe), 1);
  }
  KivSdSpinlockRelease(lock_);
  EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), 0u);
  EXPECT_FALSE(IsHeld());
  EXPECT_EQ(Owner(), 0u);
}

TEST_P(Spinlock, OnlyTheHolderIsTheOwner) {
  EXPECT_EQ(KivSdSpinlockOwner(lock_, 0), 1) << "nobody holds a free lock";
  EXPECT_EQ(KivSdSpinlockOwner(lock_, kMe), 0);
  KivSdSpinlockAcquire(lock_, kMe);
  EXPECT_EQ(KivSdSpinlockOwner(lock_, kMe), 1);
  EXPECT_EQ(KivSdSpinlockOwner(lock_, kOther), 0);
  EXPECT_EQ(KivSdSpinlockOwner(lock_, 0), 0);
  KivSdSpinlockRelease(lock_);
  EXPECT_EQ(KivSdSpinlockOwner(lock_, 0), 1);
  EXPECT_EQ(KivSdSpinlockOwner(lock_, kMe), 0);
}

TEST_P(Spinlock, ASurplusReleaseDoesNoHarmAfterTheFirstAcquire) {
  KivSdSpinlockAcquire(lock_, kMe);
  for (uint32_t surplus = 0; surplus < 3; ++surplus) {
    KivSdSpinlockRelease(lock_);
    EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), surplus == 0 ? 0 : 0x10000 - surplus);
    EXPECT_FALSE(IsHeld());
  }
  KivSdSpinlockAcquire(lock_, kOther);
  EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), 1u) << "counted anew";
  EXPECT_EQ(KivSdSpinlockOwner(lock_, kOther), 1);
  KivSdSpinlockRelease(lock_);
  EXPECT_FALSE(IsHeld());
}

TEST_P(WordSpinlock, ASurplusReleaseDoesNoHarmBeforeTheFirstAcquireEither) {
  KivSdSpinlockRelease(lock_);
  EXPECT_EQ(Count(), -1);
  EXPECT_FALSE(IsHeld());
  KivSdSpinlockAcquire(lock_, kMe);
  EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), 1u);
  KivSdSpinlockRelease(lock_);
}

// The release serves ticket 1 although ticket 0 was never drawn: the next thread draws ticket 0 and
// waits forever.
TEST_P(TicketSpinlock, AReleaseBeforeTheFirstAcquireBlocksTheNextAcquire) {
  KivSdSpinlockRelease(lock_);
  EXPECT_EQ(Count(), -1);
  EXPECT_EQ(Field<int64_t>(kServing), 1);
  EXPECT_EQ(Field<int32_t>(kNext), 0);
  std::thread next([this] { KivSdSpinlockAcquire(lock_, kMe); });
  Await([this] { return Field<int32_t>(kNext) == 1; });
  for (int look = 0; look < 100; ++look) {
    EXPECT_EQ(Owner(), 0u);
    std::this_thread::yield();
  }
  FieldOf<int64_t>(lock_, kServing) = 0;  // ends the thread's wait
  next.join();
  EXPECT_EQ(Owner(), kMe);
  EXPECT_EQ(Count(), 1);
}

TEST_P(Spinlock, IsFreedUnderItsHolderByAnyThreadsRelease) {
  KivSdSpinlockAcquire(lock_, kMe);
  std::thread([this] { KivSdSpinlockRelease(lock_); }).join();
  EXPECT_FALSE(IsHeld());
  KivSdSpinlockAcquire(lock_, kOther);
  EXPECT_EQ(KivSdSpinlockOwner(lock_, kMe), 0);
  EXPECT_EQ(KivSdSpinlockOwner(lock_, kOther), 1);
  KivSdSpinlockRelease(lock_);
}

TEST_P(Spinlock, HeldTwiceStaysHeldAfterOneReleaseByAnotherThread) {
  KivSdSpinlockAcquire(lock_, kMe);
  KivSdSpinlockAcquire(lock_, kMe);
  std::thread([this] { KivSdSpinlockRelease(lock_); }).join();
  EXPECT_TRUE(IsHeld());
  EXPECT_EQ(Owner(), kMe);
  EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), 1u);
  KivSdSpinlockRelease(lock_);
  EXPECT_FALSE(IsHeld());
  EXPECT_EQ(Owner(), 0u);
}

TEST_P(Spinlock, CountHas16Bits) {
  constexpr uint32_t kTakings = 0x8001;
  for (uint32_t i = 0; i < kTakings; ++i) KivSdSpinlockAcquire(lock_, kMe);
  EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), kTakings) << "shown without a sign";
  EXPECT_EQ(Count(), INT16_MIN + 1);
}

TEST_P(Spinlock, IgnoresTheArgumentsOfCreateAndDestroy) {
  KivSdSpinlock* lock = KivSdSpinlockCreate(this, 0xFFFFFFFF);
  ASSERT_NE(lock, nullptr);
  KivSdSpinlockAcquire(lock, kMe);
  KivSdSpinlockRelease(lock);
  KivSdSpinlockDestroy(this, lock);
  KivSdSpinlockDestroy(nullptr, nullptr);
}

TEST_P(Spinlock, AllocatesAndFreesNoMemory) {
  const BlockCount count;
  for (int round = 0; round < 100; ++round) {
    KivSdSpinlockAcquire(lock_, kMe);
    KivSdSpinlockAcquire(lock_, kMe);
    KivSdSpinlockRelease(lock_);
    KivSdSpinlockRelease(lock_);
    KivSdSpinlockAcquireNonReentrant(lock_, kMe);
    KivSdSpinlockReleaseNonReentrant(lock_);
  }
  EXPECT_EQ(count.allocated(), 0u);
  EXPECT_EQ(count.freed(), 0u);
}

// ---- The non-reentrant pair ----

TEST_P(TicketSpinlock, NonReentrantAcquireStoresOwnerAndTicketOnly) {
  for (int32_t entry = 0; entry < 3; ++entry) {
    KivSdSpinlockAcquireNonReentrant(lock_, kMe);
    EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), 0u);
    EXPECT_EQ(KivSdSpinlockOwner(lock_, kMe), 1);
    EXPECT_EQ(Field<int64_t>(kHeld), entry);
    EXPECT_TRUE(IsHeld());
    KivSdSpinlockReleaseNonReentrant(lock_);
    EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), 0u);
    EXPECT_EQ(Owner(), 0u);
    EXPECT_FALSE(IsHeld());
  }
}

TEST_P(TicketSpinlock, NonReentrantOperationsLeaveTheCountUnchanged) {
  constexpr uint32_t kBelowZero = 0xFFFF;
  KivSdSpinlockAcquire(lock_, kMe);
  for (int release = 0; release < 2; ++release) KivSdSpinlockRelease(lock_);
  ASSERT_EQ(KivSdGetSpinlockRefCount(lock_), kBelowZero);
  KivSdSpinlockAcquireNonReentrant(lock_, kMe);
  EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), kBelowZero);
  KivSdSpinlockReleaseNonReentrant(lock_);
  EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), kBelowZero);
}

TEST_P(TicketSpinlock, NonReentrantAcquireMakesEvenTheHolderDrawATicket) {
  KivSdSpinlockAcquireNonReentrant(lock_, kMe);
  bool entered = false;  // guarded by the lock
  std::thread again([&] {
    KivSdSpinlockAcquireNonReentrant(lock_, kMe);
    entered = true;
    KivSdSpinlockReleaseNonReentrant(lock_);
  });
  Await([this] { return Field<int32_t>(kNext) == 2; });
  EXPECT_FALSE(entered);
  KivSdSpinlockReleaseNonReentrant(lock_);
  again.join();
  EXPECT_TRUE(entered);
  EXPECT_FALSE(IsHeld());
}

TEST_P(WordSpinlock, NonReentrantAcquireCountsAndNonReentrantReleaseFreesAtAnyCount) {
  KivSdSpinlockAcquireNonReentrant(lock_, kMe);
  EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), 1u);
  KivSdSpinlockAcquireNonReentrant(lock_, kMe);
  EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), 2u);
  KivSdSpinlockReleaseNonReentrant(lock_);
  EXPECT_EQ(KivSdGetSpinlockRefCount(lock_), 1u);
  EXPECT_FALSE(IsHeld());
  EXPECT_EQ(Owner(), 0u);
}

// ---- Several threads ----

// Adds to a plain number under the lock. If the lock does not order two additions, one is lost or a
// sanitizer reports them.
TEST_P(Spinlock, AdmitsOneThreadAtATime) {
  constexpr uint32_t kRoundsOfTwo = 1000;  // for 2 threads; fewer for more, as handovers take time
  for (const int32_t budget : {0, 200}) {
    KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = budget;
    for (const uint32_t threads : {2u, 3u, 8u, 16u}) {
      const uint32_t rounds = kRoundsOfTwo * 4 / (threads * threads);
      uint32_t count = 0;
      OnThreads(threads, [&](uint32_t number) {
        for (uint32_t round = 0; round < rounds; ++round) {
          KivSdSpinlockAcquire(lock_, number + 1);
          if (round % 3 == 0) {
            KivSdSpinlockAcquire(lock_, number + 1);
            ++count;
            KivSdSpinlockRelease(lock_);
          } else {
            ++count;
          }
          KivSdSpinlockRelease(lock_);
        }
      });
      EXPECT_EQ(count, rounds * threads) << threads << " threads";
      EXPECT_FALSE(IsHeld());
    }
  }
}

TEST_P(Spinlock, NonReentrantPairAdmitsOneThreadAtATime) {
  constexpr uint32_t kRounds = 1000;
  constexpr uint32_t kThreads = 4;
  uint32_t count = 0;
  OnThreads(kThreads, [&](uint32_t number) {
    for (uint32_t round = 0; round < kRounds; ++round) {
      KivSdSpinlockAcquireNonReentrant(lock_, number + 1);
      ++count;
      KivSdSpinlockReleaseNonReentrant(lock_);
    }
  });
  EXPECT_EQ(count, kRounds * kThreads);
  EXPECT_FALSE(IsHeld());
}

TEST_P(TicketSpinlock, AdmitsThreadsInOrderOfArrival) {
  constexpr int32_t kWaiters = 5;
  std::vector<int32_t> order;  // guarded by the lock
  std::vector<std::thread> threads;
  KivSdSpinlockAcquire(lock_, kMe);
  for (int32_t waiter = 0; waiter < kWaiters; ++waiter) {
    threads.emplace_back([this, waiter, &order] {
      const auto thread = static_cast<uint32_t>(waiter) + 1;
      KivSdSpinlockAcquire(lock_, thread);
      order.push_back(waiter);
      KivSdSpinlockRelease(lock_);
    });
    Await([this, waiter] { return Field<int32_t>(kNext) == waiter + 2; });
  }
  KivSdSpinlockRelease(lock_);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(order, (std::vector<int32_t>{0, 1, 2, 3, 4}));
}

// Each thread has its own lock, so only the fence is tested.
class SpinlockFence : public Spinlock {
 protected:
  SpinlockFence() : other_(KivSdSpinlockCreate(nullptr, 0)) {}
  ~SpinlockFence() override { KivSdSpinlockDestroy(nullptr, other_); }

  KivSdSpinlock* LockOf(uint32_t number) const { return number == 0 ? lock_ : other_; }

  KivSdSpinlock* const other_;
};
INSTANTIATE_TEST_SUITE_P(Design, SpinlockFence, testing::Values(kTestAndSet, kTicket),
                         kiv::test::DesignName);

TEST_P(SpinlockFence, IsMadeByAcquire) {
  for (const uint32_t number : {0u, 1u}) KivSdSpinlockAcquire(LockOf(number), kMe);
  EXPECT_EQ(BothMissed([this](uint32_t number) { KivSdSpinlockRelease(LockOf(number)); },
                       [this](uint32_t number) { KivSdSpinlockAcquire(LockOf(number), kMe); }),
            0);
}

TEST_P(SpinlockFence, IsMadeByRelease) {
  EXPECT_EQ(BothMissed([this](uint32_t number) { KivSdSpinlockAcquire(LockOf(number), kMe); },
                       [this](uint32_t number) { KivSdSpinlockRelease(LockOf(number)); }),
            0);
}

TEST_P(SpinlockFence, IsMadeByNonReentrantAcquire) {
  for (const uint32_t number : {0u, 1u}) KivSdSpinlockAcquireNonReentrant(LockOf(number), kMe);
  EXPECT_EQ(BothMissed(
                [this](uint32_t number) { KivSdSpinlockReleaseNonReentrant(LockOf(number)); },
                [this](uint32_t number) { KivSdSpinlockAcquireNonReentrant(LockOf(number), kMe); }),
            0);
}

TEST_P(SpinlockFence, IsMadeByNonReentrantRelease) {
  EXPECT_EQ(
      BothMissed([this](uint32_t number) { KivSdSpinlockAcquireNonReentrant(LockOf(number), kMe); },
                 [this](uint32_t number) { KivSdSpinlockReleaseNonReentrant(LockOf(number)); }),
      0);
}

// The 32-bit ticket becomes negative while the 64-bit serving counter keeps growing.
TEST_P(TicketSpinlock, GrantsNoEntryAfterTwoToThe31st) {
  FieldOf<int32_t>(lock_, kNext) = INT32_MAX;
  FieldOf<int64_t>(lock_, kServing) = INT32_MAX;
  KivSdSpinlockAcquire(lock_, kMe);
  KivSdSpinlockRelease(lock_);
  EXPECT_EQ(Field<int64_t>(kServing), int64_t{INT32_MAX} + 1);
  EXPECT_EQ(Field<int32_t>(kNext), INT32_MIN);

  std::thread late([this] { KivSdSpinlockAcquire(lock_, kOther); });
  Await([this] { return Field<int32_t>(kNext) == INT32_MIN + 1; });
  EXPECT_EQ(Owner(), 0u);
  FieldOf<int64_t>(lock_, kServing) = INT32_MIN;  // ends the thread's wait
  late.join();
  EXPECT_EQ(Field<int64_t>(kHeld), INT32_MIN);
  EXPECT_EQ(Owner(), kOther);
}

}  // namespace
