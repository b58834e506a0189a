// The reader-writer lock when memory is short, and when kernel objects cannot be made.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "kivsdu/kivsdu.h"
#include "sdrwlock/node.h"
#include "support/import_patch.h"
#include "support/last_error.h"
#include "support/os_errors.h"

namespace {

using kiv::test::ImportPatch;
using kiv::test::Script;
using kiv::test::ScriptedImport;

constexpr uint32_t kNoMemory = 8;
constexpr uint32_t kNoResources = 1450;
constexpr uint32_t kWaitFailed = 0xFFFFFFFF;
constexpr uint32_t kForEver = 0xFFFFFFFF;

// Only the allocation after `passFirst` successful ones fails.
Script FailingAfter(uint32_t passFirst) {
  return {.result = 0, .error = kNoMemory, .passFirst = passFirst, .failCount = 1};
}

const uint32_t kModes[] = {KIV_RWLOCK_READ, KIV_RWLOCK_WRITE};

class RWLockFailure : public testing::TestWithParam<uint32_t> {
 protected:
  void SetUp() override { ASSERT_EQ(KivRWLockInit(nullptr, 7, &lock_, 1, 3), KIV_ST_OK); }

  void TearDown() override {
    ExpectFree();
    EXPECT_EQ(KivRWLockFreeQNodes(&table_), KIV_ST_OK);
  }

  uint32_t Start() { return Start(&table_); }
  uint32_t Start(KivRWLockTable* table) {
    return GetParam() == KIV_RWLOCK_WRITE ? KivSdStartWrite(nullptr, table, &lock_)
                                          : KivSdStartRead(nullptr, table, &lock_);
  }
  uint32_t End() { return KivSdEndRW(nullptr, &table_, &lock_); }

  void ExpectFree() {
    EXPECT_EQ(lock_.countAndFlags, 0u);
    EXPECT_EQ(lock_.readerTail, nullptr);
    EXPECT_EQ(lock_.writerTail, nullptr);
    ExpectMode(KIV_RWLOCK_FREE);
  }

  void ExpectMode(uint32_t mode) {
    EXPECT_EQ(KivSdModeRW(nullptr, &table_, &lock_), mode);
    EXPECT_EQ(KivSdOwnerRW(nullptr, &table_, &lock_), mode == KIV_RWLOCK_FREE ? 0 : 1);
  }

  // An acquire whose allocation fails leaves the lock unchanged; the next acquire succeeds.
  void StartFailsThenSucceeds(uint32_t passFirst) {
    KivRWLock before;
    std::memcpy(&before, &lock_, sizeof(before));
    {
      const ScriptedImport malloc("malloc", FailingAfter(passFirst));
      EXPECT_EQ(Start(), KIV_ST_OUT_OF_MEMORY);
      EXPECT_EQ(malloc.calls().size(), passFirst + 1);
    }
    EXPECT_EQ(std::memcmp(&before, &lock_, sizeof(before)), 0);
    ExpectMode(KIV_RWLOCK_FREE);
    EXPECT_EQ(End(), KIV_ST_MUTEX_CLEAR);
    EXPECT_EQ(Start(), KIV_ST_OK);
    ExpectMode(GetParam());
    EXPECT_EQ(End(), KIV_ST_OK);
  }

