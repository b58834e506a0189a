// A heap in the plainest form: what the heaps of the library have to do, and where they have to
// place each block. Tests compare the two after every operation.
//
// A block is known by its offset from the start of the arena. Nothing is linked and nothing is kept
// twice: neighbours are those of a map ordered by offset, a list is a vector in the list's order, a
// bin's ring is a vector that starts with the block where the next search starts, and the skip
// table is counted out whenever it is asked for. The model shares no code with the library.
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

  // The first block of an arena of less than 33,272 bytes lies in a bin of larger ones. As long as
  // it is whole, no request may exceed it.
  explicit HeapModel(uint32_t arenaBytes);

  // Offset of the block; kNoBlock when there is none.
  uint32_t Allocate(uint32_t sizeBytes);
  void Free(uint32_t block);
  uint32_t Reallocate(uint32_t block, uint32_t sizeBytes);
  void Consolidate();

  const Blocks& blocks() const { return blocks_; }
  const Offsets& bin(uint32_t index) const { return bins_[index]; }         // next search first
  const Offsets& quickList(uint32_t index) const { return quick_[index]; }  // last in first
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
