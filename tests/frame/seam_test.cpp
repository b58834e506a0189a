// The requirements on every platform's binding of the seam. A port needs to pass these tests.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "os/clock.h"
#include "os/environment.h"
#include "os/heap.h"
#include "os/pages.h"
#include "os/park.h"
#include "os/processor.h"
#include "os/thread.h"
#include "os/thread_control.h"
#include "os/thread_slot.h"
#include "os/thread_word.h"

namespace {

namespace os = kiv::os;

TEST(SeamHeap, AllocatesMovesAndFreesBlocks) {
  void* block = os::RawAllocate(100);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
  std::memset(block, 0x5A, 100);
  EXPECT_GE(os::RawSize(block), 100u);
  EXPECT_LT(os::RawSize(block), 1000u);
  auto* moved = static_cast<unsigned char*>(os::RawReallocate(block, 1 << 20));
  ASSERT_NE(moved, nullptr);
  EXPECT_EQ(moved[0], 0x5A);
  EXPECT_EQ(moved[99], 0x5A);
  os::RawFree(moved);
  os::RawFree(nullptr);
}

TEST(SeamPages, AreZeroedAndWritableAndReleasedByAddressOnly) {
  constexpr uint64_t kSize = 3 * 8192;
  const os::ValueResult<void*> pages = os::CommitPages(kSize);
  ASSERT_TRUE(pages.ok);
  auto* bytes = static_cast<unsigned char*>(pages.value);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % os::PageSizeBytes(), 0u);
  for (uint64_t i = 0; i < kSize; ++i) ASSERT_EQ(bytes[i], 0);
  std::memset(bytes, 0xFF, kSize);
  EXPECT_TRUE(os::LockPages(bytes, 8192).ok);
  EXPECT_TRUE(os::UnlockPages(bytes, 8192).ok);
  EXPECT_TRUE(os::ReleasePages(bytes).ok);
}

TEST(SeamPages, OfSizeZeroOrOfHugeSizeAreRefusedWithAnError) {
  for (const uint64_t size : {uint64_t{0}, uint64_t{1} << 62}) {
    const os::ValueResult<void*> pages = os::CommitPages(size);
    EXPECT_FALSE(pages.ok);
    EXPECT_NE(pages.error, 0u);
    EXPECT_EQ(pages.value, nullptr);
  }
}

TEST(SeamProcessor, ReportsCountTypeAndPageSize) {
  EXPECT_GE(os::ProcessorCount(), 1u);
#if defined(__x86_64__)
  EXPECT_EQ(os::ProcessorType(), os::kProcessorAmdX8664);
#else
  EXPECT_EQ(os::ProcessorType(), os::kProcessorUnlisted);
#endif
  EXPECT_GE(os::PageSizeBytes(), 4096u);
  EXPECT_EQ(os::PageSizeBytes() & (os::PageSizeBytes() - 1), 0u);
}

TEST(SeamProcessor, DistinguishesFiniteNumbersFromOthers) {
  using Limits = std::numeric_limits<double>;
  EXPECT_TRUE(os::IsFinite(0.0));
  EXPECT_TRUE(os::IsFinite(Limits::max()));
  EXPECT_TRUE(os::IsFinite(Limits::denorm_min()));
  EXPECT_FALSE(os::IsFinite(Limits::infinity()));
  EXPECT_FALSE(os::IsFinite(-Limits::infinity()));
  EXPECT_FALSE(os::IsFinite(Limits::quiet_NaN()));
}

TEST(SeamClock, CountsForward) {
  const os::ValueResult<int64_t> frequency = os::CounterFrequency();
  ASSERT_TRUE(frequency.ok);
  EXPECT_GE(frequency.value, 1000000);
  const uint32_t ticksBefore = os::TickCountMs();
  const os::ValueResult<int64_t> before = os::Counter();
  os::SleepMs(30);
  const os::ValueResult<int64_t> after = os::Counter();
  ASSERT_TRUE(before.ok && after.ok);
  EXPECT_GE((after.value - before.value) * 1000 / frequency.value, 20);
  EXPECT_LT(os::TickCountMs() - ticksBefore, 30000u);
}

TEST(SeamEnvironment, FindsOnlySetVariables) {
  EXPECT_NE(os::EnvironmentValue("PATH"), nullptr);
  EXPECT_EQ(os::EnvironmentValue("KIV_NO_SUCH_VARIABLE"), nullptr);
}

