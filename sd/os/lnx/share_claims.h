// Share modes: what the users of a file do with it, and what they deny to others.
//
// The kernel has no share modes. Each open file of the library therefore claims what it does and
// what it denies by locks on bytes far behind any data. The locks belong to the open file
// description: they end with its last descriptor, also when the process is killed, and they work
// between the files of one process. Programs that do not use the library neither see nor set them.
#ifndef KIV_OS_LNX_SHARE_CLAIMS_H
#define KIV_OS_LNX_SHARE_CLAIMS_H

#include <cstdint>

#include "os/os.h"

namespace kiv::os {

// Rights to a file; a set of them is a sum.
constexpr uint32_t kRightRead = 1;
constexpr uint32_t kRightWrite = 2;

// The error of a claim that conflicts with the claims of others.
extern const uint32_t kErrorConflict;

// Claims the rights in `uses`, and denies others the rights in `denies`. On failure nothing is
// claimed. On a file system without such locks, only a claim that denies something fails.
Result ClaimFile(int descriptor, uint32_t uses, uint32_t denies);

}  // namespace kiv::os

#endif
