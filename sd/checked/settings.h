// The environment variables of the checks, read when they are first needed.
#ifndef KIV_CHECKED_SETTINGS_H
#define KIV_CHECKED_SETTINGS_H

#include <cstdint>

namespace kiv::checked {

// KIV_CHECKED_QUARANTINE: how many freed blocks are kept back; 0 keeps none.
uint64_t QuarantineBlocks();

// KIV_CHECKED_LEAKS: "assert" ends the process after a list of blocks that were never freed.
bool LeaksAreFatal();

}  // namespace kiv::checked

#endif
