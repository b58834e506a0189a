#include "support/heap_walk.h"

namespace kiv::test {
namespace {

constexpr uint32_t kMinUsedBytes = 48;
constexpr uint32_t kMinUnusedBytes = 40;

std::string At(uint32_t offset, const char* fault) {
  return "block at " + std::to_string(offset) + " " + fault;
}

std::string In(const char* list, uint32_t index, const std::string& fault) {
  return std::string(list) + " " + std::to_string(index) + ": " + fault;
}

}  // namespace

HeapWalk::HeapWalk(Heap& heap, uint32_t arenaBytes)
    : heap_(heap), endOffset_(arenaBytes / 8 * 8), marks_(endOffset_ / 8) {}

std::string HeapWalk::Look() {
  ++look_;
  marked_ = 0;
  for (uint32_t i = 0; i < kQuickLists; ++i) {
    if (std::string fault = LookAtQuickList(i); !fault.empty()) return In("quick list", i, fault);
  }
  for (uint32_t i = 0; i < kBins; ++i) {
    if (std::string fault = LookAtBin(i); !fault.empty()) return In("bin", i, fault);
  }
  if (std::string fault = LookAtBlocks(); !fault.empty()) return fault;
  return LookAtTables();
}

bool HeapWalk::MayBeBlock(const Block* block) const {
  const auto offset = reinterpret_cast<uintptr_t>(block) - reinterpret_cast<uintptr_t>(&heap_);
  return offset >= HeapModel::kFirstBlock && offset % 8 == 0 &&
         offset + kMinUnusedBytes <= endOffset_;
}

bool HeapWalk::MarkOnce(uint32_t offset, BlockState state) {
  Mark& mark = marks_[offset / 8];
  if (mark.look == look_) return false;
  mark = {look_, state};
  ++marked_;
  return true;
}

BlockState HeapWalk::StateAt(uint32_t offset) const {
  const Mark& mark = marks_[offset / 8];
  return mark.look == look_ ? mark.state : BlockState::kUsed;
}

std::string HeapWalk::LookAtQuickList(uint32_t index) {
  quick_[index].clear();
  for (const Block* block = heap_.quick[index]; block != nullptr; block = block->next) {
    if (!MayBeBlock(block)) return "a link leads out of the arena";
    const uint32_t offset = OffsetIn(heap_, block);
    if (!MarkOnce(offset, BlockState::kParked)) return At(offset, "is linked twice");
    if (block->sizeBytes != (index + 1) * 8 + HeapModel::kHeaderBytes) {
      return At(offset, "is of another size");
    }
    if (block->heap != &heap_) return At(offset, "has lost its owner");
    quick_[index].push_back(offset);
  }
  return {};
}

// The only block of a fresh heap is in the last bin, whatever its size is.
bool HeapWalk::IsWholeArena(const Block& block) const {
  return block.bin == kBins - 1 && block.sizeBytes == endOffset_ - HeapModel::kFirstBlock;
}

std::string HeapWalk::LookAtBin(uint32_t index) {
  Offsets& ring = bins_[index];
  ring.clear();
  if (heap_.skip[index].load() != 0) return {};
  const Block* block = heap_.bins[index];
  const uint32_t boundBytes = block->search;
  if (boundBytes >= heap_.unservedBytes) return "the bound is a size that no bin serves";
  do {
    if (!MayBeBlock(block)) return "a link leads out of the arena";
    const uint32_t offset = OffsetIn(heap_, block);
    if (!MarkOnce(offset, BlockState::kFree)) return At(offset, "is linked twice");
    if (block->heap != nullptr) return At(offset, "has an owner");
    if (block->bin != index) return At(offset, "names another bin");
    if (HeapModel::BinOf(block->sizeBytes) != index && !IsWholeArena(*block)) {
      return At(offset, "is of a size for another bin");
    }
    if (block->sizeBytes > boundBytes) return At(offset, "is above the bound");
    if (!MayBeBlock(block->next) || block->next->prev != block) {
      return At(offset, "is not its successor's predecessor");
    }
    ring.push_back(offset);
    block = block->next;
  } while (block != heap_.bins[index]);
  return {};
}

std::string HeapWalk::LookAtBlocks() {
  blocks_.clear();
  uint32_t listed = 0;
  ModelBlock previous = {0, BlockState::kUsed};
  for (uint32_t offset = HeapModel::kFirstBlock; offset < endOffset_;) {
    const ModelBlock found = {BlockAt(heap_, offset)->sizeBytes, StateAt(offset)};
    const char* const fault = FaultOfBlock(offset, found, previous);
    if (fault != nullptr) return At(offset, fault);
    if (found.state != BlockState::kUsed) ++listed;
    blocks_.push_back({offset, found});
    offset += found.sizeBytes;
    previous = found;
  }
  return listed == marked_ ? std::string() : "a list has an address where no block starts";
}

const char* HeapWalk::FaultOfBlock(uint32_t offset, const ModelBlock& found,
                                   const ModelBlock& previous) const {
  const bool isFree = found.state == BlockState::kFree;
  const uint32_t least = isFree ? kMinUnusedBytes : kMinUsedBytes;
  if (found.sizeBytes % 8 != 0 || found.sizeBytes < least) return "has no proper size";
  if (found.sizeBytes > endOffset_ - offset) return "reaches past the arena";
  const Block& block = *BlockAt(heap_, offset);
  if (block.previousBytes != previous.sizeBytes) return "has a wrong previous size";
  if (isFree && previous.state == BlockState::kFree) return "lies behind a free one";
  if (found.state != BlockState::kUsed) return nullptr;
  if (block.heap != &heap_) return "is in no list, and has no owner";
  return block.next == nullptr ? nullptr : "is in use, and has a link";
}

std::string HeapWalk::LookAtTables() const {
  if (heap_.arenaEnd != reinterpret_cast<char*>(&heap_) + endOffset_) return "arena end moved";
  uint32_t parked = 0;
  for (const Offsets& list : quick_) parked += static_cast<uint32_t>(list.size());
  if (heap_.parked.load() != parked) return "wrong parked count";
  uint32_t expected = kBins;  // without a filled bin the skip bytes count past the last bin
  for (uint32_t i = kBins; i-- > 0; ++expected) {
    if (!bins_[i].empty()) expected = 0;
    if (heap_.skip[i].load() != expected) return In("skip byte", i, "wrong");
  }
  return {};
}

}  // namespace kiv::test
