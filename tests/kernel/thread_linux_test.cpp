// Threads on Linux: checked handles, threads that the library did not start, stopping by a signal,
// priorities as nice values, forks, and names for debuggers.
#include <alloca.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/sanitizers.h"
#include "support/system_info.h"
#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::ExitCodeOf;
using kiv::test::kLimitMs;
using kiv::test::kRoleDone;
using kiv::test::kShortMs;
using kiv::test::kUnderAddressSanitizer;
using kiv::test::kUnderThreadSanitizer;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::Stopwatch;

constexpr uint32_t kForEverMs = 0xFFFFFFFF;
constexpr int kThreads = 8;

bool EndsWithin(KivHandle thread, uint32_t timeoutMs) {
  return KivSdEventWait(nullptr, &thread, timeoutMs) == KIV_ST_OK;
}

KivHandle Start(KivSdThreadRoutine routine, void* argument, uint32_t stackBytes = 0) {
  Context ctx;
  uint32_t id = 0;
  KivHandle thread = nullptr;
  CHECK_OK(ctx, KivSdThreadCreate(ctx, routine, 0, stackBytes, argument, &id, &thread));
  return thread;
}

void JoinAndClose(KivHandle thread) {
  Context ctx;
  CHECK_OK(ctx, KivSdThreadJoin(ctx, &thread));
  CHECK_OK(ctx, KivSdThreadDelete(ctx, &thread));
}

// Counts until it is told to end.
struct Counter {
  std::atomic<uint64_t> count{0};
  std::atomic<bool> mayEnd{false};
  std::atomic<bool> hasEnded{false};

  void AwaitProgress() const {
    const uint64_t before = count;
    const Stopwatch watch;
    while (count == before && watch.ElapsedMs() < kLimitMs) std::this_thread::yield();
    EXPECT_NE(count, before) << "the thread does not run";
  }
};

uint32_t Count(void* argument) {
  auto* counter = static_cast<Counter*>(argument);
  while (!counter->mayEnd) ++counter->count;
  counter->hasEnded = true;
  return 3;
}

// ---- Handles ----

TEST(ThreadHandle, IsRefusedIfItWasNeverMade) {
  Context ctx;
  int32_t priority = 0;
  for (const uintptr_t number : {uintptr_t{0}, uintptr_t{1}, uintptr_t{0x5A50}, uintptr_t{1} << 31,
                                 uintptr_t{1} << 40, UINTPTR_MAX}) {
    auto thread = reinterpret_cast<KivHandle>(number);
    CHECK_OUTCOME(ctx, KivSdThreadDelete(ctx, &thread), KIV_ST_THREAD_DELETE, uint32_t{EBADF});
    CHECK_OUTCOME(ctx, KivSdThreadPriorityGet(ctx, &thread, &priority), KIV_ST_THREAD_PRIORITY_GET,
                  uint32_t{EBADF});
    CHECK_OK(ctx, KivSdThreadJoin(ctx, &thread));
    CHECK_OK(ctx, KivSdThreadSuspend(ctx, &thread));
    CHECK_OK(ctx, KivSdThreadResume(ctx, &thread));
  }
}

TEST(ThreadHandle, IsRefusedIfItIsAnotherKinds) {
  Context ctx;
  KivHandle event = nullptr;
  ASSERT_EQ(KivSdEventCreate(nullptr, &event), KIV_ST_OK);
  CHECK_OUTCOME(ctx, KivSdThreadDelete(ctx, &event), KIV_ST_THREAD_DELETE, uint32_t{EBADF});
  EXPECT_EQ(KivSdEventClose(nullptr, &event), KIV_ST_OK);
}

TEST(ThreadHandle, OfManyThreadsComesAndGoesWithoutALeak) {
  constexpr int kRounds = 2000;
  std::atomic<int> ran{0};
  const auto run = [](void* argument) -> uint32_t {
    ++*static_cast<std::atomic<int>*>(argument);
    return 0;
  };
  Context ctx;
  for (int round = 0; round < kRounds; ++round) {
    KivHandle thread = Start(run, &ran);
    if (round % 2 == 0) CHECK_OK(ctx, KivSdThreadJoin(ctx, &thread));
    CHECK_OK(ctx, KivSdThreadDelete(ctx, &thread));
  }
  const Stopwatch watch;
  while (ran != kRounds && watch.ElapsedMs() < kLimitMs) std::this_thread::yield();
  EXPECT_EQ(ran, kRounds);
}

