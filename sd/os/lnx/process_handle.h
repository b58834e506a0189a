// The handle of a process is its identifier, or -1 for the calling process.
#ifndef KIV_OS_LNX_PROCESS_HANDLE_H
#define KIV_OS_LNX_PROCESS_HANDLE_H

#include <sys/types.h>

namespace kiv::os {

constexpr pid_t kNoProcess = 0;

// kNoProcess for a number that names no single process: 0 and negative numbers would mean groups.
pid_t IdentifierOf(const void* handle);

}  // namespace kiv::os

#endif
