// Operations on files by name: access, the status probe, removal.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/import_patch.h"
#include "support/stream.h"
#include "support/stubbed_import.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::test;

constexpr uintptr_t kFailed = static_cast<uintptr_t>(-1);
constexpr uint32_t kSomeDescriptor = 77;

class FileByName : public testing::Test {
 protected:
  FileByName() { folder_.Write("file", "content"); }
  ~FileByName() override { SetWritable(true); }

  std::string path() const { return folder_.Path("file"); }
  void MakeReadOnly() { SetWritable(false); }

  uint32_t StatusOf(const std::string& path, uint32_t before = 0) {
    uint32_t status = before;
    CHECK_OK(ctx_, KivSdFileGetStatus(ctx_, path.c_str(), &status));
    return status;
  }

  uint8_t Access(const char* path, uint32_t mode) {
    uint8_t granted = 99;
    CHECK_OK(ctx_, KivSdFileAccess(ctx_, path, mode, &granted));
    return granted;
  }

  TemporaryFolder folder_;
  Context ctx_;

 private:
  void SetWritable(bool writable) {
    using std::filesystem::perms;
    std::error_code ignored;
    std::filesystem::permissions(path(), writable ? perms::all : perms::owner_read, ignored);
  }
};
using FileAccess = FileByName;
using FileRemove = FileByName;
using FileStatus = FileByName;

// ---- Access ----

TEST_F(FileAccess, IsGrantedToAnExistingFile) {
  for (const uint32_t mode : {0u, 2u, 4u, 6u}) EXPECT_EQ(Access(path().c_str(), mode), 1) << mode;
  EXPECT_EQ(Access(folder_.Path().c_str(), 0), 1) << "a folder exists too";
}

TEST_F(FileAccess, ToWriteIsNotGrantedToAReadOnlyFile) {
  MakeReadOnly();
  EXPECT_EQ(Access(path().c_str(), 0), 1);
  EXPECT_EQ(Access(path().c_str(), 4), 1);
  EXPECT_EQ(Access(path().c_str(), 2), 0);
  EXPECT_EQ(Access(path().c_str(), 6), 0);
}

TEST_F(FileAccess, IsNotGrantedToAMissingFileWithoutFailure) {
  for (const uint32_t mode : {0u, 2u, 4u, 6u}) {
    EXPECT_EQ(Access(folder_.Path("missing").c_str(), mode), 0) << mode;
  }
  EXPECT_EQ(Access("", 0), 0);
  EXPECT_EQ(Access(nullptr, 0), 0);
}

TEST_F(FileAccess, IsTheRuntimesResult) {
  const ScriptedImport access("_access", {.result = kFailed, .error = EACCES, .failCount = 1});
  const std::string file = path();
  EXPECT_EQ(Access(file.c_str(), 6), 0);
  EXPECT_EQ(Access(file.c_str(), 6), 1);
  ASSERT_EQ(access.calls().size(), 2u);
  EXPECT_EQ(access.calls()[0][0], reinterpret_cast<uintptr_t>(file.c_str()));
  EXPECT_EQ(access.calls()[1][0], access.calls()[0][0]);
  EXPECT_EQ(static_cast<uint32_t>(access.calls()[0][1]), 6u);
}

TEST_F(FileAccess, NeedsAnOutput) {
  CHECK_ARGUMENT(ctx_, KivSdFileAccess(ctx_, path().c_str(), 0, nullptr));
  EXPECT_EQ(KivSdFileAccess(nullptr, path().c_str(), 0, nullptr), KIV_ST_ARGUMENT);
  uint8_t granted = 99;
  EXPECT_EQ(KivSdFileAccess(nullptr, path().c_str(), 0, &granted), KIV_ST_OK);
  EXPECT_EQ(granted, 1);
}

// ---- Removal ----

TEST_F(FileRemove, RemovesTheFile) {
  CHECK_OK(ctx_, KivSdFileRemove(ctx_, path().c_str()));
  EXPECT_EQ(Access(path().c_str(), 0), 0);
  CHECK_OUTCOME(ctx_, KivSdFileRemove(ctx_, path().c_str()), KIV_ST_FILE_REMOVE, ENOENT);
  EXPECT_EQ(KivSdFileRemove(nullptr, path().c_str()), KIV_ST_FILE_REMOVE);
}

TEST_F(FileRemove, FailsForAReadOnlyFile) {
  MakeReadOnly();
  CHECK_OUTCOME(ctx_, KivSdFileRemove(ctx_, path().c_str()), KIV_ST_FILE_REMOVE, EACCES);
  EXPECT_EQ(ContentOf(path()), "content");
}

