// The system directory, a process's working set, and the login name.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guarded.h"
#include "support/import_patch.h"
#include "support/machine_facts.h"
#include "support/os_errors.h"
#include "support/system_interface.h"

namespace {

using kiv::test::Context;
using kiv::test::ExpectText;
using kiv::test::Guarded;
using kiv::test::GuardedBytes;
using kiv::test::ImportPatch;
using kiv::test::kOsBufferTooSmall;
using kiv::test::kOsNoPrivilege;
using kiv::test::kOsNoSuchPrivilege;
using kiv::test::kSpoilt;
using kiv::test::LoginNameOfProcess;
using kiv::test::ScriptedImport;
using kiv::test::SystemDirectoryOfMachine;
using kiv::test::ThisProcess;
using kiv::test::WorkingSetBytes;
using kiv::test::WorkingSetOfProcess;

// ---- The system directory ----

constexpr char kDirectory[] = "C:\\WINDOWS";
constexpr uint32_t kDirectoryBytes = sizeof kDirectory;

// Like the system's call, does not fail if the directory does not fit, but returns the needed size.
UINT WINAPI FakeDirectory(LPSTR buffer, UINT sizeBytes) {
  SetLastError(ERROR_GEN_FAILURE);
  if (sizeBytes < kDirectoryBytes) return kDirectoryBytes;
  std::memcpy(buffer, kDirectory, kDirectoryBytes);
  return kDirectoryBytes - 1;
}

TEST(HomePath, IsTheSystemDirectory) {
  Context ctx;
  GuardedBytes path(KIV_SYSTEM_PATH_MAX);
  CHECK_OK(ctx, KivSdHomePathGet(ctx, KIV_SYSTEM_PATH_MAX, path.text()));
  EXPECT_EQ(path.text(), SystemDirectoryOfMachine());
  EXPECT_EQ(KivSdHomePathGet(nullptr, KIV_SYSTEM_PATH_MAX, path.text()), KIV_ST_OK);
}

TEST(HomePath, FitsABufferOfItsLengthPlusTheTerminator) {
  const ImportPatch directory("GetWindowsDirectoryA", reinterpret_cast<void*>(&FakeDirectory));
  for (const uint32_t length : {kDirectoryBytes, kDirectoryBytes + 1}) {
    Context ctx;
    GuardedBytes path(length);
    CHECK_OK(ctx, KivSdHomePathGet(ctx, length, path.text()));
    EXPECT_STREQ(path.text(), kDirectory);
  }
}

TEST(HomePath, ThatDoesNotFitFailsWithAnEmptyText) {
  const ImportPatch directory("GetWindowsDirectoryA", reinterpret_cast<void*>(&FakeDirectory));
  for (uint32_t length = 1; length < kDirectoryBytes; ++length) {
    Context ctx;
    GuardedBytes path(length);
    CHECK_OUTCOME(ctx, KivSdHomePathGet(ctx, length, path.text()), KIV_ST_HOME_PATH,
                  kOsBufferTooSmall);
    EXPECT_EQ(path.text()[0], '\0');
    EXPECT_EQ(KivSdHomePathGet(nullptr, length, path.text()), KIV_ST_HOME_PATH);
  }
}

TEST(HomePath, AsLongAsTheBufferLacksRoomForItsTerminator) {
  const ScriptedImport directory("GetWindowsDirectoryA", {.result = 8});
  Context ctx;
  GuardedBytes path(8);
  CHECK_OUTCOME(ctx, KivSdHomePathGet(ctx, 8, path.text()), KIV_ST_HOME_PATH, kOsBufferTooSmall);
  EXPECT_EQ(path.text()[0], '\0');
}

TEST(HomePath, OfThisMachineDoesNotFitOneByte) {
  Context ctx;
  GuardedBytes path(1);
  CHECK_OUTCOME(ctx, KivSdHomePathGet(ctx, 1, path.text()), KIV_ST_HOME_PATH, kOsBufferTooSmall);
}

TEST(HomePath, FailsWithTheSystemsError) {
  const ScriptedImport directory("GetWindowsDirectoryA", {.result = 0, .error = 5});
  Context ctx;
  GuardedBytes path(64);
  CHECK_OUTCOME(ctx, KivSdHomePathGet(ctx, 64, path.text()), KIV_ST_HOME_PATH, 5u);
}

TEST(HomePath, WritesNothingIntoABufferOfZeroBytes) {
  const ScriptedImport directory("GetWindowsDirectoryA", {.result = 0, .error = 5});
  Context ctx;
  GuardedBytes path(4);
  CHECK_OK(ctx, KivSdHomePathGet(ctx, 0, path.text()));
  EXPECT_TRUE(path.IsAll(kSpoilt));
}

TEST(HomePath, NeedsABuffer) {
  const ScriptedImport directory("GetWindowsDirectoryA", {.result = 0, .error = 5});
  Context ctx;
  for (const uint32_t length : {0u, 1u, 64u}) {
    CHECK_ARGUMENT(ctx, KivSdHomePathGet(ctx, length, nullptr));
    EXPECT_EQ(KivSdHomePathGet(nullptr, length, nullptr), KIV_ST_ARGUMENT);
  }
  EXPECT_TRUE(directory.calls().empty());
}

// ---- Working sets ----

SIZE_T minimumBytes;
SIZE_T maximumBytes;

BOOL WINAPI FakeWorkingSet(HANDLE, PSIZE_T minimum, PSIZE_T maximum) {
  *minimum = minimumBytes;
  *maximum = maximumBytes;
  return TRUE;
}

TEST(WorkingSet, OfThisProcessIsReportedInPageUnits) {
  const WorkingSetBytes bytes = WorkingSetOfProcess();
  Context ctx;
  Guarded<uint64_t> minimum;
  Guarded<uint64_t> maximum;
  CHECK_OK(ctx, KivSdProcessWorkingSetSizeGet(ctx, ThisProcess(), minimum, maximum));
  EXPECT_EQ(*minimum, bytes.minimum / 8192);
  EXPECT_EQ(*maximum, bytes.maximum / 8192);
}

TEST(WorkingSet, IsRoundedDownToPageUnits) {
  const ImportPatch read("GetProcessWorkingSetSize", reinterpret_cast<void*>(&FakeWorkingSet));
  struct {
    uint64_t bytes, units;
  } const cases[] = {{0, 0},
                     {8191, 0},
                     {8192, 1},
                     {16383, 1},
                     {0x7FFFFFFF, 0x3FFFF},
                     {0x80000000, 0x40000},
                     {UINT64_MAX, UINT64_MAX / 8192}};
  for (const auto& [bytes, units] : cases) {
    uint64_t minimum = 7;
    uint64_t maximum = 7;
    minimumBytes = bytes;
    maximumBytes = 3 * 8192;
    EXPECT_EQ(KivSdProcessWorkingSetSizeGet(nullptr, nullptr, &minimum, &maximum), KIV_ST_OK);
    EXPECT_EQ(minimum, units);
    EXPECT_EQ(maximum, 3u);
    minimumBytes = 3 * 8192;
    maximumBytes = bytes;
    EXPECT_EQ(KivSdProcessWorkingSetSizeGet(nullptr, nullptr, &minimum, &maximum), KIV_ST_OK);
    EXPECT_EQ(minimum, 3u);
    EXPECT_EQ(maximum, units);
  }
}

TEST(WorkingSet, ThatCannotBeReadFailsWithTheSystemsError) {
  const ScriptedImport read("GetProcessWorkingSetSize", {.result = 0, .error = 6});
  Context ctx;
  uint64_t minimum = 7;
  uint64_t maximum = 8;
  const KivHandle process = ThisProcess();
  CHECK_OUTCOME(ctx, KivSdProcessWorkingSetSizeGet(ctx, process, &minimum, &maximum),
                KIV_ST_WORKING_SET_GET, 6u);
  EXPECT_EQ(minimum, 7u);
  EXPECT_EQ(maximum, 8u);
  ASSERT_EQ(read.calls().size(), 1u);
  EXPECT_EQ(read.calls()[0][0], reinterpret_cast<uintptr_t>(process));
}

TEST(WorkingSet, RefusesANullLimit) {
  const ScriptedImport read("GetProcessWorkingSetSize", {.result = 0, .error = 6});
  Context ctx;
  uint64_t limit = 7;
  CHECK_ARGUMENT(ctx, KivSdProcessWorkingSetSizeGet(ctx, nullptr, nullptr, &limit));
  CHECK_ARGUMENT(ctx, KivSdProcessWorkingSetSizeGet(ctx, nullptr, &limit, nullptr));
  EXPECT_EQ(KivSdProcessWorkingSetSizeGet(nullptr, nullptr, nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(limit, 7u);
  EXPECT_TRUE(read.calls().empty());
}

TEST(WorkingSet, IsSetInBytesLimitedToTwoGibibytes) {
  struct {
    uint64_t units, bytes;
  } const cases[] = {{1, 8192},
                     {2, 16384},
                     {0x3FFFF, 0x7FFFE000},
                     {0x40000, 0x7FFFFFFF},
                     {0x40001, 0x7FFFFFFF},
                     {1ull << 51, 0x7FFFFFFF},  // 8192 times this is 0 in 64 bits
                     {UINT64_MAX, 0x7FFFFFFF}};
  int process;  // its address serves as a handle
  for (const auto& [units, bytes] : cases) {
    const ScriptedImport set("SetProcessWorkingSetSize", {.result = TRUE});
    Context ctx;
    CHECK_OK(ctx, KivSdProcessWorkingSetSizeSet(ctx, &process, units, 3));
    CHECK_OK(ctx, KivSdProcessWorkingSetSizeSet(ctx, &process, 3, units));
    ASSERT_EQ(set.calls().size(), 2u);
    EXPECT_EQ(set.calls()[0][0], reinterpret_cast<uintptr_t>(&process));
    EXPECT_EQ(set.calls()[0][1], bytes);
    EXPECT_EQ(set.calls()[0][2], 3u * 8192);
    EXPECT_EQ(set.calls()[1][1], 3u * 8192);
    EXPECT_EQ(set.calls()[1][2], bytes);
  }
}

TEST(WorkingSet, CannotBeSetToZero) {
  const ScriptedImport set("SetProcessWorkingSetSize", {.result = TRUE});
  Context ctx;
  const KivHandle process = ThisProcess();
  CHECK_ARGUMENT(ctx, KivSdProcessWorkingSetSizeSet(ctx, process, 0, 1));
  CHECK_ARGUMENT(ctx, KivSdProcessWorkingSetSizeSet(ctx, process, 1, 0));
  CHECK_ARGUMENT(ctx, KivSdProcessWorkingSetSizeSet(ctx, process, 0, 0));
  EXPECT_EQ(KivSdProcessWorkingSetSizeSet(nullptr, process, 0, 0), KIV_ST_ARGUMENT);
  EXPECT_TRUE(set.calls().empty());
}

TEST(WorkingSet, DistinguishesAMissingPrivilegeFromOtherFailures) {
  struct {
    uint32_t osError, status;
  } const cases[] = {{kOsNoSuchPrivilege, KIV_ST_WORKING_SET_PRIVILEGE},
                     {kOsNoPrivilege, KIV_ST_WORKING_SET_PRIVILEGE},
                     {1312, KIV_ST_WORKING_SET_SET},
                     {1315, KIV_ST_WORKING_SET_SET},
                     {87, KIV_ST_WORKING_SET_SET},
                     {0, KIV_ST_WORKING_SET_SET}};
  for (const auto& [osError, status] : cases) {
    const ScriptedImport set("SetProcessWorkingSetSize", {.result = FALSE, .error = osError});
    Context ctx;
    CHECK_OUTCOME(ctx, KivSdProcessWorkingSetSizeSet(ctx, nullptr, 1, 2), status, osError);
    EXPECT_EQ(KivSdProcessWorkingSetSizeSet(nullptr, nullptr, 1, 2), status);
  }
}

// ---- The login name ----

std::string loginName;

BOOL WINAPI FakeUserName(LPSTR buffer, LPDWORD sizeBytes) {
  EXPECT_EQ(*sizeBytes, KIV_LOGIN_NAME_MAX);
  std::memcpy(buffer, loginName.c_str(), loginName.size() + 1);
  *sizeBytes = static_cast<DWORD>(loginName.size() + 1);
  return TRUE;
}

TEST(LoginName, IsTheSystems) {
  const std::string expected = LoginNameOfProcess();
  Context ctx;
  GuardedBytes name(KIV_LOGIN_NAME_MAX);
  Guarded<uint32_t> length;
  CHECK_OK(ctx, KivSdGetSessionLoginUsername(ctx, name.text(), length));
  EXPECT_EQ(name.text(), expected);
  EXPECT_EQ(*length, expected.size());
  EXPECT_EQ(KivSdGetSessionLoginUsername(nullptr, name.text(), length), KIV_ST_OK);
}

TEST(LoginName, IsCopiedWithItsTerminatorAndNothingMore) {
  const ImportPatch user("GetUserNameA", reinterpret_cast<void*>(&FakeUserName));
  for (const size_t size : {size_t{0}, size_t{1}, size_t{256}, size_t{511}}) {
    loginName = std::string(size, 'n');
    Context ctx;
    GuardedBytes name(size + 1);
    Guarded<uint32_t> length;
    CHECK_OK(ctx, KivSdGetSessionLoginUsername(ctx, name.text(), length));
    ExpectText(name, loginName);
    EXPECT_EQ(*length, size);
  }
}

TEST(LoginName, ThatIsUnknownZeroesEightBytesAndRecordsNoError) {
  const ScriptedImport user("GetUserNameA", {.result = FALSE, .error = 1317});
  Context ctx;
  GuardedBytes name(KIV_LOGIN_NAME_MAX);
  Guarded<uint32_t> length;
  CHECK_OUTCOME(ctx, KivSdGetSessionLoginUsername(ctx, name.text(), length), KIV_ST_LOGIN_USER, 0u);
  EXPECT_EQ(*length, 0u);
  EXPECT_TRUE(name.IsAll(0, 0, 8));
  EXPECT_TRUE(name.IsAll(kSpoilt, 8, name.size()));
  EXPECT_EQ(KivSdGetSessionLoginUsername(nullptr, name.text(), length), KIV_ST_LOGIN_USER);
}

TEST(LoginName, RefusesANullNameOrLength) {
  const ScriptedImport user("GetUserNameA", {.result = FALSE, .error = 1317});
  Context ctx;
  char name[KIV_LOGIN_NAME_MAX] = "kept";
  uint32_t length = 7;
  CHECK_ARGUMENT(ctx, KivSdGetSessionLoginUsername(ctx, nullptr, &length));
  CHECK_ARGUMENT(ctx, KivSdGetSessionLoginUsername(ctx, name, nullptr));
  EXPECT_EQ(KivSdGetSessionLoginUsername(nullptr, nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_STREQ(name, "kept");
  EXPECT_EQ(length, 7u);
  EXPECT_TRUE(user.calls().empty());
}

}  // namespace
