// How the locks wait, step by step: spinning within the budget, yielding, sleeping.
//
// The locks' own sources are built with a seam made by this test: every pause, yield and kernel
// call adds a letter to a trace, and the test decides at which letter the lock is released. One
// thread plays all threads. What another thread would do runs inside such a letter, or before or
// after an access to an atomic, which the atomic types of the stress test report.
//
//   p        pause
//   y        yield
//   t        take the wake mutex
//   r        release the wake mutex
//   s        release the wake mutex and sleep
//   u        raise the semaphore
//   b        signal the event and take the wake mutex
//   ( )      enter and leave the critical section
//   M S C E  make mutex, semaphore, critical section, event; only if a test asks for it
//   m q c e  destroy mutex, semaphore, critical section, event; only if a test asks for it
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "kivsdu/kivsdu.h"
#include "os/critical_section.h"
#include "os/park.h"
#include "os/thread.h"
#include "sdrwlock/node.h"
#include "sdrwlock/wait.h"
#include "sdsync/spinlock_guard.h"
#include "stress/delay.h"
#include "support/lock_design.h"

namespace {

using kiv::test::FieldOf;
using kiv::test::kTestAndSet;
using kiv::test::kTicket;
using kiv::test::LockDesignTest;

constexpr size_t kLongest = 1000;  // letters; a longer trace is a wait that never ends

std::string trace;
std::map<size_t, std::function<void()>> plan;  // actions by position in the trace, from 1
std::function<void(char)> onLetter;            // called for every letter unless null
std::function<void()> onAccess;                // called before and after every access unless null

void Note(char letter) {
  trace += letter;
  if (trace.size() > kLongest) {
    std::fprintf(stderr, "waits forever: %s\n", trace.substr(0, 100).c_str());
    std::abort();
  }
  if (onLetter != nullptr) onLetter(letter);
  const auto due = plan.find(trace.size());
  if (due != plan.end()) due->second();
}

bool notesMaking = false;

void NoteMaking(char letter) {
  if (notesMaking) Note(letter);
}

void Forget() {
  trace.clear();
  notesMaking = false;
  plan.clear();
  onLetter = nullptr;
  onAccess = nullptr;
}

// Returns the trace and clears it.
std::string TakeTrace() { return std::exchange(trace, std::string()); }

}  // namespace

// The action makes accesses itself; during these no action runs.
void kiv::stress::Delay() {
  if (onAccess == nullptr) return;
  std::function<void()> now = std::exchange(onAccess, nullptr);
  now();
  onAccess = std::move(now);
}

void kiv::test::OnPause() { Note('p'); }
void kiv::test::OnYield() { Note('y'); }

namespace kiv::os {

namespace {

ValueResult<void*> Make(char letter) {
  NoteMaking(letter);
  return {true, 0, nullptr};
}

Result Close(char letter) {
  NoteMaking(letter);
  return {true, 0};
}

}  // namespace

ValueResult<void*> MakeParkMutex() { return Make('M'); }
ValueResult<void*> MakeParkSemaphore() { return Make('S'); }
ValueResult<void*> MakeParkEvent() { return Make('E'); }
Result CloseParkMutex(void*) { return Close('m'); }
Result CloseParkSemaphore(void*) { return Close('q'); }
Result CloseParkEvent(void*) { return Close('e'); }

Result TakeParkMutex(void*) {
  Note('t');
  return {true, 0};
}

Result ReleaseParkMutex(void*) {
  Note('r');
  return {true, 0};
}

// There is no other thread to end this sleep, so it returns at once, like a failed one.
Result ReleaseAndPark(void*, void*) {
  Note('s');
  return {false, 5};
}

Result SignalAndTake(void*, void*) {
  Note('b');
  return {true, 0};
}

Result Unpark(void*) {
  Note('u');
  return {true, 0};
}

void PrepareCriticalSection(void*) { NoteMaking('C'); }
void EndCriticalSection(void*) { NoteMaking('c'); }
void EnterCriticalSection(void*) { Note('('); }
void LeaveCriticalSection(void*) { Note(')'); }

}  // namespace kiv::os

namespace {

// ---- Spinlocks ----

constexpr uint32_t kMe = 77;
constexpr uint32_t kOther = 8;
constexpr size_t kWord = 0;       // of the test-and-set design
constexpr size_t kServing = 128;  // of the ticket design
constexpr size_t kNext = 192;
constexpr size_t kCount = 76;

class SpinlockWait : public LockDesignTest {
 protected:
  SpinlockWait() : lock_(KivSdSpinlockCreate(nullptr, 0)) {}
  ~SpinlockWait() override {
    Forget();
    KivSdSpinlockDestroy(nullptr, lock_);
  }
  void SetUp() override { Forget(); }