  KivRWLock lock_;
  KivRWLockTable table_{};
};

TEST_P(RWLockFailure, IsNotTakenWithoutMemoryForANode) {
  {
    const ScriptedImport malloc("malloc", FailingAfter(0));
    EXPECT_EQ(Start(), KIV_ST_OUT_OF_MEMORY);
    ASSERT_EQ(malloc.calls().size(), 1u);
    EXPECT_EQ(malloc.calls()[0][0], sizeof(KivRWLockNode));
    EXPECT_EQ(table_.active, nullptr);
    EXPECT_EQ(table_.free, nullptr);
  }
  StartFailsThenSucceeds(0);
}

TEST_P(RWLockFailure, IsNotTakenAndKeepsNoNodeWithoutMemoryForTheActiveLists) {
  {
    const ScriptedImport malloc("malloc", FailingAfter(1));
    const ScriptedImport free("free", {.failCount = 0});
    const ScriptedImport close("CloseHandle", {.failCount = 0});
    EXPECT_EQ(Start(), KIV_ST_OUT_OF_MEMORY);
    ASSERT_EQ(malloc.calls().size(), 2u);
    EXPECT_EQ(malloc.calls()[1][0], KIV_RWLOCK_SLOTS * sizeof(void*));
    EXPECT_EQ(free.calls().size(), 1u);
    EXPECT_EQ(close.calls().size(), 3u);
    EXPECT_EQ(table_.active, nullptr);
    EXPECT_EQ(table_.free, nullptr);
  }
  StartFailsThenSucceeds(1);
  EXPECT_NE(table_.free[3], nullptr);
  EXPECT_EQ(table_.free[3]->listLink, nullptr) << "one node and no other";
}

TEST_P(RWLockFailure, IsReleasedEvenWithoutMemoryForTheFreeLists) {
  ASSERT_EQ(Start(), KIV_ST_OK);
  ASSERT_EQ(Start(), KIV_ST_OK);
  {
    const ScriptedImport malloc("malloc", FailingAfter(0));
    EXPECT_EQ(End(), KIV_ST_OK) << "an inner end moves no node";
    EXPECT_TRUE(malloc.calls().empty());
    ExpectMode(GetParam());
    EXPECT_EQ(End(), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(malloc.calls().size(), 1u);
  }
  ExpectFree();
  EXPECT_EQ(table_.free, nullptr);
  KivRWLockNode* node = table_.active[3];
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->depth, 0);
  EXPECT_EQ(node->mode, KIV_RWLOCK_FREE);
  EXPECT_EQ(End(), KIV_ST_MUTEX_CLEAR);

  // The node is reused, and moves to the free lists once there is memory for them.
  const ScriptedImport malloc("malloc", {.failCount = 0});
  EXPECT_EQ(Start(), KIV_ST_OK);
  EXPECT_TRUE(malloc.calls().empty());
  EXPECT_EQ(table_.active[3], node);
  EXPECT_EQ(End(), KIV_ST_OK);
  EXPECT_EQ(malloc.calls().size(), 1u);
  EXPECT_EQ(table_.active[3], nullptr);
  ASSERT_NE(table_.free, nullptr);
  EXPECT_EQ(table_.free[3], node);
}

TEST_P(RWLockFailure, ANodeThatStayedActiveCanTakeTheOtherMode) {
  ASSERT_EQ(Start(), KIV_ST_OK);
  {
    const ScriptedImport malloc("malloc", FailingAfter(0));
    EXPECT_EQ(End(), KIV_ST_OUT_OF_MEMORY);
  }
  EXPECT_EQ(KivSdStartWrite(nullptr, &table_, &lock_), KIV_ST_OK);
  ExpectMode(KIV_RWLOCK_WRITE);
  EXPECT_EQ(End(), KIV_ST_OK);
}

// ---- Kernel objects ----

const char* const kMakings[] = {"CreateMutexA", "CreateSemaphoreA", "CreateEventA"};

TEST_P(RWLockFailure, MakesItsNodeWithThreeKernelObjectsAndClosesThem) {
  {
    const ScriptedImport mutex("CreateMutexA", {.failCount = 0});
    const ScriptedImport semaphore("CreateSemaphoreA", {.failCount = 0});
    const ScriptedImport event("CreateEventA", {.failCount = 0});
    ASSERT_EQ(Start(), KIV_ST_OK);
    ASSERT_EQ(End(), KIV_ST_OK);
    ASSERT_EQ(Start(), KIV_ST_OK);
    ASSERT_EQ(End(), KIV_ST_OK);
    ASSERT_EQ(mutex.calls().size(), 1u);
    EXPECT_EQ(mutex.calls()[0][1] & UINT32_MAX, 0u) << "not owned";
    EXPECT_EQ(mutex.calls()[0][2], 0u) << "no name";
    ASSERT_EQ(semaphore.calls().size(), 1u);
    EXPECT_EQ(semaphore.calls()[0][1] & UINT32_MAX, 0u);
    EXPECT_EQ(semaphore.calls()[0][2] & UINT32_MAX, 2147483647u);
    EXPECT_EQ(semaphore.calls()[0][3], 0u) << "no name";
    ASSERT_EQ(event.calls().size(), 1u);
    EXPECT_EQ(event.calls()[0][1] & UINT32_MAX, 0u) << "resets itself";
    EXPECT_EQ(event.calls()[0][2] & UINT32_MAX, 0u) << "not signalled";
  }
  const ScriptedImport close("CloseHandle", {.failCount = 0});
  EXPECT_EQ(KivRWLockFreeQNodes(&table_), KIV_ST_OK);
  EXPECT_EQ(close.calls().size(), 3u);
}

TEST_P(RWLockFailure, IsTakenAndReleasedWithoutAKernelObject) {
  for (const char* making : kMakings) {
    SCOPED_TRACE(making);
    {
      const ScriptedImport failing(making, {.result = 0, .error = kNoResources});
      EXPECT_EQ(Start(), KIV_ST_OK);
      EXPECT_EQ(failing.calls().size(), 1u);
    }
    ExpectMode(GetParam());
    EXPECT_EQ(End(), KIV_ST_OK);
    EXPECT_EQ(KivRWLockFreeQNodes(&table_), KIV_ST_OK);
  }
}

// The waiter should sleep at once, but its node lacks one of the objects.
TEST_P(RWLockFailure, AWaiterEntersEvenWithoutAKernelObject) {
  for (const char* making : kMakings) {
    SCOPED_TRACE(making);
    lock_.readerSpinLoops = lock_.writerSpinLoops = 0;
    ASSERT_EQ(KivSdStartWrite(nullptr, &table_, &lock_), KIV_ST_OK);
    std::atomic<bool> inside{false};
    std::thread waiter([&] {
      KivRWLockTable table{};
      {
        const ScriptedImport failing(making, {.result = 0, .error = kNoResources});
        EXPECT_EQ(Start(&table), KIV_ST_OK);
        EXPECT_EQ(failing.calls().size(), 1u);
      }
      inside.store(true);
      EXPECT_EQ(KivSdEndRW(nullptr, &table, &lock_), KIV_ST_OK);
      EXPECT_EQ(KivRWLockFreeQNodes(&table), KIV_ST_OK);
    });
    const KivRWLockNode* own = table_.active[3];
    while (__atomic_load_n(&lock_.readerTail, __ATOMIC_SEQ_CST) == nullptr &&
           own->queueLink.load() == nullptr) {
      std::this_thread::yield();
    }
    // Leaves the waiter time to fall asleep; the outcome is the same if it does not.
    for (int i = 0; i < 200; ++i) std::this_thread::yield();
    EXPECT_FALSE(inside.load());
    EXPECT_EQ(End(), KIV_ST_OK);
    waiter.join();
    EXPECT_TRUE(inside.load());
  }
}

// ---- Sleeping and waking ----

// Records the calls by which a thread sleeps and is woken. The first `failing` sleeps fail without
// sleeping.
class Sleeping {
 public:
  explicit Sleeping(uint32_t failing = 0) {
    failing_ = failing;
    sleeps_ = 0;
    wakes_ = 0;
    originalSleep_ = sleep_.original();
    originalWake_ = wake_.original();
  }

