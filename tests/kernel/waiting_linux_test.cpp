// Waiting on Linux: nobody starves, signals do not end a wait, and a close does not disturb a
// waiting thread.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::kLimitMs;
using kiv::test::kRoleDone;
using kiv::test::kShortMs;
using kiv::test::Later;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;

constexpr uint32_t kForEverMs = 0xFFFFFFFF;

// An object that one thread at a time can hold.
struct Holdable {
  const char* name;
  std::function<KivHandle()> make;
  uint32_t (*take)(KivHandle* object, uint32_t timeoutMs);
  uint32_t (*give)(KivHandle* object);
  uint32_t (*close)(KivHandle* object);
};

uint32_t TakeSemaphore(KivHandle* object, uint32_t timeoutMs) {
  return KivSdCntSemRequest(nullptr, object, timeoutMs);
}
uint32_t GiveSemaphore(KivHandle* object) { return KivSdCntSemClear(nullptr, object, 1, nullptr); }
uint32_t CloseSemaphore(KivHandle* object) { return KivSdCntSemClose(nullptr, object); }
uint32_t TakeMutex(KivHandle* object, uint32_t timeoutMs) {
  return KivSdMutexRequest(nullptr, object, timeoutMs);
}
uint32_t GiveMutex(KivHandle* object) { return KivSdMutexClear(nullptr, object); }
uint32_t CloseMutex(KivHandle* object) { return KivSdMutexClose(nullptr, object); }
uint32_t TakeGate(KivHandle* object, uint32_t timeoutMs) {
  return KivSdEventWait(nullptr, object, timeoutMs);
}
uint32_t GiveGate(KivHandle* object) { return KivSdEventClear(nullptr, object); }
uint32_t CloseGate(KivHandle* object) { return KivSdEventClose(nullptr, object); }

KivHandle MakeSemaphore(const char* name) {
  KivHandle made = nullptr;
  EXPECT_EQ(KivSdCntSemCreate(nullptr, name, 1, 1, &made), KIV_ST_OK);
  return made;
}

KivHandle MakeMutex(const char* name) {
  KivHandle made = nullptr;
  EXPECT_EQ(KivSdMutexCreate(nullptr, name, &made), KIV_ST_OK);
  return made;
}

KivHandle MakeGate() {
  KivHandle made = nullptr;
  EXPECT_EQ(KivSdEventCreate(nullptr, &made), KIV_ST_OK);
  return made;
}

const Holdable kHoldables[] = {
    {"Semaphore", [] { return MakeSemaphore(nullptr); }, TakeSemaphore, GiveSemaphore,
     CloseSemaphore},
    {"NamedSemaphore", [] { return MakeSemaphore(UniqueName("fair").c_str()); }, TakeSemaphore,
     GiveSemaphore, CloseSemaphore},
    {"Mutex", [] { return MakeMutex(nullptr); }, TakeMutex, GiveMutex, CloseMutex},
    {"NamedMutex", [] { return MakeMutex(UniqueName("fair").c_str()); }, TakeMutex, GiveMutex,
     CloseMutex},
    {"Gate", MakeGate, TakeGate, GiveGate, CloseGate}};

class EveryHoldable : public testing::TestWithParam<Holdable> {
 protected:
  void SetUp() override { object_ = GetParam().make(); }
  void TearDown() override { EXPECT_EQ(GetParam().close(&object_), KIV_ST_OK); }

  uint32_t Take(uint32_t timeoutMs) { return GetParam().take(&object_, timeoutMs); }
  uint32_t Give() { return GetParam().give(&object_); }

  KivHandle object_ = nullptr;
};

// All threads that this one starts run on one processor too.
void StayOnOneProcessor() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
  pthread_setaffinity_np(pthread_self(), sizeof one, &one);
}

// The system then does not put the calling thread in another's place as soon as it is woken. Such
// luck would hide that a waiter can starve.
void WaitForNextSlice() {
  const sched_param none = {0};
  sched_setscheduler(0, SCHED_BATCH, &none);
}

