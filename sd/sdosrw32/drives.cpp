// Logical drives and the volumes behind them.
#include <bit>
#include <cstdio>

#include "kivsdu/memory.h"
#include "kivsdu/system.h"
#include "lease_guard.h"
#include "os/error_boxes.h"
#include "os/volumes.h"
#include "report.h"
#include "require.h"
#include "sdosrw32/kibibytes.h"
#include "text.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdosrw32";
constexpr uint32_t kLineDrives = 412;
constexpr uint32_t kLineDriveOrdinal = 460;
constexpr uint32_t kLineDriveInfo = 461;

constexpr size_t kMaxNameCharacters = 60;
constexpr uint32_t kFileSystemBytes = 61;  // size passed to the system; the field is larger
constexpr char kUnknown[] = "Unknown";

// Indexed by KIV_DRIVE_ value.
constexpr const char* kTypeNames[] = {kUnknown, "Removable", "Fixed", "RAM", "Remote"};

uint32_t TypeNumber(os::DriveType type) {
  switch (type) {
    case os::DriveType::kRemovable:
      return KIV_DRIVE_REMOVABLE;
    case os::DriveType::kFixed:
      return KIV_DRIVE_FIXED;
    case os::DriveType::kRemote:
      return KIV_DRIVE_REMOTE;
    case os::DriveType::kRamDisk:
      return KIV_DRIVE_RAM;
    case os::DriveType::kUnknown:
    case os::DriveType::kNoRootDirectory:
    case os::DriveType::kOptical:
      break;
  }
  return KIV_DRIVE_UNKNOWN;
}

// For a drive without a medium the sizes stay zero; the names are as the system left them.
void FillVolume(const char* root, KivSdDriveInfo* info) {
  static_cast<void>(
      os::VolumeNames(root, info->label, sizeof info->label, info->fileSystem, kFileSystemBytes));
  const os::ValueResult<os::DiskSpace> space = os::FreeDiskSpace(root);
  if (!space.ok) return;
  const uint64_t clusterBytes =
      static_cast<uint64_t>(space.value.sectorsPerCluster) * space.value.bytesPerSector;
  info->totalKiB = ClampedKiB(space.value.totalClusters * clusterBytes);
  info->freeKiB = ClampedKiB(space.value.freeClusters * clusterBytes);
  info->usedKiB = info->totalKiB - info->freeKiB;
}

uint32_t FillDrive(const char* root, KivSdDriveInfo* info) {
  FillVolume(root, info);
  const os::DriveType type = os::TypeOfDrive(root);
  if (type == os::DriveType::kNoRootDirectory) return KIV_ST_DRIVE_INFO;
  info->type = TypeNumber(type);
  CopyText(info->typeName, kMaxNameCharacters, kTypeNames[info->type]);
  if (info->fileSystem[0] == '\0') CopyText(info->fileSystem, kMaxNameCharacters, kUnknown);
  return KIV_ST_OK;
}

}  // namespace

uint32_t KivSdDrivesGet(KivSdContext* ctx, KivSdDrives* drives) {
  RunLeaseGuard();
  Require(drives != KIV_NULL, "pDrives != KIV_NULL", kSource, kLineDrives);
  static_cast<void>(KivSdMemClear(nullptr, drives, sizeof *drives));
  drives->current = os::CurrentDrive();
  const os::ValueResult<uint32_t> mask = os::DriveMask();
  if (!mask.ok) return Report(ctx, KIV_ST_DRIVES, mask.error);
  drives->mask = mask.value;
  drives->count = static_cast<uint32_t>(std::popcount(mask.value));
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdDriveInfoGet(KivSdContext* ctx, uint32_t ordinal, KivSdDriveInfo* info) {
  RunLeaseGuard();
  Require(ordinal >= 1 && ordinal <= KIV_DRIVES_MAX,
          "ulOrdinal >= 1 && ulOrdinal <= KIV_DRIVES_MAX", kSource, kLineDriveOrdinal);
  Require(info != KIV_NULL, "pDriveInfo != KIV_NULL", kSource, kLineDriveInfo);
  static_cast<void>(KivSdMemClear(nullptr, info, sizeof *info));
  info->ordinal = ordinal;
  info->name[0] = DriveLetter(ordinal);

  char root[sizeof "A:\\"];
  std::sprintf(root, "%c:%c", info->name[0], '\\');
  // Without this, an empty removable drive shows an error box on the server and waits for a user.
  os::SetErrorBoxes(os::kErrorBoxesHidden);
  const uint32_t status = FillDrive(root, info);
  // Compatibility: error boxes are shown afterwards, whatever the mode was before. Hosts expect
  // this mode after the call.
  os::SetErrorBoxes(os::kErrorBoxesShown);
  return Report(ctx, status);
}
