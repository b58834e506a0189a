// The fatal-exception record, and the memory stack kept back for the handling of such an
// exception. The stack is made and destroyed by one thread at start-up and shutdown. An exception
// is recorded by the thread that raised it and handles it; one thread does so at a time.
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

// Kept as the mark and the status in one: after a destroy it holds that one's 0, after a failure
// the failure, and neither is "not created", so that the stack is made once in a process's life.
uint32_t creationStatus = kNotCreated;

uint32_t MakeStack() {
  uint32_t alignment = 0;
  const uint32_t status = KivSdMaxAlignGet(nullptr, &alignment);
  if (status != KIV_ST_OK) return status;
  return KivSdMemStackCreate(nullptr, &stack, alignment, kStackBytes);
}

// Taken by the thread that handles the exception. Null before the first recording, and where the
// system cannot make one.
std::atomic<void*> handlersClaim{nullptr};

void* HandlersClaim() {
  void* claim = handlersClaim.load(std::memory_order_acquire);
  if (claim != nullptr) return claim;
  void* made = os::MakeClaim().value;
  // acq_rel: the claim is made before others see it, and another's before this thread takes it.
  if (handlersClaim.compare_exchange_strong(claim, made, std::memory_order_acq_rel)) return made;
  if (made != nullptr) static_cast<void>(os::CloseClaim(made));
  return claim;
}

// Returns once the thread is the one that handles the exception. Two that handled one side by side
// would both push on the exception stack.
void BecomeHandler(uint32_t thread) {
  const os::Claim claim = os::TakeClaim(HandlersClaim());
  uint32_t handler = 0;
  // relaxed: the flag, which is stored behind it, publishes it.
  const bool isFirst =
      raisingThread.compare_exchange_strong(handler, thread, std::memory_order_relaxed);
  if (isFirst || handler == thread) return;
  if (claim == os::Claim::kTakenFromEnded) {
    return raisingThread.store(thread, std::memory_order_relaxed);
  }
  // Without the claim this thread cannot learn that the handler has ended.
  StopOtherThreads();
}

}  // namespace

// The allocator asks for it on every request, while another thread may be setting it.
std::atomic<uint32_t> kiv::fatalExceptionFlag{0};

KivSdMemStack kiv::exceptionStackCopies[kExceptionStackCopies] = {};

FatalException kiv::FatalExceptionState() {
  const bool has = fatalExceptionFlag.load(std::memory_order_acquire) != 0;
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
  // release: pairs with the acquire of FatalExceptionState.
  fatalExceptionFlag.store(1, std::memory_order_release);
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
