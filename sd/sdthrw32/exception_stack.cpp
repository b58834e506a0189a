// The fatal-exception record, and the memory stack reserved for handling a fatal exception. One
// thread makes and destroys the stack at start-up and shutdown. The thread that raised an exception
// records and handles it; one thread does so at a time.
#include "sdthrw32/exception_stack.h"

#include <atomic>

#include "kivsdu/memstack.h"
#include "kivsdu/status.h"
#include "kivsdu/system.h"
#include "kivsdu/thread.h"
#include "os/thread.h"
#include "os/thread_control.h"

using namespace kiv;

namespace {

constexpr uint32_t kNotCreated = 0xFFFFFFFF;
constexpr uint32_t kStackBytes = 1 << 20;

std::atomic<uint32_t> raisingThread{0};
std::atomic<uint8_t> hostValue{0};

KivSdMemStack* stack = nullptr;

// Compatibility: mark and status in one. After a failed creation or a destroy it holds the status
// of that operation, which differs from kNotCreated: the stack is made once in a process's life.
uint32_t creationStatus = kNotCreated;

uint32_t MakeStack() {
  uint32_t alignment = 0;
  const uint32_t status = KivSdMaxAlignGet(nullptr, &alignment);
  if (status != KIV_ST_OK) return status;
  return KivSdMemStackCreate(nullptr, &stack, alignment, kStackBytes);
}

// The claim that the handling thread takes. Null before the first exception is recorded, or if the
// system cannot make a claim.
std::atomic<void*> handlersClaim{nullptr};

void* HandlersClaim() {
  void* claim = handlersClaim.load(std::memory_order_acquire);
  if (claim != nullptr) return claim;
  void* made = os::MakeClaim().value;
  // acq_rel: release publishes this thread's claim; acquire makes another thread's claim visible
  // before this thread uses it.
  if (handlersClaim.compare_exchange_strong(claim, made, std::memory_order_acq_rel)) return made;
  if (made != nullptr) static_cast<void>(os::CloseClaim(made));
  return claim;
}

// Returns once the calling thread is the handling thread. Two handlers at the same time would both
// push on the exception stack.
void BecomeHandler(uint32_t thread) {
  const os::Claim claim = os::TakeClaim(HandlersClaim());
  uint32_t handler = 0;
  // relaxed: the flag, stored later with release, publishes the value.
  const bool isFirst =
      raisingThread.compare_exchange_strong(handler, thread, std::memory_order_relaxed);
  if (isFirst || handler == thread) return;
  if (claim == os::Claim::kTakenFromEnded) {
    return raisingThread.store(thread, std::memory_order_relaxed);
  }
  // Without a claim this thread cannot find out whether the handler has ended.
  StopOtherThreads();
}

}  // namespace

KivSdMemStack kiv::exceptionStackCopies[kExceptionStackCopies] = {};

FatalException kiv::FatalExceptionState() {
  const bool has = FatalExceptionOccurred();
  return {has, raisingThread.load(std::memory_order_relaxed),
          hostValue.load(std::memory_order_relaxed)};
}

void kiv::StopOtherThreads() {
  while (FatalExceptionState().thread != os::CurrentThreadId()) {
    static_cast<void>(KivSdThreadSuspend(nullptr, nullptr));
  }
}

KivSdMemStack* kiv::ExceptionStack() { return stack; }

uint32_t KivSdXcptSetFatExceptionOccured(uint8_t value) {
  uint32_t thread = 0;
  const uint32_t status = KivSdThreadIdGet(nullptr, &thread);
  if (status != KIV_ST_OK) return status;
  BecomeHandler(thread);
  hostValue.store(value, std::memory_order_relaxed);
  SetMemoryMode(kFatalExceptionMode, true);  // last: it publishes the values stored above
  return KIV_ST_OK;
}

void KivSdXcptCreateStackHeader() {
  if (creationStatus != kNotCreated) return;
  creationStatus = MakeStack();
  if (stack == nullptr) return;
  for (KivSdMemStack& copy : exceptionStackCopies) copy = *stack;
}

void KivSdXcptDestroyStackHeader() {
  if (creationStatus == kNotCreated) return;
  creationStatus = KivSdMemStackDelete(nullptr, stack);
  stack = nullptr;
}
