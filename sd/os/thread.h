// Threads: start, join, identity, and giving up the processor.
//
//   uint32_t CurrentThreadId()  this thread's identifier, never 0
//   void YieldThread()          gives up the rest of the time slice
//   void PauseProcessor()       the processor's hint for a busy wait; no system call
//
// Inline: every lock uses these three.
#ifndef KIV_OS_THREAD_H
#define KIV_OS_THREAD_H

#include "inline/thread.h"
#include "os/os.h"

namespace kiv::os {

// What a thread runs; the calling convention is the platform's for C.
using ThreadRoutine = uint32_t (*)(void* argument);

// Starts a thread and gives its handle. `stackBytes` 0 takes the platform's default; a value below
// the platform's least is raised to it. `id`, unless null, receives what CurrentThreadId gives in
// the thread, before the thread runs: its routine may read the variable, or end and free it. It is
// left alone on a failure, and where only the thread knows its identifier.
ValueResult<void*> StartThread(ThreadRoutine routine, void* argument, uint32_t stackBytes,
                               uint32_t* id = nullptr);

// The calling thread's own handle, valid in that thread alone.
void* CurrentThreadHandle();

// Waits until the thread has ended. On a platform where joining closes the thread (lnx),
// CloseThread after it does nothing.
Result JoinThread(void* handle);

// Gives the handle back; the thread runs on.
Result CloseThread(void* handle);

// 0 yields, 0xFFFFFFFF sleeps for ever.
void SleepMs(uint32_t timeMs);

}  // namespace kiv::os

#endif
