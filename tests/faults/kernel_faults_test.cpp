// Fault loops of kernel objects, threads, processes and locks.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <utility>

#include "faults/fault_loop.h"
#include "kivsdu/kivsdu.h"

namespace {

using kiv::test::FaultLoop;
using kiv::test::FaultOutcome;
using kiv::test::FaultRun;
using kiv::test::FaultScenario;
using kiv::test::NameOfScenario;
using kiv::test::OwnName;
using kiv::test::Recording;

const std::string kOwnName = OwnName("faults");
const char* const kName = kOwnName.c_str();
constexpr uint32_t kNoTime = 0;

// ---- Semaphores ----

// Creates a semaphore and closes it. A failed close left it open, or has closed it.
struct Semaphore {
  explicit Semaphore(const char* name = nullptr) {
    EXPECT_EQ(KivSdCntSemCreate(nullptr, name, 1, 2, &handle), KIV_ST_OK);
  }
  ~Semaphore() { KivSdCntSemClose(nullptr, &handle); }

  KivHandle handle = nullptr;
};

void CreateSemaphore(FaultRun& run) {
  KivHandle handle = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdCntSemCreate(ctx, nullptr, 0, 1, &handle); });
  if (handle != nullptr) KivSdCntSemClose(nullptr, &handle);
}
void CreateNamedSemaphore(FaultRun& run) {
  KivHandle handle = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdCntSemCreate(ctx, kName, 0, 1, &handle); });
  if (handle != nullptr) KivSdCntSemClose(nullptr, &handle);
}
void OpenSemaphore(FaultRun& run) {
  const Semaphore named(kName);
  KivHandle handle = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdCntSemOpen(ctx, kName, &handle); });
  if (handle != nullptr) KivSdCntSemClose(nullptr, &handle);
}
void CloseSemaphore(FaultRun& run) {
  Semaphore semaphore;
  run.Call([&](KivSdContext* ctx) { return KivSdCntSemClose(ctx, &semaphore.handle); });
}
void CloseNamedSemaphore(FaultRun& run) {
  Semaphore semaphore(kName);
  run.Call([&](KivSdContext* ctx) { return KivSdCntSemClose(ctx, &semaphore.handle); });
}
void RequestSemaphore(FaultRun& run) {
  Semaphore semaphore;
  run.Call([&](KivSdContext* ctx) { return KivSdCntSemRequest(ctx, &semaphore.handle, kNoTime); });
}
void ClearSemaphore(FaultRun& run) {
  Semaphore semaphore(kName);
  run.Call([&](KivSdContext* ctx) { return KivSdCntSemClear(ctx, &semaphore.handle, 1, nullptr); });
}

// ---- Semaphore sets ----

constexpr int32_t kOnes[] = {1, 1, 1};

struct SemaphoreSet {
  SemaphoreSet() {
    EXPECT_EQ(KivSdShSemSetCreate(nullptr, kName, 3, 0, kOnes, kOnes, &set), KIV_ST_OK);
  }
  ~SemaphoreSet() {
    if (set != nullptr) KivSdShSemSetClose(nullptr, set);
  }

  KivSdShSemSet* set = nullptr;
};

void CreateSet(FaultRun& run) {
  KivSdShSemSet* set = nullptr;
  const uint32_t status = run.Call(
      [&](KivSdContext* ctx) { return KivSdShSemSetCreate(ctx, kName, 3, 0, kOnes, kOnes, &set); });
  if (status == KIV_ST_OK) KivSdShSemSetClose(nullptr, set);
}
void CloseSet(FaultRun& run) {
  SemaphoreSet set;
  KivSdShSemSet* closing = std::exchange(set.set, nullptr);
  run.Call([&](KivSdContext* ctx) { return KivSdShSemSetClose(ctx, closing); });
}
void RequestOfSet(FaultRun& run) {
  const SemaphoreSet set;
  run.Call([&](KivSdContext* ctx) { return KivSdShSemSetRequest(ctx, 1, set.set, kNoTime); });
}
void ClearOfSet(FaultRun& run) {
  const SemaphoreSet set;
  KivSdShSemSetRequest(nullptr, 1, set.set, kNoTime);
  run.Call([&](KivSdContext* ctx) { return KivSdShSemSetClear(ctx, 1, set.set); });
}

// ---- Mutexes ----

