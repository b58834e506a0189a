// Threads and processes on Linux: rare answers of the system's calls, signals that the host uses
// itself, and what other threads do between two steps of an operation.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "kivsdu/kivsdu.h"
#include "os/lnx/futex.h"
#include "os/lnx/nice.h"
#include "os/lnx/thread_record.h"
#include "os/lnx/waits.h"
#include "os/process.h"
#include "os/thread.h"
#include "os/thread_control.h"
#include "support/lnx/answered_calls.h"
#include "support/lnx/os_results.h"
#include "support/open_handles.h"
#include "support/sanitizers.h"

namespace {

using namespace kiv::os;
using namespace kiv::test;

// Runs in a new process, which has used nothing of the library that lasts. The result is its exit
// code.
int RunInChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void ExpectWait(const Wait& wait, uint32_t result, uint32_t error) {
  EXPECT_EQ(wait.result, result);
  EXPECT_EQ(wait.error, error);
}

// A call of the system by its number.
Answering OnlyCall(long number, Answering answering) {
  return [=](const Words& arguments, Word* word) {
    return arguments[0] == number ? answering(arguments, word) : Answer::kPass;
  };
}

// ---- Starting and ending ----

uint32_t Return7(void*) { return 7; }

// ---- What a process does once ----

constexpr uint32_t kIdleClass = 0x40;
constexpr int kNiceOfIdle = 19;

// What processes did that had not used the library before.
struct First {
  int withoutKey = -1;
  int niceAbove2 = 0;  // set for a thread of priority -1
  int niceAboveUnknown = 0;
  int niceOfSecond = 0;
  int niceOfNewThread = 0;
  int raisedTwice = -1;
  int raisedWithout = -1;  // without memory for a claim of its own
  int raisedWithoutClaims = -1;
};
First first;

int StartWithoutKey() {
  const AnsweredCall refused("pthread_key_create", Refuse(EAGAIN));
  if (StartThread(Return7, nullptr, 0).error != ENOMEM) return 1;
  if (DuplicateCurrentThread().error != ENOMEM) return 2;
  return refused.answered() == 1 ? 0 : 3;
}

// The nice value that a process sets for a thread of priority -1, when it first sets one.
int FirstNice(const Answering& getpriority) {
  return RunInChild([&] {
    int nice = 0;
    const AnsweredCall asked("getpriority", getpriority);
    const AnsweredCall set("setpriority", [&](const Words& arguments, Word* word) {
      nice = static_cast<int>(arguments[2]);
      *word = 0;
      return Answer::kGive;
    });
    ApplyThreadPriority(1, -1);
    return nice;
  });
}

// Another thread asks for the nice value, and sets one, while the first thread asks.
Answering AskedTwice() {
  return [calls = 0](const Words&, Word* word) mutable {
    *word = ++calls == 1 ? 4 : 2;
    if (calls == 1) std::thread([] { ApplyThreadPriority(1, 0); }).join();
    return Answer::kGive;
  };
}

// A thread starts another while its own nice value is set: the new one has the old value, and is
// missing in the list once. The result is the nice value of the new thread.
int NiceOfThreadStartedMeanwhile() {
  std::atomic<bool> mayStart{false};
  std::atomic<id_t> started{0};
  std::thread([&] {
    while (!mayStart) std::this_thread::yield();
    std::thread([&] {
      started = static_cast<id_t>(gettid());
      pause();
    }).detach();
    pause();
  }).detach();
  const auto start = [&] {
    mayStart = true;
    while (started == 0) std::this_thread::yield();
  };
  const AnsweredCall ofSecond("setpriority", Precede(start, 1));
  const AnsweredCall list("readdir", [&, hides = true](const Words&, Word* word) mutable {
    if (started == 0 || !std::exchange(hides, false)) return Answer::kPass;
    *word = 0;
    return Answer::kGive;
  });
  WritePriorityClass(CurrentProcessHandle(), kIdleClass);
  return list.answered() == 1 ? getpriority(PRIO_PROCESS, started) : -1;
}

// Two threads meet their first fatal exception at once, and the other one ends.
int RaiseTwice(Answer ofFirst) {
  const AnsweredCall other("mmap", [=, calls = 0](const Words& arguments, Word*) mutable {
    if (arguments[1] != sizeof(pthread_mutex_t) || ++calls != 1) return Answer::kPass;
    std::thread([] { KivSdXcptSetFatExceptionOccured(1); }).join();
    errno = ENOMEM;
    return ofFirst;
  });
  return static_cast<int>(KivSdXcptSetFatExceptionOccured(1));
}

// A second thread meets a fatal exception while the first one handles its own. The result is 1 if the
// second one goes on.
int RaiseWithoutClaims() {
  const AnsweredCall refused("mmap", [](const Words& arguments, Word*) {
    if (arguments[1] != sizeof(pthread_mutex_t)) return Answer::kPass;
    errno = ENOMEM;
    return Answer::kRefuse;
  });
  if (KivSdXcptSetFatExceptionOccured(1) != KIV_ST_OK) return 2;
  std::atomic<bool> goesOn{false};
  std::thread([&] {
    KivSdXcptSetFatExceptionOccured(1);
    goesOn = true;
  }).detach();
  while (refused.answered() < 2) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // it would go on at once
  return goesOn ? 1 : 0;
}

class FirstUses : public testing::Environment {
 public:
  void SetUp() override {
    first.withoutKey = RunInChild(StartWithoutKey);
    first.niceAbove2 = FirstNice(Give(2));
    first.niceAboveUnknown = FirstNice(Refuse(EPERM));
    first.niceOfSecond = FirstNice(AskedTwice());
    first.niceOfNewThread = RunInChild(NiceOfThreadStartedMeanwhile);
    first.raisedTwice = RunInChild([] { return RaiseTwice(Answer::kPass); });
    first.raisedWithout = RunInChild([] { return RaiseTwice(Answer::kRefuse); });
    first.raisedWithoutClaims = RunInChild(RaiseWithoutClaims);
    // The first handle makes a chunk of the table, which stays.
    const ValueResult<void*> thread = StartThread(Return7, nullptr, 0);
    ExpectOk(JoinThread(thread.value));
    ExpectOk(CloseThread(thread.value));
  }
};
const testing::Environment* const kFirstUses = testing::AddGlobalTestEnvironment(new FirstUses);

class ThreadCalls : public testing::Test {
 protected:
  ThreadCalls() : before_(OpenHandles()) {}
  ~ThreadCalls() override { EXPECT_EQ(OpenHandles(), before_) << "handles were left open"; }

