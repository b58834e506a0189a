// Logical drives and the volumes behind them.
#ifndef KIV_OS_VOLUMES_H
#define KIV_OS_VOLUMES_H

#include "os/os.h"

namespace kiv::os {

struct DiskSpace {
  uint32_t sectorsPerCluster;
  uint32_t bytesPerSector;
  uint32_t freeClusters;
  uint32_t totalClusters;
};

enum class DriveType : uint32_t {
  kUnknown = 0,
  kNoRootDirectory = 1,
  kRemovable = 2,
  kFixed = 3,
  kRemote = 4,
  kOptical = 5,
  kRamDisk = 6,
};

// A bit for each drive present, bit 0 for A. Fails if there is none.
ValueResult<uint32_t> DriveMask();

uint32_t CurrentDrive();  // 1 is A

// Stores the label and the file system's name, both terminated. On failure the buffers may hold
// anything.
Result VolumeNames(const char* root, char* label, uint32_t labelBytes, char* fileSystem,
                   uint32_t fileSystemBytes);

ValueResult<DiskSpace> FreeDiskSpace(const char* root);

DriveType TypeOfDrive(const char* root);

}  // namespace kiv::os

#endif
