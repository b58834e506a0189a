// Drives: the mounted file systems that hold the machine's data, numbered in the order of mounting.
//
// Drive 1 is the root. The others have a block device, are on another machine, or are of a type that
// spreads over several devices. File systems that the kernel makes itself (proc, sysfs, tmpfs) and
// the read-only images of packages are no drives. A device that is mounted more than once is one
// drive, at its first mount; a file system mounted over another one takes its number.
//
// `root` is the folder that all paths begin with: empty, except in tests.
#ifndef KIV_OS_LNX_MOUNTS_H
#define KIV_OS_LNX_MOUNTS_H

#include <limits.h>

#include <cstdint>

#include "os/volumes.h"

namespace kiv::os {

constexpr uint32_t kMaxDrives = 32;

struct Mount {
  uint32_t major;  // of the device; 0 if the file system is not on one block device
  uint32_t minor;
  char point[PATH_MAX];
  char type[64];  // of the file system
  char source[512];
};

uint32_t CountDrives(const char* root);

// False if there is no drive of this number.
bool FindDrive(const char* root, uint32_t drive, Mount* found);

// The drive that holds an absolute path: that with the longest mount point above it.
uint32_t DriveOfPath(const char* root, const char* path);

DriveType TypeOfMount(const char* root, const Mount& mount);

}  // namespace kiv::os

#endif
