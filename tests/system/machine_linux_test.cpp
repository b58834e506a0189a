// What Linux reports about the machine: drives from its mounts, limits of control groups, paging
// files, processors, working sets. The kernel's text files are the test's own, in a folder.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "os/lnx/cgroup.h"
#include "os/lnx/mounts.h"
#include "os/lnx/paging_space.h"
#include "os/lnx/text_file.h"
#include "os/registry.h"
#include "support/context.h"
#include "support/guarded.h"
#include "support/process.h"
#include "support/temporary_folder.h"

namespace {

// The user's record that the C library finds in place of the real one, while `name` is not null.
struct PlayedUser {
  const char* name = nullptr;
  size_t otherBytes = 0;  // of the record's other texts
};

PlayedUser playedUser;

}  // namespace

extern "C" int getpwuid_r(uid_t user, passwd* entry, char* texts, size_t size, passwd** found) {
  if (playedUser.name == nullptr) {
    const auto real = reinterpret_cast<decltype(&getpwuid_r)>(dlsym(RTLD_NEXT, "getpwuid_r"));
    return real(user, entry, texts, size, found);
  }
  *found = nullptr;
  const size_t nameBytes = std::strlen(playedUser.name) + 1;
  if (size < nameBytes + playedUser.otherBytes) return ERANGE;
  std::memcpy(texts, playedUser.name, nameBytes);
  entry->pw_name = texts;
  *found = entry;
  return 0;
}

namespace {

using kiv::os::DriveType;
using kiv::os::MemoryStatus;
using kiv::os::Mount;
using kiv::os::TextFile;
using kiv::test::Context;
using kiv::test::GuardedBytes;
using kiv::test::TemporaryFolder;

constexpr uint64_t kMiB = 1 << 20;

// A folder with the kernel's files.
class Kernel {
 public:
  std::string root() const { return folder_.Path(); }

  // Writes a file, and makes the folders above it.
  void Write(const std::string& path, const std::string& text) const {
    MakeFolder(std::filesystem::path(path).parent_path().string());
    folder_.Write(path.substr(1), text);
  }

  void MakeFolder(const std::string& path) const {
    std::filesystem::create_directories(root() + path);
  }

  void Remove(const std::string& path) const { folder_.Remove(path.substr(1)); }

 private:
  TemporaryFolder folder_;
};

// ---- The reader ----

TEST(TextFileReader, ReadsFieldsLinesAndEscapes) {
  const Kernel kernel;
  kernel.Write("/file", "one  two\\040three\t\\134 \\9\n\n  12 max\nlast");
  TextFile file((kernel.root() + "/file").c_str());
  char field[16];
  ASSERT_TRUE(file.ReadField(field, sizeof field));
  EXPECT_STREQ(field, "one");
  ASSERT_TRUE(file.ReadField(field, sizeof field));
  EXPECT_STREQ(field, "two three");
  ASSERT_TRUE(file.ReadField(field, sizeof field));
  EXPECT_STREQ(field, "\\");
  ASSERT_TRUE(file.ReadField(field, 2));
  EXPECT_STREQ(field, "\\");
  EXPECT_FALSE(file.ReadField(field, sizeof field));
  EXPECT_STREQ(field, "");
  ASSERT_TRUE(file.NextLine());
  EXPECT_FALSE(file.ReadField(field, sizeof field));
  ASSERT_TRUE(file.NextLine());
  uint64_t number = 0;
  ASSERT_TRUE(file.ReadNumber(&number));
  EXPECT_EQ(number, 12u);
  ASSERT_TRUE(file.ReadNumber(&number));
  EXPECT_EQ(number, UINT64_MAX);
  EXPECT_FALSE(file.ReadNumber(&number));
  ASSERT_TRUE(file.NextLine());
  file.ReadRest(field, 3);
  EXPECT_STREQ(field, "la");
  EXPECT_FALSE(file.NextLine());
  EXPECT_EQ(file.error(), 0u);
}

TEST(TextFileReader, TakesADamagedEscapeOrNumberAsItIs) {
  const Kernel kernel;
  kernel.Write("/file", "a\\ b\\08c 12x\n");
  TextFile file((kernel.root() + "/file").c_str());
  char field[16];
  ASSERT_TRUE(file.ReadField(field, sizeof field));
  EXPECT_STREQ(field, "a\\");
  ASSERT_TRUE(file.ReadField(field, sizeof field));
  EXPECT_EQ(std::string(field, 4), std::string("b\0"
                                               "8c",
                                               4));
  uint64_t number = 0;
  ASSERT_TRUE(file.ReadNumber(&number));
  EXPECT_EQ(number, UINT64_MAX);
}

TEST(TextFileReader, ReadsLinesLongerThanItsBlock) {
  const Kernel kernel;
  kernel.Write("/file", std::string(5000, 'x') + " y\nz");
  TextFile file((kernel.root() + "/file").c_str());
  char field[4097];
  ASSERT_TRUE(file.ReadField(field, sizeof field));
  EXPECT_EQ(field, std::string(4096, 'x'));
  ASSERT_TRUE(file.ReadField(field, sizeof field));
  EXPECT_STREQ(field, "y");
  ASSERT_TRUE(file.NextLine());
  ASSERT_TRUE(file.ReadField(field, sizeof field));
  EXPECT_STREQ(field, "z");
}

TEST(TextFileReader, OfAMissingFileHasNothing) {
  TextFile file("/nonexistent/file");
  char field[8];
  EXPECT_EQ(file.error(), uint32_t{ENOENT});
  EXPECT_FALSE(file.ReadField(field, sizeof field));
  EXPECT_FALSE(file.NextLine());
}

// ---- Drives ----

class Mounts : public testing::Test {
 protected:
  // Adds a mount. Its point becomes a folder.
  void Add(const std::string& device, const std::string& point, const std::string& type,
           const std::string& source) {
    lines_ += "20 1 " + device + " / " + point + " rw,relatime shared:1 master:2 - " + type + " " +
              source + " rw\n";
    kernel_.Write("/proc/self/mountinfo", lines_);
    std::string folder = point;
    for (size_t at = folder.find("\\040"); at != std::string::npos; at = folder.find("\\040")) {
      folder.replace(at, 4, " ");
    }
    kernel_.MakeFolder(folder);
  }