// ---- Joining ----

TEST(ThreadJoin, ReturnsInManyThreadsAndMoreThanOnce) {
  Counter counter;
  KivHandle thread = Start(Count, &counter);
  std::atomic<int> joined{0};
  std::vector<std::thread> joiners;
  for (int i = 0; i < kThreads; ++i) {
    joiners.emplace_back([&] {
      for (int times = 0; times < 2; ++times) {
        EXPECT_EQ(KivSdThreadJoin(nullptr, &thread), KIV_ST_OK);
        EXPECT_TRUE(EndsWithin(thread, 0));
      }
      ++joined;
    });
  }
  EXPECT_FALSE(EndsWithin(thread, kShortMs));
  EXPECT_EQ(joined, 0);
  counter.mayEnd = true;
  for (std::thread& joiner : joiners) joiner.join();
  EXPECT_EQ(ExitCodeOf(thread), 3u);
  JoinAndClose(thread);
}

TEST(ThreadJoin, ContinuesWhileAnotherThreadClosesTheHandle) {
  for (int round = 0; round < 200; ++round) {
    Counter counter;
    KivHandle thread = Start(Count, &counter);
    std::thread joiner([&] { EXPECT_EQ(KivSdThreadJoin(nullptr, &thread), KIV_ST_OK); });
    EXPECT_EQ(KivSdThreadDelete(nullptr, &thread), KIV_ST_OK);
    counter.mayEnd = true;
    joiner.join();
    while (!counter.hasEnded) std::this_thread::yield();
  }
}

TEST(ThreadJoin, ComesAfterTheHostsThreadSpecificValuesAreDestroyed) {
  static std::atomic<bool> isDestroyed;
  static pthread_key_t key;
  isDestroyed = false;
  ASSERT_EQ(pthread_key_create(&key,
                               [](void*) {
                                 std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));
                                 uint32_t id = 0;
                                 EXPECT_EQ(KivSdThreadIdGet(nullptr, &id), KIV_ST_OK);
                                 EXPECT_EQ(KivSdThreadPrioritySet(nullptr, nullptr, 0), KIV_ST_OK);
                                 isDestroyed = true;
                               }),
            0);
  const auto use = [](void*) -> uint32_t {
    pthread_setspecific(key, &key);
    return 0;
  };
  JoinAndClose(Start(use, nullptr));
  EXPECT_TRUE(isDestroyed);
  pthread_key_delete(key);
}

// ---- Ends of threads ----

struct Local {
  explicit Local(std::atomic<int>* counter) : ended(counter) {}
  ~Local() { ++*ended; }
  std::atomic<int>* ended;
};

uint32_t ExitBelowALocal(void* argument) {
  const Local local(static_cast<std::atomic<int>*>(argument));
  KivSdThreadExit(nullptr, 77);
  return 1;
}

TEST(ThreadExit, RunsNoDestructorOfTheFramesOfAThreadOfTheLibrary) {
  std::atomic<int> ended{0};
  KivHandle thread = Start(ExitBelowALocal, &ended);
  EXPECT_TRUE(EndsWithin(thread, kLimitMs));
  EXPECT_EQ(ExitCodeOf(thread), 77u);
  EXPECT_EQ(ended, 0);
  JoinAndClose(thread);
}

// Through frames that let no exception pass.
TEST(ThreadExit, PassesFunctionsThatAreNoexcept) {
  const auto exit = [](void*) noexcept -> uint32_t {
    KivSdThreadExit(nullptr, 5);
    return 1;
  };
  KivHandle thread = Start(exit, nullptr);
  EXPECT_TRUE(EndsWithin(thread, kLimitMs));
  EXPECT_EQ(ExitCodeOf(thread), 5u);
  JoinAndClose(thread);
}

