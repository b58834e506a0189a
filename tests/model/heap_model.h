// Reference model of a heap, in the simplest form: the results that the library's heaps must
// return, and the place where they must put each block. Tests compare heap and model after every
// operation.
//
// An offset from the start of the arena identifies a block. Nothing is linked and nothing is stored
// twice: a map ordered by offset shows the neighbours, a list is a vector in the list's order, a
// bin's ring is a vector that begins with the block where the next search starts, and the skip
// table is computed on request. The model shares no code with the library.
#ifndef KIV_TESTS_HEAP_MODEL_H
#define KIV_TESTS_HEAP_MODEL_H

#include <array>
#include <cstdint>
#include <map>
#include <vector>

namespace kiv::test {

enum class BlockState { kUsed, kParked, kFree };

struct ModelBlock {
  uint32_t sizeBytes;  // header included
  BlockState state;

  bool operator==(const ModelBlock&) const = default;
};

class HeapModel {
 public:
  static constexpr uint32_t kBinCount = 32;
  static constexpr uint32_t kQuickListCount = 20;
  static constexpr uint32_t kFirstBlock = 504;  // the heap's own record lies in front of it
  static constexpr uint32_t kHeaderBytes = 24;
  static constexpr uint32_t kNoBlock = 0;

  using Blocks = std::map<uint32_t, ModelBlock>;  // by offset
  using Offsets = std::vector<uint32_t>;

  // In an arena of less than 33,272 bytes, the first block lies in a bin for larger blocks. While
  // that block is whole, no request may exceed its size.
  explicit HeapModel(uint32_t arenaBytes);

  // Returns the offset of the block; kNoBlock if there is no room.
  uint32_t Allocate(uint32_t sizeBytes);
  void Free(uint32_t block);
  uint32_t Reallocate(uint32_t block, uint32_t sizeBytes);
  void Consolidate();

  const Blocks& blocks() const { return blocks_; }
  const Offsets& bin(uint32_t index) const { return bins_[index]; }         // in search order
  const Offsets& quickList(uint32_t index) const { return quick_[index]; }  // last in, first out
  uint32_t parkedCount() const { return parkedCount_; }
  std::array<uint8_t, kBinCount> SkipTable() const;
  uint32_t CapacityOf(uint32_t block) const { return blocks_.at(block).sizeBytes - kHeaderBytes; }

  static uint32_t BinOf(uint32_t blockBytes);

 private:
  static uint32_t PayloadBytes(uint32_t sizeBytes);

  uint32_t Find(uint32_t blockBytes);
  uint32_t Carve(uint32_t from, uint32_t blockBytes);
  void CoalesceAndBin(uint32_t block);
  uint32_t FreeBefore(uint32_t block) const;
  uint32_t FreeAfter(uint32_t block) const;
  void BinMerged(uint32_t start, uint32_t previous, uint32_t next, uint32_t bin);
  void RemoveFromBin(uint32_t block);

  Blocks blocks_;
  std::map<uint32_t, uint32_t> binOf_;  // of each free block
  std::array<Offsets, kBinCount> bins_;
  std::array<Offsets, kQuickListCount> quick_;
  uint32_t parkedCount_ = 0;
};

}  // namespace kiv::test

#endif
