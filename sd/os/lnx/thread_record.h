// The record of a thread, for the sources that start, stop, join and rank threads.
//
// A thread that the library starts has a record from the beginning. Any other thread gets one when
// it first needs one. The running thread holds a reference; each handle holds another.
#ifndef KIV_OS_LNX_THREAD_RECORD_H
#define KIV_OS_LNX_THREAD_RECORD_H

#include <pthread.h>
#include <setjmp.h>

#include "os/kernel_objects.h"
#include "os/lnx/handle_use.h"
#include "os/thread.h"

namespace kiv::os {

// Who waits in pthread_join for the thread.
enum class Joining : uint32_t {
  kNobody,      // pthread_join is still possible
  kSomebody,    // a thread is in pthread_join
  kDone,        // the thread has been joined
  kImpossible,  // detached, or not started by the library
};

struct Thread {
  std::atomic<uint32_t> references;  // of the running thread and of each handle
  std::atomic<uint32_t> id;          // its CurrentThreadId; 0 until it runs. Futex
  std::atomic<uint32_t> hasEnded;    // 1 when the thread no longer runs the host's code. Futex
  std::atomic<uint32_t> joining;     // a Joining. Futex
  std::atomic<uint32_t> handles;     // open handles; at 0 nobody can join any more
  std::atomic<uint32_t> stops;       // stops without a resume. Futex
  std::atomic<uint32_t> isParked;    // 1 while the stopped thread sleeps. Futex
  std::atomic<uint32_t> exitCode;    // valid once the thread has ended
  std::atomic<int32_t> priority;     // as set by WriteThreadPriority
  uint32_t endings;                  // rounds of the end so far; only the thread itself uses it
  pthread_t system;
  ThreadRoutine routine;
  void* argument;
  uint32_t* idOut;  // receives the identifier before the routine starts; may be null
  jmp_buf* exit;    // in the frame that called the routine; null in other threads
};

struct ThreadHandle {
  static constexpr Kind kKind = Kind::kThread;
  void End();

  ObjectWord word;
  Thread* thread;
};
using ThreadUse = HandleUse<ThreadHandle>;

// The calling thread's record; null if it has none yet. Reading it is safe in a signal handler.
extern constinit thread_local Thread* currentThread;

// The calling thread's record, made if it has none. Null if there is no memory.
Thread* RequireCurrentThread();

// Adds a handle to a record. The handle holds a reference of its own. Null on failure.
void* MakeThreadHandle(Thread* thread);

inline bool IsCurrentThread(const void* handle) { return handle == CurrentThreadHandle(); }

// Waits until the thread has ended. Fails with EBADF for a handle that is not a thread's.
Wait WaitForThread(void* handle, uint32_t timeoutMs);

// The thread's exit code, valid once it has ended.
ValueResult<uint32_t> ReadExitCode(void* handle);

}  // namespace kiv::os

#endif