struct Mutex {
  explicit Mutex(const char* name = nullptr) {
    EXPECT_EQ(KivSdMutexCreate(nullptr, name, &handle), KIV_ST_OK);
  }
  ~Mutex() { KivSdMutexClose(nullptr, &handle); }

  KivHandle handle = nullptr;
};

void CreateMutex(FaultRun& run) {
  KivHandle handle = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdMutexCreate(ctx, nullptr, &handle); });
  if (handle != nullptr) KivSdMutexClose(nullptr, &handle);
}
void CreateNamedMutex(FaultRun& run) {
  KivHandle handle = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdMutexCreate(ctx, kName, &handle); });
  if (handle != nullptr) KivSdMutexClose(nullptr, &handle);
}
void OpenMutex(FaultRun& run) {
  const Mutex named(kName);
  KivHandle handle = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdMutexOpen(ctx, kName, &handle); });
  if (handle != nullptr) KivSdMutexClose(nullptr, &handle);
}
void CloseMutex(FaultRun& run) {
  Mutex mutex;
  run.Call([&](KivSdContext* ctx) { return KivSdMutexClose(ctx, &mutex.handle); });
}
void RequestMutex(FaultRun& run) {
  Mutex mutex;
  const uint32_t status =
      run.Call([&](KivSdContext* ctx) { return KivSdMutexRequest(ctx, &mutex.handle, kNoTime); });
  if (status == KIV_ST_OK) KivSdMutexClear(nullptr, &mutex.handle);
}
void ClearMutex(FaultRun& run) {
  Mutex mutex;
  EXPECT_EQ(KivSdMutexRequest(nullptr, &mutex.handle, kNoTime), KIV_ST_OK);
  const uint32_t status =
      run.Call([&](KivSdContext* ctx) { return KivSdMutexClear(ctx, &mutex.handle); });
  if (status != KIV_ST_OK) KivSdMutexClear(nullptr, &mutex.handle);
}

// ---- Events ----

struct Gate {
  Gate() { EXPECT_EQ(KivSdEventCreate(nullptr, &handle), KIV_ST_OK); }
  ~Gate() { KivSdEventClose(nullptr, &handle); }

  KivHandle handle = nullptr;
};

void CreateGate(FaultRun& run) {
  KivHandle handle = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdEventCreate(ctx, &handle); });
  if (handle != nullptr) KivSdEventClose(nullptr, &handle);
}
void CloseGate(FaultRun& run) {
  Gate gate;
  run.Call([&](KivSdContext* ctx) { return KivSdEventClose(ctx, &gate.handle); });
}
void SetGate(FaultRun& run) {
  Gate gate;
  run.Call([&](KivSdContext* ctx) { return KivSdEventSet(ctx, &gate.handle); });
}
void ClearGate(FaultRun& run) {
  Gate gate;
  run.Call([&](KivSdContext* ctx) { return KivSdEventClear(ctx, &gate.handle); });
}
void WaitForGate(FaultRun& run) {
  Gate gate;
  run.Call([&](KivSdContext* ctx) { return KivSdEventWait(ctx, &gate.handle, kNoTime); });
}

struct Event {
  Event() { EXPECT_EQ(KivSdStdEventCreate(nullptr, &handle), KIV_ST_OK); }
  ~Event() { KivSdStdEventClose(nullptr, &handle); }

  KivHandle handle = nullptr;
};

void CreateEvent(FaultRun& run) {
  KivHandle handle = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdStdEventCreate(ctx, &handle); });
  if (handle != nullptr) KivSdStdEventClose(nullptr, &handle);
}
void CloseEvent(FaultRun& run) {
  Event event;
  run.Call([&](KivSdContext* ctx) { return KivSdStdEventClose(ctx, &event.handle); });
}
void SetEvent(FaultRun& run) {
  Event event;
  run.Call([&](KivSdContext* ctx) { return KivSdStdEventSet(ctx, &event.handle); });
}
void ResetEvent(FaultRun& run) {
  Event event;
  run.Call([&](KivSdContext* ctx) { return KivSdStdEventReset(ctx, &event.handle); });
}
void WaitForEvent(FaultRun& run) {
  Event event;
  KivSdStdEventSet(nullptr, &event.handle);
  run.Call([&](KivSdContext* ctx) { return KivSdStdEventWait(ctx, &event.handle); });
}
void WaitForEventWithLimit(FaultRun& run) {
  Event event;
  KivSdStdEventSet(nullptr, &event.handle);
  run.Call([&](KivSdContext* ctx) { return KivSdStdEventTimedWait(ctx, &event.handle, 0); });
}

