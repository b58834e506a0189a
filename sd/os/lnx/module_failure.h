// The loader's text for a thread's last failure. The loader itself keeps it only until its next call.
#ifndef KIV_OS_LNX_MODULE_FAILURE_H
#define KIV_OS_LNX_MODULE_FAILURE_H

#include <cstdint>

namespace kiv::os {

// Keeps a text for this thread. Without memory nothing is kept.
void KeepFailure(uint32_t error, const char* text);
void ForgetFailure();

// The kept text of this error; null if there is none.
const char* KeptText(uint32_t error);

}  // namespace kiv::os

#endif
