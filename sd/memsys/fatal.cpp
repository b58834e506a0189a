// Plain mode once a fatal exception has been recorded: the thread that raised it is served from
// the exception stack, so that its handler does not touch a heap which may be what broke, and no
// other thread goes on changing that heap.
//
// The stack must not grow meanwhile: it would take its memory from here again. Its room is looked
// at before every push, and a request beyond it ends the process.
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

// The host said when it recorded the exception whether this is an orderly end.
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

// How much lies behind an address. A piece of the stack has no size of its own, and counts up to
// the end of its block; what was allocated before the exception has the size that the runtime
// knows.
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
