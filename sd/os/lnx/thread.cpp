// Linux: threads of the C library behind checked handles.
//
// An operation on a handle may outlast the handle: the slot ends only when the operation has left it,
// and the record lives as long as the slot.
//
// pthread_join can be called once, but any number of threads may wait for a thread here. They sleep
// on the record's `hasEnded`. The first to wake then calls pthread_join, which lasts only as long as
// the thread needs to leave the C library, and the others sleep until it is done.
#include "os/thread.h"

#include <limits.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "os/lnx/futex.h"
#include "os/lnx/posix.h"
#include "os/lnx/thread_record.h"
#include "os/lnx/waits.h"

namespace kiv::os {

constinit thread_local uint32_t currentThreadId = 0;
constinit thread_local Thread* currentThread = nullptr;

namespace {

constexpr Deadline kNoDeadline = {{}, true};

// Windows reserves at least this much address space for a stack, whatever size a host asks for.
constexpr size_t kLeastStackBytes = 1 << 20;

// Stored in place of the identifier by a thread that could not start.
constexpr uint32_t kCouldNotStart = 0xFFFFFFFF;

// The C library destroys thread-specific values in up to four rounds. The library ends a thread in
// the third round: destructors of the host that ran before may still use the library.
constexpr uint32_t kLastEnding = 3;
static_assert(kLastEnding <= PTHREAD_DESTRUCTOR_ITERATIONS);

pthread_once_t keyOnce = PTHREAD_ONCE_INIT;
pthread_key_t endKey;  // its value is the thread's record; its destructor ends the thread
bool hasKey = false;

Joining JoiningOf(const Thread* thread) {
  return static_cast<Joining>(thread->joining.load(std::memory_order_acquire));
}

bool ChangeJoining(Thread* thread, Joining from, Joining to) {
  auto expected = static_cast<uint32_t>(from);
  return thread->joining.compare_exchange_strong(expected, static_cast<uint32_t>(to));
}

void ReleaseThread(Thread* thread) {
  // acq_rel: what other threads did with the record happens before its end.
  if (thread->references.fetch_sub(1, std::memory_order_acq_rel) == 1) std::free(thread);
}

void SleepWhile(const std::atomic<uint32_t>* word, uint32_t value) {
  SleepOn(word, value, kNoDeadline, Scope::kProcess);
}

void WakeAll(const std::atomic<uint32_t>* word) {
  WakeSleepers(word, kAllSleepers, Scope::kProcess);
}

// ---- The end of a thread ----

void FinishThread(Thread* thread) {
  currentThread = nullptr;
  thread->hasEnded.store(1, std::memory_order_release);
  WakeAll(&thread->hasEnded);
  ReleaseThread(thread);
}

// The destructor of the key.
void EndThread(void* value) {
  auto* thread = static_cast<Thread*>(value);
  ++thread->endings;
  if (thread->endings < kLastEnding && pthread_setspecific(endKey, thread) == 0) return;
  FinishThread(thread);
}

void MakeKey() { hasKey = pthread_key_create(&endKey, EndThread) == 0; }

// Threads may outlive the library: without the key they no longer call its code when they end.
__attribute__((destructor)) void DeleteKey() {
  if (hasKey) pthread_key_delete(endKey);
}

bool AdoptRecord(Thread* thread) {
  pthread_once(&keyOnce, MakeKey);
  if (!hasKey || pthread_setspecific(endKey, thread) != 0) return false;
  currentThread = thread;
  return true;
}

// ---- The start of a thread ----

Thread* MakeThread(Joining joining) {
  void* memory = std::malloc(sizeof(Thread));
  if (memory == nullptr) return nullptr;
  auto* thread = new (memory) Thread{};
  thread->references = 1;
  thread->joining = static_cast<uint32_t>(joining);
  return thread;
}

void PublishId(Thread* thread, uint32_t id) {
  thread->id.store(id, std::memory_order_release);
  WakeAll(&thread->id);
}

void* RunThread(void* argument) {
  auto* thread = static_cast<Thread*>(argument);
  if (!AdoptRecord(thread)) {
    PublishId(thread, kCouldNotStart);
    ReleaseThread(thread);
    return nullptr;
  }
  const uint32_t id = CurrentThreadId();
  if (thread->idOut != nullptr) *thread->idOut = id;
  PublishId(thread, id);
  jmp_buf exit;
  thread->exit = &exit;
  if (_setjmp(exit) == 0) thread->exitCode = thread->routine(thread->argument);
  currentThread->exit = nullptr;
  return nullptr;
}

int CreateWithStack(Thread* thread, uint32_t stackBytes) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (stackBytes != 0) {
    pthread_attr_setstacksize(&attributes, std::max<size_t>(stackBytes, kLeastStackBytes));
  }
  const int error = pthread_create(&thread->system, &attributes, RunThread, thread);
  pthread_attr_destroy(&attributes);
  return error;
}

// Whether the thread has started to run. Its identifier is known afterwards.
bool AwaitStart(Thread* thread) {
  uint32_t id;
  while ((id = thread->id.load(std::memory_order_acquire)) == 0) {
    SleepWhile(&thread->id, 0);
  }
  return id != kCouldNotStart;
}

// ---- Joining ----

// Nobody can join a thread without a handle: the C library then frees it when it ends.
void DetachIfAbandoned(Thread* thread) {
  if (thread->handles.load() != 0) return;
  if (ChangeJoining(thread, Joining::kNobody, Joining::kImpossible)) pthread_detach(thread->system);
}

// The thread has ended, except for the rest of its way through the C library.
void JoinEnded(Thread* thread) {
  while (true) {
    const Joining joining = JoiningOf(thread);
    if (joining == Joining::kDone || joining == Joining::kImpossible) return;
    if (joining == Joining::kSomebody) {
      SleepWhile(&thread->joining, static_cast<uint32_t>(joining));
    } else if (ChangeJoining(thread, Joining::kNobody, Joining::kSomebody)) {
      pthread_join(thread->system, nullptr);
      thread->joining.store(static_cast<uint32_t>(Joining::kDone), std::memory_order_release);
      WakeAll(&thread->joining);
    }
  }
}

Wait AwaitEnd(Thread* thread, uint32_t timeoutMs) {
  const Deadline deadline = DeadlineAfter(timeoutMs);
  while (thread->hasEnded.load(std::memory_order_acquire) == 0) {
    if (IsPast(deadline)) return kTimedOutWait;
    SleepOn(&thread->hasEnded, 0, deadline, Scope::kProcess);
  }
  JoinEnded(thread);
  return kSignalledWait;
}

// The calling thread does not end while it waits.
Wait AwaitOneself(uint32_t timeoutMs) {
  SleepMs(timeoutMs);
  return kTimedOutWait;
}

// ---- Forked processes ----

pthread_once_t forkOnce = PTHREAD_ONCE_INIT;

// The thread that forked has another identifier in the child process.
void LearnIdInChild() {
  currentThreadId = 0;
  if (currentThread != nullptr) currentThread->id = CurrentThreadId();
}

void HandleForks() { pthread_atfork(nullptr, nullptr, LearnIdInChild); }

}  // namespace

