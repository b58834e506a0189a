// Turns what the registry found into reports, and gives blocks back to the unchecked operations.
#ifndef KIV_CHECKED_MISUSE_H
#define KIV_CHECKED_MISUSE_H

#include "checked/block_registry.h"

namespace kiv::checked {

// Reports the misuse, if there is one, at the place of the call that found it. Unknown blocks are
// left to the caller.
void ReportMisuse(const Checked& checked, const void* payload, const Place& place);

[[noreturn]] void ReportUnknownBlock(const void* payload, const Place& place);

// Reports damage of a block that no call is about; the place is that of its last call.
void ReportDamage(const BlockRecord& record);

// Checks blocks that left the quarantine, and frees them through the unchecked operations.
void GiveBack(BlockList* leaving);

// Checks blocks that the end of their owner frees, and forgets them.
void Drop(BlockList* blocks);

}  // namespace kiv::checked

#endif