  // Returns the trace of an acquire on this budget while another thread holds the lock until letter
  // `until`.
  std::string Wait(int32_t budget, size_t until) {
    KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = budget;
    KivSdSpinlockAcquire(lock_, kOther);
    Forget();
    plan[until] = [this] { KivSdSpinlockRelease(lock_); };
    Enter();
    plan.clear();
    EXPECT_EQ(KivSdSpinlockOwner(lock_, kMe), 1);
    KivSdSpinlockRelease(lock_);
    return TakeTrace();
  }

  virtual void Enter() { KivSdSpinlockAcquire(lock_, kMe); }

  KivSdSpinlock* const lock_;
};

class WordSpinlockWait : public SpinlockWait {};
class TicketSpinlockWait : public SpinlockWait {};
class TicketSpinlockWaitOnce : public SpinlockWait {
  void Enter() override {
    KivSdSpinlockAcquireNonReentrant(lock_, kMe);
    FieldOf<int16_t>(lock_, kCount) = 1;  // the test uses the reentrant release
  }
};

INSTANTIATE_TEST_SUITE_P(Design, SpinlockWait, testing::Values(kTestAndSet, kTicket),
                         kiv::test::DesignName);
INSTANTIATE_TEST_SUITE_P(Design, WordSpinlockWait, testing::Values(kTestAndSet),
                         kiv::test::DesignName);
INSTANTIATE_TEST_SUITE_P(Design, TicketSpinlockWait, testing::Values(kTicket),
                         kiv::test::DesignName);
INSTANTIATE_TEST_SUITE_P(Design, TicketSpinlockWaitOnce, testing::Values(kTicket),
                         kiv::test::DesignName);

TEST_P(SpinlockWait, IsNotNeededForAFreeLockOrItsHolder) {
  KivSdSpinlockAcquire(lock_, kMe);
  KivSdSpinlockAcquire(lock_, kMe);
  KivSdSpinlockRelease(lock_);
  KivSdSpinlockRelease(lock_);
  KivSdSpinlockAcquireNonReentrant(lock_, kMe);
  KivSdSpinlockReleaseNonReentrant(lock_);
  EXPECT_EQ(TakeTrace(), "");
}

// The library's own guard, of a lock that its thread holds already.
TEST_P(SpinlockWait, OfAGuardIsNotNeededForItsHolderWhoKeepsTheLock) {
  const uint32_t thread = kiv::os::CurrentThreadId();
  {
    const kiv::SpinlockGuard outer(lock_);
    { const kiv::SpinlockGuard inner(lock_); }
    EXPECT_EQ(KivSdSpinlockOwner(lock_, thread), 1);
  }
  EXPECT_EQ(KivSdSpinlockOwner(lock_, thread), 0);
  EXPECT_EQ(TakeTrace(), "");
}

TEST_P(SpinlockWait, EndsWithinTheBudgetAsSoonAsTheLockIsFree) {
  EXPECT_EQ(Wait(1, 1), "p");
  EXPECT_EQ(Wait(3, 1), "p");
  EXPECT_EQ(Wait(3, 3), "ppp");
  EXPECT_EQ(Wait(100, 40), std::string(40, 'p'));
}

TEST_P(SpinlockWait, YieldsAfterEverySpentBudgetWithoutLimit) {
  EXPECT_EQ(Wait(3, 4), "pppy" + std::string(UsesTickets() ? "p" : ""));
  EXPECT_EQ(Wait(3, 5), "pppyp");
  EXPECT_EQ(Wait(3, 9), "pppypppyp");
  std::string turns;
  for (int turn = 0; turn < 200; ++turn) turns += "py";
  EXPECT_EQ(Wait(1, 401), turns + "p");
}

TEST_P(WordSpinlockWait, YieldsAtOnceOnABudgetOfZeroOrLess) {
  EXPECT_EQ(Wait(0, 1), "y");
  EXPECT_EQ(Wait(0, 3), "yyy");
  EXPECT_EQ(Wait(-7, 3), "yyy");
}

// Another thread takes the lock between the test that found it free and the exchange; every access
// is tried, because the test does not know which one that is.
TEST_P(WordSpinlockWait, YieldsWhenAnotherThreadTakesTheLockFirst) {
  size_t losses = 0;
  for (int32_t chance = 1; chance <= 12; ++chance) {
    Forget();
    bool taken = false;
    onAccess = [&, left = chance]() mutable {
      if (--left != 0 || FieldOf<uint32_t>(lock_, kWord) == 1) return;
      KivSdSpinlockAcquire(lock_, kOther);
      taken = true;
    };
    plan[1] = [this] { KivSdSpinlockRelease(lock_); };
    KivSdSpinlockAcquire(lock_, kMe);
    onAccess = nullptr;
    EXPECT_EQ(KivSdSpinlockOwner(lock_, kMe), 1);
    if (taken && trace == "y") ++losses;
    KivSdSpinlockRelease(lock_);
    EXPECT_EQ(KivSdSpinlockOwner(lock_, 0), 1) << "chance " << chance;
  }
  EXPECT_GT(losses, 0u);
}

TEST_P(TicketSpinlockWait, TestsOnceBeforeEveryYieldOnABudgetOfZeroOrLess) {
  EXPECT_EQ(Wait(0, 1), "p");
  EXPECT_EQ(Wait(0, 3), "pyp");
  EXPECT_EQ(Wait(0, 5), "pypyp");
  EXPECT_EQ(Wait(-7, 5), "pypyp");
}

TEST_P(TicketSpinlockWaitOnce, WaitsLikeTheReentrantAcquire) {
  EXPECT_EQ(Wait(3, 2), "pp");
  EXPECT_EQ(Wait(3, 9), "pppypppyp");
  EXPECT_EQ(Wait(0, 3), "pyp");
}

// A ticket that is not the next to be served.
TEST_P(TicketSpinlockWait, EndsAtItsOwnTurn) {
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = 2;
  FieldOf<int32_t>(lock_, kNext) = 5;
  FieldOf<int64_t>(lock_, kServing) = 3;
  for (const size_t letter : {2u, 4u}) {
    plan[letter] = [this] { FieldOf<int64_t>(lock_, kServing).fetch_add(1); };
  }
  KivSdSpinlockAcquire(lock_, kMe);
  EXPECT_EQ(TakeTrace(), "ppyp");
}

// ---- Lightweight spinlocks ----

class LWSpinlockWait : public LockDesignTest {
 protected:
  LWSpinlockWait() { KivSdLWSpinlockInit(&lock_); }
  ~LWSpinlockWait() override { Forget(); }
  void SetUp() override { Forget(); }

