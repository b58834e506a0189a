// Plain mode after a fatal exception has been recorded. The thread that recorded it allocates from
// the exception stack, so that its handler does not touch the heap, which may be corrupt. Any other
// thread that calls is suspended, so that it does not change the heap either.
//
// The stack must not grow, because it would allocate its next block through this file again. Every
// push checks the stack's room first, and a request that exceeds it ends the process.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "kivsdu/memstack.h"
#include "kivsdu/status.h"
#include "memheap/policy_block.h"
#include "memheap/switches.h"
#include "memsys/plain.h"
#include "os/heap.h"
#include "sdthrw32/exception_stack.h"

namespace kiv {
namespace {

// Ends the process with exit or abort, as the value stored with the recorded exception says.
[[noreturn]] void EndProcess() {
  if (FatalExceptionState().value == 0) std::exit(0);
  std::abort();
}

void* Push(uint64_t sizeBytes) {
  KivSdMemStack* stack = ExceptionStack();
  if (stack == nullptr || sizeBytes > StackRoom(*stack)) EndProcess();
  void* piece = nullptr;
  const uint32_t status =
      KivSdMemStackAllocAndPush(nullptr, stack, static_cast<uint32_t>(sizeBytes), &piece);
  if (status != KIV_ST_OK) EndProcess();
  return piece;
}

const StackBlock* HolderOf(const void* block) {
  const KivSdMemStack* stack = ExceptionStack();
  return stack == nullptr ? nullptr : StackHolderOf(*stack, block);
}

uint64_t Distance(const void* from, const void* to) {
  return static_cast<uint64_t>(static_cast<const char*>(to) - static_cast<const char*>(from));
}

// Returns the bytes from a payload to the end of its memory. A piece of the stack has no recorded
// size and extends to the end of its block. A block from before the exception extends to the end of
// the runtime's block.
uint64_t BytesFrom(void* block) {
  const StackBlock* holder = HolderOf(block);
  if (holder != nullptr) return holder->sizeBytes - Distance(holder, block);
  void* raw = ManagerSwitchIsOn() ? RawBlockOf(block) : block;
  const uint64_t rawBytes = os::RawSize(raw);
  return rawBytes - std::min(rawBytes, Distance(raw, block));
}

}  // namespace

void* FatalAllocate(uint64_t sizeBytes) {
  StopOtherThreads();
  return Push(sizeBytes);
}

void* FatalReallocate(void* block, uint64_t newSizeBytes) {
  StopOtherThreads();
  void* moved = Push(newSizeBytes);
  if (block != nullptr) std::memmove(moved, block, std::min(BytesFrom(block), newSizeBytes));
  return moved;
}

uint32_t FatalFree(void* block) {
  StopOtherThreads();
  return HolderOf(block) != nullptr ? KIV_ST_OK : KIV_ST_ARGUMENT;
}

}  // namespace kiv
