#include "os/thread.h"

#include <limits.h>
#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <memory>
#include <new>

#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

constexpr uint32_t kSleepForEver = 0xFFFFFFFF;

// The record behind a handle; CloseThread frees it.
struct Thread {
  pthread_t id;
  bool joined;
};

// Routine and argument of a new thread. The thread owns and frees it, even if the handle is closed
// first.
struct Start {
  ThreadRoutine routine;
  void* argument;
};

void* RunThread(void* argument) {
  const std::unique_ptr<Start> start(static_cast<Start*>(argument));
  start->routine(start->argument);
  return nullptr;
}

int CreateWithStack(pthread_t* id, Start* start, uint32_t stackBytes) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  const size_t least = static_cast<size_t>(PTHREAD_STACK_MIN);
  if (stackBytes != 0) {
    pthread_attr_setstacksize(&attributes, stackBytes < least ? least : stackBytes);
  }
  const int error = pthread_create(id, &attributes, RunThread, start);
  pthread_attr_destroy(&attributes);
  return error;
}

}  // namespace

ValueResult<void*> StartThread(ThreadRoutine routine, void* argument, uint32_t stackBytes,
                               uint32_t* /*id*/) {
  std::unique_ptr<Thread> thread(new (std::nothrow) Thread{});
  std::unique_ptr<Start> start(new (std::nothrow) Start{routine, argument});
  if (thread == nullptr || start == nullptr) return {false, ENOMEM, nullptr};
  const Result result = FromCode(CreateWithStack(&thread->id, start.get(), stackBytes));
  if (!result.ok) return {false, result.error, nullptr};
  static_cast<void>(start.release());
  return {true, 0, thread.release()};
}

// A thread does not know its handle. Null stands for the calling thread, and JoinThread waits for
// ever if it gets null.
void* CurrentThreadHandle() { return nullptr; }

Result JoinThread(void* handle) {
  if (handle == nullptr) SleepMs(kSleepForEver);
  auto* thread = static_cast<Thread*>(handle);
  const Result result = FromCode(pthread_join(thread->id, nullptr));
  thread->joined = thread->joined || result.ok;
  return result;
}

Result CloseThread(void* handle) {
  auto* thread = static_cast<Thread*>(handle);
  const Result result = thread->joined ? Result{true, 0} : FromCode(pthread_detach(thread->id));
  delete thread;
  return result;
}

void SleepMs(uint32_t timeMs) {
  if (timeMs == 0) return YieldThread();
  timespec left = {static_cast<time_t>(timeMs / 1000), static_cast<long>(timeMs % 1000) * 1000000};
  do {
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
    left = {3600, 0};
  } while (timeMs == kSleepForEver);
}

}  // namespace kiv::os
