// What another thread can do to a kernel object between two steps of an operation: the tests do it at
// exactly that step, or put the object's word in the state in which that thread leaves it.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "os/kernel_objects.h"
#include "os/lnx/counting_semaphore.h"
#include "os/lnx/event.h"
#include "os/lnx/handles.h"
#include "os/lnx/waits.h"
#include "os/park.h"
#include "os/shared_memory.h"
#include "os/thread.h"
#include "os/thread_control.h"
#include "support/lnx/answered_calls.h"
#include "support/open_handles.h"

namespace {

using namespace kiv::os;
using namespace kiv::test;

constexpr uint32_t kSoonMs = 20;
constexpr char kName[] = "object-races";

// Results of SleepOn as a register holds them.
constexpr Word kWokenWord = static_cast<Word>(Sleep::kWoken);
constexpr Word kTimedOutWord = static_cast<Word>(Sleep::kTimedOut);

class ObjectRaces : public testing::Test {
 protected:
  ObjectRaces() {
    void* first = MakeAutoEvent(false).value;  // the first chunk of the table stays mapped
    CloseObject(first);
    CloseObject(MakeMutex(kName).value);  // and the folder of the names is swept once
    before_ = OpenHandles();
  }
  ~ObjectRaces() override { EXPECT_EQ(OpenHandles(), before_) << "handles were left open"; }

 private:
  size_t before_;
};

ObjectWord& WordOf(void* handle) { return *ContentOf<ObjectWord>(SlotOfNumber(handle)); }

void ExpectWait(const Wait& wait, uint32_t result, uint32_t error) {
  EXPECT_EQ(wait.result, result);
  EXPECT_EQ(wait.error, error);
}

void ExpectFailed(const Wait& wait, uint32_t error) { ExpectWait(wait, kWaitFailed, error); }

void ExpectFailed(const Result& result, uint32_t error) {
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.error, error);
}

void ExpectOk(const Result& result) {
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.error, 0u);
}

// ---- A full table of handles ----

struct Maker {
  const char* what;
  ValueResult<void*> (*make)();
};

const Maker kMakers[] = {
    {"Semaphore", [] { return MakeSemaphore(nullptr, 0, 1); }},
    {"NamedSemaphore", [] { return MakeSemaphore(kName, 0, 1); }},
    {"Mutex", [] { return MakeMutex(nullptr); }},
    {"NamedMutex", [] { return MakeMutex(kName); }},
    {"AutoEvent", [] { return MakeAutoEvent(true); }},
    {"ManualEvent", [] { return MakeManualEvent(); }},
    {"Block", [] { return MakeBlock(kName, 1, kPagesReadWrite); }},
    {"Thread", [] { return StartThread([](void*) { return 0u; }, nullptr, 0); }},
    {"CurrentThread", [] { return DuplicateCurrentThread(); }},
};

class FullTable : public ObjectRaces, public testing::WithParamInterface<Maker> {};

TEST_P(FullTable, MakesNothingAndLeavesNothingBehind) {
  const AnsweredCall full("TakeSlot", Refuse(ENOMEM));
  const ValueResult<void*> made = GetParam().make();
  EXPECT_FALSE(made.ok);
  EXPECT_EQ(made.error, uint32_t{ENOMEM});
  EXPECT_EQ(made.value, nullptr);
  EXPECT_EQ(full.answered(), 1u);
  EXPECT_EQ(OpenNamedMutex(kName).error, uint32_t{ENOENT}) << "the name was left behind";
}

INSTANTIATE_TEST_SUITE_P(ObjectRaces, FullTable, testing::ValuesIn(kMakers),
                         [](const auto& row) { return std::string(row.param.what); });

// The table grows by pieces, which stay mapped.
TEST_F(ObjectRaces, ATableThatCannotGrowIsFull) {
  std::vector<Slot*> taken;
  {
    const AnsweredCall refused("mmap", Refuse(ENOMEM));
    while (Slot* slot = TakeSlot()) taken.push_back(slot);
    EXPECT_EQ(refused.answered(), 1u);
  }
  for (Slot* slot : taken) FreeSlot(slot);
  void* event = MakeAutoEvent(true).value;
  ExpectWait(WaitOne(event, 0), kWaitSignalled, 0);
  ExpectOk(CloseObject(event));
}

