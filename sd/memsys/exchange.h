// What happens when a slot's heap has no room: it changes places with a spare heap, or a new heap
// takes its place.
#ifndef KIV_MEMSYS_EXCHANGE_H
#define KIV_MEMSYS_EXCHANGE_H

#include <cstdint>

#include "memheap/heap.h"

namespace kiv {

// A payload wanted in a slot.
struct SlotRequest {
  uint32_t slot;
  uint32_t payloadBytes;
  uint32_t bin;  // of the payload; for probes
};

enum class ExchangeOutcome : uint8_t {
  kServed,  // the payload comes from the slot's new heap
  kRetry,   // another thread exchanged the slot meanwhile
  kNoHeap,  // no spare heap has room, and there is no budget or memory for another
};

struct Exchanged {
  ExchangeOutcome outcome;
  void* payload;  // null unless served
};

// `dry` is the slot's heap that could not serve the request.
Exchanged ExchangeHeap(const SlotRequest& request, Heap* dry);

// An accounted arena, made a locked heap with the index of a spare one. Null without memory.
Heap* MakeThreadHeap();

// ---- The spare ring and the budget of heaps ----

// Empties the ring and sets the budget: `heaps` in all, of which `made` are about to be made. At
// least those are allowed.
void PrepareSpareHeaps(int32_t heaps, int32_t made);

// At the tail of the ring.
void AddSpareHeap(Heap* heap);

}  // namespace kiv

#endif