  std::string PointOf(uint32_t drive) const {
    Mount mount;
    return kiv::os::FindDrive(root_.c_str(), drive, &mount) ? mount.point : "no drive";
  }

  DriveType TypeOf(uint32_t drive) const {
    Mount mount;
    if (!kiv::os::FindDrive(root_.c_str(), drive, &mount)) return DriveType::kNoRootDirectory;
    return kiv::os::TypeOfMount(root_.c_str(), mount);
  }

  uint32_t Count() const { return kiv::os::CountDrives(root_.c_str()); }
  uint32_t DriveOf(const char* path) const { return kiv::os::DriveOfPath(root_.c_str(), path); }

  Kernel kernel_;
  std::string root_ = kernel_.root();
  std::string lines_;
};

TEST_F(Mounts, WithDataAreDrivesInTheirOrder) {
  Add("0:21", "/proc", "proc", "proc");
  Add("0:22", "/sys", "sysfs", "sysfs");
  Add("0:23", "/dev", "devtmpfs", "udev");
  Add("0:24", "/run", "tmpfs", "tmpfs");
  Add("254:1", "/", "ext4", "/dev/vda1");
  Add("254:16", "/data", "xfs", "/dev/vdb");
  Add("7:0", "/snap/core", "squashfs", "/dev/loop0");
  Add("0:40", "/net/home", "nfs4", "server:/home");
  Add("0:41", "/pool", "zfs", "pool/data");
  Add("0:42", "/run/user/1000/doc", "fuse.portal", "portal");
  Add("0:43", "/var/lib/containers/1", "overlay", "overlay");
  Add("0:44", "/btrfs", "btrfs", "/dev/vdc1");
  Add("8:1", "/media/a\\040stick", "vfat", "/dev/sda1");
  EXPECT_EQ(Count(), 6u);
  EXPECT_EQ(PointOf(1), "/");
  EXPECT_EQ(PointOf(2), "/data");
  EXPECT_EQ(PointOf(3), "/net/home");
  EXPECT_EQ(PointOf(4), "/pool");
  EXPECT_EQ(PointOf(5), "/btrfs");
  EXPECT_EQ(PointOf(6), "/media/a stick");
  EXPECT_EQ(PointOf(7), "no drive");
  EXPECT_EQ(PointOf(0), "no drive");
}

TEST_F(Mounts, OfOneDeviceAreOneDrive) {
  Add("254:17", "/etc/hosts", "ext4", "/dev/vdb1");
  Add("254:1", "/", "ext4", "/dev/vda1");
  Add("254:1", "/srv/bound", "ext4", "/dev/vda1");
  Add("254:16", "/data", "xfs", "/dev/vdb");
  Add("254:16", "/data/again", "xfs", "/dev/vdb");
  EXPECT_EQ(Count(), 3u);
  EXPECT_EQ(PointOf(2), "/etc/hosts");
  EXPECT_EQ(PointOf(3), "/data");
}

TEST_F(Mounts, OfSingleFilesAreNoDrives) {
  kernel_.Write("/etc/hosts", "localhost");
  lines_ = "20 1 254:17 /hosts /etc/hosts rw - ext4 /dev/vdb1 rw\n";
  Add("0:50", "/", "overlay", "overlay");
  EXPECT_EQ(Count(), 1u);
  EXPECT_EQ(TypeOf(1), DriveType::kFixed);
}

TEST_F(Mounts, OverOtherMountsTakeTheirNumber) {
  Add("254:1", "/", "ext4", "/dev/vda1");
  Add("254:16", "/data", "xfs", "/dev/vdb");
  Add("254:32", "/more", "xfs", "/dev/vdc");
  Add("0:60", "/data", "nfs", "server:/data");
  EXPECT_EQ(Count(), 3u);
  EXPECT_EQ(PointOf(2), "/data");
  EXPECT_EQ(TypeOf(2), DriveType::kRemote);
  EXPECT_EQ(PointOf(3), "/more");
}

TEST_F(Mounts, BeyondTheHighestNumberAreNoDrives) {
  Add("254:1", "/", "ext4", "/dev/vda1");
  for (int i = 2; i < 40; ++i) {
    Add("254:" + std::to_string(i), "/mnt/" + std::to_string(i), "ext4", "/dev/vdx");
  }
  EXPECT_EQ(Count(), KIV_DRIVES_MAX);
  EXPECT_EQ(PointOf(KIV_DRIVES_MAX), "/mnt/32");
  EXPECT_EQ(PointOf(KIV_DRIVES_MAX + 1), "no drive");
}

TEST_F(Mounts, WithoutALineForTheRootStillHaveIt) {
  EXPECT_EQ(Count(), 1u);
  EXPECT_EQ(PointOf(1), "/");
  EXPECT_EQ(TypeOf(1), DriveType::kUnknown);
  EXPECT_EQ(DriveOf("/home"), 1u);
}

TEST_F(Mounts, WithDamagedLinesAreIgnored) {
  lines_ = "\n1\n1 2 3\n1 2 254:9 / /lost rw shared:1\n1 2 x:y / /odd rw - ext4\n";
  Add("254:1", "/", "ext4", "/dev/vda1");
  EXPECT_EQ(Count(), 1u);
}

TEST_F(Mounts, WithLinesThatEndAnywhereAreIgnored) {
  lines_ =
      "1 2\n1 2 254:9\n1 2 254:9 /\n1 2 254:9 / /cut\n1 2 254:9 / /cut rw -\n"
      "1 2 254:9 / /cut rw - ext4\n";
  kernel_.MakeFolder("/cut");
  Add("254:1", "/", "ext4", "/dev/vda1");
  EXPECT_EQ(Count(), 1u);
}

TEST_F(Mounts, OnFoldersThatAreGoneAreNoDrives) {
  Add("254:1", "/", "ext4", "/dev/vda1");
  Add("254:2", "/gone", "ext4", "/dev/vda2");
  kernel_.Remove("/gone");
  EXPECT_EQ(Count(), 1u);
}

TEST_F(Mounts, HaveTypes) {
  const struct {
    const char* device;
    const char* type;
    const char* source;
    DriveType expected;
  } cases[] = {
      {"254:1", "ext4", "/dev/vda1", DriveType::kFixed},
      {"8:17", "vfat", "/dev/sdb1", DriveType::kRemovable},
      {"8:32", "ext4", "/dev/sdc", DriveType::kRemovable},
      {"11:0", "iso9660", "/dev/sr0", DriveType::kOptical},
      {"11:0", "udf", "/dev/sr0", DriveType::kOptical},
      {"1:0", "ext4", "/dev/ram0", DriveType::kRamDisk},
      {"253:0", "ext4", "/dev/zram0", DriveType::kRamDisk},
      {"0:30", "tmpfs", "tmpfs", DriveType::kRamDisk},
      {"0:31", "cifs", "//server/share", DriveType::kRemote},
      {"0:32", "fuse.sshfs", "host:", DriveType::kRemote},
      {"0:33", "9p", "host", DriveType::kRemote},
      {"0:34", "virtiofs", "tag", DriveType::kFixed},
      {"0:35", "fuse.other", "other", DriveType::kUnknown},
      {"8:48", "fuseblk", "/dev/sdd", DriveType::kFixed},
  };
  kernel_.Write("/sys/dev/block/disk/removable", "1\n");
  kernel_.MakeFolder("/sys/dev/block/disk/partition");
  std::filesystem::create_symlink("disk/partition", root_ + "/sys/dev/block/8:17");
  kernel_.Write("/sys/dev/block/8:32/removable", "1\n");
  kernel_.Write("/sys/dev/block/254:1/removable", "0\n");
  for (const auto& [device, type, source, expected] : cases) {
    SCOPED_TRACE(type);
    lines_.clear();
    Add(device, "/", type, source);
    EXPECT_EQ(TypeOf(1), expected);
  }
}

TEST_F(Mounts, HoldThePathsBelowThem) {
  Add("254:1", "/", "ext4", "/dev/vda1");
  Add("254:2", "/data", "ext4", "/dev/vda2");
  Add("254:3", "/data/deep", "ext4", "/dev/vda3");
  EXPECT_EQ(DriveOf("/"), 1u);
  EXPECT_EQ(DriveOf("/home/user"), 1u);
  EXPECT_EQ(DriveOf("/data"), 2u);
  EXPECT_EQ(DriveOf("/data/file"), 2u);
  EXPECT_EQ(DriveOf("/data2"), 1u);
  EXPECT_EQ(DriveOf("/data/deep/er"), 3u);
  EXPECT_EQ(DriveOf("/data/deeper"), 2u);
  EXPECT_EQ(DriveOf("(unreachable)/x"), 1u);
  EXPECT_EQ(DriveOf(""), 1u);
}

TEST_F(Mounts, HoldTheirPathsAlsoIfTheFolderAboveComesLater) {
  Add("254:1", "/", "ext4", "/dev/vda1");
  Add("254:3", "/data/deep", "ext4", "/dev/vda3");
  Add("254:2", "/data", "ext4", "/dev/vda2");
  EXPECT_EQ(DriveOf("/data/deep/er"), 2u);
  EXPECT_EQ(DriveOf("/data/other"), 3u);
}

TEST(Drives, OfThisMachineBeginWithTheRoot) {
  Context ctx;
  KivSdDriveInfo info;
  CHECK_OK(ctx, KivSdDriveInfoGet(ctx, 1, &info));
  EXPECT_STREQ(info.name, "A");
  EXPECT_STREQ(info.label, "/");
  EXPECT_GT(info.totalKiB, 0u);
}

TEST(Drives, ThatAreNotMountedHaveNoRoot) {
  KivSdDrives drives;
  ASSERT_EQ(KivSdDrivesGet(nullptr, &drives), KIV_ST_OK);
  if (drives.count == KIV_DRIVES_MAX) GTEST_SKIP() << "all numbers are used";
  Context ctx;
  KivSdDriveInfo info;
  CHECK_OUTCOME(ctx, KivSdDriveInfoGet(ctx, drives.count + 1, &info), KIV_ST_DRIVE_INFO, 0u);
  EXPECT_EQ(info.totalKiB, 0u);
}

// ---- Control groups ----

class Groups : public testing::Test {
 protected:
  void UseSecondVersion(const std::string& group, const std::string& mountRoot = "/") {
    kernel_.Write("/proc/self/mountinfo", "1 1 254:0 / / rw - ext4 /dev/vda rw\n31 23 0:28 " +
                                              mountRoot +
                                              " /sys/fs/cgroup rw shared:4 - cgroup2 cgroup rw\n");
    kernel_.Write("/proc/self/cgroup", "0::" + group + "\n");
  }

