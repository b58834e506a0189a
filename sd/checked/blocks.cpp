// The checked operations of the memory manager. Each checks, calls the unchecked operation, and
// keeps the registry up to date.
#include <algorithm>
#include <cstring>

#include "checked/making.h"
#include "checked/unchecked.h"
#include "memheap/policy_block.h"
#include "memheap/switches.h"

using namespace kiv;
using namespace kiv::checked;

namespace {

// Returns false if the block is not known and may be a block of the runtime, which plain mode
// permits.
bool Retire(void* block, FreeBy by, const Place& place) {
  BlockList leaving = {};
  const Checked checked = RetireBlock(block, by, place, &leaving);
  if (checked.misuse == Misuse::kUnknownBlock && !InThreadHeapMode()) return false;
  ReportMisuse(checked, block, place);
  GiveBack(&leaving);
  return true;
}

// A moved block keeps its policy.
uint8_t PolicyOf(const BlockRecord& block) {
  return block.hasHeader ? PolicyHeaderOf(block.payload)->policy : kFullPolicy;
}

// Always moves, so that a use of the old address is found.
uint32_t Move(void* owner, uint64_t newSizeBytes, const BlockRecord& old, void** newBlock,
              const Place& place) {
  void* const seed = owner != nullptr ? owner : old.payload;
  void* moved = nullptr;
  const uint32_t status =
      MakeBlock(newSizeBytes, &moved, FamilyNow(), old.made, [seed, &old, &moved](uint64_t bytes) {
        return KivUncheckedMallocPolicy(seed, bytes, &moved, PolicyOf(old), nullptr, 0);
      });
  *newBlock = moved;
  if (status != KIV_ST_OK) return status;
  std::memcpy(moved, old.payload, std::min(old.sizeBytes, newSizeBytes));
  FreeMoved(old.payload, place);
  return status;
}

// A block of the runtime, in plain mode.
uint32_t MoveUnknown(void* owner, uint64_t newSizeBytes, void* oldBlock, void** newBlock,
                     const Place& place) {
  return MakeBlock(newSizeBytes, newBlock, Family::kPlain, place,
                   [owner, oldBlock, newBlock](uint64_t bytes) {
                     return KivUncheckedRealloc(owner, bytes, oldBlock, newBlock, nullptr, 0);
                   });
}

// Short heaps keep their blocks, so that these end with their owner.
uint32_t MoveShort(const Checked& old, uint64_t newSizeBytes, void** newBlock, const Place& place) {
  auto* owner = const_cast<AdShortHeapOwner*>(old.owner);
  return adMemShortHeapRealloc(owner, static_cast<int32_t>(newSizeBytes), old.block.payload,
                               newBlock, place.file, place.line);
}

bool StaysShort(const Checked& old, uint64_t newSizeBytes) {
  return old.owner != nullptr && newSizeBytes <= memorySettings.largestBlockBytes;
}

}  // namespace

void kiv::checked::FreeMoved(void* payload, const Place& place) {
  static_cast<void>(Retire(payload, FreeBy::kFree, place));
}

uint32_t adMallocPolicy(void* owner, uint64_t sizeBytes, void** block, uint8_t policy,
                        const char* file, uint32_t line) {
  return MakeBlock(sizeBytes, block, FamilyNow(), MakePlace(file, line), [=](uint64_t bytes) {
    return KivUncheckedMallocPolicy(owner, bytes, block, policy, file, line);
  });
}

uint32_t adMalloc(void* owner, uint64_t sizeBytes, void** block, const char* file, uint32_t line) {
  return adMallocPolicy(owner, sizeBytes, block, AD_POLICY_FULL, file, line);
}

uint32_t adMallocAligned(void* owner, uint64_t alignment, uint64_t sizeBytes, void** block,
                         const char* file, uint32_t line) {
  return MakeBlock(sizeBytes, block, FamilyNow(), MakePlace(file, line), [=](uint64_t bytes) {
    return KivUncheckedMallocAligned(owner, alignment, bytes, block, file, line);
  });
}

