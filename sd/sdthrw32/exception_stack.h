// What the memory manager asks about a fatal exception.
#ifndef KIV_SDTHRW32_EXCEPTION_STACK_H
#define KIV_SDTHRW32_EXCEPTION_STACK_H

#include <atomic>
#include <cstdint>

#include "sdcommon/memory_stack.h"

namespace kiv {

// Copies of the exception stack's record, taken when it was made. The library does not read them:
// they are for whoever examines a dump of the process, where the record itself may be what the
// exception damaged.
constexpr int kExceptionStackCopies = 3;
extern KivSdMemStack exceptionStackCopies[kExceptionStackCopies];

struct FatalException {
  bool occurred;
  uint32_t thread;  // that raised it
  uint8_t value;    // the host's
};

// Stored last when an exception is recorded and read first, so that who sees it sees the rest too.
extern std::atomic<uint32_t> fatalExceptionFlag;

FatalException FatalExceptionState();

// Stops the calling thread for good, however often it is resumed, unless it handles the exception.
void StopOtherThreads();

// The stack kept back for the handling of a fatal exception; null while there is none.
KivSdMemStack* ExceptionStack();

}  // namespace kiv

#endif
