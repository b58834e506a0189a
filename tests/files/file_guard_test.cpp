// The lease guard in failover mode: the file operations that run it, and that it runs before
// everything else; and the share mode that failover mode sets.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/guard_watch.h"
#include "support/import_patch.h"
#include "support/process.h"
#include "support/stream.h"

namespace {

using namespace kiv::test;

uint32_t word;
uint64_t word64;
uint8_t flag;
char buffer[1029];

struct Operation {
  const char* name;
  std::function<uint32_t()> good;
  std::function<uint32_t()> refused = nullptr;  // with bad arguments; null if it checks none
};

const Operation kGuarded[] = {
    {"KivSdFileCreate", [] { return KivSdFileCreate(nullptr, "?/none", 0, &word); },
     [] { return KivSdFileCreate(nullptr, nullptr, 0, nullptr); }},
    {"KivSdFileOpen", [] { return KivSdFileOpen(nullptr, "?/none", 0, 0, &word); },
     [] { return KivSdFileOpen(nullptr, nullptr, 0, 0, nullptr); }},
    {"KivSdFileOpen64", [] { return KivSdFileOpen64(nullptr, "?/none", 0, 0, &word); },
     [] { return KivSdFileOpen64(nullptr, nullptr, 0, 0, nullptr); }},
    {"KivSdFileOpenExclusiveMode",
     [] { return KivSdFileOpenExclusiveMode(nullptr, "?/none", 0, 0, &word); },
     [] { return KivSdFileOpenExclusiveMode(nullptr, nullptr, 0, 0, nullptr); }},
    {"KivSdFileSOpen", [] { return KivSdFileSOpen(nullptr, "?/none", 0, kDenyAll, 0, &word); },
     [] { return KivSdFileSOpen(nullptr, nullptr, 0, kDenyAll, 0, nullptr); }},
    {"KivSdFileSOpenExclusiveMode",
     [] { return KivSdFileSOpenExclusiveMode(nullptr, "?/none", 0, kDenyAll, 0, &word); },
     [] { return KivSdFileSOpenExclusiveMode(nullptr, nullptr, 0, kDenyAll, 0, nullptr); }},
    {"KivSdFileRead", [] { return KivSdFileRead(nullptr, KIV_FILE_NONE, buffer, 1, &word); },
     [] { return KivSdFileRead(nullptr, KIV_FILE_NONE, nullptr, 1, nullptr); }},
    {"KivSdFilePRead", [] { return KivSdFilePRead(nullptr, KIV_FILE_NONE, buffer, 0, 1, &word); },
     [] { return KivSdFilePRead(nullptr, KIV_FILE_NONE, nullptr, 0, 1, nullptr); }},
    {"KivSdFileWrite", [] { return KivSdFileWrite(nullptr, KIV_FILE_NONE, buffer, 1, &word); },
     [] { return KivSdFileWrite(nullptr, KIV_FILE_NONE, nullptr, 1, nullptr); }},
    {"KivSdFilePWrite",
     [] { return KivSdFilePWrite(nullptr, KIV_FILE_NONE, buffer, 0, 1, &word, nullptr); },
     [] { return KivSdFilePWrite(nullptr, KIV_FILE_NONE, nullptr, 0, 1, nullptr, &word); }},
    {"KivSdFileGets", [] { return KivSdFileGets(nullptr, KIV_FILE_NONE, buffer, 8); },
     [] { return KivSdFileGets(nullptr, KIV_FILE_NONE, nullptr, 8); }},
    {"KivSdFileFlush", [] { return KivSdFileFlush(nullptr, KIV_FILE_NONE); }},
    {"KivSdFileLSeek", [] { return KivSdFileLSeek(nullptr, KIV_FILE_NONE, 0, 0, &word); }},
    {"KivSdFileLSeek64", [] { return KivSdFileLSeek64(nullptr, KIV_FILE_NONE, 0, 0, &word64); }},
    {"KivSdFileTell", [] { return KivSdFileTell(nullptr, KIV_FILE_NONE, &word); },
     [] { return KivSdFileTell(nullptr, KIV_FILE_NONE, nullptr); }},
    {"KivSdFileLength", [] { return KivSdFileLength(nullptr, KIV_FILE_NONE, &word); },
     [] { return KivSdFileLength(nullptr, KIV_FILE_NONE, nullptr); }},
    {"KivSdFileEof", [] { return KivSdFileEof(nullptr, KIV_FILE_NONE, &flag); },
     [] { return KivSdFileEof(nullptr, KIV_FILE_NONE, nullptr); }},
    {"KivSdFileSetEndOfFile",
     [] { return KivSdFileSetEndOfFile(nullptr, KIV_FILE_NONE, 0, &word, &word); }},
    {"KivSdFileAccess", [] { return KivSdFileAccess(nullptr, "?/none", 0, &flag); },
     [] { return KivSdFileAccess(nullptr, "?/none", 0, nullptr); }},
    {"KivSdFileRemove", [] { return KivSdFileRemove(nullptr, "?/none"); },
     [] { return KivSdFileRemove(nullptr, nullptr); }},
    {"KivSdFileGetStatus", [] { return KivSdFileGetStatus(nullptr, "?/none", &word); },
     [] { return KivSdFileGetStatus(nullptr, nullptr, nullptr); }},
    {"KivSdFileTempNameGet", [] { return KivSdFileTempNameGet(nullptr, nullptr, buffer); },
     [] { return KivSdFileTempNameGet(nullptr, nullptr, nullptr); }},
};

const Operation kNeverGuarded[] = {
    {"KivSdFileClose", [] { return KivSdFileClose(nullptr, KIV_FILE_NONE); }},
    {"KivSdFileClose", [] { return KivSdFileClose(nullptr, 0xFFFFFFFE); }},
    {"KivSdIsDirectIO", [] { return KivSdIsDirectIO(nullptr, 0, 0, &flag); }},
    {"KivSdIsNoWaitIO", [] { return KivSdIsNoWaitIO(nullptr, 0, 0, &flag); }},
    {"KivSdFileLock", [] { return KivSdFileLock(nullptr); }},
    {"KivSdFileUnlock", [] { return KivSdFileUnlock(nullptr); }},
    {"KivSdFileLockProcInfo", [] { return KivSdFileLockProcInfo(nullptr); }},
};

TEST(FileGuard, RunsOnceForEveryModeValue) {
  for (const int mode : {1, 2, 0x80, 0xFF}) {
    GuardWatch guard(static_cast<uint8_t>(mode));
    for (const Operation& operation : kGuarded) {
      operation.good();
      EXPECT_EQ(guard.TakeRuns(), 1u) << operation.name;
    }
  }
}

TEST(FileGuard, RunsBeforeTheArgumentChecks) {
  GuardWatch guard;
  for (const Operation& operation : kGuarded) {
    if (operation.refused == nullptr) continue;
    EXPECT_EQ(operation.refused(), KIV_ST_ARGUMENT) << operation.name;
    EXPECT_EQ(guard.TakeRuns(), 1u) << operation.name;
  }
}

TEST(FileGuard, NeverRunsForCloseTransferKindsAndLocks) {
  GuardWatch guard;
  for (const Operation& operation : kNeverGuarded) {
    operation.good();
    EXPECT_EQ(guard.TakeRuns(), 0u) << operation.name;
  }
}

TEST(FileGuard, DoesNotRunOutsideFailoverMode) {
  GuardWatch guard;
  KivSdSetFailoverModeFlag(0);
  for (const Operation& operation : kGuarded) {
    operation.good();
    if (operation.refused != nullptr) operation.refused();
    EXPECT_EQ(guard.TakeRuns(), 0u) << operation.name;
  }
}

TEST(FileGuard, IsOptional) {
  GuardWatch guard;
  KivSdSetLeaseGuardAccessFunction(nullptr);
  for (const Operation& operation : kGuarded) {
    operation.good();
    if (operation.refused != nullptr) {
      EXPECT_EQ(operation.refused(), KIV_ST_ARGUMENT) << operation.name;
    }
  }
  EXPECT_EQ(guard.TakeRuns(), 0u);
}

// ---- Before anything is done ----

// Count of calls of the runtime and the system, and their count when the guard ran.
uint32_t callsSoFar;
uint32_t callsBeforeGuard;
bool guardSawOutput;

intptr_t CountCall() {
  ++callsSoFar;
  return -1;
}

void NoteCalls() {
  callsBeforeGuard += callsSoFar;
  guardSawOutput = guardSawOutput || word != kUntouched || word64 != kUntouched || flag != 99;
}

TEST(FileGuard, RunsBeforeTheRuntimesCallsAndBeforeAnyOutputIsWritten) {
  std::vector<std::unique_ptr<ImportPatch>> patches;
  for (const char* call :
       {"_creat", "_open", "_sopen", "_read", "_write", "_get_osfhandle", "_commit", "_lseek",
        "_lseeki64", "_tell", "_filelength", "_eof", "_chsize", "_access", "_unlink"}) {
    patches.push_back(std::make_unique<ImportPatch>(call, reinterpret_cast<void*>(&CountCall)));
  }
  const ImportPatch noName("_tempnam", reinterpret_cast<void*>(+[](const char*, const char*) {
                             ++callsSoFar;
                             return static_cast<char*>(nullptr);
                           }));
  KivSdSetLeaseGuardAccessFunction(&NoteCalls);
  KivSdSetFailoverModeFlag(1);
  for (const Operation& operation : kGuarded) {
    SCOPED_TRACE(operation.name);
    word = kUntouched;
    word64 = kUntouched;
    flag = 99;
    callsSoFar = 0;
    callsBeforeGuard = 0;
    guardSawOutput = false;
    operation.good();
    if (operation.refused != nullptr) {
      EXPECT_GE(callsSoFar, 1u);
      callsSoFar = 0;
      word = kUntouched;
      word64 = kUntouched;
      flag = 99;
      operation.refused();
    }
    EXPECT_EQ(callsBeforeGuard, 0u);
    EXPECT_FALSE(guardSawOutput);
  }
  KivSdSetFailoverModeFlag(0);
  KivSdSetLeaseGuardAccessFunction(nullptr);
}

void AnnounceGuard() {
  std::fputs("the guard ran\n", stderr);
  std::fflush(stderr);
}

TEST(FileGuardDeathTest, RunsBeforeAProgrammingErrorEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  uint32_t (*const breaches[])() = {
      [] { return KivSdFileOpen(nullptr, "?/none", KIV_FILEO_EXCL, 0, &word); },
      [] { return KivSdFileOpen64(nullptr, "?/none", KIV_FILEO_EXCL, 0, &word); },
      [] { return KivSdFileSOpen(nullptr, "?/none", KIV_FILEO_EXCL, 0, 0, &word); },
  };
  KivSdSetLeaseGuardAccessFunction(&AnnounceGuard);
  KivSdSetFailoverModeFlag(1);
  for (const auto operation : breaches) {
    EXPECT_EXIT(operation(), EndedByAssertion(), Contains("the guard ran"));
  }
  KivSdSetFailoverModeFlag(0);
  KivSdSetLeaseGuardAccessFunction(nullptr);
}

TEST(FileGuard, ModeOverridesTheCallersShareFlags) {
  const ScriptedImport open("_sopen", {.result = 77});
  for (const int mode : {1, 2, 0x80, 0xFF}) {
    const GuardWatch guard(static_cast<uint8_t>(mode));
    for (const uint32_t asked : {0u, kDenyAll, kDenyWrite, kDenyRead, kDenyNone}) {
      const size_t first = open.calls().size();
      EXPECT_EQ(KivSdFileSOpen(nullptr, "?/none", 0, asked, 0, &word), KIV_ST_OK);
      EXPECT_EQ(KivSdFileSOpenExclusiveMode(nullptr, "?/none", 0, asked, 0, &word), KIV_ST_OK);
      EXPECT_EQ(static_cast<uint32_t>(open.calls().at(first)[2]), kDenyNone);
      EXPECT_EQ(static_cast<uint32_t>(open.calls().at(first + 1)[2]), kDenyNone);
    }
  }
  const size_t first = open.calls().size();
  EXPECT_EQ(KivSdFileSOpen(nullptr, "?/none", 0, kDenyAll, 0, &word), KIV_ST_OK);
  EXPECT_EQ(KivSdFileSOpenExclusiveMode(nullptr, "?/none", 0, kDenyRead, 0, &word), KIV_ST_OK);
  EXPECT_EQ(static_cast<uint32_t>(open.calls().at(first)[2]), kDenyAll);
  EXPECT_EQ(static_cast<uint32_t>(open.calls().at(first + 1)[2]), kDenyRead);
}

}  // namespace
