// The checked unloading of the library.
#include "checked/block_registry.h"
#include "checked/inspection.h"
#include "checked/unchecked.h"

using namespace kiv::checked;

namespace {

// A live block of plain mode is not read: the host may have given it to the runtime's free.
void InspectUnloaded(BlockRecord* record, void* context) {
  auto* inspection = static_cast<Inspection*>(context);
  if (record->state == State::kLive) {
    AddLeak(&inspection->leaks, record);
  } else {
    LookForDamage(*record, inspection);
  }
}

}  // namespace

void kiv::LibraryUnloaded(void* module) {
  Inspection inspection = {};
  VisitAllAtUnload(InspectUnloaded, &inspection);
  ReportInspection(&inspection, "when the library was unloaded");
  UncheckedLibraryUnloaded(module);
}
