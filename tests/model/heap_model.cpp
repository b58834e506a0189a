#include "model/heap_model.h"

#include <algorithm>

namespace kiv::test {
namespace {

constexpr uint32_t kMinPayload = 24;
constexpr uint32_t kMinRemainder = 40;  // smaller remainders are not split off
constexpr uint32_t kLastBin = HeapModel::kBinCount - 1;

// The smallest block of each bin.
std::array<uint32_t, HeapModel::kBinCount> LeastOfBins() {
  std::array<uint32_t, HeapModel::kBinCount> least{};
  for (uint32_t i = 0; i <= 16; ++i) least[i] = i * 128;
  for (uint32_t i = 17; i <= kLastBin; ++i) least[i] = (i - 15) * 2048;
  return least;
}

}  // namespace

HeapModel::HeapModel(uint32_t arenaBytes) {
  const uint32_t wholeBytes = (arenaBytes - kFirstBlock) / 8 * 8;
  blocks_[kFirstBlock] = {wholeBytes, BlockState::kFree};
  // The first block lies in the last bin whatever its size.
  bins_[kLastBin].push_back(kFirstBlock);
  binOf_[kFirstBlock] = kLastBin;
}

uint32_t HeapModel::BinOf(uint32_t blockBytes) {
  static const auto least = LeastOfBins();
  const auto above = std::upper_bound(least.begin(), least.end(), blockBytes);
  return static_cast<uint32_t>(above - least.begin()) - 1;
}

uint32_t HeapModel::PayloadBytes(uint32_t sizeBytes) {
  return std::max(kMinPayload, (sizeBytes + 7) / 8 * 8);
}

// The distance from each bin to the next bin with a block. If there is no such bin, the entry is 32
// for the last bin and one more for each bin before it.
std::array<uint8_t, HeapModel::kBinCount> HeapModel::SkipTable() const {
  std::array<uint8_t, kBinCount> table{};
  uint8_t distance = kBinCount;
  for (uint32_t bin = kBinCount; bin-- > 0;) {
    if (!bins_[bin].empty()) distance = 0;
    table[bin] = distance++;
  }
  return table;
}

uint32_t HeapModel::Allocate(uint32_t sizeBytes) {
  const uint32_t payloadBytes = PayloadBytes(sizeBytes);
  const uint32_t index = payloadBytes / 8 - 1;
  if (index < kQuickListCount && !quick_[index].empty()) {
    const uint32_t block = quick_[index].front();
    quick_[index].erase(quick_[index].begin());
    --parkedCount_;
    blocks_[block].state = BlockState::kUsed;
    return block;
  }

  const uint32_t blockBytes = payloadBytes + kHeaderBytes;
  uint32_t from = Find(blockBytes);
  if (from == kNoBlock && parkedCount_ != 0) {
    Consolidate();
    from = Find(blockBytes);
  }
  return from == kNoBlock ? kNoBlock : Carve(from, blockBytes);
}

uint32_t HeapModel::Find(uint32_t blockBytes) {
  const uint32_t bin = BinOf(blockBytes);
  Offsets& ring = bins_[bin];
  for (size_t i = 0; i < ring.size(); ++i) {
    if (blocks_[ring[i]].sizeBytes < blockBytes) continue;
    // The next search begins at the block that this search found.
    std::rotate(ring.begin(), ring.begin() + static_cast<std::ptrdiff_t>(i), ring.end());
    return ring.front();
  }
  // In larger bins only the first block is examined.
  for (uint32_t above = bin + 1; above < kBinCount; ++above) {
    if (!bins_[above].empty()) return bins_[above].front();
  }
  return kNoBlock;
}

uint32_t HeapModel::Carve(uint32_t from, uint32_t blockBytes) {
  const uint32_t wholeBytes = blocks_[from].sizeBytes;
  if (wholeBytes < blockBytes + kMinRemainder) {
    RemoveFromBin(from);
    blocks_[from].state = BlockState::kUsed;
    return from;
  }

  // The front stays free. It keeps its place in the ring unless it is now too small for its bin.
  const uint32_t frontBytes = wholeBytes - blockBytes;
  blocks_[from].sizeBytes = frontBytes;
  if (BinOf(frontBytes) < binOf_[from]) {
    RemoveFromBin(from);
    bins_[BinOf(frontBytes)].push_back(from);
    binOf_[from] = BinOf(frontBytes);
  }
  blocks_[from + frontBytes] = {blockBytes, BlockState::kUsed};
  return from + frontBytes;
}

void HeapModel::Free(uint32_t block) {
  const uint32_t index = CapacityOf(block) / 8 - 1;
  if (index >= kQuickListCount) return CoalesceAndBin(block);
  quick_[index].insert(quick_[index].begin(), block);
  ++parkedCount_;
  blocks_[block].state = BlockState::kParked;
}

void HeapModel::CoalesceAndBin(uint32_t block) {
  const uint32_t previous = FreeBefore(block);
  const uint32_t next = FreeAfter(block);
  const uint32_t start = previous != kNoBlock ? previous : block;
  uint32_t sizeBytes = blocks_[block].sizeBytes;
  if (previous != kNoBlock) sizeBytes += blocks_[previous].sizeBytes;
  if (next != kNoBlock) sizeBytes += blocks_[next].sizeBytes;

  BinMerged(start, previous, next, BinOf(sizeBytes));
  if (next != kNoBlock) blocks_.erase(next);
  if (previous != kNoBlock) blocks_.erase(block);
  blocks_[start] = {sizeBytes, BlockState::kFree};
}

uint32_t HeapModel::FreeBefore(uint32_t block) const {
  const auto self = blocks_.find(block);
  if (self == blocks_.begin()) return kNoBlock;
  const auto previous = std::prev(self);
  return previous->second.state == BlockState::kFree ? previous->first : kNoBlock;
}

uint32_t HeapModel::FreeAfter(uint32_t block) const {
  const auto next = std::next(blocks_.find(block));
  if (next == blocks_.end() || next->second.state != BlockState::kFree) return kNoBlock;
  return next->first;
}

void HeapModel::BinMerged(uint32_t start, uint32_t previous, uint32_t next, uint32_t bin) {
  if (previous != kNoBlock && binOf_[previous] == bin) {
    // The merged block keeps the place of the previous block.
    if (next != kNoBlock) RemoveFromBin(next);
  } else if (next != kNoBlock && binOf_[next] == bin) {
    // The merged block takes the place of the next block.
    if (previous != kNoBlock) RemoveFromBin(previous);
    std::replace(bins_[bin].begin(), bins_[bin].end(), next, start);
    binOf_.erase(next);
  } else {
    // The merged block goes behind all others in the bin.
    if (previous != kNoBlock) RemoveFromBin(previous);
    if (next != kNoBlock) RemoveFromBin(next);
    bins_[bin].push_back(start);
  }
  binOf_[start] = bin;
}

// If the block is the first of its ring, the second becomes the first.
void HeapModel::RemoveFromBin(uint32_t block) {
  Offsets& ring = bins_[binOf_[block]];
  ring.erase(std::find(ring.begin(), ring.end(), block));
  binOf_.erase(block);
}

void HeapModel::Consolidate() {
  for (Offsets& list : quick_) {
    for (const uint32_t block : list) CoalesceAndBin(block);
    list.clear();
  }
  parkedCount_ = 0;
}

uint32_t HeapModel::Reallocate(uint32_t block, uint32_t sizeBytes) {
  const uint32_t blockBytes = PayloadBytes(sizeBytes) + kHeaderBytes;
  const uint32_t oldBytes = blocks_[block].sizeBytes;
  if (blockBytes > oldBytes) {
    const uint32_t moved = Allocate(sizeBytes);
    if (moved != kNoBlock) Free(block);
    return moved;
  }
  if (oldBytes - blockBytes >= kMinRemainder) {
    blocks_[block].sizeBytes = blockBytes;
    blocks_[block + blockBytes] = {oldBytes - blockBytes, BlockState::kUsed};
    CoalesceAndBin(block + blockBytes);
  }
  return block;
}

}  // namespace kiv::test