  // Calls that have begun.
  static uint32_t sleeps() { return sleeps_; }
  static uint32_t wakes() { return wakes_; }

  // Arguments of the last sleep and the last wake-up.
  static inline std::atomic<KivHandle> mutex;
  static inline std::atomic<KivHandle> semaphore;
  static inline std::atomic<KivHandle> raised;

 private:
  static uint32_t Sleep(KivHandle toSignal, KivHandle toAwait, uint32_t timeoutMs,
                        int32_t alertable) {
    mutex = toSignal;
    semaphore = toAwait;
    EXPECT_EQ(timeoutMs, kForEver);
    EXPECT_EQ(alertable, 0);
    if (sleeps_.fetch_add(1) < failing_) {
      kiv::test::SetErrors(0, kNoResources);
      return kWaitFailed;
    }
    return reinterpret_cast<decltype(&Sleep)>(originalSleep_)(toSignal, toAwait, timeoutMs,
                                                              alertable);
  }

  static int32_t Wake(KivHandle toRaise, int32_t by, int32_t* before) {
    raised = toRaise;
    EXPECT_EQ(by, 1);
    EXPECT_EQ(before, nullptr);
    ++wakes_;
    return reinterpret_cast<decltype(&Wake)>(originalWake_)(toRaise, by, before);
  }

