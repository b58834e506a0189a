#include "checked/inspection.h"

#include "checked/misuse.h"

namespace kiv::checked {

void LookForDamage(const BlockRecord& record, Inspection* inspection) {
  if (inspection->isDamaged || DamageOf(record) == Damage::kNone) return;
  inspection->damaged = record;
  inspection->isDamaged = true;
}

void ReportInspection(Inspection* inspection, const char* when) {
  if (inspection->isDamaged) ReportDamage(inspection->damaged);
  WriteLeaks(&inspection->leaks, when);
}

}  // namespace kiv::checked
