// Reports of misuse: the library's assertion, whose text names all places.
#ifndef KIV_CHECKED_REPORT_H
#define KIV_CHECKED_REPORT_H

#include "checked/place.h"
#include "compiler.h"

namespace kiv::checked {

// Where the checks report from if the caller passed no source position.
constexpr char kSource[] = "sd/checked";

// Ends the process through the runtime's assertion, which shows the formatted text and the place of
// the call that found the misuse. Call it without the gate: a host's handler may allocate.
KIV_FORMAT(2, 3) [[noreturn]] void Fail(const Place& place, const char* format, ...);

}  // namespace kiv::checked

#endif
