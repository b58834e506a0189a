// Linux has no drive letters. mounts.h says which mounted file systems are drives and how they are
// numbered.
#include "os/volumes.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "os/lnx/mounts.h"
#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

constexpr char kRoot[] = "";

// The mount of a drive's root, "A:\" for the first.
bool FindMountOf(const char* root, Mount* mount) {
  return FindDrive(kRoot, static_cast<uint32_t>(root[0] - 'A' + 1), mount);
}

// Copies a text, cut to the buffer.
void Store(char* buffer, uint32_t sizeBytes, const char* text) {
  std::snprintf(buffer, sizeBytes, "%s", text);
}

}  // namespace

ValueResult<uint32_t> DriveMask() {
  const uint32_t count = CountDrives(kRoot);
  return {true, 0, count == kMaxDrives ? UINT32_MAX : (1u << count) - 1};
}

uint32_t CurrentDrive() {
  char folder[PATH_MAX];
  if (getcwd(folder, sizeof folder) == nullptr) folder[0] = '\0';
  return DriveOfPath(kRoot, folder);
}

// The label is the mount point, by which users know a file system.
Result VolumeNames(const char* root, char* label, uint32_t labelBytes, char* fileSystem,
                   uint32_t fileSystemBytes) {
  Mount mount;
  if (!FindMountOf(root, &mount)) return {false, ENODEV};
  Store(label, labelBytes, mount.point);
  Store(fileSystem, fileSystemBytes, mount.type);
  return {true, 0};
}

// Free clusters are those that an ordinary user may fill. Clusters are counted in larger units if
// their number has more than 32 bits.
ValueResult<DiskSpace> FreeDiskSpace(const char* root) {
  Mount mount;
  if (!FindMountOf(root, &mount)) return {false, ENODEV, {}};
  struct statvfs space = {};
  const Result result = FromErrno(statvfs(mount.point, &space));
  if (!result.ok) return {false, result.error, {}};
  uint32_t shift = 0;
  while (space.f_blocks >> shift > UINT32_MAX) ++shift;
  return {true,
          0,
          {1u << shift, static_cast<uint32_t>(space.f_frsize),
           static_cast<uint32_t>(std::min(space.f_bavail, space.f_blocks) >> shift),
           static_cast<uint32_t>(space.f_blocks >> shift)}};
}

DriveType TypeOfDrive(const char* root) {
  Mount mount;
  if (!FindMountOf(root, &mount)) return DriveType::kNoRootDirectory;
  return TypeOfMount(kRoot, mount);
}

}  // namespace kiv::os