// ---- A handle that is closed when an operation enters or leaves its object ----

struct Use {
  const char* what;
  ValueResult<void*> (*make)();
  uint32_t (*use)(void* handle);  // returns the error
  Result (*close)(void* handle);
};

uint32_t WaitError(void* handle) {
  const Wait waited = WaitOne(handle, 0);
  return waited.result == kWaitFailed ? waited.error : 0;
}

uint32_t MapError(void* handle) {
  const ValueResult<void*> view = MapBlock(handle, kViewRead, 0);
  if (view.ok) ExpectOk(UnmapBlock(view.value));
  return view.error;
}

const Use kUses[] = {
    {"WaitForMutex", [] { return MakeMutex(nullptr); }, WaitError, CloseObject},
    {"WaitForNamedMutex", [] { return MakeMutex(kName); }, WaitError, CloseObject},
    {"WaitForNamedSemaphore", [] { return MakeSemaphore(kName, 1, 2); }, WaitError, CloseObject},
    {"GiveNamedSemaphore", [] { return MakeSemaphore(kName, 0, 2); },
     [](void* handle) { return GiveSemaphore(handle, 1, nullptr).error; }, CloseObject},
    {"MapBlock", [] { return MakeBlock(kName, 1, kPagesReadWrite); }, MapError, CloseBlock},
    {"ReadThreadPriority", [] { return DuplicateCurrentThread(); },
     [](void* handle) { return ReadThreadPriority(handle).error; }, CloseThread},
};

class ClosedMeanwhile : public ObjectRaces, public testing::WithParamInterface<Use> {};

TEST_P(ClosedMeanwhile, BeforeTheOperationEntersIsABadHandle) {
  const ValueResult<void*> made = GetParam().make();
  ASSERT_TRUE(made.ok);
  const AnsweredCall closed("EnterObject",
                            Precede([&] { ExpectOk(GetParam().close(made.value)); }));
  EXPECT_EQ(GetParam().use(made.value), uint32_t{EBADF});
}

TEST_P(ClosedMeanwhile, BeforeTheOperationLeavesEndsTheObjectWithIt) {
  const ValueResult<void*> made = GetParam().make();
  ASSERT_TRUE(made.ok);
  {
    const AnsweredCall closed("LeaveObject",
                              Precede([&] { ExpectOk(GetParam().close(made.value)); }));
    EXPECT_EQ(GetParam().use(made.value), 0u);
  }
  EXPECT_EQ(GetParam().use(made.value), uint32_t{EBADF});
  EXPECT_EQ(OpenNamedMutex(kName).error, uint32_t{ENOENT}) << "the object still has its name";
}

INSTANTIATE_TEST_SUITE_P(ObjectRaces, ClosedMeanwhile, testing::ValuesIn(kUses),
                         [](const auto& row) { return std::string(row.param.what); });

TEST_F(ObjectRaces, OfTwoThreadsThatCloseAHandleTheSecondHasABadOne) {
  void* event = MakeAutoEvent(false).value;
  const AnsweredCall other("RetireHandle", Precede([&] { ExpectOk(CloseObject(event)); }));
  ExpectFailed(CloseObject(event), EBADF);
}

TEST_F(ObjectRaces, AMutexIsReleasedUnlessItsHandleIsClosedFirst) {
  void* mutex = MakeMutex(nullptr).value;
  ExpectWait(WaitOne(mutex, 0), kWaitSignalled, 0);
  const AnsweredCall closed("EnterObject", Precede([&] { ExpectOk(CloseObject(mutex)); }));
  ExpectFailed(GiveMutex(mutex), EBADF);
}

// ---- Semaphores ----

class SemaphoreRaces : public testing::Test {
 protected:
  SemaphorePlace Place(Scope scope) { return {&word_, kSharedIdentity, scope}; }

  ObjectWord word_{0};
};