  void UseFirstVersion(const std::string& group, const std::string& mountRoot = "/") {
    kernel_.Write("/proc/self/mountinfo",
                  "32 31 0:29 " + mountRoot + " /cg/cpu rw - cgroup cgroup rw,cpu,cpuacct\n" +
                      "33 31 0:30 / /cg/cpuset rw - cgroup cgroup rw,cpuset\n" + "34 31 0:31 " +
                      mountRoot + " /cg/memory rw - cgroup cgroup rw,memory\n");
    kernel_.Write("/proc/self/cgroup", "9:name=systemd:/\n3:cpuset:/other\n2:cpu,cpuacct:" + group +
                                           "\n4:memory:" + group + "\n0::/\n");
  }

  uint32_t Processors() const { return kiv::os::GroupProcessors(kernel_.root().c_str()); }

  void ExpectMemory(uint64_t totalMiB, uint64_t availableMiB) const {
    MemoryStatus memory = {1000 * kMiB, 800 * kMiB};
    kiv::os::LimitMemoryByGroup(kernel_.root().c_str(), &memory);
    EXPECT_EQ(memory.totalBytes, totalMiB * kMiB);
    EXPECT_EQ(memory.availableBytes, availableMiB * kMiB);
  }

  static std::string MiB(uint64_t count) { return std::to_string(count * kMiB) + "\n"; }

