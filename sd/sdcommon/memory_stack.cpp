// Memory stacks.
//
// A stack fills its top block by advancing an offset. Full blocks lie below the top block. Released
// blocks wait on a free list, largest first. A push considers only the list's head, so that its
// cost does not depend on the number of free blocks.
//
// Every operation reports {status, 0}. The OS error of a failed call is not reported.
#include "sdcommon/memory_stack.h"

#include <algorithm>

#include "compiler.h"
#include "kivsdu/manager.h"
#include "kivsdu/memory.h"
#include "kivsdu/system.h"
#include "report.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdcommon";
constexpr uint32_t kLineStackAlloc = 846;
constexpr uint32_t kLineFirstBlockAlloc = 882;
constexpr uint32_t kLineBlockAlloc = 1001;
constexpr uint32_t kLinePopFree = 1107;
constexpr uint32_t kLineStackFree = 1158;
constexpr uint32_t kLineFreeBlockFree = 1168;
constexpr uint32_t kLineUsedBlockFree = 1181;

constexpr uint64_t kManagerOverheadBytes = 128;  // what the manager may add to a block
constexpr uint64_t kLargestBlockBytes = UINT32_MAX;

bool IsPowerOfTwo(uint32_t value) { return value != 0 && (value & (value - 1)) == 0; }

uint64_t RoundUp(uint64_t value, uint64_t unit) { return (value + unit - 1) / unit * unit; }

// Rounds up to a multiple of a power of two, without a division, because every push rounds.
uint64_t AlignUp(uint64_t value, uint64_t alignment) {
  return (value + alignment - 1) & ~(alignment - 1);
}

unsigned char* Bytes(StackBlock* block) { return reinterpret_cast<unsigned char*>(block); }

// Rounds a block up so that, with the manager's overhead, it fills whole pages; at most the largest
// allocation. The result may exceed the 32-bit size field of a block.
uint64_t BlockSize(const KivSdMemStack& stack, uint64_t bytes) {
  const uint64_t size =
      stack.pageBytes == 1
          ? bytes
          : RoundUp(bytes + kManagerOverheadBytes, stack.pageBytes) - kManagerOverheadBytes;
  return std::min(size, stack.maxAllocBytes);
}

// Allocates a block, sets its size and links it to nothing.
uint32_t MakeBlock(uint64_t sizeBytes, uint32_t line, StackBlock** made) {
  if (sizeBytes > kLargestBlockBytes) return KIV_ST_OUT_OF_MEMORY;
  const auto size = static_cast<uint32_t>(sizeBytes);
  void* memory = nullptr;
  const uint32_t status =
      KivSdMemAllocUsingPolicy(nullptr, 0, size, &memory, AD_POLICY_MANDATORY, kSource, line);
  if (status != KIV_ST_OK) return status;
  *made = static_cast<StackBlock*>(memory);
  **made = StackBlock{size, nullptr};
  return KIV_ST_OK;
}

bool Holds(const KivSdMemStack& stack, StackBlock* block, const unsigned char* address) {
  return address >= Bytes(block) + stack.headerBytes && address < Bytes(block) + block->sizeBytes;
}

// Inserts a block into the free list before the first one that is not larger. Among blocks of equal
// size the newest is first.
void AddFree(KivSdMemStack* stack, StackBlock* block) {
  StackBlock** link = &stack->freeList;
  while (*link != nullptr && (*link)->sizeBytes > block->sizeBytes) link = &(*link)->next;
  block->next = *link;
  *link = block;
}

// Takes a block of at least sizeBytes bytes: the largest free block if it is large enough, else a
// new one.
uint32_t TakeBlock(KivSdMemStack* stack, uint64_t sizeBytes, StackBlock** taken) {
  StackBlock* head = stack->freeList;
  if (head == nullptr || head->sizeBytes < sizeBytes) {
    return MakeBlock(sizeBytes, kLineBlockAlloc, taken);
  }
  stack->freeList = head->next;
  *taken = head;
  return KIV_ST_OK;
}

