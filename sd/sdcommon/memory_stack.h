// The records behind a memory stack.
#ifndef KIV_SDCOMMON_MEMORY_STACK_H
#define KIV_SDCOMMON_MEMORY_STACK_H

#include <cstddef>
#include <cstdint>

#include "kivsdu/memstack.h"

namespace kiv {

// Lies at the start of every block. The first piece starts at the stack's headerBytes.
//
//   0       8      16 rounded up to the alignment
//   | size | next | piece | piece | ...
struct StackBlock {
  uint32_t sizeBytes;  // the whole block
  StackBlock* next;    // of a used block, the block below it; of a free one, the next free block
};
static_assert(sizeof(StackBlock) == 16, "least header of a block");
static_assert(offsetof(StackBlock, next) == 8, "block layout");

}  // namespace kiv

// Seven 64-bit words, because handlers of fatal exceptions keep copies of a stack.
struct KivSdMemStack {
  uint32_t pageBytes;
  uint32_t alignment;          // of every piece; a power of two
  uint32_t defaultBlockBytes;  // least size of a block
  uint64_t headerBytes;        // reserved at the start of every block
  uint64_t topOffset;          // of the next free byte in the top block
  uint64_t maxAllocBytes;
  kiv::StackBlock* top;       // block being filled, linked down to the full ones; null while empty
  kiv::StackBlock* freeList;  // largest first
};
static_assert(offsetof(KivSdMemStack, pageBytes) == 0, "stack layout");
static_assert(offsetof(KivSdMemStack, alignment) == 4, "stack layout");
static_assert(offsetof(KivSdMemStack, defaultBlockBytes) == 8, "stack layout");
static_assert(offsetof(KivSdMemStack, headerBytes) == 16, "stack layout");
static_assert(offsetof(KivSdMemStack, topOffset) == 24, "stack layout");
static_assert(offsetof(KivSdMemStack, maxAllocBytes) == 32, "stack layout");
static_assert(offsetof(KivSdMemStack, top) == 40, "stack layout");
static_assert(offsetof(KivSdMemStack, freeList) == 48, "stack layout");
static_assert(sizeof(KivSdMemStack) == 56, "stack layout");

namespace kiv {

// Returns the bytes that can be pushed before the stack needs another block.
uint64_t StackRoom(const KivSdMemStack& stack);

// Returns the used block whose pieces include this address; null if there is none.
StackBlock* StackHolderOf(const KivSdMemStack& stack, const void* address);

}  // namespace kiv

#endif