TEST(ThreadExit, EndsAThreadThatTheHostStarted) {
  pthread_t thread;
  const auto exit = [](void*) -> void* {
    KivSdThreadExit(nullptr, 6);
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, exit, nullptr), 0);
  void* code = nullptr;
  EXPECT_EQ(pthread_join(thread, &code), 0);
  EXPECT_EQ(code, reinterpret_cast<void*>(uintptr_t{6}));
}

TEST(Thread, EndsIfTheHostCallsTheSystemsExit) {
  const auto exit = [](void*) -> uint32_t {
    pthread_exit(nullptr);
    return 1;
  };
  JoinAndClose(Start(exit, nullptr));
}

TEST(Thread, HasAStackOfAMebibyteAtLeast) {
  const auto fill = [](void*) -> uint32_t {
    constexpr size_t kBytes = 900'000;
    auto* bytes = static_cast<volatile unsigned char*>(alloca(kBytes));
    for (size_t i = 0; i < kBytes; i += 1000) bytes[i] = 1;
    return bytes[1000];
  };
  KivHandle thread = Start(fill, nullptr, 1024);
  EXPECT_TRUE(EndsWithin(thread, kLimitMs));
  EXPECT_EQ(ExitCodeOf(thread), 1u);
  JoinAndClose(thread);
}

TEST(Thread, CannotBeStartedWithAStackBeyondTheLimit) {
  if (kUnderThreadSanitizer || kUnderAddressSanitizer) GTEST_SKIP() << "needs address space";
  const auto nothing = [](void*) -> uint32_t { return 0; };
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
  rlimit small = before;
  small.rlim_cur = rlim_t{1} << 30;
  if (setrlimit(RLIMIT_AS, &small) != 0) GTEST_SKIP() << "the limit cannot be set";
  Context ctx;
  uint32_t id = 4711;
  KivHandle thread = &ctx;
  const uint32_t status = KivSdThreadCreate(ctx, nothing, 0, 0xFFFF0000, nullptr, &id, &thread);
  setrlimit(RLIMIT_AS, &before);
  EXPECT_EQ(status, KIV_ST_THREAD_CREATE);
  EXPECT_EQ(ctx.osError(), uint32_t{EAGAIN});
  EXPECT_EQ(thread, nullptr);
  EXPECT_EQ(id, 4711u);
}

// ---- Threads that the library did not start ----

TEST(ForeignThread, CanBeWaitedForAndRanked) {
  Context ctx;
  KivHandle foreign = nullptr;
  std::atomic<bool> hasHandle{false};
  std::atomic<bool> mayEnd{false};
  std::thread thread([&] {
    EXPECT_EQ(KivSdThreadHandleGet(nullptr, &foreign), KIV_ST_OK);
    hasHandle = true;
    while (!mayEnd) std::this_thread::yield();
  });
  while (!hasHandle) std::this_thread::yield();
  EXPECT_FALSE(EndsWithin(foreign, kShortMs));
  CHECK_OK(ctx, KivSdThreadPrioritySet(ctx, &foreign, -2));
  int32_t priority = 0;
  CHECK_OK(ctx, KivSdThreadPriorityGet(ctx, &foreign, &priority));
  EXPECT_EQ(priority, -2);
  mayEnd = true;
  CHECK_OK(ctx, KivSdThreadJoin(ctx, &foreign));
  thread.join();
  EXPECT_TRUE(EndsWithin(foreign, 0));
  CHECK_OK(ctx, KivSdThreadDelete(ctx, &foreign));
}

TEST(ForeignThread, WaitsForItselfUntilTheTimeIsOver) {
  KivHandle self = nullptr;
  ASSERT_EQ(KivSdThreadHandleGet(nullptr, &self), KIV_ST_OK);
  Context ctx;
  const Stopwatch watch;
  CHECK_OUTCOME(ctx, KivSdEventWait(ctx, &self, kShortMs), KIV_ST_EVENT_TIMEOUT, 258u);
  EXPECT_GE(watch.ElapsedMs(), kiv::test::kShortAtLeastMs);
  EXPECT_EQ(KivSdThreadDelete(nullptr, &self), KIV_ST_OK);
}

// ---- Stopping ----

