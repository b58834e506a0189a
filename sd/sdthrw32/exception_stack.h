// What the memory manager asks about a fatal exception.
#ifndef KIV_SDTHRW32_EXCEPTION_STACK_H
#define KIV_SDTHRW32_EXCEPTION_STACK_H

#include <atomic>
#include <cstdint>

#include "sdcommon/memory_stack.h"

namespace kiv {

// Copies of the exception stack's record, taken when it was made: the one in memory may be what
// the exception damaged.
constexpr int kExceptionStackCopies = 3;

struct FatalException {
  bool occurred;
  uint32_t thread;  // that raised it
  uint8_t value;    // the host's
};

// Stored last when an exception is recorded and read first, so that who sees it sees the rest too.
extern std::atomic<uint32_t> fatalExceptionFlag;

FatalException FatalExceptionState();

// The stack kept back for the handling of a fatal exception; null while there is none.
KivSdMemStack* ExceptionStack();

const KivSdMemStack& ExceptionStackCopy(int number);

}  // namespace kiv

#endif