struct Seen {
  std::atomic<uint32_t> id{0};
  uint32_t slot = 0;
  std::atomic<void*> before{nullptr};
  std::atomic<void*> after{nullptr};
};

uint32_t LookAround(void* argument) {
  auto* seen = static_cast<Seen*>(argument);
  seen->id = os::CurrentThreadId();
  seen->before = os::ReadThreadSlot(seen->slot);
  os::WriteThreadSlot(seen->slot, seen);
  seen->after = os::ReadThreadSlot(seen->slot);
  os::YieldThread();
  os::PauseProcessor();
  return 0;
}

TEST(SeamThread, HasItsOwnIdentityAndItsOwnSlotValue) {
  const os::ValueResult<uint32_t> slot = os::AllocateThreadSlot();
  ASSERT_TRUE(slot.ok);
  EXPECT_EQ(os::ReadThreadSlot(slot.value), nullptr);
  int mine = 0;
  ASSERT_TRUE(os::WriteThreadSlot(slot.value, &mine).ok);

  Seen seen;
  seen.slot = slot.value;
  uint32_t id = 0;
  const os::ValueResult<void*> thread = os::StartThread(LookAround, &seen, 1024, &id);
  ASSERT_TRUE(thread.ok);
  EXPECT_TRUE(os::JoinThread(thread.value).ok);
  EXPECT_TRUE(os::CloseThread(thread.value).ok);

  EXPECT_NE(seen.id, 0u);
  EXPECT_NE(seen.id, os::CurrentThreadId());
  EXPECT_TRUE(id == 0 || id == seen.id);
  EXPECT_EQ(seen.before, nullptr);
  EXPECT_EQ(seen.after, &seen);
  EXPECT_EQ(os::ReadThreadSlot(slot.value), &mine);
  EXPECT_TRUE(os::FreeThreadSlot(slot.value).ok);
}

struct Words {
  void* before = nullptr;
  void* after = nullptr;
};

uint32_t UseItsWord(void* argument) {
  auto* words = static_cast<Words*>(argument);
  words->before = os::ReadThreadWord();
  os::WriteThreadWord(words);
  words->after = os::ReadThreadWord();
  return 0;
}

TEST(SeamThread, HasItsOwnWord) {
  EXPECT_EQ(os::ReadThreadWord(), nullptr);
  int mine = 0;
  os::WriteThreadWord(&mine);
  // The second thread may get the memory of the first.
  for (int round = 0; round < 2; ++round) {
    Words words;
    const os::ValueResult<void*> thread = os::StartThread(UseItsWord, &words, 0);
    ASSERT_TRUE(thread.ok);
    EXPECT_TRUE(os::JoinThread(thread.value).ok);
    EXPECT_TRUE(os::CloseThread(thread.value).ok);
    EXPECT_EQ(words.before, nullptr);
    EXPECT_EQ(words.after, &words);
  }
  EXPECT_EQ(os::ReadThreadWord(), &mine);
  os::WriteThreadWord(nullptr);
  EXPECT_EQ(os::ReadThreadWord(), nullptr);
}

TEST(SeamThread, ContinuesAfterItsHandleIsClosed) {
  std::atomic<uint32_t> done{0};
  const auto finish = [](void* argument) -> uint32_t {
    *static_cast<std::atomic<uint32_t>*>(argument) = 1;
    return 0;
  };
  const os::ValueResult<void*> thread = os::StartThread(finish, &done, 0);
  ASSERT_TRUE(thread.ok);
  EXPECT_TRUE(os::CloseThread(thread.value).ok);
  while (done == 0) os::YieldThread();
}

TEST(SeamThreadSlot, RefusesAnUnusedIndex) {
  EXPECT_FALSE(os::FreeThreadSlot(0x7FFFFFFF).ok);
  EXPECT_FALSE(os::WriteThreadSlot(0x7FFFFFFF, nullptr).ok);
}

// Two threads pass a turn back and forth. A lost wake-up would hang the test until its time limit.
struct Table {
  void* mutex = nullptr;
  std::array<void*, 2> semaphores = {};
  int turn = 0;                       // guarded by the mutex
  std::array<bool, 2> sleeping = {};  // guarded by the mutex
  static constexpr int kRounds = 2000;
};