TEST_F(SemaphoreRaces, AFullWordTakesNoOtherWaiter) {
  word_ = kUsersMask;
  const UnitTaken taken = TakeUnit(Place(Scope::kProcess), kSoonMs);
  ExpectFailed(taken.wait, EAGAIN);
  EXPECT_FALSE(taken.last);
  EXPECT_EQ(word_.load(), kUsersMask);
}

TEST_F(SemaphoreRaces, AClosedSemaphoreIsABadHandle) {
  word_ = kClosed | 1;
  ExpectFailed(TakeUnit(Place(Scope::kProcess), kSoonMs).wait, EBADF);
  ExpectFailed(GiveUnits(Place(Scope::kProcess), 1, 2, nullptr), EBADF);
}

// A process that was killed may have left the mark.
TEST_F(SemaphoreRaces, ATestOfASharedSemaphoreIgnoresTheStarvingMark) {
  word_ = kStarving | 1;
  ExpectWait(TakeUnit(Place(Scope::kShared), 0).wait, kWaitSignalled, 0);
  EXPECT_EQ(CountOf(word_), 0);
}

TEST_F(SemaphoreRaces, ATestOfAnUnsharedSemaphoreRespectsTheStarvingMark) {
  word_ = kStarving | 1;
  ExpectWait(TakeUnit(Place(Scope::kProcess), 0).wait, kWaitTimedOut, ETIMEDOUT);
  EXPECT_EQ(word_.load(), kStarving | 1);
}

