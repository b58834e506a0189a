// msvcrt.dll: calls with invalid arguments set errno and fail, so a guard has nothing to do.
// ../ucrt/parameter_guard.h is for the runtime that behaves otherwise.
#ifndef KIV_OS_W32_MSVCRT_PARAMETER_GUARD_H
#define KIV_OS_W32_MSVCRT_PARAMETER_GUARD_H

namespace kiv::os {

class [[maybe_unused]] ParameterGuard {};

}  // namespace kiv::os

#endif