  std::string Wait(int32_t budget, size_t until) {
    KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = budget;
    KivSdLWSpinlockInit(&lock_);
    KivSdLWSpinlockAcquire(&lock_);
    Owner() = kOther;
    Forget();
    plan[until] = [this] {
      Owner() = kMe;
      KivSdLWSpinlockRelease(&lock_);
    };
    KivSdLWSpinlockAcquire(&lock_);
    EXPECT_EQ(KivSdLWSpinlockOwner(&lock_), 1);
    return TakeTrace();
  }

  std::atomic_ref<uint32_t> Owner() { return FieldOf<uint32_t>(&lock_, UsesTickets() ? 16 : 12); }

  KivSdLWSpinlock lock_;
};

INSTANTIATE_TEST_SUITE_P(Design, LWSpinlockWait, testing::Values(kTestAndSet, kTicket),
                         kiv::test::DesignName);

TEST_P(LWSpinlockWait, IsNotNeededForAFreeLockOrItsHolder) {
  for (int entry = 0; entry < 3; ++entry) {
    KivSdLWSpinlockAcquire(&lock_);
    KivSdLWSpinlockAcquire(&lock_);
    KivSdLWSpinlockRelease(&lock_);
    KivSdLWSpinlockRelease(&lock_);
  }
  EXPECT_EQ(TakeTrace(), "");
}

TEST_P(LWSpinlockWait, EndsWithinTheBudgetAsSoonAsTheLockIsFree) {
  EXPECT_EQ(Wait(1, 1), "p");
  EXPECT_EQ(Wait(3, 3), "ppp");
}

TEST_P(LWSpinlockWait, YieldsAfterEverySpentBudgetWithoutLimit) {
  EXPECT_EQ(Wait(3, 5), "pppyp");
  EXPECT_EQ(Wait(3, 9), "pppypppyp");
}

TEST_P(LWSpinlockWait, YieldsAtOnceOnABudgetOfZeroOrLess) {
  EXPECT_EQ(Wait(0, 1), "y");
  EXPECT_EQ(Wait(0, 3), "yyy");
  EXPECT_EQ(Wait(-7, 3), "yyy");
}

class WordLWSpinlockWait : public LWSpinlockWait {};
INSTANTIATE_TEST_SUITE_P(Design, WordLWSpinlockWait, testing::Values(kTestAndSet),
                         kiv::test::DesignName);

// As with the spinlock, every access is tried.
TEST_P(WordLWSpinlockWait, YieldsWhenAnotherThreadTakesTheLockFirst) {
  size_t losses = 0;
  for (int32_t chance = 1; chance <= 12; ++chance) {
    Forget();
    KivSdLWSpinlockInit(&lock_);
    bool taken = false;
    onAccess = [&, left = chance]() mutable {
      if (--left != 0 || FieldOf<uint32_t>(&lock_, kWord) == 1) return;
      KivSdLWSpinlockAcquire(&lock_);
      Owner() = kOther;
      taken = true;
    };
    plan[1] = [this] {
      Owner() = kMe;
      KivSdLWSpinlockRelease(&lock_);
    };
    KivSdLWSpinlockAcquire(&lock_);
    onAccess = nullptr;
    EXPECT_EQ(KivSdLWSpinlockOwner(&lock_), 1);
    if (taken && trace == "y") ++losses;
    KivSdLWSpinlockRelease(&lock_);
    EXPECT_EQ(KivSdLWSpinlockOwner(&lock_), 0) << "chance " << chance;
  }
  EXPECT_GT(losses, 0u);
}

TEST_P(LWSpinlockWait, TestsTheLockAfterAYieldBeforeItPauses) { EXPECT_EQ(Wait(3, 4), "pppy"); }

// ---- The reader-writer lock: waiting on a node ----

// Traces of one sleep, and of none because the lock was released before the thread slept.
constexpr char kSleep[] = "t()s()tr";
constexpr char kNoSleep[] = "tr";

struct Limits {
  int32_t spinLoops;
  int32_t spinYields;
  int32_t waitLoops;
};

class NodeTest : public testing::Test {
 protected:
  NodeTest() {
    Forget();
    KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = 2;
    EXPECT_EQ(KivRWLockInit(nullptr, 0, &lock_, 1, 0), KIV_ST_OK);
    node_.lock = &lock_;
  }
  ~NodeTest() override { Forget(); }