TEST_F(SemaphoreRaces, AStarvingMarkOfAnEndedThreadDelaysOthersOnlyForAMoment) {
  word_ = kStarving | 1;
  ExpectWait(TakeUnit(Place(Scope::kProcess), 10'000).wait, kWaitSignalled, 0);
  EXPECT_EQ(word_.load(), 0u) << "the unit is taken, and the mark with it";
}

TEST_F(SemaphoreRaces, AWaitForASharedSemaphoreRespectsTheMarkForAMoment) {
  word_ = kStarving | 1;
  const AnsweredCall sleeps("SleepOn", Give(kTimedOutWord));
  ExpectWait(TakeUnit(Place(Scope::kShared), 10'000).wait, kWaitSignalled, 0);
  EXPECT_EQ(sleeps.answered(), 1u);
  EXPECT_EQ(word_.load(), 0u);
}

TEST_F(SemaphoreRaces, AWaiterThatIsWokenInVainMarksTheSemaphoreAsStarving) {
  uint64_t whenAsleepAgain = 0;
  const AnsweredCall sleeps("SleepOn", [&, sleep = 0](const Words&, Word* word) mutable {
    *word = kWokenWord;
    if (sleep++ > 0) {
      whenAsleepAgain = word_;
      word_.fetch_add(1);
    }
    return Answer::kGive;
  });
  ExpectWait(TakeUnit(Place(Scope::kProcess), kWaitForEver).wait, kWaitSignalled, 0);
  EXPECT_TRUE(IsStarving(whenAsleepAgain));
  EXPECT_EQ(word_.load(), 0u);
}

TEST_F(SemaphoreRaces, AWaiterTakesAUnitThatComesAsItsTimeEnds) {
  const AnsweredCall sleeps("SleepOn", Give(kTimedOutWord));
  const AnsweredCall late("IsPast", [&](const Words&, Word* word) {
    if (sleeps.answered() == 0) return Answer::kPass;
    word_.fetch_add(1);
    *word = 1;
    return Answer::kGive;
  });
  ExpectWait(TakeUnit(Place(Scope::kProcess), kSoonMs).wait, kWaitSignalled, 0);
  EXPECT_EQ(word_.load(), 0u);
}

// Another process can write the word of a shared semaphore.
TEST_F(SemaphoreRaces, AWaiterOfASharedSemaphoreThatLacksItsUserTakesAUnitAllTheSame) {
  const AnsweredCall sleeps("SleepOn", [&](const Words&, Word* word) {
    word_ = 1;
    *word = kWokenWord;
    return Answer::kGive;
  });
  ExpectWait(TakeUnit(Place(Scope::kShared), kSoonMs).wait, kWaitSignalled, 0);
  EXPECT_EQ(word_.load(), 0u);
}

TEST_F(SemaphoreRaces, TheLastWaiterEndsAClosedSemaphore) {
  void* semaphore = MakeSemaphore(nullptr, 0, 1).value;
  const size_t before = OpenHandles();
  {
    const AnsweredCall closed("SleepOn", Precede([&] { ExpectOk(CloseObject(semaphore)); }));
    ExpectWait(WaitOne(semaphore, kSoonMs), kWaitTimedOut, ETIMEDOUT);
  }
  EXPECT_EQ(OpenHandles(), before - 1);
  ExpectFailed(WaitOne(semaphore, 0), EBADF);
}

TEST_F(SemaphoreRaces, ThreadsThatTakeAndGiveAtOnceLoseNoUnit) {
  constexpr int kRounds = 30'000;
  const auto exchange = [&] {
    for (int i = 0; i < kRounds; ++i) {
      ExpectOk(GiveUnits(Place(Scope::kProcess), 1, INT32_MAX, nullptr));
      ExpectWait(TakeUnit(Place(Scope::kProcess), kWaitForEver).wait, kWaitSignalled, 0);
    }
  };
  std::thread other(exchange);
  exchange();
  other.join();
  EXPECT_EQ(word_.load() & ~kStarving, 0u);
}

// ---- Events ----

// Bits of an event's word (event.h).
constexpr uint64_t kSignalledBit = 1;
constexpr uint64_t kOneGrantBit = 4;
constexpr uint64_t kRoundBits = uint64_t{0x1FF} << 22;

TEST_F(ObjectRaces, AnEventThatIsClosedMeanwhileIsABadHandle) {
  void* event = MakeAutoEvent(true).value;
  Slot* slot = SlotOfNumber(event);
  const uint64_t identity = IdentityOf(event);
  WordOf(event).fetch_or(kClosed);
  ExpectFailed(WaitForEvent(slot, identity, 0), EBADF);
  ExpectFailed(WaitForEvent(slot, identity, kSoonMs), EBADF);
  ExpectFailed(SignalEventIn(slot, identity), EBADF);
  ExpectFailed(UnsignalEventIn(slot, identity), EBADF);
  EXPECT_FALSE(BeginTransferOn(event));
  EXPECT_EQ(EndTransferOn(event), nullptr);
  CancelTransferOn(event);
  WordOf(event).fetch_and(~kClosed);
  ExpectWait(WaitOne(event, 0), kWaitSignalled, 0);
  ExpectOk(CloseObject(event));
  EXPECT_FALSE(BeginTransferOn(event));
  EXPECT_EQ(EndTransferOn(event), nullptr);
  CancelTransferOn(event);
}

TEST_F(ObjectRaces, AnEventWithAllWaitersItCanCountTakesNoOther) {
  void* event = MakeAutoEvent(false).value;
  WordOf(event).fetch_or(kUsersMask);
  ExpectFailed(WaitOne(event, kSoonMs), EAGAIN);
  WordOf(event).fetch_and(~kUsersMask);
  ExpectOk(CloseObject(event));
}

TEST_F(ObjectRaces, AWaiterTakesAGrantThatComesAsItsTimeEnds) {
  void* event = MakeAutoEvent(false).value;
  const AnsweredCall sleeps("SleepOn", Give(kTimedOutWord));
  const AnsweredCall late("IsPast", [&](const Words&, Word* word) {
    if (sleeps.answered() == 0) return Answer::kPass;
    ExpectOk(SignalEvent(event));
    *word = 1;
    return Answer::kGive;
  });
  ExpectWait(WaitOne(event, kSoonMs), kWaitSignalled, 0);
  ExpectWait(WaitOne(event, 0), kWaitTimedOut, ETIMEDOUT);
  ExpectOk(CloseObject(event));
}

TEST_F(ObjectRaces, TheLastWaiterEndsAClosedEvent) {
  void* event = MakeAutoEvent(false).value;
  {
    const AnsweredCall closed("SleepOn", Precede([&] { ExpectOk(CloseObject(event)); }));
    ExpectWait(WaitOne(event, kSoonMs), kWaitTimedOut, ETIMEDOUT);
  }
  ExpectFailed(WaitOne(event, 0), EBADF);
}

// The older waiter has its grant and has not taken it yet.
TEST_F(ObjectRaces, AGrantOfAnOlderWaiterIsNotForALaterOne) {
  void* event = MakeAutoEvent(false).value;
  WordOf(event).fetch_add(kOneUser);
  ExpectOk(SignalEvent(event));
  ExpectWait(WaitOne(event, kSoonMs), kWaitTimedOut, ETIMEDOUT);
  EXPECT_NE(WordOf(event).load() & kOneGrantBit, 0u) << "the older waiter's grant is still there";
  WordOf(event).fetch_sub(kOneUser + kOneGrantBit);
  ExpectOk(CloseObject(event));
}

// Both waiters have their grants now.
TEST_F(ObjectRaces, ALaterWaiterTakesAGrantWhenAllHaveOne) {
  void* event = MakeAutoEvent(false).value;
  WordOf(event).fetch_add(kOneUser);
  ExpectOk(SignalEvent(event));
  const AnsweredCall again("SleepOn", Precede([&] { WordOf(event).fetch_add(kOneGrantBit); }));
  ExpectWait(WaitOne(event, 10'000), kWaitSignalled, 0);
  WordOf(event).fetch_sub(kOneUser + kOneGrantBit);
  ExpectOk(CloseObject(event));
}

TEST_F(ObjectRaces, ASignalOfWaitersWithGrantsSignalsTheEvent) {
  void* event = MakeAutoEvent(false).value;
  WordOf(event).fetch_add(kOneUser);
  ExpectOk(SignalEvent(event));
  ExpectOk(SignalEvent(event));
  EXPECT_NE(WordOf(event).load() & kSignalledBit, 0u);
  WordOf(event).fetch_sub(kOneUser + kOneGrantBit);
  ExpectWait(WaitOne(event, 0), kWaitSignalled, 0);
  ExpectOk(CloseObject(event));
}

TEST_F(ObjectRaces, ASignalOfAManualEventWakesAllSleepers) {
  constexpr uint32_t kThreads = 3;
  constexpr uint32_t kLongMs = 20'000;
  void* event = MakeManualEvent().value;
  std::atomic<uint32_t> asleep{0};
  const AnsweredCall sleeps("SleepOn", [&](const Words&, Word*) {
    ++asleep;
    return Answer::kPass;
  });
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] { ExpectWait(WaitOne(event, kLongMs), kWaitSignalled, 0); });
  }
  while (asleep < kThreads) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(kSoonMs));  // until the kernel has them
  const auto signalled = std::chrono::steady_clock::now();
  ExpectOk(SignalEvent(event));
  for (std::thread& thread : threads) thread.join();
  EXPECT_LT(std::chrono::steady_clock::now() - signalled, std::chrono::milliseconds(kLongMs / 2));
  ExpectOk(CloseObject(event));
}

TEST_F(ObjectRaces, ATransferThatIsCancelledLeavesTheEventUnsignalled) {
  void* event = MakeManualEvent().value;
  const uint64_t before = WordOf(event);
  EXPECT_TRUE(BeginTransferOn(event));
  EXPECT_TRUE(BeginTransferOn(event));
  CancelTransferOn(event);
  EXPECT_NE(WordOf(event).load(), before) << "one transfer is left";
  CancelTransferOn(event);
  EXPECT_EQ(WordOf(event).load(), before);
  ExpectOk(CloseObject(event));
}

TEST_F(ObjectRaces, TheFirstOfTwoTransfersSignalsTheEventAndTheSecondRemains) {
  void* event = MakeManualEvent().value;
  EXPECT_TRUE(BeginTransferOn(event));
  EXPECT_TRUE(BeginTransferOn(event));
  EXPECT_EQ(EndTransferOn(event), &WordOf(event));
  const uint64_t withOne = WordOf(event);
  EXPECT_EQ(EndTransferOn(event), &WordOf(event));
  EXPECT_NE(WordOf(event).load(), withOne);
  ExpectWait(WaitOne(event, 0), kWaitSignalled, 0);
  ExpectOk(CloseObject(event));
}

TEST_F(ObjectRaces, ThreadsThatSignalAndWaitAtOnceLoseNoSignal) {
  constexpr int kRounds = 10'000;
  void* ping = MakeAutoEvent(false).value;
  void* pong = MakeAutoEvent(false).value;
  std::thread other([&] {
    for (int i = 0; i < kRounds; ++i) {
      ExpectWait(WaitOne(ping, kWaitForEver), kWaitSignalled, 0);
      ExpectOk(SignalEvent(pong));
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    ExpectOk(SignalEvent(ping));
    ExpectWait(WaitOne(pong, kWaitForEver), kWaitSignalled, 0);
  }
  other.join();
  ExpectOk(CloseObject(ping));
  ExpectOk(CloseObject(pong));
}

// Transfers that come while a thread looks at the event make it help with them.
TEST_F(ObjectRaces, AThreadThatLooksAtAnEventSeesATransferThatBegins) {
  void* event = MakeAutoEvent(false).value;
  const AnsweredCall looks("ShouldLook", Give(1));
  const AnsweredCall begins("IsPast", Precede([&] { EXPECT_TRUE(BeginTransferOn(event)); }));
  ExpectWait(WaitOne(event, 1), kWaitTimedOut, ETIMEDOUT);
  CancelTransferOn(event);
  ExpectOk(CloseObject(event));
}

TEST_F(ObjectRaces, ASecondTransferWakesNobody) {
  void* event = MakeAutoEvent(false).value;
  WordOf(event).fetch_add(kOneUser);
  EXPECT_TRUE(BeginTransferOn(event));
  const uint64_t withOne = WordOf(event);
  EXPECT_TRUE(BeginTransferOn(event));
  EXPECT_EQ(WordOf(event).load(), withOne);
  CancelTransferOn(event);
  CancelTransferOn(event);
  WordOf(event).fetch_sub(kOneUser);
  ExpectOk(CloseObject(event));
}

TEST_F(ObjectRaces, ThreadsThatChangeAnEventAtOnceLeaveItWhole) {
  constexpr int kRounds = 100'000;
  void* event = MakeManualEvent().value;
  const uint64_t before = WordOf(event);
  std::thread transfers([=] {
    for (int i = 0; i < kRounds; ++i) {
      EXPECT_TRUE(BeginTransferOn(event));
      if (i % 2 == 0) CancelTransferOn(event);
      if (i % 2 != 0) {
        EXPECT_NE(EndTransferOn(event), nullptr);
      }
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    ExpectOk(SignalEvent(event));
    const uint32_t result = WaitOne(event, 0).result;
    EXPECT_TRUE(result == kWaitSignalled || result == kWaitTimedOut) << result;
    ExpectOk(UnsignalEvent(event));
  }
  transfers.join();
  ExpectOk(UnsignalEvent(event));
  EXPECT_EQ(WordOf(event).load() & ~kRoundBits, before & ~kRoundBits);
  ExpectOk(CloseObject(event));
}

TEST_F(ObjectRaces, AMutexWithAllUsersItCanCountTakesNoOther) {
  void* mutex = MakeMutex(nullptr).value;
  WordOf(mutex).fetch_or(kUsersMask);
  ExpectFailed(WaitOne(mutex, 0), EBADF);
  WordOf(mutex).fetch_and(~kUsersMask);
  ExpectWait(WaitOne(mutex, 0), kWaitSignalled, 0);
  ExpectOk(CloseObject(mutex));
}

// ---- What the locks wait with ----

TEST_F(ObjectRaces, ASignalAndATakeOfAParkMutexAreOneCall) {
  void* event = MakeParkEvent().value;
  void* mutex = MakeParkMutex().value;
  ExpectOk(SignalAndTake(event, mutex));
  ExpectWait(WaitOne(event, 0), kWaitSignalled, 0);
  ExpectWait(WaitOne(mutex, 0), kWaitTimedOut, ETIMEDOUT);
  WordOf(event).fetch_or(kClosed);
  ExpectFailed(SignalAndTake(event, mutex), EBADF);
  WordOf(event).fetch_and(~kClosed);
  ExpectOk(CloseParkEvent(event));
  ExpectFailed(SignalAndTake(event, mutex), EBADF);
  ExpectOk(CloseParkMutex(mutex));
}

}  // namespace
