#include "os/volumes.h"

#include "support/lnx/seam_import.h"
#include "support/system_interface.h"

namespace kiv::test {

using os::DiskSpace;
using os::DriveType;
using os::Result;
using os::ValueResult;

KIV_SEAM_PRIMITIVE(DriveMask, "_ZN3kiv2os9DriveMaskEv")
KIV_SEAM_PRIMITIVE(CurrentDrive, "_ZN3kiv2os12CurrentDriveEv")
KIV_SEAM_PRIMITIVE(VolumeNames, "_ZN3kiv2os11VolumeNamesEPKcPcjS3_j")
KIV_SEAM_PRIMITIVE(FreeDiskSpace, "_ZN3kiv2os13FreeDiskSpaceEPKc")
KIV_SEAM_PRIMITIVE(TypeOfDrive, "_ZN3kiv2os11TypeOfDriveEPKc")

namespace {

DWORD GetLogicalDrives() { return ToValue(RealDriveMask()); }

int32_t _getdrive() { return static_cast<int32_t>(RealCurrentDrive()); }

BOOL GetVolumeInformationA(const char* root, char* label, DWORD labelBytes, DWORD*, DWORD*, DWORD*,
                           char* fileSystem, DWORD fileSystemBytes) {
  return ToBool(RealVolumeNames(root, label, labelBytes, fileSystem, fileSystemBytes));
}

BOOL GetDiskFreeSpaceA(const char* root, DWORD* sectorsPerCluster, DWORD* bytesPerSector,
                       DWORD* freeClusters, DWORD* totalClusters) {
  const ValueResult<DiskSpace> space = RealFreeDiskSpace(root);
  *sectorsPerCluster = space.value.sectorsPerCluster;
  *bytesPerSector = space.value.bytesPerSector;
  *freeClusters = space.value.freeClusters;
  *totalClusters = space.value.totalClusters;
  return ToBool({space.ok, space.error});
}

UINT GetDriveTypeA(const char* root) { return static_cast<UINT>(RealTypeOfDrive(root)); }

SeamImport<decltype(GetLogicalDrives)> getLogicalDrives("GetLogicalDrives", GetLogicalDrives);
SeamImport<decltype(_getdrive)> getDrive("_getdrive", _getdrive);
SeamImport<decltype(GetVolumeInformationA)> getVolumeInformation("GetVolumeInformationA",
                                                                 GetVolumeInformationA);
SeamImport<decltype(GetDiskFreeSpaceA)> getDiskFreeSpace("GetDiskFreeSpaceA", GetDiskFreeSpaceA);
SeamImport<decltype(GetDriveTypeA)> getDriveType("GetDriveTypeA", GetDriveTypeA);

}  // namespace

ValueResult<uint32_t> WrapDriveMask() {
  const DWORD mask = getLogicalDrives.Call();
  if (mask == 0) return {false, SeamLastError(), 0};
  return {true, 0, mask};
}

uint32_t WrapCurrentDrive() { return static_cast<uint32_t>(getDrive.Call()); }

Result WrapVolumeNames(const char* root, char* label, uint32_t labelBytes, char* fileSystem,
                       uint32_t fileSystemBytes) {
  DWORD* const none = nullptr;
  return FromBool(getVolumeInformation.Call(root, label, labelBytes, none, none, none, fileSystem,
                                            fileSystemBytes));
}

ValueResult<DiskSpace> WrapFreeDiskSpace(const char* root) {
  DiskSpace space = {};
  const Result result =
      FromBool(getDiskFreeSpace.Call(root, &space.sectorsPerCluster, &space.bytesPerSector,
                                     &space.freeClusters, &space.totalClusters));
  return {result.ok, result.error, space};
}

DriveType WrapTypeOfDrive(const char* root) {
  return static_cast<DriveType>(getDriveType.Call(root));
}

}  // namespace kiv::test