  void Unblock() { node_.blocked.store(0); }

  KivRWLock lock_;
  KivRWLockNode node_{};
};

class NodeWait : public NodeTest, public testing::WithParamInterface<uint32_t> {
 protected:
  bool IsWriter() const { return GetParam() == KIV_RWLOCK_WRITE; }

  // Sets the limits in the lock and the node. The other kind of thread has different limits, so
  // that using them by mistake shows in the trace.
  void Limit(const Limits& own) {
    constexpr Limits kOthers = {50, 60, 200};
    const Limits& reader = IsWriter() ? kOthers : own;
    const Limits& writer = IsWriter() ? own : kOthers;
    lock_.readerSpinLoops = reader.spinLoops;
    lock_.writerSpinLoops = writer.spinLoops;
    node_.readerSpinYields = reader.spinYields;
    node_.writerSpinYields = writer.spinYields;
    node_.readerWaitLoops = reader.waitLoops;
    node_.writerWaitLoops = writer.waitLoops;
  }

  // Returns the trace of a wait that another thread ends at letter `until`.
  std::string Wait(size_t until, int32_t otherSleepers = 0) {
    trace.clear();
    node_.blocked.store(1);
    node_.condition.waiters = otherSleepers;
    plan.clear();
    plan[until] = [this] { Unblock(); };
    if (IsWriter()) {
      kiv::WaitAsWriter(&node_);
    } else {
      kiv::WaitAsReader(&node_);
    }
    EXPECT_EQ(node_.sleeping.load(), 0u);
    EXPECT_EQ(node_.condition.waiters, otherSleepers);
    return TakeTrace();
  }
};

INSTANTIATE_TEST_SUITE_P(Kinds, NodeWait, testing::Values(KIV_RWLOCK_READ, KIV_RWLOCK_WRITE),
                         [](const auto& mode) {
                           return mode.param == KIV_RWLOCK_WRITE ? "Writer" : "Reader";
                         });

TEST_P(NodeWait, IsNotNeededOnAnUnblockedNode) {
  node_.blocked.store(0);
  kiv::WaitAsReader(&node_);
  kiv::WaitAsWriter(&node_);
  EXPECT_EQ(TakeTrace(), "");
}

TEST_P(NodeWait, SpinsOneBudgetAndThenSleepsByDefault) {
  Limit({1, 0, 1});
  EXPECT_EQ(Wait(1), "p");
  EXPECT_EQ(Wait(2), "pp");
  EXPECT_EQ(Wait(3), std::string("pp") + kNoSleep) << "looks again under the mutex";
  EXPECT_EQ(Wait(6), std::string("pp") + kSleep);
  EXPECT_EQ(Wait(11), std::string("pp") + kSleep + kNoSleep) << "woken for nothing";
  EXPECT_EQ(Wait(14), std::string("pp") + kSleep + kSleep);
}

TEST_P(NodeWait, IsCountedAsAWaiterOfTheConditionWhileAsleep) {
  Limit({0, 0, 1});
  std::string seen;
  onLetter = [&](char letter) {
    seen += letter;
    seen += std::to_string(node_.sleeping.load()) + std::to_string(node_.condition.waiters);
  };
  // Each letter is followed by the flag and the count at that step.
  plan.clear();
  EXPECT_EQ(Wait(4), kSleep);
  EXPECT_EQ(seen, "t00(10)11s11(11)10t10r00");
}

TEST_P(NodeWait, SpinsOneBudgetPerSpinLoopInEachRound) {
  Limit({3, 0, 1});
  EXPECT_EQ(Wait(5), "ppppp");
  EXPECT_EQ(Wait(10), std::string("pppppp") + kSleep);
  Limit({3, 0, 2});
  EXPECT_EQ(Wait(16), std::string("pppppppppppp") + kSleep);
}

TEST_P(NodeWait, CountsRoundsAndYieldsTogether) {
  Limit({1, 2, 5});
  EXPECT_EQ(Wait(11), std::string("ppyyppy") + kSleep) << "two rounds and three yields";
  Limit({1, 9, 4});
  EXPECT_EQ(Wait(9), std::string("ppyyy") + kSleep);
  Limit({1, 1, 1});
  EXPECT_EQ(Wait(6), std::string("pp") + kSleep) << "the round was the limit";
}

TEST_P(NodeWait, EndsBetweenYields) {
  Limit({1, 5, 100});
  EXPECT_EQ(Wait(3), "ppy");
  EXPECT_EQ(Wait(5), "ppyyy");
  EXPECT_EQ(Wait(7), "ppyyyyy");
  EXPECT_EQ(Wait(8), "ppyyyyyp");
}

TEST_P(NodeWait, OnlyYieldsWithoutSpinLoopsOrBudget) {
  Limit({0, 2, 5});
  EXPECT_EQ(Wait(7), std::string("yyy") + kSleep);
  Limit({-1, 2, 5});
  EXPECT_EQ(Wait(7), std::string("yyy") + kSleep);
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = 0;
  Limit({4, 2, 5});
  EXPECT_EQ(Wait(7), std::string("yyy") + kSleep);
}

TEST_P(NodeWait, NeverSleepsWithAWaitLimitOfZeroOrLess) {
  std::string turns;
  for (int turn = 0; turn < 100; ++turn) turns += "ppyy";
  for (const int32_t waitLoops : {0, -1, INT32_MIN}) {
    Limit({1, 2, waitLoops});
    EXPECT_EQ(Wait(401), turns + "p");
  }
}

TEST_P(NodeWait, OnlySpinsOnALockThatForbidsBlocking) {
  lock_.blockingAllowed = 0;
  Limit({0, 7, 1});
  EXPECT_EQ(Wait(1), "p");
  EXPECT_EQ(Wait(300), std::string(300, 'p'));
}

TEST_P(NodeWait, ReadsSpinLoopsFromTheLockAndOtherLimitsFromTheNode) {
  Limit({2, 1, 2});
  node_.readerSpinLoops = node_.writerSpinLoops = 40;
  lock_.readerSpinYields = lock_.writerSpinYields = 41;
  lock_.readerWaitLoops = lock_.writerWaitLoops = 42;
  EXPECT_EQ(Wait(9), std::string("ppppy") + kSleep);
}

// Does not happen in the lock itself, where a node has one sleeper.
TEST_P(NodeWait, SignalsTheEventWhenTheLastOfSeveralHasWoken) {
  Limit({0, 0, 1});
  node_.condition.broadcasting = 1;
  EXPECT_EQ(Wait(4), "t()s()br");
  EXPECT_EQ(Wait(4, 1), kSleep) << "one more sleeps";
}

// ---- Waking ----

class NodeWake : public NodeTest {
 protected:
  void Set(uint32_t sleeping, int32_t waiters) {
    Forget();
    node_.blocked.store(1);
    node_.sleeping.store(sleeping);
    node_.condition.waiters = waiters;
  }