bool FitsTop(const KivSdMemStack& stack, uint32_t sizeBytes) {
  return stack.top != nullptr && stack.topOffset + sizeBytes <= stack.top->sizeBytes;
}

// Puts a block with room for a piece of sizeBytes bytes on top.
uint32_t GrowFor(KivSdMemStack* stack, uint32_t sizeBytes) {
  const uint64_t needed = stack->headerBytes + sizeBytes;
  const uint64_t blockBytes =
      needed > stack->defaultBlockBytes ? BlockSize(*stack, needed) : stack->defaultBlockBytes;
  StackBlock* block = nullptr;
  const uint32_t status = TakeBlock(stack, blockBytes, &block);
  if (status != KIV_ST_OK) return status;
  block->next = stack->top;
  stack->top = block;
  stack->topOffset = stack->headerBytes;
  return KIV_ST_OK;
}

// Yields a piece at the top and advances the top past it.
uint32_t Push(KivSdContext* ctx, KivSdMemStack* stack, uint32_t sizeBytes, void** out) {
  *out = Bytes(stack->top) + stack->topOffset;
  stack->topOffset = AlignUp(stack->topOffset + sizeBytes, stack->alignment);
  return Report(ctx, KIV_ST_OK);
}

// Full path of a push that does not fit the top block. Out of line, so that other pushes save no
// registers.
KIV_NOINLINE uint32_t PushToNewBlock(KivSdContext* ctx, KivSdMemStack* stack, uint32_t sizeBytes,
                                     void** out) {
  if (sizeBytes > stack->maxAllocBytes - stack->headerBytes) return Report(ctx, KIV_ST_ARGUMENT);
  const uint32_t status = GrowFor(stack, sizeBytes);
  return status == KIV_ST_OK ? Push(ctx, stack, sizeBytes, out) : Report(ctx, status);
}

// Fills the record. The system queries for the page size and the largest allocation may fail.
uint32_t Prepare(KivSdMemStack* stack, uint32_t alignment) {
  *stack = KivSdMemStack{};
  uint32_t status = KivSdPageSizeGet(nullptr, &stack->pageBytes);
  if (status != KIV_ST_OK) return status;
  status = KivSdMaxAllocGet(nullptr, &stack->maxAllocBytes);
  if (status != KIV_ST_OK) return status;
  stack->alignment = alignment;
  stack->headerBytes = AlignUp(sizeof(StackBlock), alignment);
  stack->topOffset = stack->headerBytes;
  return KIV_ST_OK;
}

uint32_t MakeFirstBlock(KivSdMemStack* stack, uint32_t initialSizeBytes) {
  const uint64_t sizeBytes = BlockSize(*stack, initialSizeBytes);
  StackBlock* block = nullptr;
  const uint32_t status = MakeBlock(sizeBytes, kLineFirstBlockAlloc, &block);
  if (status != KIV_ST_OK) return status;
  stack->defaultBlockBytes = static_cast<uint32_t>(sizeBytes);
  stack->freeList = block;
  return KIV_ST_OK;
}

// Removes the top block. It becomes the free list if it lies directly above `holder`, has the
// default size and the list is empty; otherwise it is freed.
uint32_t DropTop(KivSdMemStack* stack, const StackBlock* holder) {
  StackBlock* block = stack->top;
  StackBlock* below = block->next;
  if (below == holder && stack->freeList == nullptr &&
      block->sizeBytes == stack->defaultBlockBytes) {
    block->next = nullptr;
    stack->freeList = block;
  } else {
    const uint32_t status = KivSdMemFree(nullptr, block, kSource, kLinePopFree);
    if (status != KIV_ST_OK) return status;
  }
  stack->top = below;
  return KIV_ST_OK;
}

uint32_t FreeChain(KivSdContext* ctx, StackBlock* block, uint32_t line) {
  while (block != nullptr) {
    StackBlock* next = block->next;
    const uint32_t status = KivSdMemFree(ctx, block, kSource, line);
    if (status != KIV_ST_OK) return status;
    block = next;
  }
  return KIV_ST_OK;
}

}  // namespace

