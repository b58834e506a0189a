// The large record with all information about the machine.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/fake_drives.h"
#include "support/guarded.h"
#include "support/process.h"

namespace {

using kiv::test::Context;
using kiv::test::ExpectField;
using kiv::test::FakeDrives;
using kiv::test::Guarded;
using kiv::test::GuardedBytes;
using kiv::test::ScriptedImport;

constexpr uint32_t kOneDriveBytes = 3500;
constexpr uint32_t kFurtherDriveBytes = 2208;
constexpr size_t kDrivesOffset = offsetof(KivSdOSResources, drives);
constexpr size_t kDriveOffset = offsetof(KivSdOSResources, drive);

KivSdOSResources* RecordIn(GuardedBytes& buffer) {
  return reinterpret_cast<KivSdOSResources*>(buffer.data());
}

// Access to the drives that follow the record.
const KivSdDriveInfo* DriveIn(GuardedBytes& buffer, size_t index) {
  return reinterpret_cast<const KivSdDriveInfo*>(buffer.data() + kDriveOffset) + index;
}

// ---- The size ----

TEST(ResourcesSize, GrowsWithEveryDriveAfterTheFirst) {
  struct {
    uint32_t mask;
    uint64_t sizeBytes;
  } const cases[] = {{0x00000001, 3500}, {0x00000004, 3500},  {0x00000005, 5708},
                     {0x02000005, 7916}, {0x03FFFFFF, 58700}, {0xFFFFFFFF, 71948},
                     {0x80000000, 3500}};
  for (const auto& [mask, expected] : cases) {
    const ScriptedImport logical("GetLogicalDrives", {.result = mask});
    Context ctx;
    Guarded<uint64_t> sizeBytes;
    CHECK_OK(ctx, KivSdOSResourcesSizeGet(ctx, sizeBytes));
    EXPECT_EQ(*sizeBytes, expected);
    EXPECT_EQ(KivSdOSResourcesSizeGet(nullptr, sizeBytes), KIV_ST_OK);
  }
}

TEST(ResourcesSize, FailsWithoutTheDrives) {
  const ScriptedImport logical("GetLogicalDrives", {.result = 0, .error = 21});
  Context ctx;
  uint64_t sizeBytes = 7;
  CHECK_OUTCOME(ctx, KivSdOSResourcesSizeGet(ctx, &sizeBytes), KIV_ST_DRIVES, 21u);
  EXPECT_EQ(sizeBytes, 7u);
  EXPECT_EQ(KivSdOSResourcesSizeGet(nullptr, &sizeBytes), KIV_ST_DRIVES);
}

TEST(ResourcesSizeDeathTest, RefusesANullSize) {
  EXPECT_ASSERTION(KivSdOSResourcesSizeGet(nullptr, nullptr), "pSizeOSResource != KIV_NULL",
                   "sd/sdcommon", 1302);
}

// ---- The record ----

TEST(Resources, MatchTheSingleOperations) {
  FakeDrives drives;
  drives['C'] = {};
  Context ctx;
  uint64_t earliest = 0;
  uint64_t elapsedBefore = 0;
  uint64_t elapsedAfter = 0;
  uint64_t latest = 0;
  GuardedBytes buffer(kOneDriveBytes);
  KivSdTime(nullptr, &earliest);
  KivSdTimeElapsedOS(nullptr, &elapsedBefore);
  CHECK_OK(ctx, KivSdOSResourcesGet(ctx, kOneDriveBytes, RecordIn(buffer)));
  KivSdTimeElapsedOS(nullptr, &elapsedAfter);
  KivSdTime(nullptr, &latest);
  const KivSdOSResources& all = *RecordIn(buffer);

  KivSdOSInfo os;
  KivSdOSInfoGet(nullptr, &os);
  EXPECT_EQ(std::memcmp(&all.os, &os, sizeof os), 0);
  EXPECT_GE(all.localTime.time, earliest);
  EXPECT_LE(all.localTime.time, latest);
  KivSdLocalTime localTime;
  KivSdLocalTimeGet(nullptr, all.localTime.time, &localTime);
  EXPECT_EQ(std::memcmp(&all.localTime, &localTime, sizeof localTime), 0);
  EXPECT_GE(all.elapsedSeconds, elapsedBefore);
  EXPECT_LE(all.elapsedSeconds, elapsedAfter);
  KivSdProcessorInfo processor;
  KivSdCPUInfoGet(nullptr, &processor);
  EXPECT_EQ(std::memcmp(&all.processor, &processor, sizeof processor), 0);
  KivSdPhysMemInfo memory;
  KivSdPhysMemInfoGet(nullptr, &memory);
  EXPECT_EQ(all.memory.totalKiB, memory.totalKiB);
  EXPECT_EQ(all.memory.usedKiB, all.memory.totalKiB - all.memory.availableKiB);
  KivSdSwapInfo paging;
  KivSdSwapInfoGet(nullptr, &paging);
  EXPECT_EQ(all.paging.flags, paging.flags);
  EXPECT_STREQ(all.paging.pagingFiles, paging.pagingFiles);
  EXPECT_EQ(all.paging.totalKiB, paging.totalKiB);
  EXPECT_EQ(all.paging.usedKiB, all.paging.totalKiB - all.paging.freeKiB);
  KivSdDrives present;
  KivSdDrivesGet(nullptr, &present);
  EXPECT_EQ(std::memcmp(&all.drives, &present, sizeof present), 0);
  KivSdDriveInfo drive;
  KivSdDriveInfoGet(nullptr, 3, &drive);
  EXPECT_EQ(std::memcmp(&all.drive[0], &drive, sizeof drive), 0);
}

TEST(Resources, OfThisMachineCanBeRead) {
  uint64_t sizeBytes = 0;
  ASSERT_EQ(KivSdOSResourcesSizeGet(nullptr, &sizeBytes), KIV_ST_OK);
  GuardedBytes buffer(sizeBytes);
  const uint32_t status =
      KivSdOSResourcesGet(nullptr, static_cast<uint32_t>(sizeBytes), RecordIn(buffer));
  // The only possible failure is a drive letter without a root, which some machines have.
  EXPECT_TRUE(status == KIV_ST_OK || status == KIV_ST_DRIVE_INFO) << status;
  KivSdDrives present;
  EXPECT_EQ(KivSdDrivesGet(nullptr, &present), KIV_ST_OK);
  EXPECT_EQ(std::memcmp(&RecordIn(buffer)->drives, &present, sizeof present), 0);
  EXPECT_NE(DriveIn(buffer, 0)->ordinal, 0u);
}

TEST(Resources, HoldTheDrivesInAscendingOrder) {
  FakeDrives drives;
  drives['Z'] = {.type = DRIVE_REMOTE, .label = "last"};
  drives['A'] = {.type = DRIVE_REMOVABLE, .label = "first"};
  drives['C'] = {.label = "second"};
  constexpr uint32_t kSize = kOneDriveBytes + 2 * kFurtherDriveBytes;
  Context ctx;
  GuardedBytes buffer(kSize);
  CHECK_OK(ctx, KivSdOSResourcesGet(ctx, kSize, RecordIn(buffer)));
  EXPECT_EQ(RecordIn(buffer)->drives.count, 3u);
  EXPECT_EQ(RecordIn(buffer)->drives.mask, 0x02000005u);
  EXPECT_EQ(DriveIn(buffer, 0)->ordinal, 1u);
  ExpectField(DriveIn(buffer, 0)->label, "first");
  EXPECT_EQ(DriveIn(buffer, 1)->ordinal, 3u);
  ExpectField(DriveIn(buffer, 1)->label, "second");
  EXPECT_EQ(DriveIn(buffer, 2)->ordinal, 26u);
  ExpectField(DriveIn(buffer, 2)->label, "last");
  EXPECT_EQ(KivSdOSResourcesGet(nullptr, kSize, RecordIn(buffer)), KIV_ST_OK);
}

TEST(Resources, HoldEveryDriveThatTheMaskCanName) {
  FakeDrives drives;
  for (uint32_t i = 0; i < KIV_DRIVES_MAX; ++i) drives[static_cast<char>('A' + i)] = {};
  constexpr uint32_t kSize = kOneDriveBytes + 31 * kFurtherDriveBytes;
  GuardedBytes buffer(kSize);
  EXPECT_EQ(KivSdOSResourcesGet(nullptr, kSize, RecordIn(buffer)), KIV_ST_OK);
  for (uint32_t i = 0; i < KIV_DRIVES_MAX; ++i) EXPECT_EQ(DriveIn(buffer, i)->ordinal, i + 1);
}

TEST(Resources, ClearTheRestOfALargerBuffer) {
  FakeDrives drives;
  drives['C'] = {};
  for (const uint32_t size : {kOneDriveBytes, kOneDriveBytes + 1, kOneDriveBytes + 5000}) {
    Context ctx;
    GuardedBytes buffer(size);
    CHECK_OK(ctx, KivSdOSResourcesGet(ctx, size, RecordIn(buffer)));
    EXPECT_TRUE(buffer.IsAll(0, kOneDriveBytes, size));
  }
}

// ---- Buffers that are too small ----

// Expects a zeroed buffer, except for the part of the drives that lies inside it, and no system
// call except those for the drives.
void ExpectTooSmall(FakeDrives& drives, uint32_t size) {
  SCOPED_TRACE(size);
  KivSdDrives present;
  ASSERT_EQ(KivSdDrivesGet(nullptr, &present), KIV_ST_OK);
  const ScriptedImport version("GetVersion", {});
  const ScriptedImport localTime("_localtime64", {});
  drives.calls().clear();

  Context ctx;
  GuardedBytes buffer(size);
  CHECK_OUTCOME(ctx, KivSdOSResourcesGet(ctx, size, RecordIn(buffer)), KIV_ST_OS_RESOURCES, 0u);
  const size_t drivesStart = std::min<size_t>(size, kDrivesOffset);
  const size_t drivesEnd = std::min<size_t>(size, kDriveOffset);
  EXPECT_TRUE(buffer.IsAll(0, 0, drivesStart));
  EXPECT_EQ(std::memcmp(buffer.data() + drivesStart, &present, drivesEnd - drivesStart), 0);
  EXPECT_TRUE(buffer.IsAll(0, drivesEnd, size));
  EXPECT_TRUE(version.calls().empty());
  EXPECT_TRUE(localTime.calls().empty());
  EXPECT_TRUE(drives.calls().empty());
}

TEST(Resources, RefuseEveryBufferThatIsTooSmall) {
  FakeDrives drives;
  drives['C'] = {};
  for (uint32_t size = 0; size <= 1300; ++size) ExpectTooSmall(drives, size);
  ExpectTooSmall(drives, kOneDriveBytes - 1);
}

TEST(Resources, NeedRoomForEveryDrive) {
  FakeDrives drives;
  drives['C'] = {};
  drives['D'] = {};
  ExpectTooSmall(drives, kOneDriveBytes);
  ExpectTooSmall(drives, kOneDriveBytes + kFurtherDriveBytes - 1);
  drives['E'] = {};
  ExpectTooSmall(drives, kOneDriveBytes + kFurtherDriveBytes);
  ExpectTooSmall(drives, kOneDriveBytes + 2 * kFurtherDriveBytes - 1);
  GuardedBytes buffer(kOneDriveBytes + 2 * kFurtherDriveBytes);
  EXPECT_EQ(KivSdOSResourcesGet(nullptr, kOneDriveBytes + 2 * kFurtherDriveBytes, RecordIn(buffer)),
            KIV_ST_OK);
}

TEST(Resources, RefuseATooSmallBufferWithoutAContext) {
  GuardedBytes buffer(1);
  EXPECT_EQ(KivSdOSResourcesGet(nullptr, 1, RecordIn(buffer)), KIV_ST_OS_RESOURCES);
}

// ---- Parts that fail ----

TEST(Resources, WithoutDrivesHoldOnlyTheCurrentDrive) {
  const ScriptedImport logical("GetLogicalDrives", {.result = 0, .error = 21});
  const ScriptedImport current("_getdrive", {.result = 5});
  for (const uint32_t size : {0u, 1280u, 1284u, 1288u, 1292u, kOneDriveBytes}) {
    Context ctx;
    GuardedBytes buffer(size);
    CHECK_OUTCOME(ctx, KivSdOSResourcesGet(ctx, size, RecordIn(buffer)), KIV_ST_DRIVES, 21u);
    if (size < kDriveOffset) continue;
    EXPECT_EQ(RecordIn(buffer)->drives.current, 5u);
    std::memset(&RecordIn(buffer)->drives, 0, sizeof(KivSdDrives));
    EXPECT_TRUE(buffer.IsAll(0));
  }
}

TEST(Resources, StopIfTheLocalTimeFails) {
  FakeDrives drives;
  drives['C'] = {};
  const ScriptedImport localTime("_localtime64", {.result = 0, .error = 22});
  const ScriptedImport ticks("GetTickCount", {});
  const ScriptedImport version("GetVersion", {});
  Context ctx;
  GuardedBytes buffer(kOneDriveBytes);
  CHECK_OUTCOME(ctx, KivSdOSResourcesGet(ctx, kOneDriveBytes, RecordIn(buffer)), KIV_ST_LOCAL_TIME,
                22u);
  EXPECT_EQ(RecordIn(buffer)->drives.count, 1u);
  EXPECT_NE(RecordIn(buffer)->localTime.time, 0u);
  EXPECT_TRUE(buffer.IsAll(0, kDriveOffset, kOneDriveBytes));
  EXPECT_TRUE(ticks.calls().empty());
  EXPECT_TRUE(version.calls().empty());
}

TEST(Resources, StopAtAFailingDrive) {
  FakeDrives drives;
  drives['A'] = {};
  drives['C'] = {.type = DRIVE_NO_ROOT_DIR};
  drives['D'] = {};
  constexpr uint32_t kSize = kOneDriveBytes + 2 * kFurtherDriveBytes;
  Context ctx;
  GuardedBytes buffer(kSize);
  CHECK_OUTCOME(ctx, KivSdOSResourcesGet(ctx, kSize, RecordIn(buffer)), KIV_ST_DRIVE_INFO, 0u);
  EXPECT_NE(RecordIn(buffer)->os.name[0], '\0');
  EXPECT_NE(RecordIn(buffer)->memory.totalKiB, 0u);
  EXPECT_NE(RecordIn(buffer)->paging.flags, 0u);
  EXPECT_EQ(DriveIn(buffer, 0)->ordinal, 1u);
  EXPECT_EQ(DriveIn(buffer, 0)->type, KIV_DRIVE_FIXED);
  EXPECT_EQ(DriveIn(buffer, 1)->ordinal, 3u);
  EXPECT_TRUE(buffer.IsAll(0, kOneDriveBytes + kFurtherDriveBytes, kSize));
  for (const std::string& call : drives.calls()) EXPECT_EQ(call.find("D:\\"), std::string::npos);
}

TEST(ResourcesDeathTest, NeedARecord) {
  EXPECT_ASSERTION(KivSdOSResourcesGet(nullptr, kOneDriveBytes, nullptr),
                   "pOSResources != KIV_NULL", "sd/sdcommon", 1341);
}

TEST(ResourcesDeathTest, NeedARecordEvenForZeroBytes) {
  EXPECT_ASSERTION(KivSdOSResourcesGet(nullptr, 0, nullptr), "pOSResources != KIV_NULL",
                   "sd/sdcommon", 1341);
}

}  // namespace