  static inline uint32_t failing_;
  static inline std::atomic<uint32_t> sleeps_;
  static inline std::atomic<uint32_t> wakes_;
  static inline void* originalSleep_;
  static inline void* originalWake_;
  ImportPatch sleep_{"SignalObjectAndWait", reinterpret_cast<void*>(&Sleep)};
  ImportPatch wake_{"ReleaseSemaphore", reinterpret_cast<void*>(&Wake)};
};

// A thread that waits in the test's mode while the test holds the lock for writing.
class RWLockSleep : public RWLockFailure {
 protected:
  void SetUp() override {
    RWLockFailure::SetUp();
    lock_.readerSpinLoops = lock_.writerSpinLoops = 0;  // sleeps at once
    ASSERT_EQ(KivSdStartWrite(nullptr, &table_, &lock_), KIV_ST_OK);
  }

  void StartWaiting() {
    waiter_ = std::thread([this] {
      KivRWLockTable table{};
      EXPECT_EQ(Start(&table), KIV_ST_OK);
      inside_ = true;
      const KivRWLockNode* node = table.active[3];
      EXPECT_EQ(Sleeping::mutex.load(), node->wakeMutex);
      EXPECT_EQ(Sleeping::semaphore.load(), node->condition.semaphore);
      EXPECT_EQ(node->condition.waiters, 0);
      EXPECT_EQ(node->sleeping.load(), 0u);
      EXPECT_EQ(KivSdEndRW(nullptr, &table, &lock_), KIV_ST_OK);
      EXPECT_EQ(KivRWLockFreeQNodes(&table), KIV_ST_OK);
    });
  }

  static void AwaitSleeps(uint32_t count) {
    while (Sleeping::sleeps() < count) std::this_thread::yield();
  }

  void LetIn() {
    EXPECT_FALSE(inside_);
    EXPECT_EQ(End(), KIV_ST_OK);
    waiter_.join();
    EXPECT_TRUE(inside_);
  }

  std::atomic<bool> inside_{false};
  std::thread waiter_;
};

TEST_P(RWLockSleep, EndsWithOneReleaseOfTheThreadsOwnSemaphore) {
  const Sleeping sleeping;
  StartWaiting();
  AwaitSleeps(1);
  LetIn();
  EXPECT_EQ(Sleeping::sleeps(), 1u);
  EXPECT_EQ(Sleeping::wakes(), 1u);
  EXPECT_EQ(Sleeping::raised.load(), Sleeping::semaphore.load());
}

TEST_P(RWLockSleep, IsRetriedAfterAFailureWhileTheThreadMustWait) {
  constexpr uint32_t kFailing = 3;
  const Sleeping sleeping(kFailing);
  StartWaiting();
  AwaitSleeps(kFailing + 1);
  LetIn();
  EXPECT_EQ(Sleeping::sleeps(), kFailing + 1);
  EXPECT_EQ(Sleeping::wakes(), 1u);
}

// The sleep itself fails unless the thread holds the wake mutex. Each attempt takes the mutex
// twice, and the third attempt succeeds.
TEST_P(RWLockSleep, IsRetriedWhenTheWakeMutexCannotBeTaken) {
  const Sleeping sleeping;
  const ScriptedImport taking(
      "WaitForSingleObject",
      {.result = kWaitFailed, .error = kiv::test::kOsBadHandle, .failCount = 3});
  StartWaiting();
  AwaitSleeps(3);
  EXPECT_EQ(taking.calls().size(), 5u);
  LetIn();
  EXPECT_EQ(Sleeping::sleeps(), 3u);
  EXPECT_EQ(Sleeping::wakes(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Modes, RWLockSleep, testing::ValuesIn(kModes), [](const auto& mode) {
  return mode.param == KIV_RWLOCK_WRITE ? "Write" : "Read";
});

INSTANTIATE_TEST_SUITE_P(Modes, RWLockFailure, testing::ValuesIn(kModes), [](const auto& mode) {
  return mode.param == KIV_RWLOCK_WRITE ? "Write" : "Read";
});

}  // namespace
