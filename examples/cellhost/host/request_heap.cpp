// A request's memory; see request_heap.h.
#include "host/request_heap.h"

#include "kivsdu/manager.h"
#include "kivsdu/status.h"

namespace cellhost {
namespace {

constexpr char kSource[] = "cellhost/request_heap";
constexpr uint32_t kLineTake = 1;
constexpr uint32_t kLineTakeBlock = 2;
constexpr uint32_t kLineGiveBack = 3;
constexpr uint32_t kPieceBytesMax = 0x7FFFFFFFu;  // the short heap's sizes are signed

}  // namespace

void RequestHeap::Begin() {
  if (begun_) return;
  adMemShortHeapInit(&owner_);
  begun_ = true;
}

bool RequestHeap::hasShortHeap() const { return adMemShortCheckStatus(&owner_) != 0; }

uint32_t RequestHeap::Take(uint32_t sizeBytes, void** piece) {
  Begin();
  *piece = nullptr;
  if (sizeBytes > kPieceBytesMax - sizeof(Block)) return KIV_ST_OUT_OF_MEMORY;
  if (!hasShortHeap()) return TakeBlock(sizeBytes, piece);
  return adMemShortHeapMalloc(&owner_, static_cast<int32_t>(sizeBytes), piece, kSource, kLineTake);
}

uint32_t RequestHeap::TakeBlock(uint32_t sizeBytes, void** piece) {
  void* memory = nullptr;
  const uint32_t status =
      adMalloc(&owner_, sizeof(Block) + uint64_t{sizeBytes}, &memory, kSource, kLineTakeBlock);
  if (status != KIV_ST_OK) return status;
  Block* block = static_cast<Block*>(memory);
  Block* next = blocks_ == nullptr ? block : blocks_;
  Block* previous = blocks_ == nullptr ? block : blocks_->previous;
  *block = {.previous = previous, .next = next};
  previous->next = block;
  next->previous = block;
  blocks_ = block;
  *piece = block + 1;
  return KIV_ST_OK;
}

void RequestHeap::GiveBack(void* piece) {
  if (hasShortHeap()) {
    adFree(piece, kSource, kLineGiveBack);
    return;
  }
  Block* block = static_cast<Block*>(piece) - 1;
  if (block == blocks_) blocks_ = block->next == block ? nullptr : block->next;
  block->previous->next = block->next;
  block->next->previous = block->previous;
  adFree(block, kSource, kLineGiveBack);
}

void RequestHeap::End() {
  while (blocks_ != nullptr) GiveBack(blocks_ + 1);
  adMemShortHeapTerm(&owner_);
  begun_ = false;
}

}  // namespace cellhost
