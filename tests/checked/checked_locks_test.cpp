// What the checked flavour finds in the use of locks: each misuse with each kind of lock, in both
// designs of spinlocks, and that correct use is not reported.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "checked/misuse.h"
#include "kivsdu/kivsdu.h"
#include "support/one_processor.h"

namespace {

using namespace kiv::test;

// Each check starts a process, in which the first lock would measure the spin budget.
const OneProcessor oneProcessor;

// A lock of each kind behind one interface.
class Lock {
 public:
  Lock() = default;
  virtual ~Lock() = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  virtual void Acquire() = 0;
  virtual void Release() = 0;
  virtual void End() = 0;
};

class Spinlock : public Lock {
 public:
  void Acquire() override {
    uint32_t thread = 0;
    KivSdThreadIdGet(nullptr, &thread);
    KivSdSpinlockAcquire(lock_, thread);
  }
  void Release() override { KivSdSpinlockRelease(lock_); }
  void End() override { KivSdSpinlockDestroy(nullptr, lock_); }

 private:
  KivSdSpinlock* const lock_ = KivSdSpinlockCreate(nullptr, 0);
};

class LightweightSpinlock : public Lock {
 public:
  LightweightSpinlock() { KivSdLWSpinlockInit(&lock_); }
  void Acquire() override { KivSdLWSpinlockAcquire(&lock_); }
  void Release() override { KivSdLWSpinlockRelease(&lock_); }
  void End() override { KivSdLWSpinlockDestroy(&lock_); }

 private:
  KivSdLWSpinlock lock_ = {};
};

// Uses one table for all threads, as a host does by mistake.
class WriteLock : public Lock {
 public:
  WriteLock() { KivRWLockInit(nullptr, 0, &lock_, 1, 0); }
  void Acquire() override { EXPECT_EQ(KivSdStartWrite(nullptr, &table_, &lock_), KIV_ST_OK); }
  void Release() override { EXPECT_EQ(KivSdEndRW(nullptr, &table_, &lock_), KIV_ST_OK); }
  void End() override { KivRWLockFreeQNodes(&table_); }

 private:
  KivRWLockTable table_ = {};
  KivRWLock lock_ = {};
};

enum class Kind { kWord, kTicket, kLightweightWord, kLightweightTicket, kWrite };

std::unique_ptr<Lock> Make(Kind kind) {
  if (kind == Kind::kTicket || kind == Kind::kLightweightTicket) KivSdSetHardwareAcceleration(1);
  if (kind == Kind::kWrite) return std::make_unique<WriteLock>();
  if (kind == Kind::kWord || kind == Kind::kTicket) return std::make_unique<Spinlock>();
  return std::make_unique<LightweightSpinlock>();
}

class EachLock : public testing::TestWithParam<Kind> {};

void TakeBoth(Lock* first, Lock* second) {
  first->Acquire();
  second->Acquire();
  second->Release();
  first->Release();
}

TEST_P(EachLock, IsFoundTakenInBothOrders) {
  const auto invert = [] {
    const auto one = Make(GetParam());
    const auto other = Make(GetParam());
    std::thread([&] { TakeBoth(one.get(), other.get()); }).join();
    TakeBoth(other.get(), one.get());
  };
  EXPECT_MISUSE(invert(), "lock order: thread ", " while it holds lock ", "sd/checked");
}

TEST_P(EachLock, IsFoundReleasedByAnotherThread) {
  const auto release = [] {
    const auto lock = Make(GetParam());
    lock->Acquire();
    std::thread([&] { lock->Release(); }).join();
  };
  EXPECT_MISUSE(release(), " releases ", "lock ", ", which thread ", " holds");
}

TEST_P(EachLock, IsFoundEndedWhileHeld) {
  const auto end = [] {
    const auto lock = Make(GetParam());
    lock->Acquire();
    lock->End();
  };
  EXPECT_MISUSE(end(), " ends ", ", while thread ", " holds ");
}

TEST_P(EachLock, IsNotReportedInCorrectUse) {
  const auto use = [] {
    for (int round = 0; round < 100; ++round) {
      const auto one = Make(GetParam());
      const auto other = Make(GetParam());
      one->Acquire();
      one->Acquire();
      one->Release();
      other->Acquire();
      one->Release();
      other->Release();
      std::thread([&] { TakeBoth(one.get(), other.get()); }).join();
      one->End();
      other->End();
    }
  };
  EXPECT_NO_MISUSE(use());
}

// The storage of a lock that ended has no order: a new lock in it is another one.
TEST_P(EachLock, HasNoOrderFromAnEarlierLock) {
  const auto use = [] {
    const auto one = Make(GetParam());
    {
      const auto other = Make(GetParam());
      TakeBoth(one.get(), other.get());
      other->End();
    }
    for (int i = 0; i < 100; ++i) {
      const auto other = Make(GetParam());
      other->Acquire();
      other->Release();
      other->End();
    }
    one->End();
    const auto next = Make(GetParam());
    TakeBoth(next.get(), Make(GetParam()).get());
  };
  EXPECT_NO_MISUSE(use());
}

INSTANTIATE_TEST_SUITE_P(Locks, EachLock,
                         testing::Values(Kind::kWord, Kind::kTicket, Kind::kLightweightWord,
                                         Kind::kLightweightTicket, Kind::kWrite));

TEST(FreeLock, IsFoundReleased) {
  const auto release = [] { Make(Kind::kWord)->Release(); };
  EXPECT_MISUSE(release(), " releases spinlock ", ", which no thread holds");
}

TEST(NonReentrantSpinlock, IsFoundAcquiredAgain) {
  const auto acquire = [] {
    KivSdSetHardwareAcceleration(1);
    KivSdSpinlock* lock = KivSdSpinlockCreate(nullptr, 0);
    KivSdSpinlockAcquireNonReentrant(lock, 7);
    KivSdSpinlockAcquireNonReentrant(lock, 7);  // would wait forever
  };
  EXPECT_MISUSE(acquire(), " acquires spinlock ", " again, which does not count");
}

TEST(NonReentrantSpinlock, IsNotReportedInCorrectUse) {
  const auto use = [] {
    KivSdSpinlock* lock = KivSdSpinlockCreate(nullptr, 0);
    for (int i = 0; i < 3; ++i) {
      KivSdSpinlockAcquireNonReentrant(lock, 7);
      KivSdSpinlockReleaseNonReentrant(lock);
    }
    KivSdSpinlockDestroy(nullptr, lock);
  };
  EXPECT_NO_MISUSE(use());
}

TEST(LocksOfTwoKinds, AreFoundTakenInBothOrders) {
  const auto invert = [] {
    const auto spinlock = Make(Kind::kWord);
    const auto writeLock = Make(Kind::kWrite);
    TakeBoth(spinlock.get(), writeLock.get());
    TakeBoth(writeLock.get(), spinlock.get());
  };
  EXPECT_MISUSE(invert(), "lock order: thread ", " takes spinlock ");
}

}  // namespace
