// Reads a heap of the library from its arena: every block, every ring and every list.
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

// The offset of a block in its heap.
inline uint32_t OffsetIn(const Heap& heap, const Block* block) {
  return static_cast<uint32_t>(reinterpret_cast<const char*>(block) -
                               reinterpret_cast<const char*>(&heap));
}

inline Block* BlockAt(Heap& heap, uint32_t offset) {
  return reinterpret_cast<Block*>(reinterpret_cast<char*>(&heap) + offset);
}

class HeapWalk {
 public:
  using Blocks = std::vector<std::pair<uint32_t, ModelBlock>>;  // offset and block, ascending
  using Offsets = std::vector<uint32_t>;

  HeapWalk(Heap& heap, uint32_t arenaBytes);

  // Reads everything again. Returns a description of the first fault, or an empty text if
  // - blocks fill the arena and hold their predecessors' sizes;
  // - a block is in one ring, or on one list, or has an owner and a link of 0;
  // - rings close in both directions, and their blocks have sizes of the bin and no owner;
  // - lists have blocks of exactly their size, with an owner;
  // - no two blocks in rings are neighbours;
  // - the skip table and the parked count match the rings and lists.
  std::string Look();

  // The results of the last Look.
  const Blocks& blocks() const { return blocks_; }
  const Offsets& bin(uint32_t index) const { return bins_[index]; }         // in search order
  const Offsets& quickList(uint32_t index) const { return quick_[index]; }  // newest first

 private:
  // The state of the block at an offset, by the list or ring that it is in. Valid only in the Look
  // of that number.
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
