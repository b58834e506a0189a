#include "checked/misuse.h"

#include "checked/report.h"
#include "checked/unchecked.h"
#include "memheap/policy_block.h"
#include "memheap/switches.h"
#include "os/heap.h"
#include "os/thread.h"

namespace kiv::checked {
namespace {

#define KIV_BLOCK_TEXT "block %p of %llu bytes, made at %s:%u"
#define KIV_BLOCK_VALUES(block)                                                                  \
  static_cast<const void*>((block).payload), static_cast<unsigned long long>((block).sizeBytes), \
      (block).made.file, (block).made.line

const char* OperationOf(Family family) {
  return family == Family::kNode ? "adMallocOnNode" : "adMalloc or its relatives";
}

const char* ModeOf(const BlockRecord& record) {
  return record.family == Family::kPlain ? "plain mode" : "thread-heap mode";
}

void ReportWrite(Misuse misuse, const BlockRecord& block, const Place& place) {
  switch (misuse) {
    case Misuse::kWrittenBefore:
      Fail(place, "write before the start of " KIV_BLOCK_TEXT, KIV_BLOCK_VALUES(block));
    case Misuse::kWrittenPast:
      Fail(place, "write past the end of " KIV_BLOCK_TEXT, KIV_BLOCK_VALUES(block));
    case Misuse::kWrittenAfterFree:
      Fail(place, "write to a freed block: " KIV_BLOCK_TEXT ", freed at %s:%u",
           KIV_BLOCK_VALUES(block), block.freed.file, block.freed.line);
    default:
      break;
  }
}

void ReportFree(const Checked& checked, const Place& place) {
  const BlockRecord& block = checked.block;
  switch (checked.misuse) {
    case Misuse::kFreedTwice:
      Fail(place, "block freed twice: " KIV_BLOCK_TEXT ", freed at %s:%u", KIV_BLOCK_VALUES(block),
           block.freed.file, block.freed.line);
    case Misuse::kWrongFamily:
      Fail(place, "block freed by another family: " KIV_BLOCK_TEXT " by %s",
           KIV_BLOCK_VALUES(block), OperationOf(block.family));
    case Misuse::kWrongMode:
      Fail(place, "block freed in another mode: " KIV_BLOCK_TEXT " in %s", KIV_BLOCK_VALUES(block),
           ModeOf(block));
    case Misuse::kWrongHeader:
      Fail(place, "block with a header freed as one without: " KIV_BLOCK_TEXT,
           KIV_BLOCK_VALUES(block));
    case Misuse::kWrongThread:
      Fail(place, "block of a short heap freed by thread %u, used by thread %u: " KIV_BLOCK_TEXT,
           os::CurrentThreadId(), checked.ownerThread, KIV_BLOCK_VALUES(block));
    default:
      break;
  }
}

// To where the block came from. The modes are those of its making: a change of the mode empties the
// quarantine first.
void FreeUnchecked(const BlockRecord& block) {
  switch (block.family) {
    case Family::kNode:
      static_cast<void>(KivUncheckedFreeOnNode(0, 0, block.payload));
      return;
    case Family::kPlain:
      if (!block.hasHeader) return os::RawFree(block.payload);
      if (!ManagerSwitchIsOn()) return FreePolicyBlock(block.payload);
      break;
    default:
      break;
  }
  // Ignores the no-free switch: the block was freed before the switch was on.
  static_cast<void>(KivUncheckedFreeAligned(block.payload, 0));
}

}  // namespace

void ReportMisuse(const Checked& checked, const void* payload, const Place& place) {
  if (checked.misuse == Misuse::kUnknownBlock) ReportUnknownBlock(payload, place);
  ReportWrite(checked.misuse, checked.block, place);
  ReportFree(checked, place);
}

void ReportUnknownBlock(const void* payload, const Place& place) {
  Fail(place, "block %p is not of the library, or was freed long ago", payload);
}

void ReportDamage(const BlockRecord& record) {
  const Misuse misuse = MisuseOf(DamageOf(record));
  ReportWrite(misuse, record, record.state == State::kFreed ? record.freed : record.made);
}

void GiveBack(BlockList* leaving) {
  while (BlockRecord* record = TakeFirst(leaving)) {
    ReportDamage(*record);
    FreeUnchecked(*record);
    ForgetRecord(record);
  }
}

void Drop(BlockList* blocks) {
  while (BlockRecord* record = TakeFirst(blocks)) {
    ReportDamage(*record);
    ForgetRecord(record);
  }
}

}  // namespace kiv::checked
