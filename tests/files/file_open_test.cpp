// Opening and closing files, and the arguments of the runtime's calls.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/process.h"
#include "support/stream.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::test;

constexpr char kNotExclusive[] = "(iOFlag & KIV_FILEO_EXCL) != KIV_FILEO_EXCL";
constexpr char kSource[] = "sd/sdfiow32";
constexpr uint32_t kFlags = kBinary | kReadWrite | kCreate;

// ---- The operations that open a file, with one signature ----

uint32_t Create(KivSdContext* ctx, const char* path, uint32_t, uint32_t* file) {
  return KivSdFileCreate(ctx, path, kBothPermissions, file);
}
uint32_t Open(KivSdContext* ctx, const char* path, uint32_t flags, uint32_t* file) {
  return KivSdFileOpen(ctx, path, flags, kBothPermissions, file);
}
uint32_t Open64(KivSdContext* ctx, const char* path, uint32_t flags, uint32_t* file) {
  return KivSdFileOpen64(ctx, path, flags, kBothPermissions, file);
}
uint32_t OpenExclusive(KivSdContext* ctx, const char* path, uint32_t flags, uint32_t* file) {
  return KivSdFileOpenExclusiveMode(ctx, path, flags, kBothPermissions, file);
}
uint32_t OpenShared(KivSdContext* ctx, const char* path, uint32_t flags, uint32_t* file) {
  return KivSdFileSOpen(ctx, path, flags, kDenyWrite, kBothPermissions, file);
}
uint32_t OpenSharedExclusive(KivSdContext* ctx, const char* path, uint32_t flags, uint32_t* file) {
  return KivSdFileSOpenExclusiveMode(ctx, path, flags, kDenyWrite, kBothPermissions, file);
}

struct Operation {
  const char* name;
  uint32_t (*run)(KivSdContext* ctx, const char* path, uint32_t flags, uint32_t* file);
  uint32_t failure;
};

const Operation kCreating = {"KivSdFileCreate", Create, KIV_ST_FILE_CREATE};
const Operation kOpening[] = {
    {"KivSdFileOpen", Open, KIV_ST_FILE_OPEN},
    {"KivSdFileOpen64", Open64, KIV_ST_FILE_OPEN},
    {"KivSdFileSOpen", OpenShared, KIV_ST_FILE_SHARE_OPEN},
};
const Operation kOpeningExclusively[] = {
    {"KivSdFileOpenExclusiveMode", OpenExclusive, KIV_ST_FILE_OPEN},
    {"KivSdFileSOpenExclusiveMode", OpenSharedExclusive, KIV_ST_FILE_SHARE_OPEN},
};
const Operation kAll[] = {kCreating,
                          kOpening[0],
                          kOpening[1],
                          kOpening[2],
                          kOpeningExclusively[0],
                          kOpeningExclusively[1]};

// ---- Files ----

TEST(FileOpen, MakesAFileThatCanBeWrittenAndRead) {
  const TemporaryFolder folder;
  Context ctx;
  for (const Operation& operation : kAll) {
    SCOPED_TRACE(operation.name);
    const std::string path = folder.Path(operation.name);
    uint32_t file = kUntouched;
    CHECK_OK(ctx, operation.run(ctx, path.c_str(), kFlags, &file));
    EXPECT_NE(file, KIV_FILE_NONE);
    EXPECT_NE(file, kUntouched);
    uint32_t count = 0;
    CHECK_OK(ctx, KivSdFileWrite(ctx, file, "bytes", 5, &count));
    CHECK_OK(ctx, KivSdFileClose(ctx, file));
    EXPECT_EQ(ContentOf(path), "bytes");
  }
}

TEST(FileOpen, NeedsNoContext) {
  const TemporaryFolder folder;
  for (const Operation& operation : kAll) {
    SCOPED_TRACE(operation.name);
    uint32_t file = kUntouched;
    EXPECT_EQ(operation.run(nullptr, folder.Path(operation.name).c_str(), kFlags, &file),
              KIV_ST_OK);
    EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
    EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_FILE_CLOSE);
  }
}

TEST(FileOpen, OfAnExistingFileKeepsItsContent) {
  const TemporaryFolder folder;
  folder.Write("file", "content");
  for (const Operation& operation : kOpening) {
    SCOPED_TRACE(operation.name);
    uint32_t file = kUntouched;
    ASSERT_EQ(operation.run(nullptr, folder.Path("file").c_str(), kFlags, &file), KIV_ST_OK);
    EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
    EXPECT_EQ(ContentOf(folder.Path("file")), "content");
  }
}