  const size_t before_;
};

TEST_F(ThreadCalls, WithoutAKeyNoThreadHasARecord) { EXPECT_EQ(first.withoutKey, 0); }

TEST_F(ThreadCalls, AThreadThatCannotKeepItsRecordIsNotStarted) {
  if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer makes the same call in each thread";
  const AnsweredCall refused("pthread_setspecific", Refuse(ENOMEM));
  uint32_t id = 4711;
  const ValueResult<void*> thread = StartThread(Return7, nullptr, 0, &id);
  ExpectFailed(thread, ENOMEM);
  EXPECT_EQ(thread.value, nullptr);
  EXPECT_EQ(id, 4711u);
}

TEST_F(ThreadCalls, AThreadThatCannotWaitForOtherDestructorsEndsAtOnce) {
  if (kUnderAddressSanitizer) GTEST_SKIP() << "the sanitizer makes the same call in each thread";
  const AnsweredCall refused("pthread_setspecific", Refuse(ENOMEM, 1));
  const ValueResult<void*> thread = StartThread(Return7, nullptr, 0);
  ASSERT_TRUE(thread.ok);
  ExpectOk(JoinThread(thread.value));
  EXPECT_EQ(ReadExitCode(thread.value).value, 7u);
  EXPECT_EQ(refused.answered(), 1u);
  ExpectOk(CloseThread(thread.value));
}

TEST_F(ThreadCalls, AThreadOfTheHostWithoutMemoryForARecordHasNoHandleAndNoPriority) {
  for (const char* call : {"malloc", "pthread_setspecific"}) {
    std::thread([&] {
      const AnsweredCall refused(call, Refuse(ENOMEM));
      ExpectFailed(DuplicateCurrentThread(), ENOMEM);
      ExpectFailed(WriteThreadPriority(CurrentThreadHandle(), 0), ENOMEM);
    }).join();
  }
}

void* EndWithRecord(void* handle) {
  *static_cast<void**>(handle) = DuplicateCurrentThread().value;
  EndCurrentThread(9);
}

TEST_F(ThreadCalls, AThreadOfTheHostWithARecordEndsThroughTheCLibrary) {
  pthread_t thread;
  void* handle = nullptr;
  ASSERT_EQ(pthread_create(&thread, nullptr, EndWithRecord, &handle), 0);
  void* returned = nullptr;
  EXPECT_EQ(pthread_join(thread, &returned), 0);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(returned), 9u);
  EXPECT_EQ(ReadExitCode(handle).value, 9u);
  ExpectOk(CloseThread(handle));
}