struct CountingEvent {
  CountingEvent() { EXPECT_EQ(KivSdCountingEventCreate(nullptr, &handle, 0), KIV_ST_OK); }
  ~CountingEvent() { KivSdCountingEventClose(nullptr, &handle); }

  KivHandle handle = nullptr;
};

void CreateCountingEvent(FaultRun& run) {
  KivHandle handle = nullptr;
  run.Call([&](KivSdContext* ctx) { return KivSdCountingEventCreate(ctx, &handle, 0); });
  if (handle != nullptr) KivSdCountingEventClose(nullptr, &handle);
}
void CloseCountingEvent(FaultRun& run) {
  CountingEvent event;
  run.Call([&](KivSdContext* ctx) { return KivSdCountingEventClose(ctx, &event.handle); });
}
void SetCountingEvent(FaultRun& run) {
  CountingEvent event;
  run.Call([&](KivSdContext* ctx) { return KivSdCountingEventSet(ctx, &event.handle); });
}
void WaitForCountingEvent(FaultRun& run) {
  CountingEvent event;
  KivSdCountingEventSet(nullptr, &event.handle);
  run.Call([&](KivSdContext* ctx) { return KivSdCountingEventWait(ctx, &event.handle); });
}
void WaitForCountingEventWithLimit(FaultRun& run) {
  CountingEvent event;
  KivSdCountingEventSet(nullptr, &event.handle);
  run.Call([&](KivSdContext* ctx) { return KivSdCountingEventTimedWait(ctx, &event.handle, 0); });
}

// ---- Threads ----

uint32_t Return(void*) { return 0; }

// A thread that passes a gate. The owner opens it.
struct Waiter {
  explicit Waiter(KivHandle* gate) : gate(gate) {
    EXPECT_EQ(KivSdThreadCreate(nullptr, Pass, 0, 0, gate, &id, &thread), KIV_ST_OK);
  }
  ~Waiter() {
    KivSdEventClear(nullptr, gate);
    KivSdThreadJoin(nullptr, &thread);
    KivSdThreadDelete(nullptr, &thread);
  }
  static uint32_t Pass(void* gate) {
    return KivSdEventWait(nullptr, static_cast<KivHandle*>(gate), KIV_WAIT_INFINITE);
  }

  KivHandle* gate;
  uint32_t id = 0;
  KivHandle thread = nullptr;
};

struct Thread {
  Thread() { EXPECT_EQ(KivSdThreadCreate(nullptr, Return, 0, 0, nullptr, &id, &handle), 0u); }
  ~Thread() {
    KivSdThreadJoin(nullptr, &handle);
    KivSdThreadDelete(nullptr, &handle);
  }

  uint32_t id = 0;
  KivHandle handle = nullptr;
};

void StartThread(FaultRun& run) {
  uint32_t id = 0;
  KivHandle handle = nullptr;
  run.Call([&](KivSdContext* ctx) {
    return KivSdThreadCreate(ctx, Return, 0, 65536, nullptr, &id, &handle);
  });
  if (handle == nullptr) return;
  KivSdThreadJoin(nullptr, &handle);
  KivSdThreadDelete(nullptr, &handle);
}
void DeleteThread(FaultRun& run) {
  Thread thread;
  KivSdThreadJoin(nullptr, &thread.handle);
  run.Call([&](KivSdContext* ctx) { return KivSdThreadDelete(ctx, &thread.handle); });
}
void JoinThread(FaultRun& run) {
  Thread thread;
  run.Call([&](KivSdContext* ctx) { return KivSdThreadJoin(ctx, &thread.handle); });
}
void GetPriority(FaultRun& run) {
  int32_t priority = 0;
  run.Call([&](KivSdContext* ctx) { return KivSdThreadPriorityGet(ctx, nullptr, &priority); });
}
void SetPriority(FaultRun& run) {
  run.Call([&](KivSdContext* ctx) { return KivSdThreadPrioritySet(ctx, nullptr, 0); });
}
void GetThreadHandle(FaultRun& run) {
  KivHandle handle = nullptr;
  const uint32_t status =
      run.Call([&](KivSdContext* ctx) { return KivSdThreadHandleGet(ctx, &handle); });
  if (status == KIV_ST_OK) KivSdThreadDelete(nullptr, &handle);
}
void GetClass(FaultRun& run) {
  uint32_t priorityClass = 0;
  run.Call([&](KivSdContext* ctx) { return KivSdProcessPriorityGet(ctx, &priorityClass); });
}
void SetClass(FaultRun& run) {
  run.Call([&](KivSdContext* ctx) {
    return KivSdProcessPrioritySet(ctx, nullptr, -1, KIV_PRIORITY_CLASS_NORMAL);
  });
}

