#include "model/memory_stack_model.h"

#include <cstddef>

#include "kivsdu/status.h"

namespace kiv::test {
namespace {

constexpr uint64_t kMax32Bits = 0xFFFFFFFF;

template <typename Iterator>
bool Matches(const StackBlock* block, Iterator first, Iterator last) {
  for (; first != last; ++first, block = block->next) {
    if (block == nullptr || block->sizeBytes != first->sizeBytes) return false;
    if (first->address == 0) first->address = reinterpret_cast<uintptr_t>(block);
    if (first->address != reinterpret_cast<uintptr_t>(block)) return false;
  }
  return block == nullptr;
}

}  // namespace

MemoryStackModel::MemoryStackModel(uint64_t pageBytes, uint64_t alignment, uint64_t initialBytes)
    : page_(pageBytes), align_(alignment) {
  header_ = Aligned(16);
  offset_ = header_;
  default_ = BlockSize(initialBytes);
  free_.push_back(Fresh(default_));
}

MemoryStackModel::Placement MemoryStackModel::Push(uint64_t sizeBytes) {
  if (used_.empty() || offset_ + sizeBytes > used_.back().sizeBytes) {
    const uint64_t needed = header_ + sizeBytes;
    const uint64_t want = needed > default_ ? BlockSize(needed) : default_;
    if (!free_.empty() && free_.front().sizeBytes >= want) {
      used_.push_back(free_.front());
      free_.erase(free_.begin());
    } else {
      if (want > kMax32Bits) return {KIV_ST_OUT_OF_MEMORY, 0};
      used_.push_back(Fresh(want));
    }
    offset_ = header_;
  }
  const Placement placement = {KIV_ST_OK, offset_};
  offset_ = Aligned(offset_ + sizeBytes);
  return placement;
}

uint32_t MemoryStackModel::Pop(uintptr_t address) {
  size_t holder = 0;
  while (holder < used_.size() && !Holds(used_[holder], address)) ++holder;
  if (holder == used_.size()) return KIV_ST_ARGUMENT;
  while (used_.size() > holder + 1) {
    const bool directlyAbove = used_.size() == holder + 2;
    if (directlyAbove && free_.empty() && used_.back().sizeBytes == default_) {
      free_.push_back(used_.back());
    } else {
      ++freed;
    }
    used_.pop_back();
  }
  offset_ = address - used_.back().address;
  return KIV_ST_OK;
}

void MemoryStackModel::Reset() {
  while (!used_.empty()) {
    size_t place = 0;
    while (place < free_.size() && free_[place].sizeBytes > used_.back().sizeBytes) ++place;
    free_.insert(free_.begin() + static_cast<std::ptrdiff_t>(place), used_.back());
    used_.pop_back();
  }
  offset_ = header_;
}

bool MemoryStackModel::Is(const KivSdMemStack& stack) {
  return stack.headerBytes == header_ && stack.defaultBlockBytes == default_ &&
         stack.topOffset == offset_ && Matches(stack.top, used_.rbegin(), used_.rend()) &&
         Matches(stack.freeList, free_.begin(), free_.end());
}

uint64_t MemoryStackModel::Aligned(uint64_t offset) const {
  return offset + (offset % align_ == 0 ? 0 : align_ - offset % align_);
}

uint64_t MemoryStackModel::BlockSize(uint64_t bytes) const {
  uint64_t pages = (bytes + 128) / page_;
  if (pages * page_ < bytes + 128) ++pages;
  return pages * page_ - 128;
}

MemoryStackModel::Block MemoryStackModel::Fresh(uint64_t sizeBytes) {
  ++allocated;
  return {sizeBytes, 0};
}

bool MemoryStackModel::Holds(const Block& block, uintptr_t address) const {
  return block.address + header_ <= address && address < block.address + block.sizeBytes;
}

}  // namespace kiv::test