void Work(double milliseconds) {
  const Stopwatch watch;
  while (watch.ElapsedMs() < milliseconds) {
  }
}

// One thread takes the object again as soon as it has given it back. It counts how often it does so
// while the other thread waits. The count does not depend on how busy the machine is.
TEST_P(EveryHoldable, ReachesAWaiterAlthoughAnotherThreadTakesItInALoop) {
  constexpr int kWaits = 20;
  constexpr double kHoldMs = 0.02;
  constexpr uint64_t kMostPasses = 2'500;  // 50 ms of the looping thread
  std::atomic<bool> done{false};
  std::atomic<uint64_t> passes{0};
  uint64_t most = 0;
  std::thread([&] {
    StayOnOneProcessor();
    std::thread looping([&] {
      while (!done) {
        EXPECT_EQ(Take(kForEverMs), KIV_ST_OK);
        Work(kHoldMs);
        EXPECT_EQ(Give(), KIV_ST_OK);
        ++passes;
      }
    });
    WaitForNextSlice();
    for (int i = 0; i < kWaits; ++i) {
      const uint64_t before = passes;
      EXPECT_EQ(Take(kForEverMs), KIV_ST_OK);
      most = std::max(most, passes - before);
      EXPECT_EQ(Give(), KIV_ST_OK);
      Work(kHoldMs * 10);
    }
    done = true;
    looping.join();
  }).join();
  EXPECT_LT(most, kMostPasses);
}

// Three threads that loop and one that waits now and then.
TEST_P(EveryHoldable, ReachesAWaiterAmongSeveralLoopingThreads) {
  constexpr int kWaits = 20;
  std::atomic<bool> done{false};
  std::vector<std::thread> looping;
  for (int i = 0; i < 3; ++i) {
    looping.emplace_back([&] {
      while (!done) {
        EXPECT_EQ(Take(kForEverMs), KIV_ST_OK);
        EXPECT_EQ(Give(), KIV_ST_OK);
      }
    });
  }
  for (int i = 0; i < kWaits; ++i) {
    EXPECT_EQ(Take(kLimitMs), KIV_ST_OK);
    EXPECT_EQ(Give(), KIV_ST_OK);
  }
  done = true;
  for (std::thread& thread : looping) thread.join();
}

void DoNothing(int) {}

