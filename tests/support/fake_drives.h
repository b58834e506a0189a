// Fake drives that the library finds in place of the machine's drives.
#ifndef KIV_TESTS_FAKE_DRIVES_H
#define KIV_TESTS_FAKE_DRIVES_H

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "support/import_patch.h"
#include "support/system_interface.h"

namespace kiv::test {

struct FakeDrive {
  UINT type = DRIVE_FIXED;
  bool hasNames = true;  // whether the volume's names can be read
  std::string label = "Volume";
  std::string fileSystem = "NTFS";
  bool hasSpace = true;  // whether the volume's free space can be read
  DWORD sectorsPerCluster = 8;
  DWORD bytesPerSector = 512;
  DWORD freeClusters = 1;
  DWORD totalClusters = 3;
};

// Only one object at a time. Records every call of the library as text, in order.
class FakeDrives {
 public:
  FakeDrives() { current_ = this; }
  ~FakeDrives() { current_ = nullptr; }
  FakeDrives(const FakeDrives&) = delete;
  FakeDrives& operator=(const FakeDrives&) = delete;

  FakeDrive& operator[](char letter) { return drives_[letter]; }
  std::vector<std::string>& calls() { return calls_; }

 private:
  static FakeDrive& Called(const std::string& call, const char* root) {
    current_->calls_.push_back(call + " " + root);
    return current_->drives_[root[0]];
  }

  static DWORD WINAPI LogicalDrives() {
    DWORD mask = 0;
    for (const auto& [letter, drive] : current_->drives_) mask |= 1u << (letter - 'A');
    return mask;
  }

  static UINT WINAPI ErrorMode(UINT mode) {
    current_->calls_.push_back("SetErrorMode " + std::to_string(mode));
    return 0;
  }

  static BOOL WINAPI Names(LPCSTR root, LPSTR label, DWORD labelBytes, LPDWORD, LPDWORD, LPDWORD,
                           LPSTR fileSystem, DWORD fileSystemBytes) {
    const FakeDrive& drive = Called("GetVolumeInformationA " + std::to_string(labelBytes) + " " +
                                        std::to_string(fileSystemBytes),
                                    root);
    SetLastError(ERROR_NOT_READY);
    if (!drive.hasNames) return FALSE;
    std::memcpy(label, drive.label.c_str(), drive.label.size() + 1);
    std::memcpy(fileSystem, drive.fileSystem.c_str(), drive.fileSystem.size() + 1);
    return TRUE;
  }

  static BOOL WINAPI Space(LPCSTR root, LPDWORD sectorsPerCluster, LPDWORD bytesPerSector,
                           LPDWORD freeClusters, LPDWORD totalClusters) {
    const FakeDrive& drive = Called("GetDiskFreeSpaceA", root);
    SetLastError(ERROR_NOT_READY);
    // Stored on failure too, so that a test notices if the library uses the outputs of a failed call.
    *sectorsPerCluster = drive.sectorsPerCluster;
    *bytesPerSector = drive.bytesPerSector;
    *freeClusters = drive.freeClusters;
    *totalClusters = drive.totalClusters;
    return drive.hasSpace;
  }

  static UINT WINAPI Type(LPCSTR root) { return Called("GetDriveTypeA", root).type; }

  static inline FakeDrives* current_ = nullptr;

  std::map<char, FakeDrive> drives_;
  std::vector<std::string> calls_;
  ImportPatch logicalDrives_{"GetLogicalDrives", reinterpret_cast<void*>(&LogicalDrives)};
  ImportPatch errorMode_{"SetErrorMode", reinterpret_cast<void*>(&ErrorMode)};
  ImportPatch names_{"GetVolumeInformationA", reinterpret_cast<void*>(&Names)};
  ImportPatch space_{"GetDiskFreeSpaceA", reinterpret_cast<void*>(&Space)};
  ImportPatch type_{"GetDriveTypeA", reinterpret_cast<void*>(&Type)};
};

}  // namespace kiv::test

#endif