  Kernel kernel_;
};

TEST_F(Groups, ThatDoNotExistLimitNothing) {
  EXPECT_EQ(Processors(), UINT32_MAX);
  ExpectMemory(1000, 800);
  UseSecondVersion("/a");
  EXPECT_EQ(Processors(), UINT32_MAX);
  ExpectMemory(1000, 800);
}

TEST_F(Groups, GrantProcessorsRoundedUp) {
  const struct {
    const char* text;
    uint32_t count;
  } cases[] = {{"max 100000\n", UINT32_MAX},
               {"100000 100000\n", 1},
               {"100001 100000\n", 2},
               {"250000 100000\n", 3},
               {"1000 100000\n", 1},
               {"400000 100000\n", 4},
               {"100000 0\n", UINT32_MAX},
               {"100000\n", UINT32_MAX},
               {"", UINT32_MAX},
               {"0 100000\n", 1}};
  UseSecondVersion("/a");
  for (const auto& [text, count] : cases) {
    SCOPED_TRACE(text);
    kernel_.Write("/sys/fs/cgroup/a/cpu.max", text);
    EXPECT_EQ(Processors(), count);
  }
}

TEST_F(Groups, AreLimitedByTheGroupsAboveThem) {
  UseSecondVersion("/a/b/c");
  kernel_.Write("/sys/fs/cgroup/a/b/c/cpu.max", "500000 100000\n");
  kernel_.Write("/sys/fs/cgroup/a/cpu.max", "200000 100000\n");
  EXPECT_EQ(Processors(), 2u);
  kernel_.Write("/sys/fs/cgroup/a/b/c/memory.max", MiB(500));
  kernel_.Write("/sys/fs/cgroup/a/b/c/memory.current", MiB(100));
  kernel_.Write("/sys/fs/cgroup/a/memory.max", MiB(600));
  kernel_.Write("/sys/fs/cgroup/a/memory.current", MiB(550));
  ExpectMemory(500, 50);
}

TEST_F(Groups, CountTheFileCacheAsAvailable) {
  UseSecondVersion("/");
  kernel_.Write("/sys/fs/cgroup/memory.max", MiB(400));
  kernel_.Write("/sys/fs/cgroup/memory.current", MiB(300));
  ExpectMemory(400, 100);
  kernel_.Write("/sys/fs/cgroup/memory.stat",
                "anon 1\nfile 5\ninactive_file " + MiB(120) + "active_file 3\n");
  ExpectMemory(400, 220);
  kernel_.Write("/sys/fs/cgroup/memory.stat", "inactive_file " + MiB(999));
  ExpectMemory(400, 400);
  kernel_.Write("/sys/fs/cgroup/memory.stat", "");
  kernel_.Write("/sys/fs/cgroup/memory.current", MiB(500));
  ExpectMemory(400, 0);
}

TEST_F(Groups, LargerThanTheMachineLimitNothing) {
  UseSecondVersion("/");
  kernel_.Write("/sys/fs/cgroup/memory.max", MiB(5000));
  kernel_.Write("/sys/fs/cgroup/memory.current", MiB(300));
  ExpectMemory(1000, 800);
}

TEST_F(Groups, OfTheFirstVersionLimitToo) {
  UseFirstVersion("/docker/1");
  kernel_.Write("/cg/cpu/docker/1/cpu.cfs_quota_us", "150000\n");
  kernel_.Write("/cg/cpu/docker/1/cpu.cfs_period_us", "100000\n");
  kernel_.Write("/cg/cpu/cpu.cfs_quota_us", "-1\n");
  kernel_.Write("/cg/cpu/cpu.cfs_period_us", "100000\n");
  EXPECT_EQ(Processors(), 2u);
  kernel_.Write("/cg/memory/docker/1/memory.limit_in_bytes", MiB(200));
  kernel_.Write("/cg/memory/docker/1/memory.usage_in_bytes", MiB(150));
  kernel_.Write("/cg/memory/docker/1/memory.stat",
                "inactive_file 1\ntotal_inactive_file " + MiB(50));
  kernel_.Write("/cg/memory/memory.limit_in_bytes", "9223372036854771712\n");
  ExpectMemory(200, 100);
}

TEST_F(Groups, AreFoundWhereAContainerHasThemMounted) {
  UseFirstVersion("/docker/1/inner", "/docker/1");
  kernel_.Write("/cg/cpu/inner/cpu.cfs_quota_us", "300000\n");
  kernel_.Write("/cg/cpu/inner/cpu.cfs_period_us", "100000\n");
  EXPECT_EQ(Processors(), 3u);
  UseSecondVersion("/elsewhere", "/docker/12");
  kernel_.Write("/sys/fs/cgroup/cpu.max", "500000 100000\n");
  EXPECT_EQ(Processors(), 5u);
  UseSecondVersion("/docker/12", "/docker/1");  // not below it, though the texts begin alike
  EXPECT_EQ(Processors(), 5u);
}

TEST_F(Groups, OutsideTheNameSpaceAreNotFollowed) {
  UseSecondVersion("/../../init.scope");
  kernel_.Write("/sys/fs/cgroup/cpu.max", "500000 100000\n");
  kernel_.Write("/init.scope/cpu.max", "100000 100000\n");
  kernel_.Write("/sys/init.scope/cpu.max", "100000 100000\n");
  EXPECT_EQ(Processors(), 5u);
}

TEST_F(Groups, WithLongPathsAreNotFound) {
  UseSecondVersion("/" + std::string(1100, 'a'));
  kernel_.Write("/sys/fs/cgroup/cpu.max", "100000 100000\n");
  EXPECT_EQ(Processors(), UINT32_MAX);
}

TEST_F(Groups, LimitPagingSpace) {
  UseSecondVersion("/a");
  MemoryStatus paging = {500 * kMiB, 400 * kMiB};
  kiv::os::LimitPagingByGroup(kernel_.root().c_str(), &paging);
  EXPECT_EQ(paging.totalBytes, 500 * kMiB);
  kernel_.Write("/sys/fs/cgroup/a/memory.swap.max", "max\n");
  kiv::os::LimitPagingByGroup(kernel_.root().c_str(), &paging);
  EXPECT_EQ(paging.totalBytes, 500 * kMiB);
  kernel_.Write("/sys/fs/cgroup/a/memory.swap.max", MiB(100));
  kernel_.Write("/sys/fs/cgroup/a/memory.swap.current", MiB(30));
  kiv::os::LimitPagingByGroup(kernel_.root().c_str(), &paging);
  EXPECT_EQ(paging.totalBytes, 100 * kMiB);
  EXPECT_EQ(paging.availableBytes, 70 * kMiB);
}

TEST_F(Groups, AreFoundByTheWholeNameOfTheirController) {
  kernel_.Write("/proc/self/mountinfo",
                "32 31 0:29 / /cg/cpu rw - cgroup cgroup rw,xcpu\n"
                "33 31 0:30 / /cg/cpuset rw - cgroup cgroup rw,cpuset,cpu\n");
  kernel_.Write("/proc/self/cgroup", "2:xcpu:/wrong\n3:cpuset,cpu:/right\n");
  kernel_.Write("/cg/cpuset/right/cpu.cfs_quota_us", "300000\n");
  kernel_.Write("/cg/cpuset/right/cpu.cfs_period_us", "100000\n");
  EXPECT_EQ(Processors(), 3u);
}

TEST_F(Groups, MayBeTheOneThatIsMounted) {
  UseSecondVersion("/docker/1", "/docker/1");
  kernel_.Write("/sys/fs/cgroup/cpu.max", "200000 100000\n");
  EXPECT_EQ(Processors(), 2u);
}

TEST_F(Groups, WithoutAPeriodThatIsANumberLimitNothing) {
  UseSecondVersion("/");
  kernel_.Write("/sys/fs/cgroup/cpu.max", "200000 max\n");
  EXPECT_EQ(Processors(), UINT32_MAX);
}

TEST_F(Groups, HaveStatisticsWithoutAValueAndWithOne) {
  UseSecondVersion("/");
  kernel_.Write("/sys/fs/cgroup/memory.max", MiB(400));
  kernel_.Write("/sys/fs/cgroup/memory.current", MiB(300));
  kernel_.Write("/sys/fs/cgroup/memory.stat", "inactive_file\ninactive_file " + MiB(100));
  ExpectMemory(400, 200);
}

// The mount point of a damaged line is empty, and the root is a folder's bare name.
TEST_F(Groups, WithoutAnyFolderAboveThemEndTheSearch) {
  const std::filesystem::path before = std::filesystem::current_path();
  kernel_.Write("/k/proc/self/mountinfo", "31 23 0:28 / \\000 rw - cgroup2 cgroup rw\n");
  kernel_.Write("/k/proc/self/cgroup", "0::/\n");
  kernel_.Write("/k/cpu.max", "400000 100000\n");
  std::filesystem::current_path(kernel_.root());
  EXPECT_EQ(kiv::os::GroupProcessors("k"), 4u);
  std::filesystem::current_path(before);
}

// ---- Paging files ----

class Paging : public testing::Test {
 protected:
  void WriteSwaps(const std::string& lines) {
    kernel_.Write("/proc/swaps", "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n" + lines);
  }