uint32_t LearnThreadId() {
  pthread_once(&forkOnce, HandleForks);
  currentThreadId = static_cast<uint32_t>(gettid());
  return currentThreadId;
}

Thread* RequireCurrentThread() {
  if (currentThread != nullptr) return currentThread;
  Thread* thread = MakeThread(Joining::kImpossible);
  if (thread == nullptr) return nullptr;
  thread->id = CurrentThreadId();
  if (AdoptRecord(thread)) return thread;
  ReleaseThread(thread);
  return nullptr;
}

void* MakeThreadHandle(Thread* thread) {
  Slot* slot = TakeHandleSlot<ThreadHandle>();
  if (slot == nullptr) return nullptr;
  thread->references.fetch_add(1);
  thread->handles.fetch_add(1);
  ContentOf<ThreadHandle>(slot)->thread = thread;
  return PublishHandle<ThreadHandle>(slot);
}

void ThreadHandle::End() {
  thread->handles.fetch_sub(1);
  DetachIfAbandoned(thread);
  ReleaseThread(thread);
}

ValueResult<void*> StartThread(ThreadRoutine routine, void* argument, uint32_t stackBytes,
                               uint32_t* id) {
  Thread* thread = MakeThread(Joining::kNobody);
  if (thread == nullptr) return {false, ENOMEM, nullptr};
  thread->routine = routine;
  thread->argument = argument;
  thread->idOut = id;
  void* handle = MakeThreadHandle(thread);
  if (handle == nullptr) {
    ReleaseThread(thread);
    return {false, ENOMEM, nullptr};
  }
  // The handle keeps the record while this thread waits for the other to start.
  const int error = CreateWithStack(thread, stackBytes);
  if (error != 0) {
    thread->joining = static_cast<uint32_t>(Joining::kImpossible);
    ReleaseThread(thread);
  } else if (AwaitStart(thread)) {
    return {true, 0, handle};
  }
  static_cast<void>(CloseThread(handle));
  return {false, static_cast<uint32_t>(error != 0 ? error : ENOMEM), nullptr};
}

void* CurrentThreadHandle() { return reinterpret_cast<void*>(intptr_t{-2}); }

Wait WaitForThread(void* handle, uint32_t timeoutMs) {
  if (IsCurrentThread(handle)) return AwaitOneself(timeoutMs);
  const ThreadUse use(handle);
  if (!use) return FailedWait(EBADF);
  if (use->thread == currentThread) return AwaitOneself(timeoutMs);
  return AwaitEnd(use->thread, timeoutMs);
}

Result JoinThread(void* handle) {
  const Wait waited = WaitForThread(handle, kWaitForEver);
  return {waited.result == kWaitSignalled, waited.error};
}

Result CloseThread(void* handle) { return CloseHandleOf<ThreadHandle>(handle); }

ValueResult<uint32_t> ReadExitCode(void* handle) {
  const ThreadUse use(handle);
  if (!use) return {false, EBADF, 0};
  return {true, 0, use->thread->exitCode};
}

void NameCurrentThread(const char* name) {
  static_cast<void>(pthread_setname_np(pthread_self(), name));
}

void SleepMs(uint32_t timeMs) {
  if (timeMs == 0) return YieldThread();
  timespec left = {static_cast<time_t>(timeMs / 1000), static_cast<long>(timeMs % 1000) * 1000000};
  do {
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
    left = {3600, 0};
  } while (timeMs == kWaitForEver);
}

}  // namespace kiv::os
