// Heaps: placement, coalescing, and the state of the bins, the quick lists and the skip table. The
// expectations are written by hand. In addition, every operation is compared with the model, and
// the arena is walked.
//
// A request of n bytes, n a multiple of 8, makes a block of n + 24 bytes with its header.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "support/checked_heap.h"

namespace {

using kiv::Block;
using kiv::Heap;
using kiv::kBins;
using kiv::test::BlockAt;
using kiv::test::BlockState;
using kiv::test::CheckedHeap;
using kiv::test::HeapModel;
using kiv::test::ModelBlock;

using Offsets = std::vector<uint32_t>;
using SkipTable = std::array<uint32_t, kBins>;

constexpr uint32_t kNoBlock = HeapModel::kNoBlock;
constexpr uint32_t kHeaderBytes = 24;
constexpr uint32_t kArenaBytes = 512 * 1024;
constexpr uint32_t kFirst = 504;                // offset of the first block
constexpr uint32_t kTooMuch = 2 * kArenaBytes;  // a request that always misses

ModelBlock Free(uint32_t sizeBytes) { return {sizeBytes, BlockState::kFree}; }
ModelBlock Used(uint32_t sizeBytes) { return {sizeBytes, BlockState::kUsed}; }
ModelBlock Parked(uint32_t sizeBytes) { return {sizeBytes, BlockState::kParked}; }

class HeapTest : public testing::Test {
 protected:
  explicit HeapTest(uint32_t arenaBytes = kArenaBytes) : heap_(arenaBytes) {}

  void TearDown() override { EXPECT_EQ(heap_.fault(), ""); }

  // Fills the end of a fresh heap's arena with used blocks of these sizes, in this order. The space
  // before them stays free.
  Offsets Lay(const std::vector<uint32_t>& blockBytes) {
    Offsets offsets;
    for (size_t i = blockBytes.size(); i-- > 0;) {
      offsets.insert(offsets.begin(), AllocateBlock(blockBytes[i]));
    }
    return offsets;
  }

  // Allocates a block of this size, header included.
  uint32_t AllocateBlock(uint32_t blockBytes) { return heap_.Allocate(blockBytes - kHeaderBytes); }

  void FreeAll(const Offsets& blocks) {
    for (const uint32_t block : blocks) heap_.Free(block);
  }

  // Allocates the free block at the front, so that the bins hold only what the test frees.
  void TakeFront() { ASSERT_EQ(AllocateBlock(BlockSize(kFirst)), kFirst); }

  const Offsets& Bin(uint32_t index) { return heap_.walk().bin(index); }
  const Offsets& QuickList(uint32_t index) { return heap_.walk().quickList(index); }
  uint32_t ParkedCount() { return heap_.heap().parked.load(); }

  // Returns the block that starts at an offset; its size is 0 if none does.
  ModelBlock At(uint32_t offset) {
    for (const auto& [start, block] : heap_.walk().blocks()) {
      if (start == offset) return block;
    }
    return Used(0);
  }
  uint32_t BlockSize(uint32_t offset) { return At(offset).sizeBytes; }

  SkipTable Skip() {
    SkipTable table{};
    for (uint32_t i = 0; i < kBins; ++i) table[i] = heap_.heap().skip[i].load();
    return table;
  }