  std::string Paths(uint32_t sizeBytes, uint32_t* needed) const {
    GuardedBytes buffer(sizeBytes);
    const auto paths = kiv::os::PagingPaths(kernel_.root().c_str(), buffer.text(), sizeBytes);
    EXPECT_TRUE(paths.ok);
    *needed = paths.value;
    return std::string(buffer.text(), std::min(sizeBytes, paths.value));
  }

  Kernel kernel_;
};

TEST_F(Paging, IsTheSumOfItsFiles) {
  WriteSwaps(
      "/dev/vda3                              partition\t1048576\t\t1024\t\t-2\n"
      "/swap\\040file                          file\t\t2048\t\t2048\t\t-3\n");
  const auto space = kiv::os::PagingSpace(kernel_.root().c_str());
  ASSERT_TRUE(space.ok);
  EXPECT_EQ(space.value.totalBytes, uint64_t{1050624} * 1024);
  EXPECT_EQ(space.value.availableBytes, uint64_t{1047552} * 1024);
  uint32_t needed = 0;
  EXPECT_EQ(Paths(64, &needed), std::string("/dev/vda3\0/swap file\0\0", 22));
  EXPECT_EQ(needed, 22u);
  static_cast<void>(Paths(21, &needed));
  EXPECT_EQ(needed, 22u);
  static_cast<void>(Paths(0, &needed));
  EXPECT_EQ(needed, 22u);
}

TEST_F(Paging, LeavesOutLinesThatEndAnywhere) {
  WriteSwaps("\n/one\n/two file\n/three file 100\n/four file 100 50 -2\n");
  const auto space = kiv::os::PagingSpace(kernel_.root().c_str());
  ASSERT_TRUE(space.ok);
  EXPECT_EQ(space.value.totalBytes, 100u * 1024);
  EXPECT_EQ(space.value.availableBytes, 50u * 1024);
}

TEST_F(Paging, WithoutFilesIsEmpty) {
  WriteSwaps("");
  const auto space = kiv::os::PagingSpace(kernel_.root().c_str());
  EXPECT_TRUE(space.ok);
  EXPECT_EQ(space.value.totalBytes, 0u);
  uint32_t needed = 0;
  EXPECT_EQ(Paths(8, &needed), std::string(1, '\0'));
}

TEST_F(Paging, ThatCannotBeReadFails) {
  const auto space = kiv::os::PagingSpace(kernel_.root().c_str());
  EXPECT_FALSE(space.ok);
  EXPECT_EQ(space.error, uint32_t{ENOENT});
  EXPECT_FALSE(kiv::os::PagingPaths(kernel_.root().c_str(), nullptr, 0).ok);
}

TEST(PagingKey, IsTheOnlyOne) {
  const auto key = kiv::os::OpenRegistryKey(
      "SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Memory Management");
  ASSERT_TRUE(key.ok);
  EXPECT_EQ(kiv::os::OpenRegistryKey("SYSTEM").error, uint32_t{ENOENT});
  char buffer[4096];
  EXPECT_TRUE(kiv::os::ReadRegistryValue(key.value, "PagingFiles", buffer, sizeof buffer).ok);
  EXPECT_EQ(kiv::os::ReadRegistryValue(key.value, "Other", buffer, sizeof buffer).error,
            uint32_t{ENOENT});
  EXPECT_EQ(kiv::os::ReadRegistryValue(key.value, "PagingFiles", buffer, 0).error,
            uint32_t{ERANGE});
  EXPECT_EQ(kiv::os::ReadRegistryValue(buffer, "PagingFiles", buffer, 1).error, uint32_t{EBADF});
  EXPECT_EQ(kiv::os::LargestRegistryValue(nullptr).error, uint32_t{EBADF});
  EXPECT_EQ(kiv::os::CloseRegistryKey(buffer).error, uint32_t{EBADF});
  EXPECT_TRUE(kiv::os::CloseRegistryKey(key.value).ok);
}

// ---- Processors and the system ----

TEST(Processors, AreThoseOfTheAffinity) {
  IN_FRESH_PROCESS([] {
    cpu_set_t all;
    ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
    cpu_set_t one;
    CPU_ZERO(&one);
    for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++i) {
      if (CPU_ISSET(i, &all)) CPU_SET(i, &one);
    }
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(KivSdCPUCountGet(), 1u);
  });
}

