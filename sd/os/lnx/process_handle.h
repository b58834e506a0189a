// The handle of a process is its identifier, or -1 for the calling process.
#ifndef KIV_OS_LNX_PROCESS_HANDLE_H
#define KIV_OS_LNX_PROCESS_HANDLE_H

#include <sys/types.h>

namespace kiv::os {

constexpr pid_t kNoProcess = 0;

// kNoProcess for a number that names no process that a host may end, rank or limit: 0 and negative
// numbers would mean groups of processes, and 1 the ancestor of all.
pid_t ProcessOf(const void* handle);

}  // namespace kiv::os

#endif