  CheckedHeap heap_;
};

// ---- A fresh heap ----

TEST_F(HeapTest, StartsAsOneFreeBlockInTheLastBin) {
  EXPECT_EQ(heap_.walk().blocks().size(), 1u);
  EXPECT_EQ(At(504), Free(523784));
  EXPECT_EQ(Bin(31), Offsets{504});
  EXPECT_EQ(ParkedCount(), 0u);
  const SkipTable expected = {31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16,
                              15, 14, 13, 12, 11, 10, 9,  8,  7,  6,  5,  4,  3,  2,  1,  0};
  EXPECT_EQ(Skip(), expected);
  const Heap& heap = heap_.heap();
  for (const Block* parked : heap.quick) EXPECT_EQ(parked, nullptr);
  EXPECT_EQ(heap.arenaEnd, reinterpret_cast<const char*>(&heap) + 524288);
  EXPECT_EQ(heap.lock, nullptr);
}

TEST_F(HeapTest, KeepsTheLockOfAThreadHeap) {
  auto* const lock = reinterpret_cast<KivSdSpinlock*>(this);
  CheckedHeap locked(kArenaBytes, lock);
  EXPECT_EQ(locked.heap().lock, lock);
  EXPECT_EQ(locked.heap().lockIdentifier, 6005u);
  EXPECT_EQ(locked.fault(), "");
}

TEST_F(HeapTest, RoundsTheSizeOfTheFirstBlockDown) {
  for (uint32_t more = 0; more < 8; ++more) {
    CheckedHeap odd(kArenaBytes + more);
    EXPECT_EQ(odd.walk().blocks()[0].second, Free(523784));
    EXPECT_EQ(odd.Allocate(24), 524240u);
    EXPECT_EQ(odd.fault(), "");
  }
  CheckedHeap next(kArenaBytes + 8);
  EXPECT_EQ(next.walk().blocks()[0].second, Free(523792));
}

TEST_F(HeapTest, ServesFromTheTailDownwards) {
  EXPECT_EQ(heap_.Allocate(24), 524240u);    // 48 bytes
  EXPECT_EQ(heap_.Allocate(100), 524112u);   // 128
  EXPECT_EQ(heap_.Allocate(1000), 523088u);  // 1,024
  EXPECT_EQ(At(504), Free(522584));
  EXPECT_EQ(Bin(31), Offsets{504});
}

TEST_F(HeapTest, RoundsRequestsUp) {
  const uint32_t sizes[][2] = {{0, 48},    {1, 48},      {23, 48},     {24, 48},    {25, 56},
                               {32, 56},   {33, 64},     {160, 184},   {161, 192},  {168, 192},
                               {169, 200}, {2017, 2048}, {2024, 2048}, {2025, 2056}};
  for (const auto& [requested, blockBytes] : sizes) {
    EXPECT_EQ(BlockSize(heap_.Allocate(requested)), blockBytes) << requested;
  }
}

// ---- Quick lists ----

TEST_F(HeapTest, ParksPayloadsOfUpTo160BytesByTheirSize) {
  for (uint32_t payload = 24; payload <= 160; payload += 8) {
    const uint32_t block = heap_.Allocate(payload);
    heap_.Free(block);
    EXPECT_EQ(QuickList(payload / 8 - 1), Offsets{block}) << payload;
    EXPECT_EQ(At(block), Parked(payload + 24)) << payload;
    EXPECT_EQ(heap_.Allocate(payload - 7), block) << payload;
    EXPECT_EQ(ParkedCount(), 0u);
  }
}

TEST_F(HeapTest, BinsPayloadsOf168Bytes) {
  const Offsets blocks = Lay({48, 192, 48});
  heap_.Free(blocks[1]);
  EXPECT_EQ(ParkedCount(), 0u);
  EXPECT_EQ(Bin(1), Offsets{blocks[1]});
}

TEST_F(HeapTest, ReusesParkedBlocksLastInFirstOut) {
  const Offsets blocks = Lay({48, 48, 48});
  FreeAll({blocks[1], blocks[0], blocks[2]});
  EXPECT_EQ(QuickList(2), (Offsets{blocks[2], blocks[0], blocks[1]}));
  EXPECT_EQ(heap_.Allocate(0), blocks[2]);
  EXPECT_EQ(ParkedCount(), 2u);
  EXPECT_EQ(heap_.Allocate(24), blocks[0]);
  EXPECT_EQ(heap_.Allocate(17), blocks[1]);
  EXPECT_EQ(ParkedCount(), 0u);
}

TEST_F(HeapTest, ReusesParkedBlocksOnlyForTheirOwnSize) {
  const Offsets blocks = Lay({56, 48});
  heap_.Free(blocks[0]);
  EXPECT_EQ(heap_.Allocate(24), blocks[0] - 48);
  EXPECT_EQ(heap_.Allocate(33), blocks[0] - 48 - 64);
  EXPECT_EQ(heap_.Allocate(25), blocks[0]);
}

TEST_F(HeapTest, MergesParkedBlocksOnlyWhenARequestMisses) {
  const Offsets blocks = Lay({48, 400, 48, 48});
  FreeAll({blocks[1], blocks[2]});
  EXPECT_EQ(At(blocks[1]), Free(400));
  EXPECT_EQ(At(blocks[2]), Parked(48));
  EXPECT_EQ(heap_.Allocate(kTooMuch), kNoBlock);
  EXPECT_EQ(At(blocks[1]), Free(448));
  EXPECT_EQ(Bin(3), Offsets{blocks[1]});
  EXPECT_EQ(ParkedCount(), 0u);
}

TEST_F(HeapTest, ChangesNothingWhenARequestMissesAndNoBlockIsParked) {
  const Offsets blocks = Lay({48, 400, 48, 440, 48});
  FreeAll({blocks[1], blocks[3]});
  const auto before = heap_.walk().blocks();
  EXPECT_EQ(heap_.Allocate(kTooMuch), kNoBlock);
  EXPECT_EQ(heap_.walk().blocks(), before);
  EXPECT_EQ(Bin(3), (Offsets{blocks[1], blocks[3]}));
}

// An arena that is full of 20 blocks of 48 bytes.
class FullHeapTest : public HeapTest {
 protected:
  FullHeapTest() : HeapTest(kFirst + 20 * 48) {
    for (uint32_t i = 0; i < 20; ++i) blocks_.push_back(heap_.Allocate(24));
  }