TEST(System, HasTheKernelsVersion) {
  utsname kernel;
  ASSERT_EQ(uname(&kernel), 0);
  int major = 0;
  int minor = 0;
  ASSERT_EQ(std::sscanf(kernel.release, "%d.%d", &major, &minor), 2);
  char expected[32];
  std::snprintf(expected, sizeof expected, "%d.%02d", major, minor);
  KivSdOSInfo info;
  EXPECT_EQ(KivSdOSInfoGet(nullptr, &info), KIV_ST_OK);
  EXPECT_STREQ(info.name, "Linux");
  EXPECT_STREQ(info.version, expected);
}

TEST(LoginName, OfAUserWithoutAnEntryIsItsNumber) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  IN_FRESH_PROCESS([] {
    ASSERT_EQ(setresuid(3999999999u, 3999999999u, 3999999999u), 0);
    char name[KIV_LOGIN_NAME_MAX];
    uint32_t length = 0;
    EXPECT_EQ(KivSdGetSessionLoginUsername(nullptr, name, &length), KIV_ST_OK);
    EXPECT_STREQ(name, "3999999999");
    EXPECT_EQ(length, 10u);
  });
}

class LoginNameOfARecord : public testing::Test {
 protected:
  ~LoginNameOfARecord() override { playedUser = {}; }