TEST(FileOpen, TruncatesAndAppendsByTheFlags) {
  const TemporaryFolder folder;
  for (const Operation& operation : kOpening) {
    SCOPED_TRACE(operation.name);
    folder.Write("file", "content");
    uint32_t file = kUntouched;
    uint32_t count = 0;
    const std::string path = folder.Path("file");
    ASSERT_EQ(operation.run(nullptr, path.c_str(), kBinary | kWriteOnly | kAppend, &file),
              KIV_ST_OK);
    EXPECT_EQ(KivSdFileWrite(nullptr, file, "!", 1, &count), KIV_ST_OK);
    EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
    EXPECT_EQ(ContentOf(path), "content!");
    ASSERT_EQ(operation.run(nullptr, path.c_str(), kWriteOnly | kTruncate, &file), KIV_ST_OK);
    EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
    EXPECT_EQ(ContentOf(path), "");
  }
}

TEST(FileCreate, EmptiesAnExistingFile) {
  const TemporaryFolder folder;
  folder.Write("file", "content");
  uint32_t file = kUntouched;
  ASSERT_EQ(KivSdFileCreate(nullptr, folder.Path("file").c_str(), kBothPermissions, &file),
            KIV_ST_OK);
  EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
  EXPECT_EQ(ContentOf(folder.Path("file")), "");
}

TEST(FileOpen, OfAMissingFileFailsAndStoresNoFile) {
  const TemporaryFolder folder;
  Context ctx;
  for (const Operation& operation : kOpening) {
    SCOPED_TRACE(operation.name);
    uint32_t file = kUntouched;
    CHECK_OUTCOME(ctx, operation.run(ctx, folder.Path("missing").c_str(), kReadWrite, &file),
                  operation.failure, ENOENT);
    EXPECT_EQ(file, KIV_FILE_NONE);
  }
}

TEST(FileOpen, BelowAMissingFolderFailsAndStoresNoFile) {
  const TemporaryFolder folder;
  Context ctx;
  for (const Operation& operation : kAll) {
    SCOPED_TRACE(operation.name);
    uint32_t file = kUntouched;
    CHECK_OUTCOME(ctx, operation.run(ctx, folder.Path("no/file").c_str(), kFlags, &file),
                  operation.failure, ENOENT);
    EXPECT_EQ(file, KIV_FILE_NONE);
    EXPECT_EQ(operation.run(nullptr, folder.Path("no/file").c_str(), kFlags, &file),
              operation.failure);
  }
}

TEST(FileOpenExclusive, RefusesAnExistingFileAndKeepsItsContent) {
  const TemporaryFolder folder;
  folder.Write("file", "content");
  Context ctx;
  for (const Operation& operation : kOpeningExclusively) {
    SCOPED_TRACE(operation.name);
    uint32_t file = kUntouched;
    CHECK_OUTCOME(ctx, operation.run(ctx, folder.Path("file").c_str(), kFlags | kTruncate, &file),
                  operation.failure, EEXIST);
    EXPECT_EQ(file, KIV_FILE_NONE);
    EXPECT_EQ(ContentOf(folder.Path("file")), "content");
  }
}

TEST(FileOpenExclusive, AcceptsTheExclusiveFlagFromTheCaller) {
  const TemporaryFolder folder;
  for (const Operation& operation : kOpeningExclusively) {
    SCOPED_TRACE(operation.name);
    uint32_t file = kUntouched;
    ASSERT_EQ(
        operation.run(nullptr, folder.Path(operation.name).c_str(), kFlags | KIV_FILEO_EXCL, &file),
        KIV_ST_OK);
    EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
  }
}

// ---- Arguments of the runtime's calls ----

