// The outcomes of waits that the kinds of objects share.
#ifndef KIV_OS_LNX_WAITS_H
#define KIV_OS_LNX_WAITS_H

#include <cerrno>

#include "os/kernel_objects.h"

namespace kiv::os {

constexpr uint32_t kWaitFailed = 0xFFFFFFFF;

constexpr Wait kSignalledWait = {kWaitSignalled, 0};
constexpr Wait kTimedOutWait = {kWaitTimedOut, ETIMEDOUT};

constexpr Wait FailedWait(int error) { return {kWaitFailed, static_cast<uint32_t>(error)}; }

}  // namespace kiv::os

#endif
