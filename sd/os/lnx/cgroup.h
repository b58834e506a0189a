// The limits that control groups set for this process: version 2, version 1, and both together. The
// limit of a group also holds for all groups below it, so every level up to the root is read.
//
// `root` is the folder that the paths of /proc and of the mounts begin with: empty, except in
// tests.
#ifndef KIV_OS_LNX_CGROUP_H
#define KIV_OS_LNX_CGROUP_H

#include <cstdint>

#include "os/machine.h"

namespace kiv::os {

// The number of processors whose time the groups grant, rounded up; UINT32_MAX without a limit.
uint32_t GroupProcessors(const char* root);

// Reduces physical memory to what the groups leave. Memory that the kernel can take back from its
// file cache counts as available.
void LimitMemoryByGroup(const char* root, MemoryStatus* memory);

// Reduces paging space to what the groups leave. Version 1 has no limit of paging space alone.
void LimitPagingByGroup(const char* root, MemoryStatus* paging);

}  // namespace kiv::os

#endif