void SuspendThread(FaultRun& run) {
  Gate gate;
  KivSdEventSet(nullptr, &gate.handle);
  Waiter waiter(&gate.handle);
  run.Call([&](KivSdContext* ctx) { return KivSdThreadSuspend(ctx, &waiter.thread); });
  KivSdThreadResume(nullptr, &waiter.thread);
}
void ResumeThread(FaultRun& run) {
  Gate gate;
  KivSdEventSet(nullptr, &gate.handle);
  Waiter waiter(&gate.handle);
  KivSdThreadSuspend(nullptr, &waiter.thread);
  run.Call([&](KivSdContext* ctx) { return KivSdThreadResume(ctx, &waiter.thread); });
  KivSdThreadResume(nullptr, &waiter.thread);
}
void CheckAlive(FaultRun& run) {
  uint64_t self = 0;
  EXPECT_EQ(KivSdProcessSessionIdGet(nullptr, &self), KIV_ST_OK);
  run.Call([&](KivSdContext* ctx) {
    return KivSdProcessCheckAlive(ctx, reinterpret_cast<KivHandle>(self));
  });
}

// A process that waits to be killed. Its handle is its identifier.
struct Process {
  Process() : id(fork()) {
    if (id != 0) return;
    for (;;) pause();
  }
  ~Process() {
    kill(id, SIGKILL);
    waitpid(id, nullptr, 0);
  }

  const pid_t id;
};

void EndProcess(FaultRun& run) {
  const Process process;
  run.Call([&](KivSdContext* ctx) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return KivSdProcessDelete(ctx, reinterpret_cast<KivHandle>(intptr_t{process.id}));
  });
}

// ---- Locks and per-thread storage ----

void CreateSpinlock(FaultRun& run) {
  KivSdSpinlock* lock = nullptr;
  run.Call([&](KivSdContext*) {
    lock = KivSdSpinlockCreate(nullptr, 0);
    return lock != nullptr ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY;
  });
  if (lock != nullptr) KivSdSpinlockDestroy(nullptr, lock);
}
void EndLock(FaultRun& run) {
  KivRWLock lock;
  KivRWLockTable table = {};
  KivRWLockInit(nullptr, 0, &lock, 1, 0);
  EXPECT_EQ(KivSdStartWrite(nullptr, &table, &lock), KIV_ST_OK);
  run.Call([&](KivSdContext*) { return KivSdEndRW(nullptr, &table, &lock); });
  EXPECT_EQ(KivSdStartWrite(nullptr, &table, &lock), KIV_ST_OK) << "the lock stays taken";
  EXPECT_EQ(KivSdEndRW(nullptr, &table, &lock), KIV_ST_OK);
  KivRWLockFreeQNodes(&table);
}
void FreeNodes(FaultRun& run) {
  KivRWLock lock;
  KivRWLockTable table = {};
  KivRWLockInit(nullptr, 0, &lock, 1, 0);
  EXPECT_EQ(KivSdStartWrite(nullptr, &table, &lock), KIV_ST_OK);
  EXPECT_EQ(KivSdEndRW(nullptr, &table, &lock), KIV_ST_OK);
  run.Call([&](KivSdContext*) {
    KivRWLockFreeQNodes(&table);
    return KIV_ST_OK;
  });
}
template <uint32_t (*Start)(void*, KivRWLockTable*, KivRWLock*)>
void StartLock(FaultRun& run) {
  KivRWLock lock;
  KivRWLockTable table = {};
  KivRWLockInit(nullptr, 0, &lock, 1, 0);
  const uint32_t status = run.Call([&](KivSdContext*) { return Start(nullptr, &table, &lock); });
  if (status == KIV_ST_OK) KivSdEndRW(nullptr, &table, &lock);
  KivRWLockFreeQNodes(&table);
}
void MakeContext(FaultRun& run) {
  KivSdContext* made = nullptr;
  run.Call([&](KivSdContext*) { return KivSdInit(&made); });
  if (made != nullptr) KivSdTerm(made);
}

