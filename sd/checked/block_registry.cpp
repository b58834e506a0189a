#include "checked/block_registry.h"

#include "checked/gate.h"
#include "checked/settings.h"
#include "checked/slab.h"
#include "memheap/switches.h"
#include "memsys/thread_heaps.h"
#include "os/thread.h"

namespace kiv::checked {
namespace {

constexpr uint32_t kBuckets = 1u << 16;
constexpr uint32_t kOwnerBuckets = 1u << 10;
constexpr uint32_t kUnloadAttempts = 1000;

// Limits of a quarantine besides QuarantineBlocks(). A larger block goes through it at once.
constexpr uint64_t kQuarantineBytes = 16u << 20;
constexpr uint64_t kOwnerQuarantineBytes = 64u << 10;  // short heaps are small

struct Registry {
  BlockRecord* buckets[kBuckets];
  ShortOwner* owners[kOwnerBuckets];
  BlockList live;
  BlockList quarantine;
  Slab<BlockRecord> records;
  Slab<ShortOwner> ownerRecords;
};

// The gate guards it.
constinit Registry registry = {};

uint32_t HashOf(const void* address, uint32_t buckets) {
  const uint64_t mixed = (reinterpret_cast<uint64_t>(address) >> 3) * 0x9E3779B97F4A7C15;
  return static_cast<uint32_t>(mixed >> 40) % buckets;
}

// ---- The table ----

BlockRecord** LinkTo(const void* payload) {
  BlockRecord** link = &registry.buckets[HashOf(payload, kBuckets)];
  while (*link != nullptr && (*link)->payload != payload) link = &(*link)->nextInTable;
  return link;
}

void RemoveFromTable(const BlockRecord& record) { *LinkTo(record.payload) = record.nextInTable; }

BlockList* LiveListOf(const BlockRecord& record) {
  return record.owner != nullptr ? &record.owner->live : &registry.live;
}

BlockList* QuarantineOf(const BlockRecord& record) {
  return record.owner != nullptr ? &record.owner->quarantine : &registry.quarantine;
}

void Forget(BlockRecord* record) {
  Remove(record->state == State::kLive ? LiveListOf(*record) : QuarantineOf(*record), record);
  RemoveFromTable(*record);
  registry.records.Give(record);
}

// A block without a record, for want of memory, is unknown later.
void Add(const NewBlock& made, ShortOwner* owner) {
  if (BlockRecord* stale = *LinkTo(made.payload)) Forget(stale);
  BlockRecord* record = registry.records.Take();
  if (record == nullptr) return;
  record->payload = static_cast<unsigned char*>(made.payload);
  record->sizeBytes = made.sizeBytes;
  record->tailBytes = made.tailBytes;
  record->family = made.family;
  record->made = made.made;
  record->owner = owner;
  record->hasHeader = made.family == Family::kPlain && ManagerSwitchIsOn();
  Guard(record);
  *LinkTo(made.payload) = record;
  Append(LiveListOf(*record), record);
}

// ---- Owners ----

ShortOwner** LinkToOwner(const AdShortHeapOwner* owner) {
  ShortOwner** link = &registry.owners[HashOf(owner, kOwnerBuckets)];
  while (*link != nullptr && (*link)->owner != owner) link = &(*link)->next;
  return link;
}

ShortOwner* OwnerRecord(const AdShortHeapOwner* owner) {
  ShortOwner** link = LinkToOwner(owner);
  if (*link == nullptr) {
    *link = registry.ownerRecords.Take();
    if (*link != nullptr) (*link)->owner = owner;
  }
  return *link;
}

// ---- Checks ----

Misuse FamilyMisuse(const BlockRecord& record, FreeBy by) {
  if ((by == FreeBy::kNode) != (record.family == Family::kNode)) return Misuse::kWrongFamily;
  if (record.family == Family::kNode) return Misuse::kNone;
  if ((record.family == Family::kPlain) == InThreadHeapMode()) return Misuse::kWrongMode;
  if (record.hasHeader && (by == FreeBy::kAlignedOrigin || !ManagerSwitchIsOn())) {
    return Misuse::kWrongHeader;
  }
  return Misuse::kNone;
}

Misuse Judge(const BlockRecord& record, FreeBy by) {
  if (record.state == State::kFreed) return Misuse::kFreedTwice;
  const Misuse family = FamilyMisuse(record, by);
  if (family != Misuse::kNone) return family;
  if (record.owner != nullptr && record.owner->thread != os::CurrentThreadId()) {
    return Misuse::kWrongThread;
  }
  return MisuseOf(DamageOf(record));
}

Checked Check(const BlockRecord* record, FreeBy by) {
  if (record == nullptr) return {Misuse::kUnknownBlock, {}, nullptr, 0};
  Checked checked = {Judge(*record, by), *record, nullptr, 0};
  if (record->owner != nullptr) {
    checked.owner = record->owner->owner;
    checked.ownerThread = record->owner->thread;
  }
  return checked;
}

// ---- Quarantine ----

void TakeOut(BlockRecord* record, BlockList* leaving) {
  Remove(QuarantineOf(*record), record);
  RemoveFromTable(*record);
  Append(leaving, record);
}

void Shrink(BlockList* quarantine, uint64_t mostBlocks, uint64_t mostBytes, BlockList* leaving) {
  while (quarantine->count > mostBlocks || quarantine->bytes > mostBytes) {
    TakeOut(quarantine->first, leaving);
  }
}

void Quarantine(BlockRecord* record, const Place& freed, BlockList* leaving) {
  Remove(LiveListOf(*record), record);
  record->state = State::kFreed;
  record->freed = freed;
  const uint64_t mostBytes = record->owner != nullptr ? kOwnerQuarantineBytes : kQuarantineBytes;
  BlockList* quarantine = QuarantineOf(*record);
  Append(quarantine, record);
  FillFreed(*record);
  Shrink(quarantine, QuarantineBlocks(), mostBytes, leaving);
}

template <typename Visit>
void ForEachOwner(const Visit& visit) {
  for (ShortOwner* bucket : registry.owners) {
    for (ShortOwner* owner = bucket; owner != nullptr; owner = owner->next) visit(owner);
  }
}

template <typename Visit>
void ForEach(const BlockList& list, const Visit& visit) {
  for (BlockRecord* record = list.first; record != nullptr; record = record->next) visit(record);
}

}  // namespace

Misuse MisuseOf(Damage damage) {
  switch (damage) {
    case Damage::kFront:
      return Misuse::kWrittenBefore;
    case Damage::kTail:
      return Misuse::kWrittenPast;
    case Damage::kFreed:
      return Misuse::kWrittenAfterFree;
    default:
      return Misuse::kNone;
  }
}

void AddBlock(const NewBlock& made) {
  const Gate gate;
  Add(made, nullptr);
}

void AddShortBlock(const NewBlock& made, const AdShortHeapOwner* owner) {
  const Gate gate;
  ShortOwner* record = OwnerRecord(owner);
  if (record == nullptr) return;
  record->thread = os::CurrentThreadId();
  Add(made, record);
}

Checked CheckBlock(void* payload, FreeBy by) {
  const Gate gate;
  return Check(*LinkTo(payload), by);
}

Checked RetireBlock(void* payload, FreeBy by, const Place& freed, BlockList* leaving) {
  const Gate gate;
  BlockRecord* record = *LinkTo(payload);
  const Checked checked = Check(record, by);
  if (checked.misuse == Misuse::kNone) Quarantine(record, freed, leaving);
  return checked;
}

void EmptyQuarantine(BlockList* leaving) {
  const Gate gate;
  Shrink(&registry.quarantine, 0, 0, leaving);
  const uint32_t thread = os::CurrentThreadId();
  ForEachOwner([thread, leaving](ShortOwner* owner) {
    if (owner->thread == thread) Shrink(&owner->quarantine, 0, 0, leaving);
  });
}

void TakeOwnersBlocks(const AdShortHeapOwner* owner, BlockList* live, BlockList* quarantine) {
  const Gate gate;
  ShortOwner** link = LinkToOwner(owner);
  ShortOwner* record = *link;
  if (record == nullptr) return;
  AppendAll(live, &record->live);
  AppendAll(quarantine, &record->quarantine);
  ForEach(*live, [](const BlockRecord* block) { RemoveFromTable(*block); });
  ForEach(*quarantine, [](const BlockRecord* block) { RemoveFromTable(*block); });
  *link = record->next;
  registry.ownerRecords.Give(record);
}

void ForgetRecord(BlockRecord* record) {
  const Gate gate;
  registry.records.Give(record);
}

void ForgetRecords(BlockList* records) {
  while (BlockRecord* record = TakeFirst(records)) ForgetRecord(record);
}

void ForgetBlock(void* payload) {
  const Gate gate;
  if (BlockRecord* record = *LinkTo(payload)) Forget(record);
}

void VisitLive(void (*visit)(BlockRecord* record, void* context), void* context) {
  const Gate gate;
  ForEach(registry.live, [=](BlockRecord* record) { visit(record, context); });
  ForEachOwner([=](const ShortOwner* owner) {
    ForEach(owner->live, [=](BlockRecord* record) { visit(record, context); });
  });
}

void VisitAllAtUnload(void (*visit)(BlockRecord* record, void* context), void* context) {
  const Gate gate(kUnloadAttempts);
  if (!gate.entered()) return;
  ForEach(registry.live, [=](BlockRecord* record) { visit(record, context); });
  ForEach(registry.quarantine, [=](BlockRecord* record) { visit(record, context); });
  ForEachOwner([=](const ShortOwner* owner) {
    ForEach(owner->live, [=](BlockRecord* record) { visit(record, context); });
    ForEach(owner->quarantine, [=](BlockRecord* record) { visit(record, context); });
  });
}

}  // namespace kiv::checked