TEST(ThreadSuspend, StopsAThreadThatComputes) {
  if (kUnderThreadSanitizer) GTEST_SKIP() << "the signal comes too late";
  Context ctx;
  Counter counter;
  KivHandle thread = Start(Count, &counter);
  for (int round = 0; round < 20; ++round) {
    counter.AwaitProgress();
    CHECK_OK(ctx, KivSdThreadSuspend(ctx, &thread));
    const uint64_t stopped = counter.count;
    CHECK_OK(ctx, KivSdThreadSuspend(ctx, &thread));
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(counter.count, stopped);
    CHECK_OK(ctx, KivSdThreadResume(ctx, &thread));
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(counter.count, stopped) << "stopped twice, resumed once";
    CHECK_OK(ctx, KivSdThreadResume(ctx, &thread));
  }
  counter.mayEnd = true;
  JoinAndClose(thread);
}

TEST(ThreadSuspend, IsUndoneByAResumeOfAnyThreadAtAnyTime) {
  if (kUnderThreadSanitizer) GTEST_SKIP() << "the signal comes too late";
  Counter counter;
  KivHandle thread = Start(Count, &counter);
  std::vector<std::thread> controllers;
  for (int i = 0; i < 4; ++i) {
    controllers.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(KivSdThreadSuspend(nullptr, &thread), KIV_ST_OK);
        EXPECT_EQ(KivSdThreadResume(nullptr, &thread), KIV_ST_OK);
      }
    });
  }
  for (std::thread& controller : controllers) controller.join();
  counter.AwaitProgress();
  counter.mayEnd = true;
  JoinAndClose(thread);
}

TEST(ThreadSuspend, DoesNotEndTheWaitsOfTheThread) {
  if (kUnderThreadSanitizer) GTEST_SKIP() << "the signal comes too late";
  KivHandle event = nullptr;
  ASSERT_EQ(KivSdEventCreate(nullptr, &event), KIV_ST_OK);
  ASSERT_EQ(KivSdEventWait(nullptr, &event, 0), KIV_ST_OK);
  const auto wait = [](void* argument) -> uint32_t {
    return KivSdEventWait(nullptr, static_cast<KivHandle*>(argument), kForEverMs);
  };
  KivHandle thread = Start(wait, &event);
  for (int round = 0; round < 10; ++round) {
    EXPECT_EQ(KivSdThreadSuspend(nullptr, &thread), KIV_ST_OK);
    EXPECT_EQ(KivSdThreadResume(nullptr, &thread), KIV_ST_OK);
  }
  EXPECT_FALSE(EndsWithin(thread, kShortMs));
  EXPECT_EQ(KivSdEventClear(nullptr, &event), KIV_ST_OK);
  EXPECT_TRUE(EndsWithin(thread, kLimitMs));
  EXPECT_EQ(ExitCodeOf(thread), KIV_ST_OK);
  JoinAndClose(thread);
  EXPECT_EQ(KivSdEventClose(nullptr, &event), KIV_ST_OK);
}

TEST(ThreadSuspend, OfAnEndedThreadDoesNothing) {
  KivHandle thread = Start([](void*) -> uint32_t { return 0; }, nullptr);
  EXPECT_TRUE(EndsWithin(thread, kLimitMs));
  EXPECT_EQ(KivSdThreadSuspend(nullptr, &thread), KIV_ST_OK);
  JoinAndClose(thread);
}

// The host has a handler for the signal: the library leaves it alone and stops nothing.
std::atomic<int> hostsSignals{0};
const RegisteredRole hostOfTheSignal("handles-the-signal", [](const RoleArguments&) {
  struct sigaction action = {};
  action.sa_handler = [](int) { ++hostsSignals; };
  sigaction(SIGRTMAX - 5, &action, nullptr);
  Counter counter;
  KivHandle thread = Start(Count, &counter);
  EXPECT_EQ(KivSdThreadSuspend(nullptr, &thread), KIV_ST_OK);
  counter.AwaitProgress();
  EXPECT_EQ(hostsSignals, 0);
  struct sigaction found = {};
  sigaction(SIGRTMAX - 5, nullptr, &found);
  EXPECT_EQ(found.sa_handler, action.sa_handler);
  counter.mayEnd = true;
  JoinAndClose(thread);
  return kRoleDone;
});