  std::string Wake(const KivRWLockNode* own = nullptr) {
    kiv::Wake(&node_, own);
    EXPECT_EQ(node_.blocked.load(), 0u);
    return TakeTrace();
  }
};

TEST_F(NodeWake, DoesNothingToAnUnblockedNode) {
  Set(1, 1);
  node_.blocked.store(0);
  EXPECT_EQ(Wake(), "");
  EXPECT_EQ(Wake(&node_), "");
}

TEST_F(NodeWake, UnblocksTheCallersOwnNodeWithoutASystemCall) {
  Set(0, 0);
  EXPECT_EQ(Wake(&node_), "");
}

TEST_F(NodeWake, UnblocksAnAwakeThreadUnderItsWakeMutex) {
  KivRWLockNode own{};
  for (const KivRWLockNode* caller : {static_cast<KivRWLockNode*>(nullptr), &own}) {
    Set(0, 0);
    plan[1] = [this] { EXPECT_EQ(node_.blocked.load(), 1u); };
    plan[2] = [this] { EXPECT_EQ(node_.blocked.load(), 0u); };
    EXPECT_EQ(Wake(caller), "tr");
  }
}

TEST_F(NodeWake, RaisesTheSemaphoreForACountedSleeper) {
  Set(1, 1);
  EXPECT_EQ(Wake(), "t()ur");
  Set(1, 0);
  EXPECT_EQ(Wake(), "t()r") << "not asleep yet";
  Set(0, 1);
  EXPECT_EQ(Wake(), "tr");
}

TEST_F(NodeWake, TestsTheNodeAgainUnderTheMutex) {
  Set(1, 1);
  plan[1] = [this] { Unblock(); };
  EXPECT_EQ(Wake(), "tr") << "another thread has unblocked it";
}

// ---- The reader-writer lock as a whole ----

class RWLockSteps : public testing::Test {
 protected:
  RWLockSteps() {
    EXPECT_EQ(KivRWLockInit(nullptr, 0, &lock_, 0, 0), KIV_ST_OK);
    Forget();
  }
  ~RWLockSteps() override {
    Forget();
    EXPECT_EQ(lock_.countAndFlags, 0u);
    EXPECT_EQ(lock_.readerTail, nullptr);
    EXPECT_EQ(lock_.writerTail, nullptr);
    for (KivRWLockTable* table : {&a_, &b_, &c_}) KivRWLockFreeQNodes(table);
  }