TEST_F(ThreadCalls, AnExitCodeNeedsAHandle) { ExpectFailed(ReadExitCode(nullptr), EBADF); }

TEST_F(ThreadCalls, AThreadThatWaitsForItselfWaitsInVain) {
  ExpectWait(WaitForThread(CurrentThreadHandle(), 1), kWaitTimedOut, ETIMEDOUT);
}

// ---- Joining by two threads ----

TEST_F(ThreadCalls, AJoinThatFindsAnotherOneWaitsForIt) {
  const ValueResult<void*> thread = StartThread(Return7, nullptr, 0);
  std::atomic<bool> isJoining{false};
  std::atomic<bool> sleeps{false};
  std::thread second;
  const AnsweredCall asleep("SleepOn", [&](const Words&, Word*) {
    if (isJoining) sleeps = true;
    return Answer::kPass;
  });
  const AnsweredCall joins("pthread_join", Precede([&] {
                             isJoining = true;
                             second = std::thread([&] { ExpectOk(JoinThread(thread.value)); });
                             while (!sleeps) std::this_thread::yield();
                           }));
  ExpectOk(JoinThread(thread.value));
  second.join();
  ExpectOk(CloseThread(thread.value));
}

// ---- Sleeping ----

TEST_F(ThreadCalls, AnInterruptedSleepGoesOn) {
  const AnsweredCall interrupted("nanosleep", Refuse(EINTR, 0, 2));
  SleepMs(1);
  EXPECT_EQ(interrupted.answered(), 2u);
}