  Offsets blocks_;
};

TEST_F(FullHeapTest, PlacesItsFirstRequestLastAndItsLastRequestFirst) {
  EXPECT_EQ(blocks_.front(), kFirst + 19 * 48);
  EXPECT_EQ(blocks_.back(), kFirst);
  EXPECT_EQ(heap_.Allocate(24), kNoBlock);
}

TEST_F(FullHeapTest, ServesARequestFromConsolidatedBlocks) {
  FreeAll(blocks_);
  EXPECT_EQ(ParkedCount(), 20u);
  EXPECT_EQ(heap_.Allocate(20 * 48 - 24), kFirst);
  EXPECT_EQ(At(kFirst), Used(20 * 48));
  EXPECT_EQ(ParkedCount(), 0u);
}

TEST_F(FullHeapTest, FailsWhenConsolidationFreesTooLittle) {
  FreeAll({blocks_[0], blocks_[1], blocks_[3]});
  EXPECT_EQ(heap_.Allocate(80), kNoBlock);  // 104 bytes, but only 96 adjacent bytes are free
  EXPECT_EQ(Bin(0), (Offsets{blocks_[3], blocks_[1]}));
  EXPECT_EQ(heap_.Allocate(72), blocks_[1]);
}

// ---- Consolidation ----

TEST_F(HeapTest, ConsolidatesTheListsInOrderAndEachFromItsHead) {
  const Offsets blocks = Lay({200, 48, 200, 48, 200, 56, 200});
  FreeAll({blocks[5], blocks[1], blocks[3]});
  heap_.Consolidate();
  EXPECT_EQ(Bin(0), (Offsets{blocks[3], blocks[1], blocks[5]}));
  EXPECT_EQ(ParkedCount(), 0u);
}

TEST_F(HeapTest, ConsolidatesEveryList) {
  std::vector<uint32_t> sizes = {200};
  for (uint32_t blockBytes = 48; blockBytes <= 184; blockBytes += 8) {
    sizes.insert(sizes.end(), {blockBytes, 200});
  }
  const Offsets blocks = Lay(sizes);
  Offsets lower;   // up to 120 bytes
  Offsets higher;  // from 128
  for (size_t i = 1; i < blocks.size(); i += 2) {
    heap_.Free(blocks[i]);
    (sizes[i] < 128 ? lower : higher).push_back(blocks[i]);
  }
  ASSERT_EQ(ParkedCount(), 18u);
  heap_.Consolidate();
  EXPECT_EQ(ParkedCount(), 0u);
  EXPECT_EQ(Bin(0), lower);
  EXPECT_EQ(Bin(1), higher);
}

TEST_F(HeapTest, MergesAParkedNeighbourWhenItsOwnTurnComes) {
  const Offsets blocks = Lay({200, 48, 48, 48, 200, 96, 200});
  heap_.Free(blocks[5]);
  // The list starts with blocks[3], which is binned behind blocks[5]. blocks[2] merges with it and
  // takes its place. With blocks[1] the merged block is too large for that bin.
  FreeAll({blocks[1], blocks[2], blocks[3]});
  heap_.Consolidate();
  EXPECT_EQ(At(blocks[1]), Free(144));
  EXPECT_EQ(Bin(1), Offsets{blocks[1]});
  EXPECT_EQ(Bin(0), Offsets{blocks[5]});
}

TEST_F(HeapTest, ConsolidatesNothingWhenNothingIsParked) {
  const Offsets blocks = Lay({48, 400, 48});
  heap_.Free(blocks[1]);
  const auto before = heap_.walk().blocks();
  heap_.Consolidate();
  EXPECT_EQ(heap_.walk().blocks(), before);
}

// ---- Bins ----

TEST(HeapBins, AreOrderedBySize) {
  const uint32_t sizes[][2] = {{40, 0},     {127, 0},    {128, 1},    {1920, 15},  {2047, 15},
                               {2048, 16},  {2049, 16},  {4095, 16},  {4096, 17},  {30719, 29},
                               {30720, 30}, {32767, 30}, {32768, 31}, {524288, 31}};
  for (const auto& [sizeBytes, bin] : sizes) {
    EXPECT_EQ(kiv::BinOf(sizeBytes), bin) << sizeBytes;
    EXPECT_EQ(HeapModel::BinOf(sizeBytes), bin) << sizeBytes;
  }
}

TEST_F(HeapTest, AddsABlockAtTheTailOfItsBin) {
  const Offsets blocks = Lay({48, 400, 48, 440, 48, 480, 48});
  FreeAll({blocks[3], blocks[5], blocks[1]});
  EXPECT_EQ(Bin(3), (Offsets{blocks[3], blocks[5], blocks[1]}));
}

TEST_F(HeapTest, TakesTheFirstBlockOfABinThatIsLargeEnough) {
  const Offsets blocks = Lay({48, 400, 48, 440, 48, 480, 48});
  FreeAll({blocks[1], blocks[3], blocks[5]});
  EXPECT_EQ(AllocateBlock(432), blocks[3]);
  // The allocated block was the head; the next block is the head afterwards.
  EXPECT_EQ(Bin(3), (Offsets{blocks[5], blocks[1]}));
  EXPECT_EQ(AllocateBlock(384), blocks[5] + 96);
  EXPECT_EQ(Bin(3), Offsets{blocks[1]});
  EXPECT_EQ(Bin(0), Offsets{blocks[5]});
}

TEST_F(HeapTest, StartsTheNextSearchAtTheBlockFoundLast) {
  const Offsets blocks = Lay({48, 70000, 48, 130000, 48, 40000, 48});
  TakeFront();
  FreeAll({blocks[1], blocks[3]});
  EXPECT_EQ(Bin(31), (Offsets{blocks[1], blocks[3]}));
  EXPECT_EQ(AllocateBlock(80000), blocks[3] + 50000);
  EXPECT_EQ(Bin(31), (Offsets{blocks[3], blocks[1]}));  // the rest of it is the new head
  heap_.Free(blocks[5]);
  EXPECT_EQ(Bin(31), (Offsets{blocks[3], blocks[1], blocks[5]}));
  EXPECT_EQ(AllocateBlock(32768), blocks[3] + 17232);
  EXPECT_EQ(Bin(31), (Offsets{blocks[1], blocks[5]}));
  EXPECT_EQ(Bin(23), Offsets{blocks[3]});
}

TEST_F(HeapTest, KeepsTheHeadOfABinAfterASearchThatFails) {
  const Offsets blocks = Lay({48, 400, 48, 440, 48, 600, 48});
  FreeAll({blocks[1], blocks[3], blocks[5]});
  EXPECT_EQ(AllocateBlock(504), blocks[5] + 96);
  EXPECT_EQ(Bin(3), (Offsets{blocks[1], blocks[3]}));
}

TEST_F(HeapTest, TakesTheHeadOfAHigherBinWithoutSearchingIt) {
  const Offsets blocks = Lay({48, 752, 48, 640, 48});
  FreeAll({blocks[1], blocks[3]});
  EXPECT_EQ(AllocateBlock(400), blocks[1] + 352);
  EXPECT_EQ(Bin(5), Offsets{blocks[3]});
  EXPECT_EQ(Bin(2), Offsets{blocks[1]});
}

TEST_F(HeapTest, PrefersTheNextHigherBin) {
  const Offsets blocks = Lay({48, 2200, 48, 752, 48});
  FreeAll({blocks[1], blocks[3]});
  EXPECT_EQ(AllocateBlock(400), blocks[3] + 352);
  EXPECT_EQ(AllocateBlock(800), blocks[1] + 1400);
}

TEST_F(HeapTest, LeavesTheHeadOfABinThatBecameEmpty) {
  const Offsets blocks = Lay({48, 400, 48});
  heap_.Free(blocks[1]);
  ASSERT_EQ(AllocateBlock(400), blocks[1]);
  EXPECT_EQ(Skip()[3], 28u);
  EXPECT_EQ(heap_.heap().bins[3], BlockAt(heap_.heap(), blocks[1]));
}

// ---- Carving ----

TEST_F(HeapTest, HandsOutAWholeBlockWhenLessThan40BytesWouldRemain) {
  const Offsets blocks = Lay({48, 400, 48});
  for (uint32_t remainder = 0; remainder < 40; remainder += 8) {
    heap_.Free(blocks[1]);
    EXPECT_EQ(AllocateBlock(400 - remainder), blocks[1]) << remainder;
    EXPECT_EQ(At(blocks[1]), Used(400)) << remainder;
    EXPECT_EQ(Bin(3), Offsets{}) << remainder;
  }
}

TEST_F(HeapTest, SplitsABlockWhen40BytesRemain) {
  const Offsets blocks = Lay({48, 400, 48});
  heap_.Free(blocks[1]);
  EXPECT_EQ(AllocateBlock(360), blocks[1] + 40);
  EXPECT_EQ(At(blocks[1]), Free(40));
  EXPECT_EQ(At(blocks[1] + 40), Used(360));
  EXPECT_EQ(Bin(0), Offsets{blocks[1]});
}

TEST_F(HeapTest, ParksAWholeBlockByItsRealSize) {
  const Offsets blocks = Lay({48, 400, 48});
  heap_.Free(blocks[1]);
  ASSERT_EQ(AllocateBlock(280), blocks[1] + 120);  // leaves 120
  ASSERT_EQ(heap_.Allocate(72), blocks[1]);        // 96 bytes, given whole with 24 more
  EXPECT_EQ(At(blocks[1]), Used(120));
  heap_.Free(blocks[1]);
  EXPECT_EQ(QuickList(11), Offsets{blocks[1]});
  EXPECT_NE(heap_.Allocate(72), blocks[1]);
  EXPECT_EQ(heap_.Allocate(96), blocks[1]);
}

TEST_F(HeapTest, BinsAWholeBlockByItsRealSize) {
  const Offsets blocks = Lay({48, 192, 48});
  heap_.Free(blocks[1]);
  ASSERT_EQ(heap_.Allocate(144), blocks[1]);
  heap_.Free(blocks[1]);
  EXPECT_EQ(ParkedCount(), 0u);
  EXPECT_EQ(Bin(1), Offsets{blocks[1]});
}

TEST_F(HeapTest, LeavesTheRestOfABlockInItsPlaceWhileItsBinStaysTheSame) {
  const Offsets blocks = Lay({48, 70000, 48, 90000, 48});
  FreeAll({blocks[1], blocks[3]});
  ASSERT_EQ(Bin(31), (Offsets{kFirst, blocks[1], blocks[3]}));
  EXPECT_EQ(heap_.Allocate(24), kFirst + 363592);  // cut off the 363,640 free bytes
  EXPECT_EQ(Bin(31), (Offsets{kFirst, blocks[1], blocks[3]}));
}

TEST_F(HeapTest, MovesTheRestOfABlockToTheTailOfALowerBin) {
  const Offsets blocks = Lay({48, 2048, 48, 400, 48});
  FreeAll({blocks[1], blocks[3]});
  EXPECT_EQ(AllocateBlock(1600), blocks[1] + 448);
  EXPECT_EQ(Bin(16), Offsets{});
  EXPECT_EQ(Bin(3), (Offsets{blocks[3], blocks[1]}));
}

// ---- Coalescing: no free neighbour ----

TEST_F(HeapTest, BinsABlockBetweenBlocksInUse) {
  const Offsets blocks = Lay({48, 400, 48, 408, 48});
  heap_.Free(blocks[1]);
  EXPECT_EQ(At(blocks[1]), Free(400));
  EXPECT_EQ(At(blocks[2]), Used(48));
  heap_.Free(blocks[3]);
  EXPECT_EQ(Bin(3), (Offsets{blocks[1], blocks[3]}));
}

// ---- Coalescing: the previous block stays in its bin ----

// In each ring the tested block has a neighbour on either side.
TEST_F(HeapTest, GrowsThePreviousBlockInItsPlace) {
  const Offsets blocks = Lay({48, 2304, 400, 48, 2200, 48, 2100, 48});
  FreeAll({blocks[4], blocks[1], blocks[6]});
  heap_.Free(blocks[2]);
  EXPECT_EQ(At(blocks[1]), Free(2704));
  EXPECT_EQ(Bin(16), (Offsets{blocks[4], blocks[1], blocks[6]}));
}

TEST_F(HeapTest, GrowsThePreviousBlockAtTheHead) {
  const Offsets blocks = Lay({48, 2304, 400, 48, 2200, 48});
  FreeAll({blocks[1], blocks[4]});
  heap_.Free(blocks[2]);
  EXPECT_EQ(Bin(16), (Offsets{blocks[1], blocks[4]}));
}

TEST_F(HeapTest, GrowsThePreviousBlockAndTakesTheNextOutOfItsBin) {
  const Offsets blocks = Lay({48, 2304, 400, 200, 48, 2200, 48, 208, 48});
  FreeAll({blocks[5], blocks[1], blocks[7], blocks[3]});
  ASSERT_EQ(Bin(1), (Offsets{blocks[7], blocks[3]}));
  heap_.Free(blocks[2]);
  EXPECT_EQ(At(blocks[1]), Free(2904));
  EXPECT_EQ(Bin(16), (Offsets{blocks[5], blocks[1]}));
  EXPECT_EQ(Bin(1), Offsets{blocks[7]});
}

TEST_F(HeapTest, GrowsThePreviousBlockAndTakesTheNextOutOfTheSameBin) {
  const Offsets blocks = Lay({48, 40000, 400, 40008, 48, 50000, 48});
  TakeFront();
  FreeAll({blocks[3], blocks[5], blocks[1]});
  ASSERT_EQ(Bin(31), (Offsets{blocks[3], blocks[5], blocks[1]}));
  heap_.Free(blocks[2]);
  EXPECT_EQ(At(blocks[1]), Free(80408));
  EXPECT_EQ(Bin(31), (Offsets{blocks[5], blocks[1]}));
}

// ---- Coalescing: the merged block takes the next block's place ----

TEST_F(HeapTest, TakesThePlaceOfTheNextBlock) {
  const Offsets blocks = Lay({48, 400, 2304, 48, 2200, 48, 2100, 48});
  FreeAll({blocks[4], blocks[2], blocks[6]});
  heap_.Free(blocks[1]);
  EXPECT_EQ(At(blocks[1]), Free(2704));
  EXPECT_EQ(Bin(16), (Offsets{blocks[4], blocks[1], blocks[6]}));
}

TEST_F(HeapTest, TakesThePlaceOfTheNextBlockAtTheHead) {
  const Offsets blocks = Lay({48, 400, 2304, 48, 2200, 48});
  FreeAll({blocks[2], blocks[4]});
  heap_.Free(blocks[1]);
  EXPECT_EQ(Bin(16), (Offsets{blocks[1], blocks[4]}));
}

TEST_F(HeapTest, TakesThePlaceOfTheNextBlockThatIsAlone) {
  const Offsets blocks = Lay({48, 400, 2304, 48});
  heap_.Free(blocks[2]);
  heap_.Free(blocks[1]);
  EXPECT_EQ(Bin(16), Offsets{blocks[1]});
}

TEST_F(HeapTest, TakesThePlaceOfTheNextBlockTogetherWithThePreviousOne) {
  const Offsets blocks = Lay({48, 200, 400, 2304, 48, 2200, 48, 2100, 48, 208, 48});
  FreeAll({blocks[1], blocks[9], blocks[5], blocks[3], blocks[7]});
  ASSERT_EQ(Bin(1), (Offsets{blocks[1], blocks[9]}));
  heap_.Free(blocks[2]);
  EXPECT_EQ(At(blocks[1]), Free(2904));
  EXPECT_EQ(Bin(16), (Offsets{blocks[5], blocks[1], blocks[7]}));
  EXPECT_EQ(Bin(1), Offsets{blocks[9]});
}

TEST_F(HeapTest, TakesThePlaceOfTheNextBlockAtTheHeadTogetherWithThePreviousOne) {
  const Offsets blocks = Lay({48, 200, 400, 2304, 48});
  FreeAll({blocks[1], blocks[3]});
  heap_.Free(blocks[2]);
  EXPECT_EQ(At(blocks[1]), Free(2904));
  EXPECT_EQ(Bin(16), Offsets{blocks[1]});
  EXPECT_EQ(Bin(1), Offsets{});
}

// ---- Coalescing: the merged block changes its bin ----

TEST_F(HeapTest, MovesThePreviousBlockToTheTailOfAHigherBin) {
  const Offsets blocks = Lay({48, 400, 200, 48, 520, 48, 408, 48});
  FreeAll({blocks[4], blocks[1], blocks[6]});
  heap_.Free(blocks[2]);
  EXPECT_EQ(At(blocks[1]), Free(600));
  EXPECT_EQ(Bin(4), (Offsets{blocks[4], blocks[1]}));
  EXPECT_EQ(Bin(3), Offsets{blocks[6]});
}

TEST_F(HeapTest, MovesTheNextBlockToTheTailOfAHigherBin) {
  const Offsets blocks = Lay({48, 200, 400, 48, 520, 48, 408, 48});
  FreeAll({blocks[4], blocks[2], blocks[6]});
  heap_.Free(blocks[1]);
  EXPECT_EQ(At(blocks[1]), Free(600));
  EXPECT_EQ(Bin(4), (Offsets{blocks[4], blocks[1]}));
  EXPECT_EQ(Bin(3), Offsets{blocks[6]});
}

TEST_F(HeapTest, MovesBothNeighboursOfOneBinToAHigherBin) {
  const Offsets blocks = Lay({48, 400, 200, 440, 48, 1100, 48});
  FreeAll({blocks[5], blocks[3], blocks[1]});
  ASSERT_EQ(Bin(3), (Offsets{blocks[3], blocks[1]}));
  heap_.Free(blocks[2]);
  EXPECT_EQ(At(blocks[1]), Free(1040));
  EXPECT_EQ(Bin(3), Offsets{});
  EXPECT_EQ(Bin(8), (Offsets{blocks[5], blocks[1]}));
}

TEST_F(HeapTest, MovesBothNeighboursOfTwoBinsToAHigherBin) {
  const Offsets blocks = Lay({48, 304, 200, 448, 48});
  FreeAll({blocks[1], blocks[3]});
  heap_.Free(blocks[2]);
  EXPECT_EQ(At(blocks[1]), Free(952));
  EXPECT_EQ(Bin(2), Offsets{});
  EXPECT_EQ(Bin(3), Offsets{});
  EXPECT_EQ(Bin(7), Offsets{blocks[1]});
}

TEST_F(HeapTest, DoesNotMergeWithAParkedNeighbour) {
  const Offsets blocks = Lay({48, 48, 400, 48, 48});
  FreeAll({blocks[1], blocks[3]});
  heap_.Free(blocks[2]);
  EXPECT_EQ(At(blocks[2]), Free(400));
  EXPECT_EQ(ParkedCount(), 2u);
}

// ---- The ends of the arena ----

class ThreeBlocksTest : public HeapTest {
 protected:
  ThreeBlocksTest() : HeapTest(kFirst + 3 * 400) {
    blocks_ = {AllocateBlock(400), AllocateBlock(400), AllocateBlock(400)};
    std::reverse(blocks_.begin(), blocks_.end());
  }

