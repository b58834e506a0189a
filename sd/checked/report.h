// Reports of misuse: the library's assertion, whose text names all places.
#ifndef KIV_CHECKED_REPORT_H
#define KIV_CHECKED_REPORT_H

#include "checked/place.h"

namespace kiv::checked {

// Where the checks report from if the caller passed no source position.
constexpr char kSource[] = "sd/checked";

#if defined(__GNUC__)
#define KIV_CHECKED_FORMAT [[gnu::format(printf, 2, 3)]]
#else
#define KIV_CHECKED_FORMAT
#endif

// Ends the process through the runtime's assertion, which shows the formatted text and the place of
// the call that found the misuse. Call it without the gate: a host's handler may allocate.
KIV_CHECKED_FORMAT [[noreturn]] void Fail(const Place& place, const char* format, ...);

#undef KIV_CHECKED_FORMAT

}  // namespace kiv::checked

#endif