TEST(FileOpen, PassesItsArgumentsToTheRuntime) {
  struct {
    Operation operation;
    const char* call;
    std::vector<uint32_t> expected;  // arguments after the path
  } const cases[] = {
      {kCreating, "_creat", {kBothPermissions}},
      {kOpening[0], "_open", {0x9A0B, kBothPermissions}},
      {kOpening[1], "_open", {0x9A0B, kBothPermissions}},
      {kOpening[2], "_sopen", {0x9A0B, kDenyWrite, kBothPermissions}},
      {kOpeningExclusively[0], "_open", {0x9E0B, kBothPermissions}},
      {kOpeningExclusively[1], "_sopen", {0x9E0B, kDenyWrite, kBothPermissions}},
  };
  for (const auto& [operation, call, expected] : cases) {
    SCOPED_TRACE(operation.name);
    Context ctx;
    uint32_t file = kUntouched;
    const ScriptedImport runtime(call, {.result = 77, .error = 13});
    CHECK_OK(ctx, operation.run(ctx, "a path", 0x9A0B, &file));
    EXPECT_EQ(file, 77u);
    ASSERT_EQ(runtime.calls().size(), 1u);
    EXPECT_STREQ(reinterpret_cast<const char*>(runtime.calls()[0][0]), "a path");
    for (size_t i = 0; i < expected.size(); ++i) {
      EXPECT_EQ(static_cast<uint32_t>(runtime.calls()[0][i + 1]), expected[i]) << i;
    }
  }
}

// ---- Arguments ----

TEST(FileOpen, NeedsAPathAndAnOutput) {
  Context ctx;
  const ScriptedImport creat("_creat", {.result = 77});
  const ScriptedImport open("_open", {.result = 77});
  const ScriptedImport sopen("_sopen", {.result = 77});
  for (const Operation& operation : kAll) {
    SCOPED_TRACE(operation.name);
    uint32_t file = kUntouched;
    CHECK_ARGUMENT(ctx, operation.run(ctx, nullptr, kFlags, &file));
    CHECK_ARGUMENT(ctx, operation.run(ctx, "path", kFlags, nullptr));
    CHECK_ARGUMENT(ctx, operation.run(ctx, nullptr, kFlags, nullptr));
    EXPECT_EQ(operation.run(nullptr, nullptr, kFlags, &file), KIV_ST_ARGUMENT);
    EXPECT_EQ(file, kUntouched);
  }
  EXPECT_EQ(creat.calls().size() + open.calls().size() + sopen.calls().size(), 0u);
}

TEST(FileOpenDeathTest, RefusesTheExclusiveFlag) {
  uint32_t file = 0;
  EXPECT_ASSERTION(Open(nullptr, "", KIV_FILEO_EXCL, &file), kNotExclusive, kSource, 561);
}

TEST(FileOpenDeathTest, Open64RefusesTheExclusiveFlag) {
  uint32_t file = 0;
  EXPECT_ASSERTION(Open64(nullptr, "", KIV_FILEO_EXCL, &file), kNotExclusive, kSource, 583);
}

TEST(FileOpenDeathTest, SOpenRefusesTheExclusiveFlag) {
  uint32_t file = 0;
  EXPECT_ASSERTION(OpenShared(nullptr, "", 0x8502, &file), kNotExclusive, kSource, 652);
}

TEST(FileOpen, AcceptsEveryFlagExceptTheExclusiveOne) {
  const ScriptedImport open("_open", {.result = 77});
  const ScriptedImport sopen("_sopen", {.result = 77});
  uint32_t file = 0;
  for (const Operation& operation : kOpening) {
    EXPECT_EQ(operation.run(nullptr, "path", ~KIV_FILEO_EXCL, &file), KIV_ST_OK);
  }
  EXPECT_EQ(static_cast<uint32_t>(open.calls().at(1)[1]), ~KIV_FILEO_EXCL);
  EXPECT_EQ(static_cast<uint32_t>(sopen.calls().at(0)[1]), ~KIV_FILEO_EXCL);
}

// ---- Closing ----

TEST(FileClose, OfNoFileFailsWithoutACallOfTheRuntime) {
  Context ctx;
  const ScriptedImport close("_close", {.result = 0});
  CHECK_OUTCOME(ctx, KivSdFileClose(ctx, KIV_FILE_NONE), KIV_ST_FILE_CLOSE, 9u);
  EXPECT_EQ(KivSdFileClose(nullptr, KIV_FILE_NONE), KIV_ST_FILE_CLOSE);
  EXPECT_TRUE(close.calls().empty());
  CHECK_OK(ctx, KivSdFileClose(ctx, 0xFFFFFFFE));
  ASSERT_EQ(close.calls().size(), 1u);
  EXPECT_EQ(static_cast<uint32_t>(close.calls()[0][0]), 0xFFFFFFFEu);
}

TEST(FileClose, OfAClosedDescriptorFailsWithTheRuntimesError) {
  const TemporaryFolder folder;
  Context ctx;
  const uint32_t closed = ClosedDescriptor(folder.Path("file"));
  CHECK_OUTCOME(ctx, KivSdFileClose(ctx, closed), KIV_ST_FILE_CLOSE, EBADF);
}

}  // namespace
