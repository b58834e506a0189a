// The state of a fatal exception, for the memory manager.
#ifndef KIV_SDTHRW32_EXCEPTION_STACK_H
#define KIV_SDTHRW32_EXCEPTION_STACK_H

#include <cstdint>

#include "memory_modes.h"
#include "sdcommon/memory_stack.h"

namespace kiv {

// Copies of the exception stack's record, made when the stack is created. The library does not read
// them. They are for analysing a dump of the process, because the exception may have damaged the
// record itself.
constexpr int kExceptionStackCopies = 3;
extern KivSdMemStack exceptionStackCopies[kExceptionStackCopies];

struct FatalException {
  bool occurred;
  uint32_t thread;  // the thread that raised it
  uint8_t value;    // passed in by the host
};

// Whether an exception was recorded. A thread that sees this also sees the state below.
inline bool FatalExceptionOccurred() { return IsInMode(kFatalExceptionMode); }

FatalException FatalExceptionState();

// Suspends the calling thread for good, however often it is resumed, unless it is the thread that
// handles the exception.
void StopOtherThreads();

// Returns the memory stack reserved for handling a fatal exception; null while there is none.
KivSdMemStack* ExceptionStack();

}  // namespace kiv

#endif