// Sends a signal with a handler, and without SA_RESTART, to the calling thread until the end.
class Signals {
 public:
  Signals() : target_(pthread_self()) {
    struct sigaction action = {};
    action.sa_handler = DoNothing;
    sigaction(SIGUSR1, &action, &before_);
    sender_ = std::thread([this] {
      while (!done_) {
        pthread_kill(target_, SIGUSR1);
        ++sent_;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  }
  ~Signals() {
    done_ = true;
    sender_.join();
    sigaction(SIGUSR1, &before_, nullptr);
    EXPECT_GT(sent_, 0);
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

 private:
  pthread_t target_;
  struct sigaction before_ = {};
  std::atomic<bool> done_{false};
  std::atomic<int> sent_{0};
  std::thread sender_;
};

// Holds the object on a thread of its own until the end of the scope.
class Holder {
 public:
  Holder(const Holdable& kind, KivHandle* object)
      : thread_([this, kind, object] {
          EXPECT_EQ(kind.take(object, 0), KIV_ST_OK);
          holds_ = true;
          while (!done_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
          EXPECT_EQ(kind.give(object), KIV_ST_OK);
        }) {
    while (!holds_) std::this_thread::yield();
  }
  ~Holder() {
    done_ = true;
    thread_.join();
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

 private:
  std::atomic<bool> holds_{false};
  std::atomic<bool> done_{false};
  std::thread thread_;
};

TEST_P(EveryHoldable, WaitsOutItsTimeAlthoughSignalsArrive) {
  const Holder holder(GetParam(), &object_);
  const Signals signals;
  const Stopwatch watch;
  EXPECT_NE(Take(kShortMs), KIV_ST_OK);
  EXPECT_GE(watch.ElapsedMs(), kShortMs);
  EXPECT_LT(watch.ElapsedMs(), kLimitMs);
}

TEST_P(EveryHoldable, IsReachedAlthoughSignalsArrive) {
  const Signals signals;
  auto* holder = new Holder(GetParam(), &object_);
  const Later giveBack([holder] { delete holder; });
  EXPECT_EQ(Take(kForEverMs), KIV_ST_OK);
  EXPECT_EQ(Give(), KIV_ST_OK);
}

INSTANTIATE_TEST_SUITE_P(All, EveryHoldable, testing::ValuesIn(kHoldables),
                         [](const auto& object) { return object.param.name; });

// ---- Events ----

// A signal reaches the thread that waits for it, even if it is taken back at once. A waiter that is
// not yet asleep may miss it; the second signal ends its wait.
TEST(StandardEventPulse, ReachesTheThreadThatWaits) {
  constexpr int kRounds = 30;
  int missed = 0;
  for (int round = 0; round < kRounds; ++round) {
    KivHandle event = nullptr;
    ASSERT_EQ(KivSdStdEventCreate(nullptr, &event), KIV_ST_OK);
    std::atomic<bool> passed{false};
    std::thread waiter([&] {
      EXPECT_EQ(KivSdStdEventWait(nullptr, &event), KIV_ST_OK);
      passed = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(KivSdStdEventSet(nullptr, &event), KIV_ST_OK);
    ASSERT_EQ(KivSdStdEventReset(nullptr, &event), KIV_ST_OK);
    const Stopwatch watch;
    while (!passed && watch.ElapsedMs() < 500) std::this_thread::yield();
    if (!passed) ++missed;
    ASSERT_EQ(KivSdStdEventSet(nullptr, &event), KIV_ST_OK);
    waiter.join();
    ASSERT_EQ(KivSdStdEventClose(nullptr, &event), KIV_ST_OK);
  }
  EXPECT_LT(missed, kRounds / 2);
}

// A thread that waits for the event and that the test stops in a signal handler, like one that gets
// no processor.
class StoppedWaiter {
 public:
  explicit StoppedWaiter(KivHandle* event)
      : thread_([this, event] {
          waits_ = true;
          status_ = KivSdStdEventTimedWait(nullptr, event, kLimitMs);
          hasPassed_ = true;
        }) {
    while (!waits_) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
    struct sigaction action = {};
    action.sa_sigaction = StayStopped;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGUSR2, &action, nullptr);
    pthread_sigqueue(thread_.native_handle(), SIGUSR2, {.sival_ptr = this});
    while (!isStopped_) std::this_thread::yield();
  }
  ~StoppedWaiter() { GoOn(); }
  StoppedWaiter(const StoppedWaiter&) = delete;
  StoppedWaiter& operator=(const StoppedWaiter&) = delete;

  // Returns the status of the wait.
  uint32_t GoOn() {
    mayGoOn_ = true;
    if (thread_.joinable()) thread_.join();
    return status_;
  }
  bool HasPassed() const { return hasPassed_; }

 private:
  static void StayStopped(int, siginfo_t* signal, void*) {
    auto* waiter = static_cast<StoppedWaiter*>(signal->si_value.sival_ptr);
    waiter->isStopped_ = true;
    while (!waiter->mayGoOn_) usleep(1000);
  }

  std::atomic<bool> waits_{false};
  std::atomic<bool> isStopped_{false};
  std::atomic<bool> mayGoOn_{false};
  std::atomic<bool> hasPassed_{false};
  uint32_t status_ = 0;
  std::thread thread_;
};

// Two threads wait and get a signal each. A thread that begins to wait afterwards must not pass in
// place of the second one when the first one passes.
TEST(StandardEventSignals, GoToTheThreadsThatWaitedForThem) {
  KivHandle event = nullptr;
  ASSERT_EQ(KivSdStdEventCreate(nullptr, &event), KIV_ST_OK);
  {
    StoppedWaiter first(&event);
    StoppedWaiter second(&event);
    ASSERT_EQ(KivSdStdEventSet(nullptr, &event), KIV_ST_OK);
    ASSERT_EQ(KivSdStdEventSet(nullptr, &event), KIV_ST_OK);
    const Later passes([&] { EXPECT_EQ(first.GoOn(), KIV_ST_OK); });
    EXPECT_EQ(KivSdStdEventTimedWait(nullptr, &event, 5 * kShortMs), KIV_ST_EVENT_TIMEOUT);
    EXPECT_TRUE(first.HasPassed());
    EXPECT_EQ(second.GoOn(), KIV_ST_OK);
  }
  EXPECT_EQ(KivSdStdEventClose(nullptr, &event), KIV_ST_OK);
}

// ---- Closing ----

TEST(ClosedSemaphore, LeavesAWaitingThreadToItsTimeOut) {
  Context ctx;
  KivHandle semaphore = nullptr;
  CHECK_OK(ctx, KivSdCntSemCreate(ctx, nullptr, 0, 1, &semaphore));
  Context waiting;
  std::thread waiter([&] { KivSdCntSemRequest(waiting, &semaphore, 10 * kShortMs); });
  std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
  CHECK_OK(ctx, KivSdCntSemClose(ctx, &semaphore));
  CHECK_OUTCOME(ctx, KivSdCntSemClear(ctx, &semaphore, 1, nullptr), KIV_ST_SEM_CLEAR,
                static_cast<uint32_t>(EBADF));
  waiter.join();
  kiv::test::ExpectOutcome(waiting, waiting.status(), KIV_ST_SEM_TIMEOUT, 258u);
}

// Threads use handles while another thread closes them and makes new objects in their slots.
TEST(ClosedObjects, AreNeverTakenForTheNextObjectOfTheirSlot) {
  constexpr int kRounds = 3'000;
  std::atomic<KivHandle> current{nullptr};
  std::atomic<bool> done{false};
  std::atomic<int> wrong{0};
  std::thread user([&] {
    while (!done) {
      KivHandle handle = current;
      Context ctx;
      const uint32_t status = KivSdCntSemRequest(ctx, &handle, 0);
      const bool isClosed = ctx.osError() == static_cast<uint32_t>(EBADF);
      if (status != KIV_ST_OK && !isClosed && status != KIV_ST_SEM_TIMEOUT) ++wrong;
    }
  });
  for (int round = 0; round < kRounds; ++round) {
    KivHandle semaphore = MakeSemaphore(nullptr);
    current = semaphore;
    KivHandle mutex = MakeMutex(nullptr);
    EXPECT_EQ(TakeMutex(&mutex, 0), KIV_ST_OK);
    EXPECT_EQ(CloseSemaphore(&semaphore), KIV_ST_OK);
    KivHandle gate = MakeGate();
    EXPECT_EQ(TakeGate(&gate, 0), KIV_ST_OK) << "nobody else may have passed";
    EXPECT_EQ(CloseGate(&gate), KIV_ST_OK);
    EXPECT_EQ(GiveMutex(&mutex), KIV_ST_OK);
    EXPECT_EQ(CloseMutex(&mutex), KIV_ST_OK);
  }
  done = true;
  user.join();
  EXPECT_EQ(wrong, 0);
}

// ---- Mutexes that are closed while they are owned ----

TEST(OwnedMutex, CanBeClosedByItsOwner) {
  for (int i = 0; i < 100; ++i) {
    KivHandle mutex = MakeMutex(i % 2 == 0 ? nullptr : UniqueName("owned").c_str());
    EXPECT_EQ(TakeMutex(&mutex, 0), KIV_ST_OK);
    EXPECT_EQ(TakeMutex(&mutex, 0), KIV_ST_OK);
    EXPECT_EQ(CloseMutex(&mutex), KIV_ST_OK);
  }
}

// The second time frees the records of the first, whose owner has ended.
TEST(OwnedMutex, CanBeClosedWhileAnotherThreadOwnsIt) {
  for (const bool named : {false, false, true}) {
    std::atomic<int> held{0};
    std::atomic<bool> done{false};
    constexpr int kMutexes = 20;
    std::vector<KivHandle> mutexes;
    for (int i = 0; i < kMutexes; ++i) {
      mutexes.push_back(MakeMutex(named ? UniqueName("foreign").c_str() : nullptr));
    }
    std::thread owner([&] {
      for (KivHandle& mutex : mutexes) EXPECT_EQ(TakeMutex(&mutex, 0), KIV_ST_OK);
      held = kMutexes;
      while (!done) std::this_thread::yield();
    });
    while (held == 0) std::this_thread::yield();
    for (KivHandle& mutex : mutexes) EXPECT_EQ(CloseMutex(&mutex), KIV_ST_OK);
    done = true;
    owner.join();  // the kernel walks the list of the mutexes that the thread owns
    KivHandle other = MakeMutex(named ? UniqueName("foreign").c_str() : nullptr);
    EXPECT_EQ(CloseMutex(&other), KIV_ST_OK);
  }
}

// The thread that forks owns its mutexes in the parent only.
TEST(OwnedMutex, IsNotOwnedByAForkedChild) {
  for (const bool named : {false, true}) {
    KivHandle mutex = MakeMutex(named ? UniqueName("forked").c_str() : nullptr);
    EXPECT_EQ(TakeMutex(&mutex, 0), KIV_ST_OK);
    const pid_t child = fork();
    if (child == 0) {
      Context ctx;
      const bool isRefused = KivSdMutexClear(ctx, &mutex) == KIV_ST_MUTEX_CLEAR &&
                             ctx.osError() == static_cast<uint32_t>(EPERM) &&
                             TakeMutex(&mutex, 0) == KIV_ST_MUTEX_TIMEOUT;
      _exit(isRefused ? 0 : 1);
    }
    int outcome = -1;
    ASSERT_EQ(waitpid(child, &outcome, 0), child);
    EXPECT_EQ(outcome, 0);
    EXPECT_EQ(GiveMutex(&mutex), KIV_ST_OK);
    EXPECT_EQ(CloseMutex(&mutex), KIV_ST_OK);
  }
}

// {name}: a thread takes the mutex. The process closes its handle, lets the thread end, and uses
// another name, which frees what the process no longer needs.
const RegisteredRole abandonerRole("closes-and-abandons", [](const RoleArguments& arguments) {
  std::atomic<bool> held{false};
  std::atomic<bool> done{false};
  KivHandle mutex = MakeMutex(arguments[0].c_str());
  std::thread owner([&] {
    EXPECT_EQ(TakeMutex(&mutex, 0), KIV_ST_OK);
    held = true;
    while (!done) std::this_thread::yield();
  });
  while (!held) std::this_thread::yield();
  KivHandle closed = mutex;
  EXPECT_EQ(CloseMutex(&closed), KIV_ST_OK);
  done = true;
  owner.join();
  KivHandle other = MakeMutex(UniqueName("other").c_str());
  EXPECT_EQ(CloseMutex(&other), KIV_ST_OK);
  return kRoleDone;
});

TEST(OwnedMutex, IsAbandonedByAThreadThatEndsAfterItsHandleWasClosed) {
  const std::string name = UniqueName("abandoned");
  KivHandle mutex = MakeMutex(name.c_str());
  const ChildProcess child("closes-and-abandons", {name});
  EXPECT_EQ(child.ExitCode(), kRoleDone);
  Context ctx;
  CHECK_OUTCOME(ctx, KivSdMutexRequest(ctx, &mutex, kLimitMs), KIV_ST_MUTEX_REQUEST,
                static_cast<uint32_t>(EOWNERDEAD));
  EXPECT_EQ(GiveMutex(&mutex), KIV_ST_OK);
  EXPECT_EQ(CloseMutex(&mutex), KIV_ST_OK);
}

}  // namespace
