#include "memsys/large_block.h"

#include <bit>

#include "memheap/ring.h"
#include "memsys/accounting.h"

using namespace kiv;

namespace {

using LargeRing = Ring<LargeBlock, &LargeBlock::next, &LargeBlock::prev>;

bool Wraps(uint64_t sizeBytes) { return sizeBytes > UINT64_MAX - kLargeHeaderBytes; }

void** HeadOf(const LargeBlock& block) {
  if (block.owner == kNoOwner) return nullptr;
  return std::bit_cast<void**>(block.owner);
}

void WriteHeader(LargeBlock* block, uint64_t sizeBytes) {
  *block = {sizeBytes, nullptr, nullptr, kNoOwner};
}

// Leaves the owner word as it is: it also marks the block as a large one.
void Unlink(void** head, LargeBlock* block) {
  *head = LargeRing::IsAlone(block) ? nullptr : block->prev;
  LargeRing::Remove(block);
}

}  // namespace

void* kiv::AllocateLarge(uint64_t sizeBytes) {
  if (Wraps(sizeBytes)) return nullptr;
  void* base = AccountedAllocate(sizeBytes + kLargeHeaderBytes);
  if (base == nullptr) return nullptr;
  auto* block = static_cast<LargeBlock*>(base);
  WriteHeader(block, sizeBytes);
  return PayloadOf(block);
}

void kiv::FreeLarge(LargeBlock* block) {
  if (void** head = HeadOf(*block)) Unlink(head, block);
  AccountedFree(block);
}

LargeBlock* kiv::ReallocateLarge(LargeBlock* block, uint64_t sizeBytes) {
  if (Wraps(sizeBytes)) return nullptr;
  void** head = HeadOf(*block);
  if (head != nullptr) Unlink(head, block);
  LargeBlock* moved = AccountedReallocate(block, sizeBytes + kLargeHeaderBytes);
  if (moved == nullptr) {
    if (head != nullptr) LinkLarge(head, block);
    return nullptr;
  }
  WriteHeader(moved, sizeBytes);
  return moved;
}

void kiv::LinkLarge(void** head, LargeBlock* block) {
  if (*head == nullptr) {
    LargeRing::MakeAlone(block);
    *head = block;
  } else {
    LargeRing::InsertBefore(static_cast<LargeBlock*>(*head), block);
  }
  block->owner = reinterpret_cast<uint64_t>(head);
}
