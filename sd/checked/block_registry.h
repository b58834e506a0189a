// All blocks that the checks know: live blocks, and freed ones in quarantine. A freed block stays in
// quarantine, filled with a pattern, until later frees push it out. Only then the unchecked
// operations free it.
//
// The blocks of a short heap's owner have lists of their own, so that only the owner's thread gives
// them back, and so that all of them can be dropped when the owner ends.
//
// Any thread. Each function takes the gate.
#ifndef KIV_CHECKED_BLOCK_REGISTRY_H
#define KIV_CHECKED_BLOCK_REGISTRY_H

#include <cstdint>

#include "checked/block_list.h"
#include "checked/block_record.h"
#include "kivsdu/shortheap.h"

namespace kiv::checked {

struct ShortOwner {
  ShortOwner* next;
  const AdShortHeapOwner* owner;
  uint32_t thread;  // the last one that made a block for the owner
  BlockList live;
  BlockList quarantine;
};

// ---- Making ----

struct NewBlock {
  void* payload;
  uint64_t sizeBytes;
  uint32_t tailBytes;
  Family family;
  Place made;
};

// Guards and adds a block. A known block at the address is forgotten: the host gave it to the
// runtime's free, which plain mode permits.
void AddBlock(const NewBlock& made);

// Adds a block of an owner, who belongs to the calling thread from now on.
void AddShortBlock(const NewBlock& made, const AdShortHeapOwner* owner);

// ---- Finding out ----

enum class Misuse : uint8_t {
  kNone,
  kUnknownBlock,
  kFreedTwice,
  kWrittenBefore,
  kWrittenPast,
  kWrittenAfterFree,
  kWrongFamily,
  kWrongMode,
  kWrongHeader,
  kWrongThread,
};

Misuse MisuseOf(Damage damage);

// The operation that wants to free a block.
enum class FreeBy : uint8_t {
  kFree,
  kAlignedOrigin,  // adFreeAligned in plain mode, for a block that should have no header
  kNode,
};

// What a check found. The record is a copy; it is of zeros if the block is unknown.
struct Checked {
  Misuse misuse;
  BlockRecord block;
  const AdShortHeapOwner* owner;  // of a block of a short heap
  uint32_t ownerThread;
};

// Checks a block that is about to be freed or moved.
Checked CheckBlock(void* payload, FreeBy by);

// ---- Freeing ----

// Checks a block and puts it into quarantine, if nothing is wrong with it. The blocks that leave the
// quarantine for it are added to `leaving`; the caller gives them to GiveBack.
Checked RetireBlock(void* payload, FreeBy by, const Place& freed, BlockList* leaving);

// Takes all blocks out of the quarantine, and out of the calling thread's owners' quarantines.
void EmptyQuarantine(BlockList* leaving);

// Takes all blocks of an owner, and forgets the owner.
void TakeOwnersBlocks(const AdShortHeapOwner* owner, BlockList* live, BlockList* quarantine);

// Frees records of blocks that have been taken out.
void ForgetRecords(BlockList* records);
void ForgetRecord(BlockRecord* record);

// Forgets a live block that the runtime frees.
void ForgetBlock(void* payload);

// ---- Visiting ----

// Calls the function for each live block, with the gate held.
void VisitLive(void (*visit)(BlockRecord* record, void* context), void* context);

// As VisitLive, for each block in quarantine, for the unloading library. Does nothing if another
// thread keeps the gate.
void VisitAllAtUnload(void (*visit)(BlockRecord* record, void* context), void* context);

}  // namespace kiv::checked

#endif
