#include "os/lnx/mounts.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "os/lnx/text_file.h"

namespace kiv::os {
namespace {

constexpr size_t kNameBytes = 1024;
constexpr uint32_t kRootDrive = 1;
constexpr uint32_t kRamDiskMajor = 1;
constexpr uint64_t kNoDevice = UINT64_MAX;

constexpr const char* kRemoteTypes[] = {"9p",          "afs",       "beegfs",     "ceph",
                                        "cifs",        "coda",      "fuse.ceph",  "fuse.glusterfs",
                                        "fuse.rclone", "fuse.s3fs", "fuse.sshfs", "glusterfs",
                                        "lustre",      "ncpfs",     "nfs",        "nfs4",
                                        "orangefs",    "smb3",      "smbfs"};
constexpr const char* kSpreadTypes[] = {"bcachefs", "btrfs", "virtiofs", "zfs"};
constexpr const char* kImageTypes[] = {"erofs", "squashfs"};
constexpr const char* kMemoryTypes[] = {"ramfs", "rootfs", "tmpfs"};
constexpr const char* kOpticalTypes[] = {"iso9660", "udf"};

template <size_t kCount>
bool IsOneOf(const char* const (&names)[kCount], const char* name) {
  for (const char* each : names) {
    if (std::strcmp(each, name) == 0) return true;
  }
  return false;
}

bool BeginsWith(const char* text, const char* start) {
  return std::strncmp(text, start, std::strlen(start)) == 0;
}

bool IsRoot(const Mount& mount) { return std::strcmp(mount.point, "/") == 0; }

uint64_t DeviceOf(const Mount& mount) { return uint64_t{mount.major} << 32 | mount.minor; }

uint64_t HashOf(const char* text) {
  uint64_t hash = 0xCBF29CE484222325;
  for (; *text != '\0'; ++text) hash = (hash ^ static_cast<unsigned char>(*text)) * 0x100000001B3;
  return hash;
}

// Whether a file system other than the root is a drive.
bool HoldsData(const Mount& mount) {
  if (IsOneOf(kRemoteTypes, mount.type) || IsOneOf(kSpreadTypes, mount.type)) return true;
  return mount.major != 0 && !IsOneOf(kImageTypes, mount.type);
}

// A container has single files of the host mounted. The mount point of a remote file system is a
// folder in any case, and asking for it could wait for the other machine.
bool IsFolder(const char* root, const Mount& mount) {
  if (IsOneOf(kRemoteTypes, mount.type)) return true;
  char path[PATH_MAX];
  struct stat status;
  std::snprintf(path, sizeof path, "%s%s", root, mount.point);
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// One line:  id parent major:minor root point options [optional ...] - type source options
bool ReadMount(TextFile* file, Mount* mount) {
  char field[64] = "";
  char* minor = nullptr;
  if (!file->SkipFields(2) || !file->ReadField(field, sizeof field)) return false;
  mount->major = static_cast<uint32_t>(std::strtoul(field, &minor, 10));
  mount->minor = *minor == ':' ? static_cast<uint32_t>(std::strtoul(minor + 1, nullptr, 10)) : 0;
  if (!file->SkipFields(1) || !file->ReadField(mount->point, sizeof mount->point)) return false;
  while (std::strcmp(field, "-") != 0) {
    if (!file->ReadField(field, sizeof field)) return false;
  }
  return file->ReadField(mount->type, sizeof mount->type) &&
         file->ReadField(mount->source, sizeof mount->source);
}

// Calls `visit` for each mount, oldest first. The caller provides the storage, which is large.
template <typename Visit>
void ForEachMount(const char* root, Mount* mount, Visit visit) {
  char name[kNameBytes];
  std::snprintf(name, sizeof name, "%s/proc/self/mountinfo", root);
  TextFile file(name);
  do {
    if (ReadMount(&file, mount)) visit(static_cast<const Mount&>(*mount));
  } while (file.NextLine());
}

// Numbers the drives while the list of mounts is read.
class Numbering {
 public:
  Numbering(const char* root, Mount* storage) : root_(root) {
    ForEachMount(root, storage, [&](const Mount& mount) {
      if (IsRoot(mount)) drives_[0].device = DeviceOf(mount);
    });
  }

  // The number of the drive; 0 if the mount is no drive.
  uint32_t Number(const Mount& mount) {
    if (IsRoot(mount)) return kRootDrive;
    if (!HoldsData(mount)) return 0;
    const uint64_t point = HashOf(mount.point);
    for (uint32_t i = 1; i < count_; ++i) {
      if (drives_[i].point != point) continue;
      drives_[i].device = DeviceOf(mount);
      return i + 1;
    }
    for (uint32_t i = 0; i < count_; ++i) {
      if (drives_[i].device == DeviceOf(mount)) return 0;
    }
    if (count_ == kMaxDrives || !IsFolder(root_, mount)) return 0;
    drives_[count_] = {DeviceOf(mount), point};
    return ++count_;
  }

  uint32_t count() const { return count_; }

 private:
  struct Drive {
    uint64_t device;
    uint64_t point;  // hash of the mount point
  };

  const char* root_;
  uint32_t count_ = 1;
  Drive drives_[kMaxDrives] = {{kNoDevice, 0}};
};

// Whether the kernel says that the device's medium can be removed. A partition's folder lies in
// that of its disk.
bool IsRemovable(const char* root, uint32_t major, uint32_t minor) {
  constexpr const char* kDisks[] = {"", "/.."};
  for (const char* disk : kDisks) {
    char name[kNameBytes];
    std::snprintf(name, sizeof name, "%s/sys/dev/block/%u:%u%s/removable", root, major, minor,
                  disk);
    uint64_t removable = 0;
    TextFile file(name);
    if (file.error() == 0 && file.ReadNumber(&removable)) return removable == 1;
  }
  return false;
}

}  // namespace

uint32_t CountDrives(const char* root) {
  Mount storage;
  Numbering numbering(root, &storage);
  ForEachMount(root, &storage, [&](const Mount& mount) { numbering.Number(mount); });
  return numbering.count();
}

bool FindDrive(const char* root, uint32_t drive, Mount* found) {
  // The root has no line of its own if the process was confined to a folder.
  *found = {};
  if (drive == kRootDrive) std::strcpy(found->point, "/");
  Mount storage;
  Numbering numbering(root, &storage);
  ForEachMount(root, &storage, [&](const Mount& mount) {
    if (numbering.Number(mount) == drive) *found = mount;
  });
  return drive >= 1 && drive <= numbering.count();
}

uint32_t DriveOfPath(const char* root, const char* path) {
  uint32_t nearest = kRootDrive;
  size_t longest = 0;
  Mount storage;
  Numbering numbering(root, &storage);
  ForEachMount(root, &storage, [&](const Mount& mount) {
    const uint32_t drive = numbering.Number(mount);
    const size_t length = std::strlen(mount.point);
    const bool isAbove = std::strncmp(path, mount.point, length) == 0 &&
                         (path[length] == '/' || path[length] == '\0');
    if (drive == 0 || !isAbove || length < longest) return;
    nearest = drive;
    longest = length;
  });
  return nearest;
}

DriveType TypeOfMount(const char* root, const Mount& mount) {
  if (IsOneOf(kRemoteTypes, mount.type)) return DriveType::kRemote;
  if (IsOneOf(kOpticalTypes, mount.type)) return DriveType::kOptical;
  if (IsOneOf(kMemoryTypes, mount.type) || mount.major == kRamDiskMajor ||
      BeginsWith(mount.source, "/dev/zram")) {
    return DriveType::kRamDisk;
  }
  if (mount.type[0] == '\0' || (mount.major == 0 && BeginsWith(mount.type, "fuse"))) {
    return DriveType::kUnknown;
  }
  return IsRemovable(root, mount.major, mount.minor) ? DriveType::kRemovable : DriveType::kFixed;
}

}  // namespace kiv::os