// A node without kernel objects waits by spinning.
const std::vector<FaultOutcome> kLockOutcomes = {
    {"malloc", KIV_ST_OUT_OF_MEMORY},
    {"CreateMutexA", KIV_ST_OK},
    {"CreateSemaphoreA", KIV_ST_OK},
    {"CreateEventA", KIV_ST_OK},
};

const FaultScenario kScenarios[] = {
    {"KivSdCntSemCreate",
     CreateSemaphore,
     {{"CreateSemaphoreA", KIV_ST_SEM_CREATE}, {"malloc", KIV_ST_OUT_OF_MEMORY}}},
    {"KivSdCntSemCreate_named",
     CreateNamedSemaphore,
     {{"CreateSemaphoreA", KIV_ST_SEM_CREATE}, {"malloc", KIV_ST_OUT_OF_MEMORY}}},
    {"KivSdCntSemOpen",
     OpenSemaphore,
     {{"OpenSemaphoreA", KIV_ST_SEM_OPEN}, {"malloc", KIV_ST_OUT_OF_MEMORY}}},
    {"KivSdCntSemClose", CloseSemaphore, {{"CloseHandle", KIV_ST_SEM_CLOSE}}},
    {"KivSdCntSemClose_named", CloseNamedSemaphore, {{"CloseHandle", KIV_ST_SEM_CLOSE}}},
    {"KivSdCntSemRequest", RequestSemaphore, {{"WaitForSingleObject", KIV_ST_SEM_REQUEST}}},
    {"KivSdCntSemClear", ClearSemaphore, {{"ReleaseSemaphore", KIV_ST_SEM_CLEAR}}},
    {"KivSdShSemSetCreate",
     CreateSet,
     {{"CreateSemaphoreA", KIV_ST_SEM_CREATE},
      {"CloseHandle", KIV_ST_SEM_CREATE},
      {"malloc", KIV_ST_OUT_OF_MEMORY}},
     {},
     Recording::kNothing},
    {"KivSdShSemSetClose", CloseSet, {{"CloseHandle", KIV_ST_OK}}, {}, Recording::kNothing},
    {"KivSdShSemSetRequest",
     RequestOfSet,
     {{"WaitForSingleObject", KIV_ST_SEM_REQUEST}},
     {},
     Recording::kNothing},
    {"KivSdShSemSetClear",
     ClearOfSet,
     {{"ReleaseSemaphore", KIV_ST_SEM_CLEAR}},
     {},
     Recording::kNothing},
    {"KivSdMutexCreate", CreateMutex, {{"CreateMutexA", KIV_ST_MUTEX_CREATE}}},
    {"KivSdMutexCreate_named", CreateNamedMutex, {{"CreateMutexA", KIV_ST_MUTEX_CREATE}}},
    {"KivSdMutexOpen", OpenMutex, {{"OpenMutexA", KIV_ST_MUTEX_OPEN}}},
    {"KivSdMutexClose", CloseMutex, {{"CloseHandle", KIV_ST_MUTEX_CLOSE}}},
    {"KivSdMutexRequest", RequestMutex, {{"WaitForSingleObject", KIV_ST_MUTEX_REQUEST}}},
    {"KivSdMutexClear", ClearMutex, {{"ReleaseMutex", KIV_ST_MUTEX_CLEAR}}},
    {"KivSdEventCreate", CreateGate, {{"CreateEventA", KIV_ST_EVENT_CREATE}}},
    {"KivSdEventClose", CloseGate, {{"CloseHandle", KIV_ST_EVENT_CLOSE}}},
    {"KivSdEventSet", SetGate, {{"ResetEvent", KIV_ST_EVENT_SET}}},
    {"KivSdEventClear", ClearGate, {{"SetEvent", KIV_ST_EVENT_CLEAR}}},
    {"KivSdEventWait", WaitForGate, {{"WaitForSingleObject", KIV_ST_EVENT_WAIT}}},
    {"KivSdStdEventCreate", CreateEvent, {{"CreateEventA", KIV_ST_EVENT_CREATE}}},
    {"KivSdStdEventClose", CloseEvent, {{"CloseHandle", KIV_ST_EVENT_CLOSE}}},
    {"KivSdStdEventSet", SetEvent, {{"SetEvent", KIV_ST_EVENT_CLEAR}}},
    {"KivSdStdEventReset", ResetEvent, {{"ResetEvent", KIV_ST_EVENT_SET}}},
    {"KivSdStdEventWait", WaitForEvent, {{"WaitForSingleObject", KIV_ST_EVENT_WAIT}}},
    {"KivSdStdEventTimedWait", WaitForEventWithLimit, {{"WaitForSingleObject", KIV_ST_EVENT_WAIT}}},
    {"KivSdCountingEventCreate",
     CreateCountingEvent,
     {{"CreateSemaphoreA", KIV_ST_SEM_CREATE}, {"malloc", KIV_ST_OUT_OF_MEMORY}}},
    {"KivSdCountingEventClose", CloseCountingEvent, {{"CloseHandle", KIV_ST_SEM_CLOSE}}},
    {"KivSdCountingEventSet", SetCountingEvent, {{"ReleaseSemaphore", KIV_ST_SEM_CLEAR}}},
    {"KivSdCountingEventWait", WaitForCountingEvent, {{"WaitForSingleObject", KIV_ST_SEM_REQUEST}}},
    {"KivSdCountingEventTimedWait",
     WaitForCountingEventWithLimit,
     {{"WaitForSingleObject", KIV_ST_SEM_REQUEST}}},
    {"KivSdThreadCreate",
     StartThread,
     {{"CreateThread", KIV_ST_THREAD_CREATE}, {"malloc", KIV_ST_THREAD_CREATE}}},
    {"KivSdThreadDelete", DeleteThread, {{"CloseHandle", KIV_ST_THREAD_DELETE}}},
    {"KivSdThreadJoin", JoinThread, {{"WaitForSingleObject", KIV_ST_OK}}},
    {"KivSdThreadPriorityGet", GetPriority, {{"GetThreadPriority", KIV_ST_THREAD_PRIORITY_GET}}},
    {"KivSdThreadPrioritySet", SetPriority, {{"SetThreadPriority", KIV_ST_THREAD_PRIORITY_SET}}},
    {"KivSdThreadHandleGet", GetThreadHandle, {{"DuplicateHandle", KIV_ST_THREAD_HANDLE}}},
    {"KivSdProcessPriorityGet", GetClass, {{"GetPriorityClass", KIV_ST_PROCESS_PRIORITY_GET}}},
    {"KivSdProcessPrioritySet", SetClass, {{"SetPriorityClass", KIV_ST_PROCESS_PRIORITY_SET}}},
    {"KivSdThreadSuspend", SuspendThread, {{"SuspendThread", KIV_ST_OK}}},
    {"KivSdThreadResume", ResumeThread, {{"ResumeThread", KIV_ST_OK}}},
    {"KivSdProcessCheckAlive",
     CheckAlive,
     {{"WaitForSingleObject", KIV_ST_PROCESS_ALIVE, FaultOutcome::kAny, Recording::kWaitResult}}},
    {"KivSdProcessDelete",
     EndProcess,
     {{"TerminateProcess", KIV_ST_OK, FaultOutcome::kAny, Recording::kOtherError},
      {"TerminateProcess", KIV_ST_PROCESS_DELETE, EPERM}}},
    {"KivSdSpinlockCreate",
     CreateSpinlock,
     {{"malloc", KIV_ST_OUT_OF_MEMORY}},
     {},
     Recording::kNothing},
    {"KivSdStartRead", StartLock<KivSdStartRead>, kLockOutcomes, {}, Recording::kNothing},
    {"KivSdStartWrite", StartLock<KivSdStartWrite>, kLockOutcomes, {}, Recording::kNothing},
    {"KivSdEndRW", EndLock, kLockOutcomes, {}, Recording::kNothing},
    {"KivRWLockFreeQNodes",
     FreeNodes,
     {{"WaitForSingleObject", KIV_ST_OK}, {"ReleaseMutex", KIV_ST_OK}, {"CloseHandle", KIV_ST_OK}},
     {},
     Recording::kNothing},
    {"KivSdInit", MakeContext, {{"malloc", KIV_ST_OUT_OF_MEMORY}}, {}, Recording::kNothing},
};

INSTANTIATE_TEST_SUITE_P(Kernel, FaultLoop, testing::ValuesIn(kScenarios), NameOfScenario);

}  // namespace