  Offsets blocks_;
};

TEST_F(ThreeBlocksTest, DoNotMergePastEitherEnd) {
  EXPECT_EQ(blocks_, (Offsets{504, 904, 1304}));
  heap_.Free(1304);
  heap_.Free(504);
  EXPECT_EQ(Bin(3), (Offsets{1304, 504}));
  heap_.Free(904);
  EXPECT_EQ(At(504), Free(1200));
  EXPECT_EQ(Bin(9), Offsets{504});
  EXPECT_EQ(AllocateBlock(1200), 504u);
}

TEST_F(ThreeBlocksTest, MergeFromTheFrontToTheEnd) {
  heap_.Free(504);
  heap_.Free(904);
  EXPECT_EQ(At(504), Free(800));
  heap_.Free(1304);
  EXPECT_EQ(At(504), Free(1200));
}

TEST_F(ThreeBlocksTest, MergeFromTheEndToTheFront) {
  heap_.Free(1304);
  heap_.Free(904);
  EXPECT_EQ(At(904), Free(800));
  heap_.Free(504);
  EXPECT_EQ(At(504), Free(1200));
}

// ---- The skip table ----

TEST_F(HeapTest, CountsTheBinsUpToTheNextWithABlock) {
  const Offsets blocks = Lay({48, 400, 48, 2304, 48, 408, 48});
  heap_.Free(blocks[1]);  // bin 3
  EXPECT_EQ(Skip(), (SkipTable{3,  2,  1,  0,  27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16,
                               15, 14, 13, 12, 11, 10, 9,  8,  7,  6,  5,  4,  3,  2,  1,  0}));
  heap_.Free(blocks[3]);  // bin 16
  const SkipTable three = {3, 2,  1,  0,  12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1,
                           0, 14, 13, 12, 11, 10, 9,  8, 7, 6, 5, 4, 3, 2, 1, 0};
  EXPECT_EQ(Skip(), three);
  heap_.Free(blocks[5]);  // bin 3 again
  EXPECT_EQ(Skip(), three);
  ASSERT_EQ(AllocateBlock(400), blocks[1]);  // bin 3 still has a block
  EXPECT_EQ(Skip(), three);
  ASSERT_EQ(AllocateBlock(2304), blocks[3]);  // bin 16 is empty
  EXPECT_EQ(Skip(), (SkipTable{3,  2,  1,  0,  27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16,
                               15, 14, 13, 12, 11, 10, 9,  8,  7,  6,  5,  4,  3,  2,  1,  0}));
  TakeFront();  // bin 31 is empty
  EXPECT_EQ(Skip(), (SkipTable{3,  2,  1,  0,  59, 58, 57, 56, 55, 54, 53, 52, 51, 50, 49, 48,
                               47, 46, 45, 44, 43, 42, 41, 40, 39, 38, 37, 36, 35, 34, 33, 32}));
  ASSERT_EQ(AllocateBlock(408), blocks[5]);  // bin 3 is empty, like all others
  EXPECT_EQ(Skip(), (SkipTable{63, 62, 61, 60, 59, 58, 57, 56, 55, 54, 53, 52, 51, 50, 49, 48,
                               47, 46, 45, 44, 43, 42, 41, 40, 39, 38, 37, 36, 35, 34, 33, 32}));
  heap_.Free(blocks[3]);  // bin 16 alone
  EXPECT_EQ(Skip(), (SkipTable{16, 15, 14, 13, 12, 11, 10, 9,  8,  7,  6,  5,  4,  3,  2,  1,
                               0,  46, 45, 44, 43, 42, 41, 40, 39, 38, 37, 36, 35, 34, 33, 32}));
}

TEST_F(HeapTest, CountsTheLowestBinToo) {
  const Offsets blocks = Lay({48, 48, 48});
  heap_.Free(blocks[1]);
  heap_.Consolidate();
  EXPECT_EQ(Skip()[0], 0u);
  EXPECT_EQ(Skip()[1], 30u);
  TakeFront();
  ASSERT_EQ(heap_.Allocate(24), blocks[1]);
  EXPECT_EQ(Skip()[0], 63u);
}

TEST_F(HeapTest, ShowsWithoutALockWhetherItMayServe) {
  const Heap& heap = heap_.heap();
  const Offsets blocks = Lay({48, 2304, 48});
  for (uint32_t bin = 0; bin < kBins; ++bin) {
    EXPECT_EQ(kiv::NextFilledBin(heap, bin), bin < 31 ? 31u : 32u) << bin;
    EXPECT_TRUE(kiv::MayServe(heap, bin)) << bin;
  }
  TakeFront();
  EXPECT_FALSE(kiv::MayServe(heap, 0));
  heap_.Free(blocks[1]);
  for (uint32_t bin = 0; bin < kBins; ++bin) {
    EXPECT_EQ(kiv::NextFilledBin(heap, bin), bin < 16 ? 16u : 32u) << bin;
    EXPECT_EQ(kiv::MayServe(heap, bin), bin <= 16) << bin;
  }
  heap_.Free(blocks[0]);  // parked: consolidation may produce any size
  EXPECT_TRUE(kiv::MayServe(heap, 31));
}

// ---- Reallocation ----

TEST_F(HeapTest, KeepsABlockThatShrinksByLessThan40Bytes) {
  const uint32_t block = heap_.Allocate(400);
  for (const uint32_t sizeBytes : {400u, 399u, 392u, 384u, 376u, 368u, 361u, 400u}) {
    EXPECT_EQ(heap_.Reallocate(block, sizeBytes), block) << sizeBytes;
    EXPECT_EQ(At(block), Used(424)) << sizeBytes;
  }
}

TEST_F(HeapTest, SplitsABlockThatShrinksBy40Bytes) {
  const Offsets blocks = Lay({424, 48});
  EXPECT_EQ(heap_.Reallocate(blocks[0], 360), blocks[0]);
  EXPECT_EQ(At(blocks[0]), Used(384));
  EXPECT_EQ(At(blocks[0] + 384), Free(40));
  EXPECT_EQ(Bin(0), Offsets{blocks[0] + 384});
}

TEST_F(HeapTest, BinsASmallTailInsteadOfParkingIt) {
  const Offsets blocks = Lay({424, 48});
  EXPECT_EQ(heap_.Reallocate(blocks[0], 0), blocks[0]);
  EXPECT_EQ(At(blocks[0]), Used(48));
  EXPECT_EQ(heap_.Reallocate(blocks[1], 0), blocks[1]);
  EXPECT_EQ(Bin(2), Offsets{blocks[0] + 48});
  const uint32_t other = heap_.Allocate(160);  // 184, from the 376 bytes
  ASSERT_EQ(other, blocks[1] - 184);
  EXPECT_EQ(heap_.Reallocate(other, 40), other);
  EXPECT_EQ(At(other + 64), Free(120));
  EXPECT_EQ(ParkedCount(), 0u);
}

TEST_F(HeapTest, MergesATailOnlyWithTheNextBlock) {
  const Offsets blocks = Lay({48, 400, 1000, 408, 48});
  FreeAll({blocks[1], blocks[3]});
  EXPECT_EQ(heap_.Reallocate(blocks[2], 500), blocks[2]);
  EXPECT_EQ(At(blocks[2]), Used(528));
  EXPECT_EQ(At(blocks[2] + 528), Free(880));  // 472 and 408
  EXPECT_EQ(Bin(6), Offsets{blocks[2] + 528});
  EXPECT_EQ(Bin(3), Offsets{blocks[1]});
}

TEST_F(HeapTest, PutsAMergedTailInThePlaceOfTheNextBlock) {
  const Offsets blocks = Lay({48, 1000, 2304, 48, 2200, 48});
  FreeAll({blocks[2], blocks[4]});
  EXPECT_EQ(heap_.Reallocate(blocks[1], 500), blocks[1]);
  EXPECT_EQ(Bin(16), (Offsets{blocks[1] + 528, blocks[4]}));
}

TEST_F(HeapTest, SplitsTheLastBlockOfTheArena) {
  const Offsets blocks = Lay({48, 1000});
  EXPECT_EQ(heap_.Reallocate(blocks[1], 500), blocks[1]);
  EXPECT_EQ(At(blocks[1] + 528), Free(472));
}

TEST_F(HeapTest, GrowsABlockIntoItsSurplus) {
  const Offsets blocks = Lay({48, 400, 48});
  heap_.Free(blocks[1]);
  ASSERT_EQ(AllocateBlock(368), blocks[1]);
  EXPECT_EQ(heap_.Reallocate(blocks[1], 376), blocks[1]);
  EXPECT_EQ(At(blocks[1]), Used(400));
  EXPECT_NE(heap_.Reallocate(blocks[1], 377), blocks[1]);
}

TEST_F(HeapTest, ParksASmallBlockThatMoved) {
  const Offsets blocks = Lay({128, 48});
  EXPECT_EQ(heap_.Reallocate(blocks[0], 200), blocks[0] - 224);
  EXPECT_EQ(At(blocks[0]), Parked(128));
  EXPECT_EQ(QuickList(12), Offsets{blocks[0]});
}

TEST_F(HeapTest, MovesABlockEvenIfTheNextIsFree) {
  const Offsets blocks = Lay({48, 400, 1000, 48});
  heap_.Free(blocks[2]);
  EXPECT_EQ(heap_.Reallocate(blocks[1], 600), blocks[2] + 376);
  EXPECT_EQ(At(blocks[1]), Free(776));  // the old block and the rest of the next one
  EXPECT_EQ(Bin(6), Offsets{blocks[1]});
}

TEST_F(HeapTest, LeavesABlockUnchangedThatCannotGrow) {
  const Offsets blocks = Lay({48, 400, 48, 48});
  heap_.Free(blocks[2]);
  EXPECT_EQ(heap_.Reallocate(blocks[1], kTooMuch), kNoBlock);
  EXPECT_EQ(At(blocks[1]), Used(400));
  EXPECT_EQ(ParkedCount(), 0u);  // the attempt consolidated
  EXPECT_EQ(Bin(0), Offsets{blocks[2]});
  heap_.Free(blocks[1]);  // checks its content
}

TEST_F(FullHeapTest, MovesABlockIntoConsolidatedBlocks) {
  FreeAll({blocks_[10], blocks_[11], blocks_[12]});
  EXPECT_EQ(heap_.Reallocate(blocks_[0], 120), blocks_[12]);
  EXPECT_EQ(At(blocks_[12]), Used(144));
  EXPECT_EQ(At(blocks_[0]), Parked(48));
}

// ---- Corruption ----

class HeapDeathTest : public HeapTest {
 protected:
  HeapDeathTest() : blocks_(Lay({48, 400, 48, 440, 48})) { FreeAll({blocks_[1], blocks_[3]}); }

  void GiveOwner(uint32_t block) { BlockAt(heap_.heap(), block)->heap = &heap_.heap(); }
  void Request(uint32_t blockBytes) {
    kiv::AllocateFromHeap(&heap_.heap(), blockBytes - kHeaderBytes);
  }

  Offsets blocks_;
};

TEST_F(HeapDeathTest, ASearchAssertsThatTheFirstBlockIsFree) {
  GiveOwner(blocks_[1]);
  EXPECT_DEATH(Request(392), "!CurrentBin->MemHeap");
  EXPECT_DEATH(Request(392), "sd/memheap.*1055");
}

TEST_F(HeapDeathTest, ASearchAssertsThatALaterBlockIsFree) {
  GiveOwner(blocks_[3]);
  EXPECT_DEATH(Request(432), "!CurrentBin->MemHeap");
  EXPECT_DEATH(Request(432), "sd/memheap.*1055");
}

TEST_F(HeapDeathTest, BinningAssertsThatTheBlockIsFree) {
  GiveOwner(blocks_[1]);
  EXPECT_DEATH(Request(48), "!Bin->MemHeap");
  EXPECT_DEATH(Request(48), "sd/memheap.*982");
}

}  // namespace
