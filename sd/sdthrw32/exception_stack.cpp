// The fatal-exception record, and the memory stack kept back for the handling of such an
// exception. Made and destroyed by one thread at start-up and shutdown; an exception is recorded
// by the thread that raised it.
#include "sdthrw32/exception_stack.h"

#include <atomic>

#include "kivsdu/memstack.h"
#include "kivsdu/status.h"
#include "kivsdu/system.h"
#include "kivsdu/thread.h"

namespace {

constexpr uint32_t kNotCreated = 0xFFFFFFFF;
constexpr uint32_t kStackBytes = 1 << 20;

std::atomic<uint32_t> raisingThread{0};
std::atomic<uint8_t> hostValue{0};

KivSdMemStack* stack = nullptr;
KivSdMemStack copies[kiv::kExceptionStackCopies] = {};

// Kept as the mark and the status in one: after a destroy it holds that one's 0, after a failure
// the failure, and neither is "not created", so that the stack is made once in a process's life.
uint32_t creationStatus = kNotCreated;

uint32_t MakeStack() {
  uint32_t alignment = 0;
  const uint32_t status = KivSdMaxAlignGet(nullptr, &alignment);
  if (status != KIV_ST_OK) return status;
  return KivSdMemStackCreate(nullptr, &stack, alignment, kStackBytes);
}

}  // namespace

// The allocator asks for it on every request, while another thread may be setting it.
std::atomic<uint32_t> kiv::fatalExceptionFlag{0};

kiv::FatalException kiv::FatalExceptionState() {
  const bool has = fatalExceptionFlag.load(std::memory_order_acquire) != 0;
  return {has, raisingThread.load(std::memory_order_relaxed),
          hostValue.load(std::memory_order_relaxed)};
}

KivSdMemStack* kiv::ExceptionStack() { return stack; }

const KivSdMemStack& kiv::ExceptionStackCopy(int number) { return copies[number]; }

uint32_t KivSdXcptSetFatExceptionOccured(uint8_t value) {
  uint32_t thread = 0;
  const uint32_t status = KivSdThreadIdGet(nullptr, &thread);
  if (status != KIV_ST_OK) return status;
  raisingThread.store(thread, std::memory_order_relaxed);
  hostValue.store(value, std::memory_order_relaxed);
  // release: pairs with the acquire of FatalExceptionState.
  kiv::fatalExceptionFlag.store(1, std::memory_order_release);
  return KIV_ST_OK;
}

void KivSdXcptCreateStackHeader() {
  if (creationStatus != kNotCreated) return;
  creationStatus = MakeStack();
  if (stack == nullptr) return;
  for (KivSdMemStack& copy : copies) copy = *stack;
}

void KivSdXcptDestroyStackHeader() {
  if (creationStatus == kNotCreated) return;
  creationStatus = KivSdMemStackDelete(nullptr, stack);
  stack = nullptr;
}