  uint32_t Get(const std::string& name, size_t otherBytes = 0) {
    playedUser = {name.c_str(), otherBytes};
    std::memset(found_, '?', sizeof found_);
    return KivSdGetSessionLoginUsername(nullptr, found_, &length_);
  }

  char found_[KIV_LOGIN_NAME_MAX];
  uint32_t length_ = 0;
};

TEST_F(LoginNameOfARecord, HasUpTo511Characters) {
  const std::string longest(KIV_LOGIN_NAME_MAX - 1, 'u');
  EXPECT_EQ(Get(longest), KIV_ST_OK);
  EXPECT_EQ(found_, longest);
  EXPECT_EQ(length_, longest.size());
  EXPECT_EQ(Get(longest + 'u'), KIV_ST_LOGIN_USER);
  EXPECT_STREQ(found_, "");
  EXPECT_EQ(length_, 0u);
}

TEST_F(LoginNameOfARecord, IsFoundAmongMuchText) {
  for (const size_t otherBytes : {size_t{1023}, size_t{1024}, size_t{100'000}, size_t{1'000'000}}) {
    EXPECT_EQ(Get("user", otherBytes), KIV_ST_OK);
    EXPECT_STREQ(found_, "user") << otherBytes;
  }
}

TEST_F(LoginNameOfARecord, OfMoreThanOneMebibyteIsTheNumber) {
  EXPECT_EQ(Get("user", kMiB), KIV_ST_OK);
  EXPECT_EQ(found_, std::to_string(getuid()));
}

// ---- Working sets ----

KivHandle HandleOf(intptr_t number) { return reinterpret_cast<KivHandle>(number); }

TEST(WorkingSet, IsWhatTheProcessMayLock) {
  IN_FRESH_PROCESS([] {
    Context ctx;
    CHECK_OK(ctx, KivSdProcessWorkingSetSizeSet(ctx, HandleOf(-1), 2, 100));
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_MEMLOCK, &limit), 0);
    EXPECT_EQ(limit.rlim_cur, 16384u);
    ASSERT_EQ(getrlimit(RLIMIT_RSS, &limit), 0);
    EXPECT_EQ(limit.rlim_cur, 819200u);
    uint64_t minimum = 0;
    uint64_t maximum = 0;
    CHECK_OK(ctx, KivSdProcessWorkingSetSizeGet(ctx, HandleOf(getpid()), &minimum, &maximum));
    EXPECT_EQ(minimum, 2u);
    EXPECT_EQ(maximum, 100u);
  });
}

