// The last look at all blocks, when thread heaps end or the library is unloaded.
#ifndef KIV_CHECKED_INSPECTION_H
#define KIV_CHECKED_INSPECTION_H

#include "checked/block_record.h"
#include "checked/leaks.h"

namespace kiv::checked {

// Found with the gate held, and reported without it.
struct Inspection {
  LeakList leaks;
  BlockRecord damaged;  // the first one
  bool isDamaged;
};

void LookForDamage(const BlockRecord& record, Inspection* inspection);

// Ends the process if a block is damaged; otherwise writes the list of leaks.
void ReportInspection(Inspection* inspection, const char* when);

}  // namespace kiv::checked

#endif
