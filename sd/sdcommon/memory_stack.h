// The records behind a memory stack.
#ifndef KIV_SDCOMMON_MEMORY_STACK_H
#define KIV_SDCOMMON_MEMORY_STACK_H

#include <cstddef>
#include <cstdint>

#include "kivsdu/memstack.h"

namespace kiv {

// Lies at the start of every block; the pieces follow at the stack's headerBytes.
//
//   0       8      16 rounded up to the alignment
//   | size | next | piece | piece | ...
struct StackBlock {
  uint32_t sizeBytes;  // the whole block
  StackBlock* next;    // the block below it in use, or the next free one
};
static_assert(sizeof(StackBlock) == 16, "least header of a block");
static_assert(offsetof(StackBlock, next) == 8, "block layout");

}  // namespace kiv

// Seven 64-bit words: the handler of fatal exceptions keeps copies of them.
struct KivSdMemStack {
  uint32_t pageBytes;
  uint32_t alignment;          // of every piece, a power of two
  uint32_t defaultBlockBytes;  // least size of a block
  uint64_t headerBytes;        // room at the start of every block
  uint64_t topOffset;          // of the next free byte in the top block
  uint64_t maxAllocBytes;
  kiv::StackBlock* top;       // the block being filled, chained down; null while empty
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

// The most that can be pushed before the stack needs another block than its first.
uint64_t StackRoom(const KivSdMemStack& stack);

// The block in use with this address in one of its pieces; null when there is none.
StackBlock* StackHolderOf(const KivSdMemStack& stack, const void* address);

}  // namespace kiv

#endif
