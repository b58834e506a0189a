// The headers that lie straight in front of what a caller was given. The bytes before a payload
// say which allocator made the block; no table is consulted.
#ifndef KIV_MEMHEAP_BLOCK_H
#define KIV_MEMHEAP_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kiv {

struct Heap;

// ---- Blocks of a heap ----

// Lies at the start of every block of an arena. What follows the owning heap is link of a quick
// list while the block is parked, ring of its bin while it is free, and from byte 24 on the
// payload while it is in use.
//
//   0      4               8      16            24     32
//   | size | previous size | heap | next or 0   | prev | bin
struct Block {
  uint32_t sizeBytes;      // header included; a multiple of 8
  uint32_t previousBytes;  // of the block that lies in front of this one; 0 for the first
  Heap* heap;              // owner while in use or parked; null while free in a bin
  Block* next;             // 0 while in use
  Block* prev;             // of a free block
  uint32_t bin;            // of a free block
};
static_assert(offsetof(Block, sizeBytes) == 0, "heap block layout");
static_assert(offsetof(Block, previousBytes) == 4, "heap block layout");
static_assert(offsetof(Block, heap) == 8, "heap block layout");
static_assert(offsetof(Block, next) == 16, "heap block layout");
static_assert(offsetof(Block, prev) == 24, "heap block layout");
static_assert(offsetof(Block, bin) == 32, "heap block layout");

constexpr uint32_t kBlockHeaderBytes = 24;
constexpr uint32_t kMinPayloadBytes = 24;
constexpr uint32_t kMinFreeBytes = 40;  // room for the links of a free block

inline void* PayloadOf(Block* block) { return reinterpret_cast<char*>(block) + kBlockHeaderBytes; }

inline Block* BlockOf(void* payload) {
  return reinterpret_cast<Block*>(static_cast<char*>(payload) - kBlockHeaderBytes);
}

// ---- Blocks too large for a heap ----

struct LargeBlock {
  uint64_t sizeBytes;  // as requested
  LargeBlock* next;    // ring of the owner's large blocks; 0 without an owner
  LargeBlock* prev;
  uint64_t owner;  // address of the head of that ring, or kNoOwner. Never 0: see IsLarge
};
static_assert(sizeof(LargeBlock) == 32, "large block layout");
static_assert(offsetof(LargeBlock, owner) == 24, "large block layout");

constexpr uint32_t kLargeHeaderBytes = 32;
constexpr uint64_t kNoOwner = 0xFFFFFFFFFFFFFFF7;

inline void* PayloadOf(LargeBlock* block) {
  return reinterpret_cast<char*>(block) + kLargeHeaderBytes;
}

inline LargeBlock* LargeBlockOf(void* payload) {
  return reinterpret_cast<LargeBlock*>(static_cast<char*>(payload) - kLargeHeaderBytes);
}

// Tells the two kinds apart: the word before the payload is a large block's owner word, or the
// link of a heap block in use, which is 0. Copied, because until then it is neither's.
inline bool IsLarge(const void* payload) {
  uint64_t word = 0;
  std::memcpy(&word, static_cast<const char*>(payload) - sizeof word, sizeof word);
  return word != 0;
}

}  // namespace kiv

#endif
