#include "os/volumes.h"

#include <direct.h>

#include "os/w32/win32.h"

namespace kiv::os {

static_assert(static_cast<UINT>(DriveType::kNoRootDirectory) == DRIVE_NO_ROOT_DIR);
static_assert(static_cast<UINT>(DriveType::kRemovable) == DRIVE_REMOVABLE);
static_assert(static_cast<UINT>(DriveType::kFixed) == DRIVE_FIXED);
static_assert(static_cast<UINT>(DriveType::kRemote) == DRIVE_REMOTE);
static_assert(static_cast<UINT>(DriveType::kOptical) == DRIVE_CDROM);
static_assert(static_cast<UINT>(DriveType::kRamDisk) == DRIVE_RAMDISK);

ValueResult<uint32_t> DriveMask() {
  const DWORD mask = GetLogicalDrives();
  if (mask == 0) return {false, GetLastError(), 0};
  return {true, 0, mask};
}

uint32_t CurrentDrive() { return static_cast<uint32_t>(_getdrive()); }

Result VolumeNames(const char* root, char* label, uint32_t labelBytes, char* fileSystem,
                   uint32_t fileSystemBytes) {
  return FromBool(GetVolumeInformationA(root, label, labelBytes, nullptr, nullptr, nullptr,
                                        fileSystem, fileSystemBytes));
}

ValueResult<DiskSpace> FreeDiskSpace(const char* root) {
  DWORD sectorsPerCluster = 0;
  DWORD bytesPerSector = 0;
  DWORD freeClusters = 0;
  DWORD totalClusters = 0;
  const Result result = FromBool(
      GetDiskFreeSpaceA(root, &sectorsPerCluster, &bytesPerSector, &freeClusters, &totalClusters));
  return {
      result.ok, result.error, {sectorsPerCluster, bytesPerSector, freeClusters, totalClusters}};
}

DriveType TypeOfDrive(const char* root) { return static_cast<DriveType>(GetDriveTypeA(root)); }

}  // namespace kiv::os
