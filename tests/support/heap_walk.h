// Reads a heap of the library from its arena: block after block, ring after ring, list after list.
#ifndef KIV_TESTS_HEAP_WALK_H
#define KIV_TESTS_HEAP_WALK_H

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "memheap/heap.h"
#include "model/heap_model.h"

namespace kiv::test {

// Where a block lies in its heap.
inline uint32_t OffsetIn(const Heap& heap, const Block* block) {
  return static_cast<uint32_t>(reinterpret_cast<const char*>(block) -
                               reinterpret_cast<const char*>(&heap));
}

inline Block* BlockAt(Heap& heap, uint32_t offset) {
  return reinterpret_cast<Block*>(reinterpret_cast<char*>(&heap) + offset);
}

class HeapWalk {
 public:
  using Blocks = std::vector<std::pair<uint32_t, ModelBlock>>;  // by offset
  using Offsets = std::vector<uint32_t>;

  HeapWalk(Heap& heap, uint32_t arenaBytes);

  // Reads everything anew. Says what is wrong with it, and nothing if everything is consistent:
  // - blocks fill the arena and know their predecessors' sizes;
  // - a block lies in one ring, or on one list, or has an owner and a link of 0;
  // - rings close in both directions and have blocks of their bin's sizes, without an owner;
  // - lists have blocks of exactly their size, with their owner;
  // - no two blocks in rings are neighbours;
  // - skip table and parked count say what is there.
  std::string Look();

  // What the last look found.
  const Blocks& blocks() const { return blocks_; }
  const Offsets& bin(uint32_t index) const { return bins_[index]; }         // next search first
  const Offsets& quickList(uint32_t index) const { return quick_[index]; }  // last in first

 private:
  // What a list said about the block at an offset, in the look of that number.
  struct Mark {
    uint32_t look = 0;
    BlockState state = BlockState::kUsed;
  };

  std::string LookAtQuickList(uint32_t index);
  std::string LookAtBin(uint32_t index);
  std::string LookAtBlocks();
  const char* FaultOfBlock(uint32_t offset, const ModelBlock& found,
                           const ModelBlock& previous) const;
  std::string LookAtTables() const;

  bool MayBeBlock(const Block* block) const;
  bool MarkOnce(uint32_t offset, BlockState state);
  BlockState StateAt(uint32_t offset) const;
  bool IsWholeArena(const Block& block) const;

  Heap& heap_;
  uint32_t endOffset_;
  uint32_t look_ = 0;
  uint32_t marked_ = 0;
  std::vector<Mark> marks_;  // by offset / 8
  Blocks blocks_;
  std::array<Offsets, kBins> bins_;
  std::array<Offsets, kQuickLists> quick_;
};

}  // namespace kiv::test

#endif