void TakeTurns(Table* table, int me) {
  for (int round = 0; round < Table::kRounds; ++round) {
    os::TakeParkMutex(table->mutex);
    while (table->turn != me) {
      table->sleeping[static_cast<size_t>(me)] = true;
      os::ReleaseAndPark(table->mutex, table->semaphores[static_cast<size_t>(me)]);
      os::TakeParkMutex(table->mutex);
      table->sleeping[static_cast<size_t>(me)] = false;
    }
    const auto other = static_cast<size_t>(1 - me);
    table->turn = 1 - me;
    if (table->sleeping[other]) os::Unpark(table->semaphores[other]);
    os::ReleaseParkMutex(table->mutex);
  }
}

uint32_t SecondPlayer(void* argument) {
  TakeTurns(static_cast<Table*>(argument), 1);
  return 0;
}

struct ClaimTest {
  void* claim;
  os::Claim outcome;
  std::atomic<bool> hasCalled;
};

uint32_t TakeOnce(void* argument) {
  auto* test = static_cast<ClaimTest*>(argument);
  test->hasCalled = true;
  test->outcome = os::TakeClaim(test->claim);
  return 0;
}

os::Claim TakeOnAnotherThread(void* claim) {
  ClaimTest test = {claim, os::Claim::kFailed, {false}};
  const os::ValueResult<void*> thread = os::StartThread(TakeOnce, &test, 0);
  EXPECT_TRUE(thread.ok);
  EXPECT_TRUE(os::JoinThread(thread.value).ok);
  EXPECT_TRUE(os::CloseThread(thread.value).ok);
  return test.outcome;
}

TEST(SeamClaim, BelongsToItsThreadUntilTheThreadHasEnded) {
  const os::ValueResult<void*> made = os::MakeClaim();
  ASSERT_TRUE(made.ok);
  EXPECT_EQ(TakeOnAnotherThread(made.value), os::Claim::kTaken);
  EXPECT_EQ(TakeOnAnotherThread(made.value), os::Claim::kTakenFromEnded);
  EXPECT_EQ(os::TakeClaim(made.value), os::Claim::kTakenFromEnded);
  EXPECT_EQ(os::TakeClaim(made.value), os::Claim::kTaken) << "taken again by its holder";
}

TEST(SeamClaim, OfNullCannotBeTaken) {
  EXPECT_EQ(os::TakeClaim(nullptr), os::Claim::kFailed);
  const os::ValueResult<void*> made = os::MakeClaim();
  ASSERT_TRUE(made.ok);
  EXPECT_TRUE(os::CloseClaim(made.value).ok);
}

TEST(SeamPark, LosesNoWakeUp) {
  Table table;
  const os::ValueResult<void*> mutex = os::MakeParkMutex();
  ASSERT_TRUE(mutex.ok);
  table.mutex = mutex.value;
  for (void*& semaphore : table.semaphores) {
    const os::ValueResult<void*> made = os::MakeParkSemaphore();
    ASSERT_TRUE(made.ok);
    semaphore = made.value;
  }
  const os::ValueResult<void*> second = os::StartThread(SecondPlayer, &table, 0);
  ASSERT_TRUE(second.ok);
  TakeTurns(&table, 0);
  EXPECT_TRUE(os::JoinThread(second.value).ok);
  EXPECT_TRUE(os::CloseThread(second.value).ok);
  EXPECT_EQ(table.turn, 0);
  for (void* semaphore : table.semaphores) EXPECT_TRUE(os::CloseParkSemaphore(semaphore).ok);
  EXPECT_TRUE(os::CloseParkMutex(table.mutex).ok);
}

TEST(SeamPark, WakeUpBeforeTheSleepEndsItAtOnce) {
  const os::ValueResult<void*> mutex = os::MakeParkMutex();
  const os::ValueResult<void*> semaphore = os::MakeParkSemaphore();
  ASSERT_TRUE(mutex.ok && semaphore.ok);
  EXPECT_TRUE(os::Unpark(semaphore.value).ok);
  EXPECT_TRUE(os::TakeParkMutex(mutex.value).ok);
  EXPECT_TRUE(os::ReleaseAndPark(mutex.value, semaphore.value).ok);
  EXPECT_TRUE(os::CloseParkSemaphore(semaphore.value).ok);
  EXPECT_TRUE(os::CloseParkMutex(mutex.value).ok);
}

}  // namespace