uint64_t kiv::StackRoom(const KivSdMemStack& stack) {
  const uint64_t blockBytes = stack.top != nullptr ? stack.top->sizeBytes : stack.defaultBlockBytes;
  // The offset after the last piece is rounded up, possibly past the block's end. In an empty stack
  // it is the header's size.
  return blockBytes - std::min(blockBytes, stack.topOffset);
}

StackBlock* kiv::StackHolderOf(const KivSdMemStack& stack, const void* address) {
  StackBlock* block = stack.top;
  while (block != nullptr && !Holds(stack, block, static_cast<const unsigned char*>(address))) {
    block = block->next;
  }
  return block;
}

uint32_t KivSdMemStackCreate(KivSdContext* ctx, KivSdMemStack** out, uint32_t alignment,
                             uint32_t initialSizeBytes) {
  if (out == nullptr || !IsPowerOfTwo(alignment)) return Report(ctx, KIV_ST_ARGUMENT);

  void* record = nullptr;
  uint32_t status = KivSdMemAllocUsingPolicy(nullptr, 0, sizeof(KivSdMemStack), &record,
                                             AD_POLICY_MANDATORY, kSource, kLineStackAlloc);
  // From here on the caller owns the record and deletes it, even if a later step fails.
  *out = static_cast<KivSdMemStack*>(record);
  if (status != KIV_ST_OK) return Report(ctx, status);

  KivSdMemStack* stack = *out;
  status = Prepare(stack, alignment);
  if (status != KIV_ST_OK) return Report(ctx, status);
  if (initialSizeBytes > stack->maxAllocBytes) return Report(ctx, KIV_ST_ARGUMENT);
  return Report(ctx, MakeFirstBlock(stack, initialSizeBytes));
}

uint32_t KivSdMemStackAllocAndPush(KivSdContext* ctx, KivSdMemStack* stack, uint32_t sizeBytes,
                                   void** out) {
  if (stack == nullptr || out == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  // No block is larger than the largest allocation, so a piece that fits needs no other check.
  if (FitsTop(*stack, sizeBytes)) [[likely]]
    return Push(ctx, stack, sizeBytes, out);
  return PushToNewBlock(ctx, stack, sizeBytes, out);
}

uint32_t KivSdMemStackPopAndFree(KivSdContext* ctx, KivSdMemStack* stack, const void* address) {
  if (stack == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  StackBlock* holder = StackHolderOf(*stack, address);
  if (holder == nullptr) return Report(ctx, KIV_ST_ARGUMENT);

  while (stack->top != holder) {
    const uint32_t status = DropTop(stack, holder);
    if (status != KIV_ST_OK) return Report(ctx, status);
  }
  stack->topOffset =
      static_cast<uint64_t>(static_cast<const unsigned char*>(address) - Bytes(holder));
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdMemStackReset(KivSdContext* ctx, KivSdMemStack* stack) {
  if (stack == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  // Compatibility: an empty stack leaves the context unchanged, unlike every other success.
  if (stack->top == nullptr) return KIV_ST_OK;

  while (stack->top != nullptr) {
    StackBlock* block = stack->top;
    stack->top = block->next;
    AddFree(stack, block);
  }
  stack->topOffset = stack->headerBytes;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdMemStackDelete(KivSdContext* ctx, KivSdMemStack* stack) {
  if (stack == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  // The record is freed first: copy its lists before.
  StackBlock* freeList = stack->freeList;
  StackBlock* used = stack->top;
  uint32_t status = KivSdMemFree(ctx, stack, kSource, kLineStackFree);
  if (status == KIV_ST_OK) status = FreeChain(ctx, freeList, kLineFreeBlockFree);
  if (status == KIV_ST_OK) status = FreeChain(ctx, used, kLineUsedBlockFree);
  return Report(ctx, status);
}