TEST(ThreadSuspend, LeavesAHandlerOfTheHostAlone) {
  EXPECT_EQ(ChildProcess("handles-the-signal").ExitCode(), kRoleDone);
}

// Without a stop, no handler is installed and no signal is sent.
const RegisteredRole neverStops("never-stops", [](const RoleArguments&) {
  JoinAndClose(Start([](void*) -> uint32_t { return 0; }, nullptr));
  for (int number = 1; number <= SIGRTMAX; ++number) {
    struct sigaction found = {};
    if (sigaction(number, nullptr, &found) != 0) continue;
    EXPECT_EQ(found.sa_handler, SIG_DFL) << number;
  }
  return kRoleDone;
});

TEST(Thread, TakesNoSignalFromTheHost) {
  if (kUnderThreadSanitizer || kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer has handlers";
  EXPECT_EQ(ChildProcess("never-stops").ExitCode(), kRoleDone);
}

// ---- Priorities ----

TEST(ThreadPriority, IsTheNiceValueOfTheThreadAlone) {
  if (geteuid() != 0) GTEST_SKIP() << "raising a priority needs rights";
  Context ctx;
  const int own = getpriority(PRIO_PROCESS, 0);
  Counter counter;
  uint32_t id = 0;
  KivHandle thread = nullptr;
  CHECK_OK(ctx, KivSdThreadCreate(ctx, Count, 0, 0, &counter, &id, &thread));
  int last = 20;
  for (const int32_t priority : {-15, -2, -1, 0, 1, 2}) {
    CHECK_OK(ctx, KivSdThreadPrioritySet(ctx, &thread, priority));
    const int nice = getpriority(PRIO_PROCESS, id);
    EXPECT_LT(nice, last) << priority;
    last = nice;
  }
  EXPECT_EQ(getpriority(PRIO_PROCESS, 0), own);
  counter.mayEnd = true;
  JoinAndClose(thread);
}

TEST(ThreadPriority, RefusesTheGapsOfTheScale) {
  Context ctx;
  for (const int32_t priority : {-16, -14, -7, -3, 3, 6, 14, 16, INT32_MIN, INT32_MAX}) {
    CHECK_OUTCOME(ctx, KivSdThreadPrioritySet(ctx, nullptr, priority), KIV_ST_THREAD_PRIORITY_SET,
                  uint32_t{EINVAL});
  }
}

// ---- Forks ----

TEST(Fork, GivesTheChildsThreadItsOwnIdentifier) {
  uint32_t parents = 0;
  ASSERT_EQ(KivSdThreadIdGet(nullptr, &parents), KIV_ST_OK);
  const pid_t child = fork();
  if (child == 0) {
    uint32_t id = 0;
    const bool isOwn = KivSdThreadIdGet(nullptr, &id) == KIV_ST_OK && id != parents &&
                       id == static_cast<uint32_t>(gettid());
    _exit(isOwn ? 7 : 8);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

// ---- Names ----

std::set<std::string> ThreadNames() {
  std::set<std::string> names;
  DIR* threads = opendir("/proc/self/task");
  while (const dirent* entry = readdir(threads)) {
    std::string name;
    std::getline(std::ifstream("/proc/self/task/" + std::string(entry->d_name) + "/comm"), name);
    names.insert(name);
  }
  closedir(threads);
  return names;
}

TEST(ThreadNames, ShowTheThreadsThatMeasureTheSpinBudget) {
  if (KivSdCPUCountGet() == 1) GTEST_SKIP() << "one processor is not measured";
  std::thread measuring([] {
    int32_t limit = 0;
    EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
  });
  bool haveNames = false;
  const Stopwatch watch;
  while (!haveNames && watch.ElapsedMs() < kLimitMs) {
    const std::set<std::string> names = ThreadNames();
    haveNames = names.count("kivsdu timing") == 1 && names.count("kivsdu echo") == 1;
  }
  measuring.join();
  EXPECT_TRUE(haveNames);
}

}  // namespace