TEST_F(FileRemove, NeedsAPath) {
  const ScriptedImport unlink("_unlink", {.result = 0});
  CHECK_ARGUMENT(ctx_, KivSdFileRemove(ctx_, nullptr));
  EXPECT_EQ(KivSdFileRemove(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_TRUE(unlink.calls().empty());
}

// ---- Status: every state, on real files where possible ----

TEST_F(FileStatus, OfAClosedFileIsFree) {
  EXPECT_EQ(StatusOf(path()), KIV_FSTAT_FREE);
  EXPECT_EQ(ContentOf(path()), "content");
}

TEST_F(FileStatus, OfAnOpenFileIsInUse) {
  Stream stream(path());
  EXPECT_EQ(StatusOf(path()), KIV_FSTAT_INUSE);
  stream.Close();
  EXPECT_EQ(StatusOf(path()), KIV_FSTAT_FREE);
}

TEST_F(FileStatus, OfAReadOnlyFileIsInUse) {
  MakeReadOnly();
  // The open for writing is refused. Only Wine, run as the superuser, opens the file.
  uint32_t file = 0;
  const bool refused =
      KivSdFileOpen(nullptr, path().c_str(), kBinary | kReadWrite, 0, &file) != KIV_ST_OK;
  if (!refused) EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
  EXPECT_EQ(StatusOf(path()), refused ? KIV_FSTAT_INUSE : KIV_FSTAT_FREE);
}

TEST_F(FileStatus, OfAFolderIsInUse) { EXPECT_EQ(StatusOf(folder_.Path()), KIV_FSTAT_INUSE); }

TEST_F(FileStatus, OfAMissingFileIsUnsettled) {
  const ScriptedImport open("_sopen", {.result = kSomeDescriptor});
  EXPECT_EQ(StatusOf(folder_.Path("missing")), KIV_FSTAT_UNSETTLED | KIV_FSTAT_NOTEXIST);
  EXPECT_TRUE(open.calls().empty());
}

TEST_F(FileStatus, OfAnUnreadableFileIsUnsettled) {
  // The second call checks for read access.
  const ScriptedImport access("_access", {.result = kFailed, .error = EACCES, .passFirst = 1});
  const ScriptedImport open("_sopen", {.result = kSomeDescriptor});
  EXPECT_EQ(StatusOf(path()), KIV_FSTAT_UNSETTLED | KIV_FSTAT_NOREAD);
  ASSERT_EQ(access.calls().size(), 2u);
  EXPECT_EQ(static_cast<uint32_t>(access.calls()[0][1]), 0u);
  EXPECT_EQ(static_cast<uint32_t>(access.calls()[1][1]), 4u);
  EXPECT_TRUE(open.calls().empty());
}

TEST_F(FileStatus, SettlesItsOwnBitsAndKeepsAllOthers) {
  const std::string missing = folder_.Path("missing");
  for (const uint32_t others : {0u, 0xFFFFFFE0u}) {
    for (uint32_t before = 0; before < 0x20; ++before) {
      SCOPED_TRACE(before);
      const uint32_t word = others | before;
      EXPECT_EQ(StatusOf(missing, word), word | 0x01 | 0x08);
      EXPECT_EQ(StatusOf(path(), word), (word & ~0x03u) | 0x04);
      {
        const ScriptedImport open("_sopen", {.result = kFailed});
        EXPECT_EQ(StatusOf(path(), word), (word & ~0x05u) | 0x02);
      }
      const ScriptedImport access("_access", {.result = kFailed, .passFirst = 1});
      EXPECT_EQ(StatusOf(path(), word), word | 0x01 | 0x10);
    }
  }
}

TEST_F(FileStatus, OpensTheFileWithoutSharingAndClosesItAtOnce) {
  const ScriptedImport open("_sopen", {.result = kSomeDescriptor});
  const ScriptedImport close("_close", {.result = 0});
  const std::string file = path();
  EXPECT_EQ(StatusOf(file), KIV_FSTAT_FREE);
  ASSERT_EQ(open.calls().size(), 1u);
  EXPECT_EQ(open.calls()[0][0], reinterpret_cast<uintptr_t>(file.c_str()));
  EXPECT_EQ(static_cast<uint32_t>(open.calls()[0][1]), 0x8002u);
  EXPECT_EQ(static_cast<uint32_t>(open.calls()[0][2]), 0x10u);
  EXPECT_EQ(static_cast<uint32_t>(open.calls()[0][3]), 0u);
  ASSERT_EQ(close.calls().size(), 1u);
  EXPECT_EQ(static_cast<uint32_t>(close.calls()[0][0]), kSomeDescriptor);
}

TEST_F(FileStatus, SharesTheFileInFailoverMode) {
  for (const int mode : {1, 2, 0x80, 0xFF}) {
    const GuardWatch guard(static_cast<uint8_t>(mode));
    const ScriptedImport open("_sopen", {.result = kFailed});
    const ScriptedImport close("_close", {.result = 0});
    EXPECT_EQ(StatusOf(path()), KIV_FSTAT_INUSE);
    ASSERT_EQ(open.calls().size(), 1u);
    EXPECT_EQ(static_cast<uint32_t>(open.calls()[0][1]), 0x8002u);
    EXPECT_EQ(static_cast<uint32_t>(open.calls()[0][2]), 0x40u);
    EXPECT_TRUE(close.calls().empty()) << "no file was opened";
  }
}

TEST_F(FileStatus, SucceedsEvenIfTheRuntimeFails) {
  for (const char* call : {"_access", "_sopen"}) {
    const StubbedImport failing(call, StubbedImport::kFailed, EIO, 32);
    EXPECT_NE(StatusOf(path()), 0u);
    EXPECT_GE(failing.calls(), 1u);
  }
  const StubbedImport failing("_close", StubbedImport::kFailed, EIO, 32);
  EXPECT_EQ(StatusOf(path()), KIV_FSTAT_FREE);
}

TEST_F(FileStatus, NeedsAPathAndAnOutput) {
  uint32_t status = kUntouched;
  const ScriptedImport access("_access", {.result = 0});
  CHECK_ARGUMENT(ctx_, KivSdFileGetStatus(ctx_, nullptr, &status));
  CHECK_ARGUMENT(ctx_, KivSdFileGetStatus(ctx_, path().c_str(), nullptr));
  EXPECT_EQ(KivSdFileGetStatus(nullptr, nullptr, &status), KIV_ST_ARGUMENT);
  EXPECT_EQ(status, kUntouched);
  EXPECT_TRUE(access.calls().empty());
}

TEST_F(FileStatus, NeedsNoContext) {
  uint32_t status = 0;
  EXPECT_EQ(KivSdFileGetStatus(nullptr, path().c_str(), &status), KIV_ST_OK);
  EXPECT_EQ(status, KIV_FSTAT_FREE);
}

}  // namespace
