// Logical drives: the list of drives, their names, and the information about one drive.
#include <gtest/gtest.h>

#ifdef _WIN32
#include <direct.h>
#endif

#include <bit>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/fake_drives.h"
#include "support/guarded.h"
#include "support/machine_facts.h"
#include "support/process.h"

namespace {

using kiv::test::Context;
using kiv::test::ExpectField;
using kiv::test::ExpectText;
using kiv::test::FakeDrive;
using kiv::test::FakeDrives;
using kiv::test::Guarded;
using kiv::test::GuardedBytes;
using kiv::test::ScriptedImport;
using kiv::test::SystemDriveOfMachine;

constexpr uint32_t kOrdinalOfC = 3;

// ---- The drives present ----

TEST(Drives, OfThisMachineIncludeTheSystemsAndTheCurrentOne) {
  Context ctx;
  Guarded<KivSdDrives> drives;
  CHECK_OK(ctx, KivSdDrivesGet(ctx, drives));
  const auto isPresent = [&](uint32_t drive) { return (drives->mask >> (drive - 1) & 1) != 0; };
  EXPECT_TRUE(isPresent(SystemDriveOfMachine())) << drives->mask;
  EXPECT_TRUE(isPresent(drives->current)) << drives->current;
  EXPECT_EQ(drives->count, static_cast<uint32_t>(std::popcount(drives->mask)));
  EXPECT_EQ(KivSdDrivesGet(nullptr, drives), KIV_ST_OK);
}

#ifdef _WIN32
// The letters are the system's own. Other systems have none: the library numbers their drives.
TEST(Drives, AreThoseThatTheSystemReports) {
  Guarded<KivSdDrives> drives;
  EXPECT_EQ(KivSdDrivesGet(nullptr, drives), KIV_ST_OK);
  EXPECT_EQ(drives->mask, GetLogicalDrives());
  EXPECT_EQ(drives->current, static_cast<uint32_t>(_getdrive()));
}
#endif

TEST(Drives, AreCountedByTheBitsOfTheMask) {
  struct {
    uint32_t mask;
    uint32_t count;
  } const cases[] = {{1, 1},           {4, 1},          {0x02000005, 3},
                     {0x03FFFFFF, 26}, {0x80000000, 1}, {0xFFFFFFFF, 32}};
  for (const auto& [mask, count] : cases) {
    Context ctx;
    Guarded<KivSdDrives> drives;
    const ScriptedImport logical("GetLogicalDrives", {.result = mask});
    CHECK_OK(ctx, KivSdDrivesGet(ctx, drives));
    EXPECT_EQ(drives->mask, mask);
    EXPECT_EQ(drives->count, count);
  }
}

TEST(Drives, IncludeTheCurrentDrive) {
  Guarded<KivSdDrives> drives;
  const ScriptedImport current("_getdrive", {.result = 26});
  EXPECT_EQ(KivSdDrivesGet(nullptr, drives), KIV_ST_OK);
  EXPECT_EQ(drives->current, 26u);
}

TEST(Drives, NoDrivesIsAFailureWithTheSystemsError) {
  Context ctx;
  Guarded<KivSdDrives> drives;
  const ScriptedImport logical("GetLogicalDrives", {.result = 0, .error = 21});
  CHECK_OUTCOME(ctx, KivSdDrivesGet(ctx, drives), KIV_ST_DRIVES, 21u);
  EXPECT_EQ(drives->mask, 0u);
  EXPECT_EQ(drives->count, 0u);
  EXPECT_EQ(KivSdDrivesGet(nullptr, drives), KIV_ST_DRIVES);
}

TEST(DrivesDeathTest, NeedARecord) {
  EXPECT_ASSERTION(KivSdDrivesGet(nullptr, nullptr), "pDrives != KIV_NULL", "sd/sdosrw32", 412);
}

// ---- Names ----

TEST(DriveName, IsTheLetterOfTheOrdinalInAClearedBuffer) {
  for (uint32_t ordinal = 1; ordinal <= KIV_DRIVES_MAX; ++ordinal) {
    Context ctx;
    GuardedBytes name(5);
    CHECK_OK(ctx, KivSdDriveOrdinalToName(ctx, ordinal, 5, name.text()));
    ExpectText(name, std::string(1, static_cast<char>('A' + ordinal - 1)));
  }
}

TEST(DriveName, NeedsTwoBytesForItsTerminator) {
  GuardedBytes two(2);
  EXPECT_EQ(KivSdDriveOrdinalToName(nullptr, 26, 2, two.text()), KIV_ST_OK);
  ExpectText(two, "Z");
}

TEST(DriveName, IsTheLetterOnlyInABufferOfOneByte) {
  GuardedBytes one(1);
  EXPECT_EQ(KivSdDriveOrdinalToName(nullptr, 1, 1, one.text()), KIV_ST_OK);
  EXPECT_EQ(one.text()[0], 'A');
}

TEST(DriveNameDeathTest, NeedsAnOrdinalOfAtLeastOne) {
  char name[2];
  EXPECT_ASSERTION(KivSdDriveOrdinalToName(nullptr, 0, sizeof name, name),
                   "ulOrdinal >= 1 && ulOrdinal <= KIV_DRIVES_MAX", "sd/sdcommon", 1540);
}

TEST(DriveNameDeathTest, NeedsAnOrdinalUpToTheHighest) {
  char name[2];
  EXPECT_ASSERTION(KivSdDriveOrdinalToName(nullptr, KIV_DRIVES_MAX + 1, sizeof name, name),
                   "ulOrdinal >= 1 && ulOrdinal <= KIV_DRIVES_MAX", "sd/sdcommon", 1540);
}

TEST(DriveNameDeathTest, NeedsABuffer) {
  EXPECT_ASSERTION(KivSdDriveOrdinalToName(nullptr, 1, 2, nullptr),
                   "pszDriveName != KIV_NULL && sizeBuf != 0", "sd/sdcommon", 1541);
}

TEST(DriveNameDeathTest, NeedsALength) {
  char name[2];
  EXPECT_ASSERTION(KivSdDriveOrdinalToName(nullptr, 1, 0, name),
                   "pszDriveName != KIV_NULL && sizeBuf != 0", "sd/sdcommon", 1541);
}

// ---- One drive ----

TEST(DriveInfo, OfTheSystemDriveHasRoomAndAName) {
  Context ctx;
  Guarded<KivSdDriveInfo> info;
  CHECK_OK(ctx, KivSdDriveInfoGet(ctx, SystemDriveOfMachine(), info));
  EXPECT_NE(info->type, KIV_DRIVE_REMOVABLE);
  EXPECT_NE(info->fileSystem[0], '\0');
  EXPECT_GT(info->totalKiB, 0u);
  EXPECT_LE(info->freeKiB, info->totalKiB);
  EXPECT_EQ(info->usedKiB, info->totalKiB - info->freeKiB);
}

TEST(DriveInfo, ReportsEverythingThatTheSystemKnows) {
  FakeDrives drives;
  drives['C'] = {.label = "Data", .fileSystem = "FAT32"};
  Context ctx;
  Guarded<KivSdDriveInfo> info;
  CHECK_OK(ctx, KivSdDriveInfoGet(ctx, kOrdinalOfC, info));
  EXPECT_EQ(info->ordinal, kOrdinalOfC);
  ExpectField(info->name, "C");
  ExpectField(info->label, "Data");
  EXPECT_EQ(info->type, KIV_DRIVE_FIXED);
  ExpectField(info->typeName, "Fixed");
  ExpectField(info->fileSystem, "FAT32");
  EXPECT_EQ(info->totalKiB, 12u);
  EXPECT_EQ(info->usedKiB, 8u);
  EXPECT_EQ(info->freeKiB, 4u);
  EXPECT_EQ(KivSdDriveInfoGet(nullptr, kOrdinalOfC, info), KIV_ST_OK);
}

TEST(DriveInfo, HidesTheSystemsErrorBoxesDuringTheQuery) {
  FakeDrives drives;
  drives['C'] = {};
  Guarded<KivSdDriveInfo> info;
  EXPECT_EQ(KivSdDriveInfoGet(nullptr, kOrdinalOfC, info), KIV_ST_OK);
  const std::vector<std::string> expected = {"SetErrorMode 1", "GetVolumeInformationA 1029 61 C:\\",
                                             "GetDiskFreeSpaceA C:\\", "GetDriveTypeA C:\\",
                                             "SetErrorMode 0"};
  EXPECT_EQ(drives.calls(), expected);
}

TEST(DriveInfo, WithoutARootFailsAndRestoresTheErrorBoxes) {
  FakeDrives drives;
  drives['C'] = {.type = DRIVE_NO_ROOT_DIR};
  Context ctx;
  Guarded<KivSdDriveInfo> info;
  CHECK_OUTCOME(ctx, KivSdDriveInfoGet(ctx, kOrdinalOfC, info), KIV_ST_DRIVE_INFO, 0u);
  EXPECT_EQ(info->ordinal, kOrdinalOfC);
  ExpectField(info->name, "C");
  EXPECT_EQ(info->type, KIV_DRIVE_UNKNOWN);
  ExpectField(info->typeName, "");
  ASSERT_EQ(drives.calls().size(), 5u);
  EXPECT_EQ(drives.calls().front(), "SetErrorMode 1");
  EXPECT_EQ(drives.calls().back(), "SetErrorMode 0");
}

TEST(DriveInfo, TranslatesEveryTypeOfTheSystem) {
  struct {
    UINT type;
    uint32_t number;
    const char* name;
  } const cases[] = {
      {DRIVE_UNKNOWN, KIV_DRIVE_UNKNOWN, "Unknown"},
      {DRIVE_REMOVABLE, KIV_DRIVE_REMOVABLE, "Removable"},
      {DRIVE_FIXED, KIV_DRIVE_FIXED, "Fixed"},
      {DRIVE_REMOTE, KIV_DRIVE_REMOTE, "Remote"},
      {DRIVE_CDROM, KIV_DRIVE_UNKNOWN, "Unknown"},
      {DRIVE_RAMDISK, KIV_DRIVE_RAM, "RAM"},
      {7, KIV_DRIVE_UNKNOWN, "Unknown"},
      {0xFFFFFFFF, KIV_DRIVE_UNKNOWN, "Unknown"},
  };
  for (const auto& [type, number, name] : cases) {
    FakeDrives drives;
    drives['C'].type = type;
    Context ctx;
    Guarded<KivSdDriveInfo> info;
    CHECK_OK(ctx, KivSdDriveInfoGet(ctx, kOrdinalOfC, info));
    EXPECT_EQ(info->type, number);
    ExpectField(info->typeName, name);
  }
}

TEST(DriveInfo, OfAnEmptyRemovableDriveHasNoRoomAndAnUnknownFileSystem) {
  FakeDrives drives;
  drives['C'] = {.type = DRIVE_REMOVABLE, .hasNames = false, .hasSpace = false};
  Context ctx;
  Guarded<KivSdDriveInfo> info;
  CHECK_OK(ctx, KivSdDriveInfoGet(ctx, kOrdinalOfC, info));
  EXPECT_EQ(info->type, KIV_DRIVE_REMOVABLE);
  ExpectField(info->label, "");
  ExpectField(info->fileSystem, "Unknown");
  EXPECT_EQ(info->totalKiB, 0u);
  EXPECT_EQ(info->usedKiB, 0u);
  EXPECT_EQ(info->freeKiB, 0u);
}

TEST(DriveInfo, ReportsTheRoomOfAVolumeWithoutNames) {
  FakeDrives drives;
  drives['C'].hasNames = false;
  Guarded<KivSdDriveInfo> info;
  EXPECT_EQ(KivSdDriveInfoGet(nullptr, kOrdinalOfC, info), KIV_ST_OK);
  ExpectField(info->fileSystem, "Unknown");
  EXPECT_EQ(info->totalKiB, 12u);
}

TEST(DriveInfo, ReportsTheNamesOfAVolumeWithoutRoom) {
  FakeDrives drives;
  drives['C'] = {.label = "Data", .fileSystem = "CDFS", .hasSpace = false};
  Guarded<KivSdDriveInfo> info;
  EXPECT_EQ(KivSdDriveInfoGet(nullptr, kOrdinalOfC, info), KIV_ST_OK);
  ExpectField(info->label, "Data");
  ExpectField(info->fileSystem, "CDFS");
  EXPECT_EQ(info->totalKiB, 0u);
}

TEST(DriveInfo, CallsAFileSystemWithoutANameUnknown) {
  FakeDrives drives;
  drives['C'].fileSystem = "";
  Guarded<KivSdDriveInfo> info;
  EXPECT_EQ(KivSdDriveInfoGet(nullptr, kOrdinalOfC, info), KIV_ST_OK);
  ExpectField(info->label, "Volume");
  ExpectField(info->fileSystem, "Unknown");
}

TEST(DriveInfo, HoldsTheLongestNamesThatTheSystemCanWrite) {
  FakeDrives drives;
  drives['C'] = {.label = std::string(1028, 'l'), .fileSystem = std::string(60, 'f')};
  Guarded<KivSdDriveInfo> info;
  EXPECT_EQ(KivSdDriveInfoGet(nullptr, kOrdinalOfC, info), KIV_ST_OK);
  ExpectField(info->label, std::string(1028, 'l'));
  ExpectField(info->fileSystem, std::string(60, 'f'));
  EXPECT_EQ(info->type, KIV_DRIVE_FIXED);
}

TEST(DriveInfo, ReportsRoomInKibibytesThatFitThirtyTwoBits) {
  struct {
    DWORD sectorsPerCluster, bytesPerSector, freeClusters, totalClusters;
    uint32_t totalKiB, usedKiB, freeKiB;
  } const cases[] = {
      {1, 512, 1, 3, 1, 1, 0},                                         // rounded down
      {8, 512, 0, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0},              // 16 TiB, full
      {2, 512, 1, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFE, 1},              // just below 4 TiB
      {4, 512, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 1, 0xFFFFFFFE},     // 4 TiB
      {8, 512, 0x3FFFFFFF, 0x40000000, 0xFFFFFFFF, 3, 0xFFFFFFFC},     // 4 TiB
      {8, 512, 0x40000001, 0x40000002, 0xFFFFFFFF, 0, 0xFFFFFFFF},     // both beyond 4 TiB
      {4096, 512, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0, 0xFFFFFFFF},  // the largest cluster
      {65536, 65536, 0, 1, 0x00400000, 0x00400000, 0},                 // a 4 GiB cluster
  };
  for (const auto& c : cases) {
    FakeDrives drives;
    drives['C'] = {.sectorsPerCluster = c.sectorsPerCluster,
                   .bytesPerSector = c.bytesPerSector,
                   .freeClusters = c.freeClusters,
                   .totalClusters = c.totalClusters};
    SCOPED_TRACE(c.totalClusters);
    Guarded<KivSdDriveInfo> info;
    EXPECT_EQ(KivSdDriveInfoGet(nullptr, kOrdinalOfC, info), KIV_ST_OK);
    EXPECT_EQ(info->totalKiB, c.totalKiB);
    EXPECT_EQ(info->usedKiB, c.usedKiB);
    EXPECT_EQ(info->freeKiB, c.freeKiB);
  }
}

TEST(DriveInfo, AcceptsEveryOrdinal) {
  for (uint32_t ordinal = 1; ordinal <= KIV_DRIVES_MAX; ++ordinal) {
    FakeDrives drives;
    const auto letter = static_cast<char>('A' + ordinal - 1);
    drives[letter] = {.type = DRIVE_REMOTE};
    Guarded<KivSdDriveInfo> info;
    EXPECT_EQ(KivSdDriveInfoGet(nullptr, ordinal, info), KIV_ST_OK);
    EXPECT_EQ(info->ordinal, ordinal);
    EXPECT_EQ(info->type, KIV_DRIVE_REMOTE);
    ExpectField(info->name, std::string(1, letter));
  }
}

TEST(DriveInfoDeathTest, NeedsAnOrdinalOfAtLeastOne) {
  KivSdDriveInfo info;
  EXPECT_ASSERTION(KivSdDriveInfoGet(nullptr, 0, &info),
                   "ulOrdinal >= 1 && ulOrdinal <= KIV_DRIVES_MAX", "sd/sdosrw32", 460);
}

TEST(DriveInfoDeathTest, NeedsAnOrdinalUpToTheHighest) {
  KivSdDriveInfo info;
  EXPECT_ASSERTION(KivSdDriveInfoGet(nullptr, KIV_DRIVES_MAX + 1, &info),
                   "ulOrdinal >= 1 && ulOrdinal <= KIV_DRIVES_MAX", "sd/sdosrw32", 460);
}

TEST(DriveInfoDeathTest, NeedsARecord) {
  EXPECT_ASSERTION(KivSdDriveInfoGet(nullptr, 1, nullptr), "pDriveInfo != KIV_NULL", "sd/sdosrw32",
                   461);
}

}  // namespace
