// The checked operations of short heaps.
#include <algorithm>
#include <cstring>

#include "checked/making.h"
#include "checked/unchecked.h"
#include "kivsdu/shortheap.h"

using namespace kiv;
using namespace kiv::checked;

namespace {

uint32_t MakeShortBlock(AdShortHeapOwner* owner, int32_t sizeBytes, void** block,
                        const Place& made) {
  const uint64_t asked = sizeBytes < 1 ? 0 : static_cast<uint64_t>(sizeBytes);
  const uint32_t tailBytes = TailOf(asked, INT32_MAX);
  const int32_t bytes = sizeBytes + static_cast<int32_t>(tailBytes);
  const uint32_t status = MakeWithQuarantine(asked, [=](uint64_t) {
    return KivUncheckedShortHeapMalloc(owner, bytes, block, nullptr, 0);
  });
  if (status != KIV_ST_OK) return status;
  const NewBlock making = {*block, asked, tailBytes, Family::kShort, made};
  AddShortBlock(making, owner);
  return status;
}

uint32_t MoveToOwner(AdShortHeapOwner* owner, int32_t newSizeBytes, const BlockRecord& old,
                     void** newBlock, const Place& place) {
  const uint32_t status = MakeShortBlock(owner, newSizeBytes, newBlock, old.made);
  if (status != KIV_ST_OK) return status;
  std::memcpy(*newBlock, old.payload, std::min(old.sizeBytes, static_cast<uint64_t>(newSizeBytes)));
  FreeMoved(old.payload, place);
  return status;
}

}  // namespace

void adMemShortHeapInit(AdShortHeapOwner* owner) { KivUncheckedShortHeapInit(owner); }

uint32_t adMemShortHeapMalloc(AdShortHeapOwner* owner, int32_t sizeBytes, void** block,
                              const char* file, uint32_t line) {
  const Place made = MakePlace(file, line);
  if (InThreadHeapMode()) return MakeShortBlock(owner, sizeBytes, block, made);
  // In plain mode only a large request is served, as one of adMalloc.
  const uint64_t asked = sizeBytes < 1 ? 0 : static_cast<uint64_t>(sizeBytes);
  return MakeBlock(asked, block, Family::kPlain, made, [=](uint64_t bytes) {
    return KivUncheckedShortHeapMalloc(
        owner, static_cast<int32_t>(std::min<uint64_t>(bytes, INT32_MAX)), block, nullptr, 0);
  });
}

uint32_t adMemShortHeapRealloc(AdShortHeapOwner* owner, int32_t newSizeBytes, void* oldBlock,
                               void** newBlock, const char* file, uint32_t line) {
  if (oldBlock == nullptr) return adMemShortHeapMalloc(owner, newSizeBytes, newBlock, file, line);
  if (newSizeBytes < 1) return KIV_ST_ARGUMENT;
  if (!InThreadHeapMode()) {
    return adRealloc(owner, static_cast<uint32_t>(newSizeBytes), oldBlock, newBlock, file, line);
  }
  const Place place = MakePlace(file, line);
  const Checked old = CheckBlock(oldBlock, FreeBy::kFree);
  ReportMisuse(old, oldBlock, place);
  return MoveToOwner(owner, newSizeBytes, old.block, newBlock, place);
}

void adMemShortHeapTerm(AdShortHeapOwner* owner) {
  if (InThreadHeapMode()) {
    BlockList live = {};
    BlockList quarantine = {};
    TakeOwnersBlocks(owner, &live, &quarantine);
    Drop(&live);
    Drop(&quarantine);
  }
  KivUncheckedShortHeapTerm(owner);
}