uint32_t adRealloc(void* owner, uint64_t newSizeBytes, void* oldBlock, void** newBlock,
                   const char* file, uint32_t line) {
  if (oldBlock == nullptr) return adMalloc(owner, newSizeBytes, newBlock, file, line);
  if (newSizeBytes == 0) return KIV_ST_ARGUMENT;
  if (IsUnchecked()) {
    return KivUncheckedRealloc(owner, newSizeBytes, oldBlock, newBlock, file, line);
  }
  const Place place = MakePlace(file, line);
  const Checked old = CheckBlock(oldBlock, FreeBy::kFree);
  if (old.misuse == Misuse::kUnknownBlock && !InThreadHeapMode()) {
    return MoveUnknown(owner, newSizeBytes, oldBlock, newBlock, place);
  }
  ReportMisuse(old, oldBlock, place);
  if (StaysShort(old, newSizeBytes)) return MoveShort(old, newSizeBytes, newBlock, place);
  return Move(owner, newSizeBytes, old.block, newBlock, place);
}

uint32_t adCalloc(void* owner, int32_t count, uint64_t elementSizeBytes, void** block,
                  uint8_t policy) {
  // A size that is 0, or that no product can be, fails in the unchecked operation.
  if (count <= 0 || elementSizeBytes == 0 ||
      elementSizeBytes > UINT64_MAX / static_cast<uint32_t>(count)) {
    return KivUncheckedCalloc(owner, count, elementSizeBytes, block, policy);
  }
  const uint64_t sizeBytes = static_cast<uint32_t>(count) * elementSizeBytes;
  return MakeBlock(sizeBytes, block, FamilyNow(), MakePlace("adCalloc", 0), [=](uint64_t bytes) {
    return KivUncheckedCalloc(owner, 1, bytes, block, policy);
  });
}

uint32_t adFree(void* block, const char* file, uint32_t line) {
  if (block == nullptr || NoFreeSwitchIsOn() || IsUnchecked() ||
      !Retire(block, FreeBy::kFree, MakePlace(file, line))) {
    return KivUncheckedFree(block, file, line);
  }
  return KIV_ST_OK;
}

uint32_t adFreeAligned(void* block, uint8_t alignedOrigin) {
  const bool isRaw = alignedOrigin != 0 && !InThreadHeapMode();
  if (block == nullptr || IsUnchecked() ||
      !Retire(block, isRaw ? FreeBy::kAlignedOrigin : FreeBy::kFree,
              MakePlace("adFreeAligned", 0))) {
    return KivUncheckedFreeAligned(block, alignedOrigin);
  }
  return KIV_ST_OK;
}

uint32_t adMallocOnNode(void* ignored, uint64_t sizeBytes, uint64_t* size, void** block) {
  if (sizeBytes == 0) return KIV_ST_ARGUMENT;
  *size = sizeBytes;
  return MakeBlock(sizeBytes, block, Family::kNode, MakePlace("adMallocOnNode", 0),
                   [=](uint64_t bytes) {
                     uint64_t withTail = 0;
                     return KivUncheckedMallocOnNode(ignored, bytes, &withTail, block);
                   });
}

// A block that is not known is one of the runtime, in every mode.
uint32_t adFreeOnNode(uint64_t ignored, uint64_t alsoIgnored, void* block) {
  if (block == nullptr) return KIV_ST_ARGUMENT;
  const Place place = MakePlace("adFreeOnNode", 0);
  BlockList leaving = {};
  const Checked checked = RetireBlock(block, FreeBy::kNode, place, &leaving);
  if (checked.misuse == Misuse::kUnknownBlock) {
    return KivUncheckedFreeOnNode(ignored, alsoIgnored, block);
  }
  ReportMisuse(checked, block, place);
  GiveBack(&leaving);
  return KIV_ST_OK;
}
