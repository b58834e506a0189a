// The fatal-exception record and the memory stack reserved for it. A process makes the stack only
// once, so every test runs in its own process. It counts the library's calls of the C runtime's
// allocator.
#include <gtest/gtest.h>

#include <utility>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/import_patch.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::kRoleDone;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::ScriptedImport;

constexpr size_t kStackBytes = 1 << 20;
constexpr size_t kStackBlocks = 2;  // the record and the first block

// Records the allocator's calls and passes them on.
class Watch {
 public:
  size_t taken() const { return malloc_.calls().size(); }
  size_t given() const { return free_.calls().size(); }
  size_t LastSize() const { return malloc_.calls().back()[0]; }

 private:
  const ScriptedImport malloc_{"malloc", {.failCount = 0}};
  const ScriptedImport free_{"free", {.failCount = 0}};
};

void ExpectPlays(const char* role) { EXPECT_EQ(ChildProcess(role).ExitCode(), kRoleDone) << role; }

const RegisteredRole createsTwice("creates-twice", [](const RoleArguments&) {
  const Watch watch;
  KivSdXcptCreateStackHeader();
  EXPECT_EQ(watch.taken(), kStackBlocks);
  EXPECT_GE(watch.LastSize(), kStackBytes);
  EXPECT_LT(watch.LastSize(), kStackBytes + KIV_PAGE_UNIT);
  KivSdXcptCreateStackHeader();
  EXPECT_EQ(watch.taken(), kStackBlocks);
  EXPECT_EQ(watch.given(), 0u);
  return kRoleDone;
});
TEST(ExceptionStack, IsOneMebibyteAndMadeOnce) { ExpectPlays("creates-twice"); }

const RegisteredRole createsAfterDestroy("creates-after-destroy", [](const RoleArguments&) {
  KivSdXcptCreateStackHeader();
  const Watch watch;
  KivSdXcptDestroyStackHeader();
  EXPECT_EQ(watch.given(), kStackBlocks);
  KivSdXcptCreateStackHeader();
  EXPECT_EQ(watch.taken(), 0u);
  return kRoleDone;
});
TEST(ExceptionStack, IsNeverMadeAgainAfterADestroy) { ExpectPlays("creates-after-destroy"); }

const RegisteredRole destroysTwice("destroys-twice", [](const RoleArguments&) {
  KivSdXcptCreateStackHeader();
  KivSdXcptDestroyStackHeader();
  const Watch watch;
  KivSdXcptDestroyStackHeader();
  KivSdXcptCreateStackHeader();
  EXPECT_EQ(watch.given(), 0u);
  EXPECT_EQ(watch.taken(), 0u);
  return kRoleDone;
});
TEST(ExceptionStack, IsFreedOnce) { ExpectPlays("destroys-twice"); }

const RegisteredRole destroysFirst("destroys-first", [](const RoleArguments&) {
  const Watch watch;
  KivSdXcptDestroyStackHeader();
  EXPECT_EQ(watch.given(), 0u);
  KivSdXcptCreateStackHeader();
  EXPECT_EQ(watch.taken(), kStackBlocks);
  return kRoleDone;
});
TEST(ExceptionStack, IsMadeAfterADestroyWithoutAStack) { ExpectPlays("destroys-first"); }

const RegisteredRole lacksRecord("lacks-memory-for-the-record", [](const RoleArguments&) {
  {
    const ScriptedImport malloc("malloc", {.result = 0, .error = 8});
    KivSdXcptCreateStackHeader();
    EXPECT_EQ(malloc.calls().size(), 1u);
  }
  const Watch watch;
  KivSdXcptCreateStackHeader();
  EXPECT_EQ(watch.taken(), 0u);
  KivSdXcptDestroyStackHeader();
  EXPECT_EQ(watch.given(), 0u);
  KivSdXcptCreateStackHeader();
  EXPECT_EQ(watch.taken(), 0u);
  return kRoleDone;
});
TEST(ExceptionStack, IsNotRetriedAfterAFailure) { ExpectPlays("lacks-memory-for-the-record"); }

const RegisteredRole lacksBlock("lacks-memory-for-the-block", [](const RoleArguments&) {
  {
    const ScriptedImport malloc("malloc", {.result = 0, .error = 8, .passFirst = 1});
    KivSdXcptCreateStackHeader();
    EXPECT_EQ(malloc.calls().size(), kStackBlocks);
  }
  const Watch watch;
  KivSdXcptCreateStackHeader();
  EXPECT_EQ(watch.taken(), 0u);
  KivSdXcptDestroyStackHeader();
  EXPECT_EQ(watch.given(), 1u);
  KivSdXcptCreateStackHeader();
  EXPECT_EQ(watch.taken(), 0u);
  return kRoleDone;
});
TEST(ExceptionStack, HalfMadeIsFreedByADestroy) { ExpectPlays("lacks-memory-for-the-block"); }

const RegisteredRole raises("raises", [](const RoleArguments&) {
  for (const uint8_t value : {uint8_t{0}, uint8_t{1}, uint8_t{255}}) {
#ifdef _WIN32  // elsewhere the library keeps the identifier
    const ScriptedImport identifier("GetCurrentThreadId", {.failCount = 0});
#endif
    EXPECT_EQ(KivSdXcptSetFatExceptionOccured(value), KIV_ST_OK);
#ifdef _WIN32
    EXPECT_EQ(identifier.calls().size(), 1u);
#endif
  }
  return kRoleDone;
});
TEST(FatalException, IsRecordedWithItsThread) { ExpectPlays("raises"); }

#ifdef _WIN32  // elsewhere the handler's claim is no mutex of the system

using MakeMutex = void* (*)(void*, int32_t, const char*);
MakeMutex makeMutex = nullptr;
bool isRecorded = false;
bool isRefused = false;

// Another record of the exception makes the claim first.
void* MakeAfterAnother(void* security, int32_t owned, const char* name) {
  if (std::exchange(isRecorded, true)) return makeMutex(security, owned, name);
  EXPECT_EQ(KivSdXcptSetFatExceptionOccured(1), KIV_ST_OK);
  return isRefused ? nullptr : makeMutex(security, owned, name);
}

void LoseTheRace(size_t surplusClaims) {
  const kiv::test::ImportPatch mutexes("CreateMutexA", reinterpret_cast<void*>(&MakeAfterAnother));
  makeMutex = reinterpret_cast<MakeMutex>(mutexes.original());
  const ScriptedImport closes("CloseHandle", {.failCount = 0});
  EXPECT_EQ(KivSdXcptSetFatExceptionOccured(2), KIV_ST_OK);
  EXPECT_TRUE(isRecorded);
  EXPECT_EQ(closes.calls().size(), surplusClaims);
}

const RegisteredRole losesRace("loses-the-race-for-the-claim", [](const RoleArguments&) {
  LoseTheRace(1);
  return kRoleDone;
});
TEST(FatalException, HasOneClaimIfTwoThreadsMakeOneAtOnce) {
  ExpectPlays("loses-the-race-for-the-claim");
}

const RegisteredRole losesWithout("loses-the-race-without-a-claim", [](const RoleArguments&) {
  isRefused = true;
  LoseTheRace(0);
  return kRoleDone;
});
TEST(FatalException, HasTheOtherThreadsClaimIfItCannotMakeOne) {
  ExpectPlays("loses-the-race-without-a-claim");
}

#endif

}  // namespace
