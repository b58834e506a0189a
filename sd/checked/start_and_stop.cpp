// The checked start and stop of thread heaps. A change of the mode empties the quarantine first,
// because one mode cannot free the blocks of the other.
#include "checked/inspection.h"
#include "checked/misuse.h"
#include "checked/unchecked.h"
#include "memsys/thread_heaps.h"

using namespace kiv;
using namespace kiv::checked;

namespace {

void InspectHeapBlock(BlockRecord* record, void* context) {
  if (record->family != Family::kHeaps && record->family != Family::kShort) return;
  auto* inspection = static_cast<Inspection*>(context);
  LookForDamage(*record, inspection);
  AddLeak(&inspection->leaks, record);
}

void FreeQuarantine() {
  BlockList leaving = {};
  EmptyQuarantine(&leaving);
  GiveBack(&leaving);
}

// From now on no operation can reach the heaps or the blocks in them.
void InspectHeaps() {
  Inspection inspection = {};
  VisitLive(InspectHeapBlock, &inspection);
  ReportInspection(&inspection, "when thread heaps ended");
}

}  // namespace

uint32_t adMemThreadHeapInit(uint32_t enable, AdMessageFunction messages, const char* suffix,
                             uint32_t force) {
  FreeQuarantine();
  const bool hadHeaps = InThreadHeapMode();
  const uint32_t status = KivUncheckedThreadHeapInit(enable, messages, suffix, force);
  if (hadHeaps) InspectHeaps();
  return status;
}

int32_t adMemThreadHeapTerm() {
  FreeQuarantine();
  const bool hadHeaps = InThreadHeapMode();
  const int32_t count = KivUncheckedThreadHeapTerm();
  if (hadHeaps) InspectHeaps();
  return count;
}
