// Threads: start, join, identity, and giving up the processor.
//
//   uint32_t CurrentThreadId()  this thread's identifier, never 0
//   uint32_t KnownThreadId()    the identifier, or 0 if only CurrentThreadId can find it out
//   void YieldThread()          gives up the rest of the time slice
//   void PauseProcessor()       the processor's hint for busy waits; no system call
//
// Inline: every lock uses these three.
#ifndef KIV_OS_THREAD_H
#define KIV_OS_THREAD_H

#include "inline/thread.h"
#include "os/os.h"

namespace kiv::os {

// The function that a thread runs, in the platform's C calling convention.
using ThreadRoutine = uint32_t (*)(void* argument);

// Starts a thread and returns its handle.
//
//   stackBytes  0 takes the platform's default; the platform raises values below its minimum
//   id          may be null; receives the new thread's CurrentThreadId before the routine starts:
//               the routine may read or free the variable. Not written on failure
ValueResult<void*> StartThread(ThreadRoutine routine, void* argument, uint32_t stackBytes,
                               uint32_t* id = nullptr);

// A pseudo-handle that means the calling thread in every thread.
void* CurrentThreadHandle();

// Waits until the thread has ended. Several threads may wait, and more than once. The handle must
// still be closed with CloseThread.
Result JoinThread(void* handle);

// Closes the handle. The thread continues to run.
Result CloseThread(void* handle);

// Shows the calling thread to debuggers under a name of at most 15 characters, where the platform
// has names that every supported version knows (lnx).
void NameCurrentThread(const char* name);

// 0 yields; 0xFFFFFFFF sleeps for ever.
void SleepMs(uint32_t timeMs);

}  // namespace kiv::os

#endif
