#include "support/checked_heap.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace kiv::test {
namespace {

constexpr char kUntouched = '\x5A';  // fills the bytes that no block may cover
constexpr uint32_t kPatterns = 4096;
constexpr uint32_t kLargestArena = 1 << 20;

// Random bytes. Each pattern starts 8 bytes behind the one before it. A block that was moved, or
// that has another block's content, therefore does not match its pattern.
const char* PatternBytes(uint32_t pattern) {
  static const std::vector<char> bytes = [] {
    std::vector<char> made(kPatterns * 8 + kLargestArena);
    std::minstd_rand random(1);
    for (char& byte : made) byte = static_cast<char>(random() >> 8);
    return made;
  }();
  return bytes.data() + size_t{pattern} * 8;
}

std::string Answered(const char* operation, uint32_t real, uint32_t expected) {
  return std::string(operation) + " gave the block at " + std::to_string(real) + " instead of " +
         std::to_string(expected);
}

}  // namespace

CheckedHeap::CheckedHeap(uint32_t arenaBytes, KivSdSpinlock* lock)
    : arenaBytes_(arenaBytes),
      arena_(new char[arenaBytes]),
      heap_(reinterpret_cast<Heap*>(arena_.get())),
      model_(arenaBytes),
      walk_(*heap_, arenaBytes) {
  std::memset(arena_.get(), kUntouched, arenaBytes);
  InitializeHeap(heap_, arenaBytes, lock);
  CheckEverything();
}

uint32_t CheckedHeap::OffsetOf(void* payload) const {
  if (payload == nullptr) return HeapModel::kNoBlock;
  return OffsetIn(*heap_, BlockOf(payload));
}

void CheckedHeap::Fault(const std::string& what) {
  if (fault_.empty()) fault_ = what;
}

uint32_t CheckedHeap::Allocate(uint32_t sizeBytes) {
  if (!fault_.empty()) return HeapModel::kNoBlock;
  const uint32_t expected = model_.Allocate(sizeBytes);
  const uint32_t block = OffsetOf(AllocateFromHeap(heap_, sizeBytes));
  if (block != expected) Fault(Answered("allocation", block, expected));
  Check(block);
  if (block != HeapModel::kNoBlock) Fill(block);
  return block;
}

void CheckedHeap::Free(uint32_t block) {
  if (!fault_.empty()) return;
  if (!Holds(block, patterns_.at(block), model_.CapacityOf(block)))
    Fault("content lost before free");
  patterns_.erase(block);
  model_.Free(block);
  FreeToHeap(heap_, PayloadAt(block));
  Check(HeapModel::kNoBlock);
}

uint32_t CheckedHeap::Reallocate(uint32_t block, uint32_t sizeBytes) {
  if (!fault_.empty()) return HeapModel::kNoBlock;
  const uint32_t pattern = patterns_.at(block);
  const uint32_t oldCapacity = model_.CapacityOf(block);
  if (!Holds(block, pattern, oldCapacity)) Fault("content lost before reallocation");
  const uint32_t expected = model_.Reallocate(block, sizeBytes);
  const uint32_t moved = OffsetOf(ReallocateInHeap(heap_, PayloadAt(block), sizeBytes));
  if (moved != expected) Fault(Answered("reallocation", moved, expected));
  if (moved == HeapModel::kNoBlock) {
    Check(block);
    return moved;
  }
  patterns_.erase(block);
  Check(moved);
  if (!fault_.empty()) return moved;
  const uint32_t kept = std::min(oldCapacity, model_.CapacityOf(moved));
  if (!Holds(moved, pattern, kept)) Fault("reallocation lost the content");
  Fill(moved);
  return moved;
}

void CheckedHeap::Consolidate() {
  if (!fault_.empty()) return;
  model_.Consolidate();
  ConsolidateHeap(heap_);
  Check(HeapModel::kNoBlock);
}

void CheckedHeap::Fill(uint32_t block) {
  if (!fault_.empty()) return;
  nextPattern_ = (nextPattern_ + 1) % kPatterns;
  patterns_[block] = nextPattern_;
  std::memcpy(PayloadAt(block), PatternBytes(nextPattern_), model_.CapacityOf(block));
}

bool CheckedHeap::Holds(uint32_t block, uint32_t pattern, uint32_t sizeBytes) {
  return std::memcmp(PayloadAt(block), PatternBytes(pattern), sizeBytes) == 0;
}

// `touched` is the block that the operation returned, if any.
void CheckedHeap::Check(uint32_t touched) {
  if (!fault_.empty()) return;
  CheckBriefly(touched);
  ++operations_;
  if (operations_ % pace_.walkAfterEach == 0 && fault_.empty()) CheckByWalking();
  if (operations_ % pace_.readAfterEach == 0 && fault_.empty()) CheckContents();
}

void CheckedHeap::CheckBriefly(uint32_t touched) {
  if (heap_->parked.load() != model_.parkedCount()) Fault("parked count differs");
  const auto skip = model_.SkipTable();
  for (uint32_t i = 0; i < kBins; ++i) {
    const HeapModel::Offsets& ring = model_.bin(i);
    if (heap_->skip[i].load() != skip[i]) {
      Fault("skip byte " + std::to_string(i) + " differs");
    } else if (!ring.empty() && OffsetIn(*heap_, heap_->bins[i]) != ring.front()) {
      Fault("head of bin " + std::to_string(i) + " differs");
    }
  }
  if (touched == HeapModel::kNoBlock) return;
  const Block& block = *BlockAt(*heap_, touched);
  if (block.sizeBytes != model_.blocks().at(touched).sizeBytes) Fault("size differs");
  if (block.heap != heap_) Fault("owner is missing");
  if (block.next != nullptr) Fault("link is not 0");
}

void CheckedHeap::CheckByWalking() {
  if (const std::string fault = walk_.Look(); !fault.empty()) return Fault(fault);
  const HeapModel::Blocks& blocks = model_.blocks();
  if (!std::equal(blocks.begin(), blocks.end(), walk_.blocks().begin(), walk_.blocks().end(),
                  [](const auto& a, const auto& b) {
                    return a.first == b.first && a.second == b.second;
                  })) {
    Fault("blocks differ");
  }
  for (uint32_t i = 0; i < kBins; ++i) {
    if (walk_.bin(i) != model_.bin(i)) Fault("bin " + std::to_string(i) + " differs");
  }
  for (uint32_t i = 0; i < kQuickLists; ++i) {
    if (walk_.quickList(i) != model_.quickList(i)) {
      Fault("quick list " + std::to_string(i) + " differs");
    }
  }
  for (uint32_t i = arenaBytes_ / 8 * 8; i < arenaBytes_; ++i) {
    if (arena_[i] != kUntouched) Fault("written past the last block");
  }
}

void CheckedHeap::CheckContents() {
  for (const auto& [block, pattern] : patterns_) {
    if (!Holds(block, pattern, model_.CapacityOf(block))) {
      return Fault("content lost of the block at " + std::to_string(block));
    }
  }
}

void CheckedHeap::CheckEverything() {
  if (fault_.empty()) CheckByWalking();
  if (fault_.empty()) CheckContents();
}

}  // namespace kiv::test
