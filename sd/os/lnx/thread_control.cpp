// Linux: control of threads.
//
// Linux has no call that stops another thread. A signal does it here: its handler sleeps until the
// thread has been resumed as often as it was stopped, with every signal blocked. The handler is
// installed when a thread first stops another one. A host that never does that keeps the signal for
// itself.
#include "os/thread_control.h"

#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "os/lnx/futex.h"
#include "os/lnx/nice.h"
#include "os/lnx/posix.h"
#include "os/lnx/thread_record.h"

namespace kiv::os {
namespace {

// Time that a thread gets to stop itself. A thread that blocks the signal never does.
constexpr uint32_t kStopLimitMs = 5000;
constexpr uint32_t kStopRoundMs = 10;  // a thread that ends meanwhile is noticed after this time

// Not used by the C library, and seldom by anything else. SIGRTMAX is a call.
int StopSignal() { return SIGRTMAX - 5; }

// ---- The stopped thread ----

// Invariant: after `isParked` becomes 0, the thread reads `stops` once more before it runs on. A
// thread that raises `stops` and then reads 1 in `isParked` has therefore stopped it. Both accesses
// on both sides are sequentially consistent.
void Park(Thread* thread) {
  do {
    uint32_t stops;
    while ((stops = thread->stops.load()) != 0) {
      thread->isParked.store(1);
      WakeSleepers(&thread->isParked, kAllSleepers, Scope::kProcess);
      SleepOn(&thread->stops, stops, {{}, true}, Scope::kProcess);
    }
    thread->isParked.store(0);
  } while (thread->stops.load() != 0);
}

void ParkInHandler(int) {
  const int error = errno;
  if (currentThread != nullptr) Park(currentThread);
  errno = error;
}

// A handle is needed to resume a thread. Without a record the calling thread has none.
Result StopOneself() {
  if (currentThread == nullptr) SleepMs(kWaitForEver);
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // no handler of the host runs while it is stopped
  currentThread->stops.fetch_add(1);
  Park(currentThread);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return {true, 0};
}

// ---- The stopping thread ----

bool IsFree(const struct sigaction& action) {
  return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

bool IsOurs(const struct sigaction& action) {
  return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == ParkInHandler;
}

// Fails with EBUSY if the host uses the signal.
Result TakeSignal() {
  struct sigaction action = {};
  if (sigaction(StopSignal(), nullptr, &action) != 0) return FromErrno(-1);
  if (IsOurs(action)) return {true, 0};
  if (!IsFree(action)) return {false, EBUSY};
  action = {};
  action.sa_handler = ParkInHandler;
  action.sa_flags = SA_RESTART | SA_ONSTACK;
  sigfillset(&action.sa_mask);
  return FromErrno(sigaction(StopSignal(), &action, nullptr));
}

// Takes one stop back, if there is one.
void TakeBackStop(Thread* thread) {
  uint32_t stops = thread->stops.load();
  while (stops != 0 && !thread->stops.compare_exchange_weak(stops, stops - 1)) {
  }
  if (stops == 1) WakeSleepers(&thread->stops, kAllSleepers, Scope::kProcess);
}

Result AwaitParked(Thread* thread) {
  const Deadline deadline = DeadlineAfter(kStopLimitMs);
  while (thread->isParked.load() == 0) {
    if (thread->hasEnded.load() != 0) return {false, ESRCH};
    if (IsPast(deadline)) return {false, ETIMEDOUT};
    SleepOn(&thread->isParked, 0, DeadlineAfter(kStopRoundMs), Scope::kProcess);
  }
  return {true, 0};
}

Result StopOther(Thread* thread) {
  if (thread->hasEnded.load() != 0) return {false, ESRCH};
  const Result taken = TakeSignal();
  if (!taken.ok) return taken;
  thread->stops.fetch_add(1);
  // If the thread has just ended and another one has its identifier, that one finds no stop in its
  // own record and continues.
  Result result = FromErrno(static_cast<int>(
      syscall(SYS_tgkill, getpid(), static_cast<pid_t>(thread->id.load()), StopSignal())));
  if (result.ok) result = AwaitParked(thread);
  if (!result.ok) TakeBackStop(thread);
  return result;
}

// ---- Claims ----

// Robust: the system frees the mutex when its holder ends, and says so to the next one.
int PrepareClaim(pthread_mutex_t* mutex) {
  pthread_mutexattr_t kind;
  pthread_mutexattr_init(&kind);
  pthread_mutexattr_settype(&kind, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutexattr_setrobust(&kind, PTHREAD_MUTEX_ROBUST);
  const int error = pthread_mutex_init(mutex, &kind);
  pthread_mutexattr_destroy(&kind);
  return error;
}

// ---- Priorities ----

// The scale has gaps, as on Windows.
bool IsPriority(int32_t priority) {
  constexpr int32_t kIdle = -15;
  constexpr int32_t kTimeCritical = 15;
  const bool isUsual = priority >= -kHighestThreadPriority && priority <= kHighestThreadPriority;
  return isUsual || priority == kIdle || priority == kTimeCritical;
}

// The number always counts; the nice value follows it as far as the process's rights allow.
Result SetPriority(Thread* thread, int32_t priority) {
  if (!IsPriority(priority)) return {false, EINVAL};
  thread->priority = priority;
  if (thread->hasEnded.load() == 0) ApplyThreadPriority(thread->id.load(), priority);
  return {true, 0};
}

}  // namespace

ValueResult<void*> DuplicateCurrentThread() {
  Thread* thread = RequireCurrentThread();
  void* handle = thread != nullptr ? MakeThreadHandle(thread) : nullptr;
  if (handle == nullptr) return {false, ENOMEM, nullptr};
  return {true, 0, handle};
}

Result StopThread(void* handle) {
  if (IsCurrentThread(handle)) return StopOneself();
  const ThreadUse use(handle);
  if (!use) return {false, EBADF};
  return use->thread == currentThread ? StopOneself() : StopOther(use->thread);
}

Result ResumeStoppedThread(void* handle) {
  if (IsCurrentThread(handle)) return {true, 0};  // it runs
  const ThreadUse use(handle);
  if (!use) return {false, EBADF};
  TakeBackStop(use->thread);
  return {true, 0};
}

// A thread of the library returns from its routine's caller: no destructor of the host's frames
// runs, as on Windows. Other threads leave through the C library, which unwinds their frames.
void EndCurrentThread(uint32_t exitCode) {
  Thread* thread = currentThread;
  if (thread != nullptr) thread->exitCode = exitCode;
  if (thread != nullptr && thread->exit != nullptr) _longjmp(*thread->exit, 1);
  pthread_exit(reinterpret_cast<void*>(uintptr_t{exitCode}));
}

// A claim is made while a fatal exception is handled, which may have damaged the heap.
ValueResult<void*> MakeClaim() {
  void* mapped = mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return {false, static_cast<uint32_t>(errno), nullptr};
  const Result result = FromCode(PrepareClaim(static_cast<pthread_mutex_t*>(mapped)));
  if (result.ok) return {true, 0, mapped};
  munmap(mapped, sizeof(pthread_mutex_t));
  return {false, result.error, nullptr};
}

Result CloseClaim(void* claim) {
  const Result result = FromCode(pthread_mutex_destroy(static_cast<pthread_mutex_t*>(claim)));
  munmap(claim, sizeof(pthread_mutex_t));
  return result;
}

Claim TakeClaim(void* claim) {
  if (claim == nullptr) return Claim::kFailed;
  auto* mutex = static_cast<pthread_mutex_t*>(claim);
  const int error = pthread_mutex_lock(mutex);
  if (error != EOWNERDEAD) return error == 0 ? Claim::kTaken : Claim::kFailed;
  pthread_mutex_consistent(mutex);
  return Claim::kTakenFromEnded;
}

ValueResult<int32_t> ReadThreadPriority(void* handle) {
  if (IsCurrentThread(handle)) {
    return {true, 0, currentThread != nullptr ? currentThread->priority.load() : 0};
  }
  const ThreadUse use(handle);
  if (!use) return {false, EBADF, 0};
  return {true, 0, use->thread->priority.load()};
}

Result WriteThreadPriority(void* handle, int32_t priority) {
  if (IsCurrentThread(handle)) {
    Thread* thread = RequireCurrentThread();
    return thread != nullptr ? SetPriority(thread, priority) : Result{false, ENOMEM};
  }
  const ThreadUse use(handle);
  return use ? SetPriority(use->thread, priority) : Result{false, EBADF};
}

}  // namespace kiv::os