TEST_F(ThreadCalls, ASleepThatTheSystemRefusesEnds) {
  const AnsweredCall refused("nanosleep", Refuse(EINVAL));
  SleepMs(60'000);
  EXPECT_EQ(refused.answered(), 1u);
}

TEST_F(ThreadCalls, ASleepForEverSleepsAgain) {
  EXPECT_EQ(RunInChild([] {
              const AnsweredCall sleeps("nanosleep", [sleep = 0](const Words&, Word* word) mutable {
                if (++sleep == 3) _exit(3);
                *word = 0;
                return Answer::kGive;
              });
              SleepMs(kWaitForEver);
              return 1;
            }),
            3);
}

TEST(Deadlines, TheEarlierOfTwoIsNeverTheOneThatNeverEnds) {
  const Deadline never = {{}, true};
  const Deadline soon = {{5, 0}, false};
  const Deadline later = {{5, 1}, false};
  EXPECT_FALSE(EarlierOf(never, soon).never);
  EXPECT_FALSE(EarlierOf(soon, never).never);
  EXPECT_EQ(EarlierOf(soon, later).time.tv_nsec, 0);
  EXPECT_EQ(EarlierOf(later, soon).time.tv_nsec, 0);
}

// ---- Stopping ----

// A thread that runs until the destructor.
class Runner {
 public:
  Runner() : handle_(StartThread(&Runner::Run, this, 0).value) {}
  ~Runner() {
    End();
    ExpectOk(CloseThread(handle_));
  }
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  void End() {
    ends_ = true;
    ExpectOk(JoinThread(handle_));
  }
  void* handle() const { return handle_; }

 private:
  static uint32_t Run(void* self) {
    while (!static_cast<Runner*>(self)->ends_) std::this_thread::yield();
    return 0;
  }

  std::atomic<bool> ends_{false};
  void* const handle_;
};

TEST_F(ThreadCalls, ASignalThatTheHostUsesStopsNoThread) {
  const auto refuses = [](int flags) {
    struct sigaction action = {};
    action.sa_flags = flags;
    action.sa_sigaction = [](int, siginfo_t*, void*) {};
    sigaction(SIGRTMAX - 5, &action, nullptr);
    const ValueResult<void*> thread = StartThread(Return7, nullptr, 0);
    const bool isGone = thread.ok && JoinThread(thread.value).ok;
    const ValueResult<void*> waiting = StartThread(
        [](void*) {
          SleepMs(kWaitForEver);
          return 0u;
        },
        nullptr, 0);
    return isGone ? static_cast<int>(StopThread(waiting.value).error) : -1;
  };
  EXPECT_EQ(RunInChild([&] { return refuses(SA_SIGINFO); }), EBUSY);
  EXPECT_EQ(RunInChild([&] { return refuses(0); }), EBUSY);
}

TEST_F(ThreadCalls, AStopReportsWhyTheSignalCannotBeTakenOrSent) {
  const Runner runner;
  {
    const AnsweredCall refused("sigaction", Refuse(EINVAL));
    ExpectFailed(StopThread(runner.handle()), EINVAL);
  }
  const AnsweredCall refused("syscall", OnlyCall(SYS_tgkill, Refuse(EPERM)));
  ExpectFailed(StopThread(runner.handle()), EPERM);
}

TEST_F(ThreadCalls, AThreadThatDoesNotStopInTimeIsNotStopped) {
  const Runner runner;
  const AnsweredCall lost("syscall", OnlyCall(SYS_tgkill, Give(0)));
  const AnsweredCall late("IsPast", Give(1));
  ExpectFailed(StopThread(runner.handle()), ETIMEDOUT);
}

TEST_F(ThreadCalls, AThreadThatEndsMeanwhileIsNotStopped) {
  Runner runner;
  const AnsweredCall lost("syscall", OnlyCall(SYS_tgkill, [&](const Words&, Word* word) {
                            runner.End();
                            *word = 0;
                            return Answer::kGive;
                          }));
  ExpectFailed(StopThread(runner.handle()), ESRCH);
}

TEST_F(ThreadCalls, AnEndedThreadIsNotStoppedButKeepsItsPriority) {
  Runner runner;
  runner.End();
  ExpectFailed(StopThread(runner.handle()), ESRCH);
  ExpectOk(WriteThreadPriority(runner.handle(), 1));
  EXPECT_EQ(ReadThreadPriority(runner.handle()).value, 1);
}

TEST_F(ThreadCalls, TheSignalDoesNothingToAThreadWithoutARecord) {
  {
    const Runner runner;
    ExpectOk(StopThread(runner.handle()));  // installs the handler
    ExpectOk(ResumeStoppedThread(runner.handle()));
  }
  std::thread([] {
    errno = 4711;
    EXPECT_EQ(pthread_kill(pthread_self(), SIGRTMAX - 5), 0);
    EXPECT_EQ(errno, 4711);
  }).join();
}

TEST_F(ThreadCalls, AThreadCanStopItselfByItsOwnHandle) {
  std::atomic<void*> own{nullptr};
  std::atomic<bool> runsOn{false};
  std::thread stopped([&] {
    void* handle = DuplicateCurrentThread().value;
    own = handle;
    ExpectOk(StopThread(handle));
    runsOn = true;
    ExpectOk(CloseThread(handle));
  });
  while (own == nullptr) std::this_thread::yield();
  const auto* parked = &ContentOf<ThreadHandle>(SlotOfNumber(own))->thread->isParked;
  while (*parked == 0) std::this_thread::yield();
  EXPECT_FALSE(runsOn);
  ExpectOk(ResumeStoppedThread(own));
  stopped.join();
  EXPECT_TRUE(runsOn);
}

TEST_F(ThreadCalls, TheCallingThreadRuns) { ExpectOk(ResumeStoppedThread(CurrentThreadHandle())); }

// ---- Claims ----

TEST(Claims, AreNotMadeWithoutMemoryOrAMutex) {
  {
    const AnsweredCall refused("mmap", Refuse(ENOMEM));
    ExpectFailed(MakeClaim(), ENOMEM);
  }
  uint32_t released = 0;
  const AnsweredCall refused("pthread_mutex_init", Give(EAGAIN));
  const AnsweredCall releases("munmap", [&](const Words&, Word*) {
    ++released;
    return Answer::kPass;
  });
  ExpectFailed(MakeClaim(), EAGAIN);
  EXPECT_EQ(released, 1u);
}

// The holder ended, and the next one released it without a repair.
TEST(Claims, OneThatCannotBeRepairedIsAFailure) {
  const ValueResult<void*> claim = MakeClaim();
  auto* mutex = static_cast<pthread_mutex_t*>(claim.value);
  std::thread([&] { EXPECT_EQ(TakeClaim(claim.value), Claim::kTaken); }).join();
  EXPECT_EQ(pthread_mutex_lock(mutex), EOWNERDEAD);
  EXPECT_EQ(pthread_mutex_unlock(mutex), 0);
  EXPECT_EQ(TakeClaim(claim.value), Claim::kFailed);
  EXPECT_EQ(TakeClaim(nullptr), Claim::kFailed);
  ExpectOk(CloseClaim(claim.value));
}

TEST(Claims, OneThatIsClosedGivesItsMemoryBack) {
  const ValueResult<void*> claim = MakeClaim();
  ASSERT_TRUE(claim.ok);
  Word released = 0;
  const AnsweredCall releases("munmap", [&](const Words& arguments, Word*) {
    released = arguments[0];
    return Answer::kPass;
  });
  ExpectOk(CloseClaim(claim.value));
  EXPECT_EQ(released, reinterpret_cast<Word>(claim.value));
}

TEST(Claims, WithoutThemASecondThreadWithAFatalExceptionStops) {
  EXPECT_EQ(first.raisedWithoutClaims, 0);
}

TEST(Claims, OfTwoThreadsThatMakeOneBothUseTheFirst) {
  EXPECT_EQ(first.raisedTwice, 0);
  EXPECT_EQ(first.raisedWithout, 0);
}

// ---- Processes ----

void* HandleOf(pid_t process) { return reinterpret_cast<void*>(intptr_t{process}); }

constexpr uint32_t kNormalClass = 0x20;
constexpr uint32_t kBelowNormalClass = 0x4000;

TEST(ProcessCalls, WithoutProcessDescriptorsAWaitOnlyLooksWhetherTheProcessExists) {
  struct Row {
    int refusal;  // of the process descriptor
    Answering kill;
    Wait expected;
  };
  const Row rows[] = {
      {ENOSYS, Give(0), kTimedOutWait},
      {EPERM, Give(0), kTimedOutWait},
      {ENOSYS, Refuse(EPERM), kTimedOutWait},
      {ENOSYS, Refuse(ESRCH), kSignalledWait},
      {ENOSYS, Refuse(EINVAL), FailedWait(EINVAL)},
      {ESRCH, Refuse(EINVAL), kSignalledWait},
      {EMFILE, Refuse(EINVAL), FailedWait(EMFILE)},
  };
  for (const Row& row : rows) {
    const AnsweredCall refused("syscall", OnlyCall(SYS_pidfd_open, Refuse(row.refusal)));
    const AnsweredCall kill("kill", row.kill);
    ExpectWait(WaitForProcess(HandleOf(getppid()), 0), row.expected.result, row.expected.error);
  }
}

TEST(ProcessCalls, ANumberThatIsNoProcessHasNoClass) {
  ExpectFailed(ReadPriorityClass(nullptr), EBADF);
  ExpectFailed(ReadPriorityClass(HandleOf(1)), EBADF);
}

TEST(ProcessCalls, TheFirstProcessOfAContainerMayRankItself) {
  const AnsweredCall isFirst("getpid", Give(1));
  const AnsweredCall nice("getpriority", Give(0));
  const ValueResult<uint32_t> own = ReadPriorityClass(CurrentProcessHandle());
  EXPECT_TRUE(own.ok);
  EXPECT_EQ(own.value, kNormalClass);
}

// Nobody else has changed the process's nice value, as far as it can see.
TEST(ProcessCalls, AClassCountsUntilSomebodyElseChangesTheNiceValue) {
  const AnsweredCall set("setpriority", Give(0));
  {
    const AnsweredCall nice("getpriority", Give(3));
    ExpectOk(WritePriorityClass(CurrentProcessHandle(), kNormalClass));
    EXPECT_EQ(ReadPriorityClass(CurrentProcessHandle()).value, kNormalClass);
    EXPECT_EQ(ReadPriorityClass(HandleOf(getppid())).value, kBelowNormalClass)
        << "another process has the class of its nice value";
  }
  const AnsweredCall nice("getpriority", Give(kNiceOfIdle));
  EXPECT_EQ(ReadPriorityClass(CurrentProcessHandle()).value, kIdleClass);
}

TEST(ProcessCalls, AThreadsPriorityCountsFromTheNiceValueAtTheStart) {
  EXPECT_EQ(first.niceAbove2, 7);
  EXPECT_EQ(first.niceAboveUnknown, 5);
}

TEST(ProcessCalls, OfTwoThreadsThatFindTheFirstNiceValueTheFirstDecides) {
  EXPECT_EQ(first.niceOfSecond, 7) << "5 above the value that the other thread found";
}

TEST(ProcessCalls, AThreadThatStartsMeanwhileGetsTheClassToo) {
  EXPECT_EQ(first.niceOfNewThread, kNiceOfIdle);
}

// The threads of a process that nobody can make equal are not set for ever.
TEST(ProcessCalls, TheThreadsOfAProcessAreSetOnlySoOften) {
  const AnsweredCall set("setpriority", Give(0));
  const AnsweredCall nice("getpriority", Give(3));
  ExpectOk(WritePriorityClass(CurrentProcessHandle(), kNormalClass));
  EXPECT_GT(set.answered(), 2u);
}

}  // namespace
