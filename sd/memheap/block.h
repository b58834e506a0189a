// The headers directly before a payload. They show which allocator made the block; there is no
// table to look it up in.
#ifndef KIV_MEMHEAP_BLOCK_H
#define KIV_MEMHEAP_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kiv {

struct Heap;

// ---- Blocks of a heap ----

// Lies at the start of every block of an arena. The bytes from 16 on depend on the state:
//
//   in use  0 at byte 16; the payload from byte 24 on
//   parked  link of the quick list at byte 16
//   free    links of the bin's ring, the bin's number, and a word that shortens searches
//
//   0      4               8      16            24     32    36
//   | size | previous size | heap | next or 0   | prev | bin | search
struct Block {
  uint32_t sizeBytes;      // header included; a multiple of 8
  uint32_t previousBytes;  // size of the block before this one in the arena; 0 for the first
  Heap* heap;              // owner while in use or parked; null while free in a bin
  Block* next;             // null while in use
  Block* prev;             // of a free block
  uint32_t bin;            // of a free block
  uint32_t search;         // of a free block: a bound or a hint, see bins.cpp
};
static_assert(offsetof(Block, sizeBytes) == 0, "heap block layout");
static_assert(offsetof(Block, previousBytes) == 4, "heap block layout");
static_assert(offsetof(Block, heap) == 8, "heap block layout");
static_assert(offsetof(Block, next) == 16, "heap block layout");
static_assert(offsetof(Block, prev) == 24, "heap block layout");
static_assert(offsetof(Block, bin) == 32, "heap block layout");
static_assert(offsetof(Block, search) == 36, "heap block layout");

constexpr uint32_t kBlockHeaderBytes = 24;
constexpr uint32_t kMinPayloadBytes = 24;
constexpr uint32_t kMinFreeBytes = 40;  // room for the links of a free block
static_assert(sizeof(Block) == kMinFreeBytes);

inline void* PayloadOf(Block* block) { return reinterpret_cast<char*>(block) + kBlockHeaderBytes; }

inline Block* BlockOf(void* payload) {
  return reinterpret_cast<Block*>(static_cast<char*>(payload) - kBlockHeaderBytes);
}

// ---- Blocks too large for a heap ----

struct LargeBlock {
  uint64_t sizeBytes;  // as requested
  LargeBlock* next;    // ring of the owner's large blocks; null without an owner
  LargeBlock* prev;
  uint64_t owner;  // address of the ring's head, or kNoOwner; never 0, see IsLarge
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

// Whether the block is a large one. The word before the payload is the owner word of a large block,
// never 0, or the link of a heap block, 0 while in use. Copied, because its type is not known yet.
inline bool IsLarge(const void* payload) {
  uint64_t word = 0;
  std::memcpy(&word, static_cast<const char*>(payload) - sizeof word, sizeof word);
  return word != 0;
}

}  // namespace kiv

#endif