TEST(WorkingSet, BeyondTheHardLimitNeedsThePrivilege) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  IN_FRESH_PROCESS([] {
    const rlimit hard = {8192, 8192};
    ASSERT_EQ(setrlimit(RLIMIT_MEMLOCK, &hard), 0);
    ASSERT_EQ(setresuid(65534, 65534, 65534), 0);
    Context ctx;
    CHECK_OK(ctx, KivSdProcessWorkingSetSizeSet(ctx, HandleOf(-1), 1, 50));
    CHECK_OUTCOME(ctx, KivSdProcessWorkingSetSizeSet(ctx, HandleOf(-1), 2, 60),
                  KIV_ST_WORKING_SET_PRIVILEGE, uint32_t{EPERM});
    uint64_t minimum = 0;
    uint64_t maximum = 0;
    CHECK_OK(ctx, KivSdProcessWorkingSetSizeGet(ctx, HandleOf(-1), &minimum, &maximum));
    EXPECT_EQ(minimum, 1u);
    EXPECT_EQ(maximum, 50u);  // a failed change leaves both limits as they were
    CHECK_OUTCOME(ctx, KivSdProcessWorkingSetSizeSet(ctx, HandleOf(1), 1, 1),
                  KIV_ST_WORKING_SET_PRIVILEGE, uint32_t{EPERM});
  });
}

TEST(WorkingSet, NeedsAProcessAndASensibleRange) {
  Context ctx;
  uint64_t limit = 7;
  for (const intptr_t number : {intptr_t{0}, intptr_t{-2}, intptr_t{1} << 40}) {
    CHECK_OUTCOME(ctx, KivSdProcessWorkingSetSizeGet(ctx, HandleOf(number), &limit, &limit),
                  KIV_ST_WORKING_SET_GET, uint32_t{EBADF});
    CHECK_OUTCOME(ctx, KivSdProcessWorkingSetSizeSet(ctx, HandleOf(number), 1, 1),
                  KIV_ST_WORKING_SET_SET, uint32_t{EBADF});
  }
  CHECK_OUTCOME(ctx, KivSdProcessWorkingSetSizeGet(ctx, HandleOf(0x7FFFFFFF), &limit, &limit),
                KIV_ST_WORKING_SET_GET, uint32_t{ESRCH});
  CHECK_OUTCOME(ctx, KivSdProcessWorkingSetSizeSet(ctx, HandleOf(-1), 2, 1), KIV_ST_WORKING_SET_SET,
                uint32_t{EINVAL});
  EXPECT_EQ(limit, 7u);
}

}  // namespace