  void Read(KivRWLockTable* table) { EXPECT_EQ(KivSdStartRead(nullptr, table, &lock_), KIV_ST_OK); }
  void Write(KivRWLockTable* table) {
    EXPECT_EQ(KivSdStartWrite(nullptr, table, &lock_), KIV_ST_OK);
  }
  void End(KivRWLockTable* table) { EXPECT_EQ(KivSdEndRW(nullptr, table, &lock_), KIV_ST_OK); }

  KivRWLock lock_;
  // Three threads.
  KivRWLockTable a_{};
  KivRWLockTable b_{};
  KivRWLockTable c_{};
};

TEST_F(RWLockSteps, WithoutContentionNoThreadWaitsOrCallsTheKernel) {
  for (int round = 0; round < 3; ++round) {
    Read(&a_);
    Read(&a_);
    End(&a_);
    End(&a_);
    Write(&a_);
    Write(&a_);
    Read(&a_);
    End(&a_);
    End(&a_);
    End(&a_);
  }
  Read(&a_);
  Read(&b_);
  End(&a_);
  End(&b_);
  EXPECT_EQ(TakeTrace(), "");
}

TEST_F(RWLockSteps, ANodeIsMadeOnceAndDestroyedAfterItsLastWakerIsDone) {
  notesMaking = true;
  Read(&a_);
  EXPECT_EQ(TakeTrace(), "MSCE");
  End(&a_);
  Write(&a_);
  End(&a_);
  EXPECT_EQ(TakeTrace(), "");
  EXPECT_EQ(KivRWLockFreeQNodes(&a_), KIV_ST_OK);
  EXPECT_EQ(TakeTrace(), "trmceq") << "after its last waker";
}

TEST_F(RWLockSteps, TheLastReaderWakesTheWriter) {
  Read(&a_);
  Read(&c_);
  plan[1] = [this] {
    End(&a_);
    EXPECT_EQ(trace, "p") << "one still reads";
  };
  plan[2] = [this] { End(&c_); };
  Write(&b_);
  EXPECT_EQ(TakeTrace(), "pptr");
  End(&b_);
}

TEST_F(RWLockSteps, ABatchEntersFromNewestToOldestAndEachReaderCountsItselfFirst) {
  Write(&a_);
  plan[1] = [this] {
    const KivRWLockNode* oldest = lock_.readerTail;
    plan[2] = [this] {
      EXPECT_EQ(lock_.countAndFlags, 4u | 2u | 1u);
      End(&a_);
    };
    plan[3] = [this, oldest] {
      EXPECT_EQ(lock_.countAndFlags, 8u) << "the gate has counted the first";
      EXPECT_EQ(lock_.readerTail, nullptr);
      EXPECT_EQ(oldest->blocked.load(), 1u);
    };
    plan[5] = [this] { EXPECT_EQ(lock_.countAndFlags, 16u) << "and the next one itself"; };
    Read(&c_);
    EXPECT_EQ(oldest->blocked.load(), 0u);
  };
  Read(&b_);
  EXPECT_EQ(TakeTrace(), "pptrtr");
  EXPECT_EQ(lock_.countAndFlags, 16u);
  End(&b_);
  End(&c_);
}

TEST_F(RWLockSteps, AWriterHandsTheLockToTheNextWriterWithTheFlagsUnchanged) {
  Write(&a_);
  plan[1] = [this] {
    End(&a_);
    EXPECT_EQ(lock_.countAndFlags, 3u);
  };
  Write(&b_);
  EXPECT_EQ(TakeTrace(), "ptr");
  End(&b_);
}

// The next writer has exchanged the tail but has not linked itself yet.
TEST_F(RWLockSteps, ALeavingWriterWaitsForTheNextWritersLinkAndRunsItsGate) {
  Write(&a_);
  KivRWLockNode* node = lock_.writerTail;
  KivRWLockNode next{};
  next.lock = &lock_;
  next.blocked.store(1);
  lock_.writerTail = &next;
  plan[2] = [&] {
    EXPECT_EQ(lock_.countAndFlags, 0u) << "cleared meanwhile";
    node->queueLink.store(&next);
  };
  plan[3] = [this] { EXPECT_EQ(lock_.countAndFlags, 3u); };
  End(&a_);
  EXPECT_EQ(TakeTrace(), "pptr");
  EXPECT_EQ(next.blocked.load(), 0u);
  EXPECT_EQ(lock_.writerHead, &next);
  EXPECT_EQ(lock_.writerTail, &next);
  lock_.countAndFlags = 0;
  lock_.writerTail = nullptr;
}

// How a leaving writer waits for the next writer's link.
class SuccessorWait : public RWLockSteps {
 protected:
  // Returns the trace of a release whose successor links itself at letter `until`.
  std::string Leave(size_t until) {
    Write(&a_);
    KivRWLockNode* node = lock_.writerTail;
    KivRWLockNode next{};
    next.lock = &lock_;
    next.blocked.store(1);
    lock_.writerTail = &next;
    plan[until] = [&] { node->queueLink.store(&next); };
    End(&a_);
    plan.clear();
    EXPECT_EQ(next.blocked.load(), 0u);
    lock_.countAndFlags = 0;
    lock_.writerTail = nullptr;
    return TakeTrace();
  }
};

TEST_F(SuccessorWait, SpinsItsBudgetAndYields) {
  lock_.blockingAllowed = 1;
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = 2;
  EXPECT_EQ(Leave(2), "pptr");
  EXPECT_EQ(Leave(3), "ppytr");
  EXPECT_EQ(Leave(7), "ppyppyptr");
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = 0;
  EXPECT_EQ(Leave(3), "yyytr");
}

TEST_F(SuccessorWait, OnlySpinsOnALockThatForbidsBlocking) {
  KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = 2;
  EXPECT_EQ(Leave(300), std::string(300, 'p') + "tr");
}

// The next thread may release and destroy the lock while this thread is still in its release.
TEST_F(RWLockSteps, ALeavingThreadDoesNotReadTheLockAfterWakingTheNext) {
  for (const uint32_t mode : {KIV_RWLOCK_WRITE, KIV_RWLOCK_READ}) {
    SCOPED_TRACE(mode);
    KivRWLock other;
    EXPECT_EQ(KivRWLockInit(nullptr, 0, &other, 0, 2), KIV_ST_OK);
    const auto start = mode == KIV_RWLOCK_WRITE ? KivSdStartWrite : KivSdStartRead;
    EXPECT_EQ(start(nullptr, &a_, &other), KIV_ST_OK);
    Forget();
    plan[1] = [&] { EXPECT_EQ(KivSdEndRW(nullptr, &a_, &other), KIV_ST_OK); };
    // Once the wake mutex is released, the writer is inside and destroys the lock.
    onLetter = [&](char letter) {
      if (letter == 'r') std::memset(static_cast<void*>(&other), 0x7F, sizeof other);
    };
    EXPECT_EQ(KivSdStartWrite(nullptr, &b_, &other), KIV_ST_OK);
    EXPECT_EQ(TakeTrace(), "ptr");
    EXPECT_EQ(a_.active[2], nullptr);
    EXPECT_NE(a_.free[2], nullptr);
    Forget();
    for (KivRWLockTable* table : {&a_, &b_}) KivRWLockFreeQNodes(table);
  }
}

// A forming batch enters before a writer whose gate finds it.
TEST_F(RWLockSteps, AWriterLetsAFormingBatchEnterFirst) {
  lock_.countAndFlags = 4;
  plan[1] = [this] {
    EXPECT_EQ(lock_.countAndFlags, 4u | 1u) << "interested, and not active";
    lock_.countAndFlags = 0;
    lock_.writerHead->blocked.store(0);
  };
  Write(&a_);
  EXPECT_EQ(TakeTrace(), "p");
  lock_.countAndFlags = 3;
  End(&a_);
}

// If the first reader of a batch finds either flag of a writer, it waits for the writer's gate.
TEST_F(RWLockSteps, AReaderWaitsForAnInterestedOrActiveWriter) {
  for (const uint64_t writer : {1u, 2u, 3u}) {
    lock_.countAndFlags = writer;
    plan[1] = [this, writer] {
      EXPECT_EQ(lock_.countAndFlags, 4u | writer);
      // What the gate does.
      lock_.countAndFlags = 8;
      std::exchange(lock_.readerTail, nullptr)->blocked.store(0);
    };
    Read(&a_);
    EXPECT_EQ(TakeTrace(), "p");
    End(&a_);
  }
}

// Sends the next reader through the queue: another batch is forming when it looks at the lock's word,
// and has entered and left when it has joined the queue. Then runs the action once, as soon as the
// word has the given value.
void QueueAndOnce(KivRWLock* lock, uint64_t word, std::function<void()> action) {
  lock->countAndFlags = 4;
  onAccess = [=, queued = false, done = false]() mutable {
    if (!queued && lock->readerTail != nullptr) {
      lock->countAndFlags = 0;
      queued = true;
    } else if (queued && !done && lock->countAndFlags == word) {
      done = true;
      action();
    }
  };
}

// The gate uses the flags that its addition returned.
TEST_F(RWLockSteps, ABatchMakesAnAlreadyInterestedWriterActive) {
  bool came = false;
  QueueAndOnce(&lock_, 4, [&] {
    lock_.countAndFlags = 4 | 1;
    came = true;
  });
  Read(&a_);
  EXPECT_TRUE(came);
  EXPECT_EQ(lock_.countAndFlags, 8u | 2u | 1u);
  lock_.countAndFlags = 8;
  End(&a_);
}

// Without a flag in the word, a reader enters without the queue.
TEST_F(RWLockSteps, AReaderAloneDoesNotTouchTheQueue) {
  bool queued = false;
  onAccess = [&] { queued = queued || lock_.readerTail != nullptr; };
  Read(&a_);
  EXPECT_FALSE(queued);
  EXPECT_EQ(lock_.countAndFlags, 8u);
  Read(&b_);
  EXPECT_FALSE(queued);
  EXPECT_EQ(lock_.countAndFlags, 16u);
  End(&a_);
  End(&b_);
  EXPECT_EQ(lock_.countAndFlags, 0u);
}

TEST_F(RWLockSteps, ABatchIgnoresAWriterThatComesAfterItsGate) {
  bool came = false;
  QueueAndOnce(&lock_, 8, [&] {
    lock_.countAndFlags = 8 | 1;
    came = true;
  });
  Read(&a_);
  EXPECT_TRUE(came);
  EXPECT_EQ(lock_.countAndFlags, 8u | 1u) << "it makes itself active";
  lock_.countAndFlags = 8;
  End(&a_);
}

// The oldest reader of a batch wakes the newest, if that still sleeps, and enters last.
TEST_F(RWLockSteps, TheOldestReaderOfABatchWakesTheNewestAndWaitsForItsTurn) {
  for (const uint32_t blocked : {1u, 0u}) {
    SCOPED_TRACE(blocked);
    KivRWLockNode newest{};
    newest.lock = &lock_;
    newest.blocked.store(blocked);
    KivRWLockNode* oldest = nullptr;
    QueueAndOnce(&lock_, 4, [&] {
      oldest = lock_.readerTail;
      newest.queueLink.store(oldest);
      lock_.readerTail = &newest;
    });
    plan[blocked != 0 ? 3 : 1] = [&] {
      EXPECT_EQ(newest.blocked.load(), 0u);
      EXPECT_EQ(lock_.countAndFlags, 8u) << "the gate has counted the oldest";
      lock_.countAndFlags += 8;  // the newest counts itself
      oldest->blocked.store(0);
    };
    Read(&a_);
    EXPECT_EQ(TakeTrace(), blocked != 0 ? "trp" : "p");
    EXPECT_EQ(lock_.countAndFlags, 16u);
    lock_.countAndFlags = 8;
    End(&a_);
    Forget();
  }
}

// Another reader enters between the look at the word and its change; every access is tried.
TEST_F(RWLockSteps, AReaderAloneCountsItselfBesideAnotherThatEntersAtOnce) {
  for (int32_t chance = 1; chance <= 8; ++chance) {
    SCOPED_TRACE(chance);
    bool came = false;
    onAccess = [&, left = chance]() mutable {
      if (--left != 0 || lock_.countAndFlags != 0) return;
      lock_.countAndFlags = 8;
      came = true;
    };
    Read(&a_);
    Forget();
    EXPECT_EQ(lock_.countAndFlags, came ? 16u : 8u);
    lock_.countAndFlags = 8;
    End(&a_);
  }
}

// A batch forms between the look at the word and its change; every access is tried.
TEST_F(RWLockSteps, AWriterNoticesABatchThatFormsWhileItAnnouncesItself) {
  size_t noticed = 0;
  for (int32_t chance = 1; chance <= 16; ++chance) {
    SCOPED_TRACE(chance);
    onAccess = [this, left = chance]() mutable {
      if (--left == 0 && lock_.countAndFlags == 0) lock_.countAndFlags = 4;
    };
    plan[1] = [&] {
      ++noticed;
      EXPECT_EQ(lock_.countAndFlags, 4u | 1u) << "interested, and not active";
      lock_.countAndFlags = 3;
      lock_.writerHead->blocked.store(0);
    };
    Write(&a_);
    Forget();
    EXPECT_EQ(lock_.countAndFlags, 3u);
    End(&a_);
  }
  EXPECT_GT(noticed, 0u);
}

// The batch enters, and the next writer waits for the batch's last reader.
TEST_F(RWLockSteps, ALeavingWriterAdmitsTheBatchBeforeAnUnlinkedWriter) {
  Write(&a_);
  lock_.countAndFlags |= 4;
  KivRWLockNode* node = lock_.writerTail;
  KivRWLockNode next{};
  next.lock = &lock_;
  next.blocked.store(1);
  KivRWLockNode reader{};
  reader.lock = &lock_;
  reader.blocked.store(1);
  lock_.readerTail = &reader;
  lock_.writerTail = &next;
  plan[3] = [&] { node->queueLink.store(&next); };
  End(&a_);
  EXPECT_EQ(TakeTrace(), "trp") << "the reader enters, and the writer does not";
  EXPECT_EQ(reader.blocked.load(), 0u);
  EXPECT_EQ(next.blocked.load(), 1u);
  EXPECT_EQ(lock_.countAndFlags, 8u | 2u | 1u);
  lock_.countAndFlags = 0;
  lock_.writerTail = nullptr;
}

}  // namespace

// Replaces the measurement.
uint32_t KivGetSpinUpperLimit(int32_t* /*limit*/) { return KIV_ST_OK; }
