// Makes a block through an unchecked operation, with room for its tail.
#ifndef KIV_CHECKED_MAKING_H
#define KIV_CHECKED_MAKING_H

#include <cstdint>

#include "checked/block_registry.h"
#include "checked/misuse.h"
#include "kivsdu/status.h"
#include "memsys/plain.h"
#include "memsys/thread_heaps.h"

namespace kiv::checked {

// After a fatal exception, plain mode serves requests from the exception stack, which is not
// checked.
inline bool IsUnchecked() { return !InThreadHeapMode() && FatalExceptionOccurred(); }

inline Family FamilyNow() { return InThreadHeapMode() ? Family::kHeaps : Family::kPlain; }

// `most` is the largest size that the operation can be asked for.
inline uint32_t TailOf(uint64_t sizeBytes, uint64_t most) {
  return sizeBytes == 0 || sizeBytes > most - kTailBytes ? 0 : kTailBytes;
}

// Calls make(bytes), once more if there is no memory and the quarantine holds some. Returns its
// status.
template <typename Make>
uint32_t MakeWithQuarantine(uint64_t bytes, const Make& make) {
  const uint32_t status = make(bytes);
  if (status != KIV_ST_OUT_OF_MEMORY) return status;
  BlockList leaving = {};
  EmptyQuarantine(&leaving);
  if (leaving.first == nullptr) return status;
  GiveBack(&leaving);
  return make(bytes);
}

// Calls make(bytes) with the size and the tail, and adds the block that it stores in *block.
template <typename Make>
uint32_t MakeBlock(uint64_t sizeBytes, void** block, Family family, const Place& made,
                   const Make& make) {
  if (IsUnchecked()) return make(sizeBytes);
  const uint32_t tailBytes = TailOf(sizeBytes, UINT64_MAX);
  const uint32_t status = MakeWithQuarantine(sizeBytes + tailBytes, make);
  if (status == KIV_ST_OK) AddBlock({*block, sizeBytes, tailBytes, family, made});
  return status;
}

// Frees a block that was moved. It is freed even while the no-free switch is on.
void FreeMoved(void* payload, const Place& place);

}  // namespace kiv::checked

#endif
