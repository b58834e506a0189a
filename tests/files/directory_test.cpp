// Directories and links on real files.
#ifdef _WIN32
#include <direct.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/guarded.h"
#include "support/os_errors.h"
#include "support/paths.h"
#include "support/temporary_folder.h"

namespace {

using kiv::test::Context;
using kiv::test::GuardedBytes;
using kiv::test::GuardWatch;
using kiv::test::Here;
using kiv::test::kOsNameExists;
using kiv::test::kOsNotFound;
using kiv::test::kRoot;
using kiv::test::kSeparator;
using kiv::test::kSpoilt;
using kiv::test::TemporaryFolder;

class Directory : public testing::Test {
 protected:
  // Names are written with backslashes for the platform's separator.
  std::string Path(const std::string& name = "") const { return folder_.Path(Here(name)); }
  bool Exists(const std::string& name) const { return std::filesystem::exists(Path(name)); }
  bool IsFolder(const std::string& name) const { return std::filesystem::is_directory(Path(name)); }
  void Write(const std::string& name, const std::string& bytes = "bytes") const {
    folder_.Write(Here(name), bytes);
  }
  void Make(const std::string& name) const { folder_.Make(Here(name)); }
  void MakeReadOnly(const std::string& name) const {
    std::filesystem::permissions(Path(name), std::filesystem::perms::owner_read);
  }

  Context ctx_;

 private:
  TemporaryFolder folder_;
};

// The runtime's calls, whose errno the library reports.
#ifdef _WIN32
int ChangeTo(const std::string& path) { return _chdir(path.c_str()); }
int MakeFolder(const std::string& path) { return _mkdir(path.c_str()); }
int RemoveFolder(const std::string& path) { return _rmdir(path.c_str()); }
#else
int ChangeTo(const std::string& path) { return chdir(path.c_str()); }
int MakeFolder(const std::string& path) { return mkdir(path.c_str(), 0777); }
int RemoveFolder(const std::string& path) { return rmdir(path.c_str()); }
#endif

// The errno of a call that must fail.
uint32_t ErrnoOf(int (*call)(const std::string&), const std::string& path) {
  errno = 0;
  EXPECT_EQ(call(path), -1);
  return static_cast<uint32_t>(errno);
}

// ---- The working directory ----

std::string WorkingDirectory() { return std::filesystem::current_path().string(); }

TEST_F(Directory, CanBecomeTheWorkingDirectory) {
  const std::string before = WorkingDirectory();
  Make("there");
  CHECK_OK(ctx_, KivSdDirChange(ctx_, Path("there").c_str()));
  EXPECT_EQ(std::filesystem::current_path().filename(), "there");
  EXPECT_EQ(KivSdDirChange(nullptr, ".."), KIV_ST_OK);
  EXPECT_TRUE(std::filesystem::is_directory("there"));
  CHECK_OK(ctx_, KivSdDirChange(ctx_, before.c_str()));
  EXPECT_EQ(WorkingDirectory(), before);
}

TEST_F(Directory, ThatIsMissingCannotBecomeTheWorkingDirectory) {
  const std::string before = WorkingDirectory();
  CHECK_OUTCOME(ctx_, KivSdDirChange(ctx_, Path("missing").c_str()), KIV_ST_DIR_MISSING,
                uint32_t{ENOENT});
  EXPECT_EQ(KivSdDirChange(nullptr, Path("missing").c_str()), KIV_ST_DIR_MISSING);
  CHECK_ARGUMENT(ctx_, KivSdDirChange(ctx_, nullptr));
  EXPECT_EQ(KivSdDirChange(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(WorkingDirectory(), before);
}

TEST_F(Directory, ThatIsAFileCannotBecomeTheWorkingDirectory) {
  Write("file");
  const std::string file = Path("file");
  CHECK_OUTCOME(ctx_, KivSdDirChange(ctx_, file.c_str()), KIV_ST_DIR_CHANGE,
                ErrnoOf(ChangeTo, file));
}

// ---- Making one ----

TEST_F(Directory, IsMadeOnlyInAnExistingDirectory) {
  CHECK_OK(ctx_, KivSdDirCreate(ctx_, Path("new").c_str()));
  EXPECT_TRUE(IsFolder("new"));
  EXPECT_EQ(KivSdDirCreate(nullptr, Path("other").c_str()), KIV_ST_OK);
  EXPECT_TRUE(IsFolder("other"));
  CHECK_OUTCOME(ctx_, KivSdDirCreate(ctx_, Path("new").c_str()), KIV_ST_DIR_CREATE,
                uint32_t{EEXIST});
  CHECK_OUTCOME(ctx_, KivSdDirCreate(ctx_, Path("missing\\new").c_str()), KIV_ST_DIR_CREATE,
                uint32_t{ENOENT});
  EXPECT_FALSE(Exists("missing"));
  CHECK_ARGUMENT(ctx_, KivSdDirCreate(ctx_, nullptr));
}

TEST_F(Directory, IsMadeUnlessTheNameExists) {
  CHECK_OK(ctx_, KivSdDirCreateEx(ctx_, Path("new").c_str()));
  EXPECT_TRUE(IsFolder("new"));
  CHECK_OK(ctx_, KivSdDirCreateEx(ctx_, Path("new").c_str()));
  EXPECT_EQ(KivSdDirCreateEx(nullptr, Path("new").c_str()), KIV_ST_OK);
  Write("file");
  CHECK_OK(ctx_, KivSdDirCreateEx(ctx_, Path("file").c_str()));
  EXPECT_FALSE(IsFolder("file"));
  CHECK_OUTCOME(ctx_, KivSdDirCreateEx(ctx_, Path("missing\\new").c_str()), KIV_ST_DIR_CREATE,
                uint32_t{ENOENT});
  CHECK_ARGUMENT(ctx_, KivSdDirCreateEx(ctx_, nullptr));
}

// ---- Making a path ----

TEST_F(Directory, IsMadeWithAllDirectoriesAboveIt) {
  CHECK_OK(ctx_, KivSdCreatePath(ctx_, Path("a\\b\\c d\\e").c_str()));
  EXPECT_TRUE(IsFolder("a\\b\\c d\\e"));
  CHECK_OK(ctx_, KivSdCreatePath(ctx_, Path("a\\b\\c d\\e").c_str()));
  CHECK_OK(ctx_, KivSdCreatePath(ctx_, Path("a\\b\\f\\").c_str()));
  EXPECT_TRUE(IsFolder("a\\b\\f"));
  CHECK_OK(ctx_, KivSdCreatePath(ctx_, Path("a\\\\g\\\\\\h\\\\").c_str()));
  EXPECT_TRUE(IsFolder("a\\g\\h"));
  EXPECT_EQ(KivSdCreatePath(nullptr, Path("a\\i\\j").c_str()), KIV_ST_OK);
  EXPECT_TRUE(IsFolder("a\\i\\j"));
}

TEST_F(Directory, IsMadeBelowTheWorkingDirectory) {
  const std::string before = WorkingDirectory();
  ASSERT_EQ(KivSdDirChange(nullptr, Path().c_str()), KIV_ST_OK);
  CHECK_OK(ctx_, KivSdCreatePath(ctx_, Here("relative\\path").c_str()));
  EXPECT_TRUE(IsFolder("relative\\path"));
  CHECK_OK(ctx_, KivSdCreatePath(ctx_, "one"));
  EXPECT_TRUE(IsFolder("one"));
  CHECK_OK(ctx_, KivSdCreatePath(ctx_, ""));
  CHECK_OK(ctx_, KivSdCreatePath(ctx_, Here("\\").c_str()));
  ASSERT_EQ(KivSdDirChange(nullptr, before.c_str()), KIV_ST_OK);
}

TEST_F(Directory, IsNotMadeBelowAFile) {
  Write("file");
  CHECK_OUTCOME(ctx_, KivSdCreatePath(ctx_, Path("file\\below\\deeper").c_str()), KIV_ST_DIR_CREATE,
                ErrnoOf(MakeFolder, Path("file\\below")));
#ifdef _WIN32
  // A slash is a separator for the system but not for KivSdCreatePath: folder x is missing.
  CHECK_OUTCOME(ctx_, KivSdCreatePath(ctx_, Path("x/y").c_str()), KIV_ST_DIR_CREATE,
                uint32_t{ENOENT});
#endif
}

TEST_F(Directory, IsNotMadeWithAPathLongerThan1029Characters) {
  ctx_.Spoil();
  EXPECT_EQ(KivSdCreatePath(ctx_, nullptr), 1u);
  EXPECT_EQ(KivSdCreatePath(nullptr, nullptr), 1u);
  const std::string tooLong = Path("") + std::string(1030 - Path("").size(), 'p');
  EXPECT_EQ(KivSdCreatePath(ctx_, tooLong.c_str()), 1u);
  EXPECT_TRUE(ctx_.IsUntouched());
}

// Extends `path` to `length` with levels of 50 characters. The last level takes the rest.
std::string PathOfLength(std::string path, size_t length) {
  constexpr size_t kLevel = 50;
  while (path.size() + 2 * kLevel < length) path += kSeparator + std::string(kLevel - 1, 'd');
  return path + kSeparator + std::string(length - path.size() - 1, 'l');
}

TEST_F(Directory, IsMadeIfTheSystemAcceptsThePathsLength) {
  Make("deep");
  const std::string shorter = PathOfLength(Path("deep"), 240);
  CHECK_OK(ctx_, KivSdCreatePath(ctx_, shorter.c_str()));
  EXPECT_TRUE(std::filesystem::is_directory(shorter));
#ifdef _WIN32
  // Paths within the library's limit that are too long for the system fail like other directories
  // that cannot be made.
  for (const size_t length : {size_t{300}, size_t{1028}, size_t{1029}}) {
    const std::string path = PathOfLength(Path("deep"), length);
    ASSERT_EQ(path.size(), length);
    CHECK_OUTCOME(ctx_, KivSdCreatePath(ctx_, path.c_str()), KIV_ST_DIR_CREATE, uint32_t{ENOENT});
  }
#else
  const std::string longest = PathOfLength(Path("deep"), 1029);
  CHECK_OK(ctx_, KivSdCreatePath(ctx_, longest.c_str()));
  EXPECT_TRUE(std::filesystem::is_directory(longest));
#endif
}

// ---- Removing one ----

TEST_F(Directory, IsRemovedWithEverythingInIt) {
  const std::vector<std::string> folders = {
      "tree",        "tree\\a",           "tree\\a\\b",     "tree\\a\\b\\c",
      "tree\\empty", "tree\\dotted.name", "tree\\a\\other", "tree\\with space"};
  for (const std::string& folder : folders) {
    Make(folder);
    if (folder == "tree\\empty") continue;
    for (const char* file : {"\\file.txt", "\\file", "\\.hidden", "\\read only"}) {
      Write(folder + file);
    }
    MakeReadOnly(folder + "\\read only");
  }
  Write("beside");
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, Path("tree").c_str()));
  EXPECT_FALSE(Exists("tree"));
  EXPECT_TRUE(Exists("beside"));
}

TEST_F(Directory, IsRemovedIfItIsEmpty) {
  Make("empty");
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, Path("empty").c_str()));
  EXPECT_FALSE(Exists("empty"));
  Make("again");
  EXPECT_EQ(KivSdDirRemove(nullptr, Path("again").c_str()), KIV_ST_OK);
  EXPECT_FALSE(Exists("again"));
}

TEST_F(Directory, IsRemovedWithAThousandFiles) {
  Make("many");
  for (int i = 0; i < 1000; ++i) Write("many\\" + std::to_string(i), "");
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, Path("many").c_str()));
  EXPECT_FALSE(Exists("many"));
}

TEST_F(Directory, IsRemovedWithAHundredLevels) {
  std::string path = "deep";
  for (int i = 0; i < 100; ++i) {
    Make(path);
    Write(path + "\\f");
    path += "\\d";
  }
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, Path("deep").c_str()));
  EXPECT_FALSE(Exists("deep"));
}

TEST_F(Directory, CannotBeRemovedIfItIsMissing) {
  CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, Path("missing").c_str()), KIV_ST_DIR_REMOVE,
                uint32_t{ENOENT});
  EXPECT_EQ(KivSdDirRemove(nullptr, Path("missing").c_str()), KIV_ST_DIR_REMOVE);
  CHECK_ARGUMENT(ctx_, KivSdDirRemove(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdDirRemove(ctx_, ""));
  EXPECT_EQ(KivSdDirRemove(nullptr, nullptr), KIV_ST_ARGUMENT);
}

TEST_F(Directory, ThatIsAFileIsNotRemoved) {
  Write("file");
  const std::string file = Path("file");
  CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, file.c_str()), KIV_ST_DIR_REMOVE,
                ErrnoOf(RemoveFolder, file));
  EXPECT_TRUE(Exists("file"));
}

#ifdef _WIN32  // elsewhere an open file loses its name
TEST_F(Directory, StaysIfItHoldsAnOpenFile) {
  Make("tree");
  Make("tree\\inner");
  Write("tree\\inner\\held");
  Write("tree\\other");
  uint32_t held = 0;
  ASSERT_EQ(KivSdFileOpen(nullptr, Path("tree\\inner\\held").c_str(), 0, 0, &held), KIV_ST_OK);
  CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, Path("tree").c_str()), KIV_ST_DIR_REMOVE,
                uint32_t{ENOTEMPTY});
  EXPECT_TRUE(Exists("tree\\inner\\held"));
  EXPECT_EQ(KivSdFileClose(nullptr, held), KIV_ST_OK);
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, Path("tree").c_str()));
  EXPECT_FALSE(Exists("tree"));
}
#endif

// ---- Attributes ----

TEST(Attributes, AreADirectorysIfBit4IsSet) {
  Context ctx;
  for (uint32_t attributes = 0; attributes <= 0xFF; ++attributes) {
    uint8_t isDirectory = kSpoilt;
    CHECK_OK(ctx, KivSdIsAttrDirectory(ctx, static_cast<uint8_t>(attributes), &isDirectory));
    EXPECT_EQ(isDirectory, attributes / 16 % 2);
    EXPECT_EQ(KivSdIsAttrDirectory(nullptr, static_cast<uint8_t>(attributes), &isDirectory),
              KIV_ST_OK);
  }
  CHECK_ARGUMENT(ctx, KivSdIsAttrDirectory(ctx, 0x10, nullptr));
}

// ---- Links ----

TEST_F(Directory, HoldsAFileUnderTwoNames) {
  Write("file", "the bytes");
  CHECK_OK(ctx_, KivSdCreateLink(ctx_, Path("file").c_str(), Path("link").c_str(), 0));
  EXPECT_TRUE(std::filesystem::equivalent(Path("file"), Path("link")));
  CHECK_OK(ctx_, KivSdUnLink(ctx_, Path("file").c_str()));
  EXPECT_FALSE(Exists("file"));
  EXPECT_EQ(std::filesystem::file_size(Path("link")), 9u);
  EXPECT_EQ(KivSdUnLink(nullptr, Path("link").c_str()), KIV_ST_OK);
  EXPECT_FALSE(Exists("link"));
}

TEST_F(Directory, RefusesALinkWithAnExistingNameOrToAMissingFile) {
  Write("file");
  Write("taken");
  CHECK_OUTCOME(ctx_, KivSdCreateLink(ctx_, Path("file").c_str(), Path("taken").c_str(), 7),
                KIV_ST_FILE_CREATE, kOsNameExists);
  CHECK_OUTCOME(ctx_, KivSdCreateLink(ctx_, Path("missing").c_str(), Path("link").c_str(), 7),
                KIV_ST_FILE_CREATE, kOsNotFound);
  EXPECT_EQ(KivSdCreateLink(nullptr, Path("missing").c_str(), Path("link").c_str(), 7),
            KIV_ST_FILE_CREATE);
  EXPECT_FALSE(Exists("link"));
  CHECK_OUTCOME(ctx_, KivSdUnLink(ctx_, Path("missing").c_str()), KIV_ST_FILE_REMOVE, kOsNotFound);
}

// ---- Absolute paths ----

std::string Canonical(const std::string& path, size_t sizeBytes) {
  GuardedBytes out(sizeBytes);
  EXPECT_EQ(KivSdFileGetCanonicalPath(path.c_str(), static_cast<int32_t>(sizeBytes), out.text()),
            KIV_ST_OK);
  return out.text();
}

TEST(CanonicalPath, IsAbsoluteWithoutDotSegments) {
  EXPECT_EQ(Canonical(Here(kRoot + "a\\.\\b\\..\\c"), 64), Here(kRoot + "a\\c"));
  EXPECT_EQ(Canonical(Here(kRoot + "a/b\\..\\../c/d"), 64), Here(kRoot + "c\\d"));
  EXPECT_EQ(Canonical(kRoot, 64), kRoot);
  EXPECT_EQ(Canonical("name", 1029), WorkingDirectory() + kSeparator + "name");
  EXPECT_EQ(Canonical(Here("..\\.\\x/.."), 1029),
            std::filesystem::current_path().parent_path().string());
}

TEST(CanonicalPath, NeedsRoomForItsTerminator) {
  const std::string path = Here(kRoot + "a\\name");
  EXPECT_EQ(Canonical(path, path.size() + 1), path);
  GuardedBytes out(path.size());
  EXPECT_EQ(KivSdFileGetCanonicalPath(path.c_str(), static_cast<int32_t>(path.size()), out.text()),
            KIV_ST_FILE_LENGTH);
  EXPECT_EQ(KivSdFileGetCanonicalPath(path.c_str(), 0, nullptr), KIV_ST_FILE_LENGTH);
}

// ---- The lease guard ----

TEST_F(Directory, RunsTheGuardFirst) {
  const std::string before = WorkingDirectory();
  GuardWatch guard;
  uint8_t flag = 0;
  char out[8];
  // The guard runs before the argument checks.
  EXPECT_EQ(KivSdDirCreate(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdDirRemove(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdCreatePath(nullptr, nullptr), 1u);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdIsAttrDirectory(nullptr, 0, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  // The guard runs once for each exported operation that an operation calls, and for itself.
  EXPECT_EQ(KivSdDirCreate(nullptr, Path("a").c_str()), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdDirCreateEx(nullptr, Path("a").c_str()), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 2u);
  EXPECT_EQ(KivSdDirCreateEx(nullptr, Path("b").c_str()), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 3u);
  EXPECT_EQ(KivSdCreatePath(nullptr, ""), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdIsAttrDirectory(nullptr, 0, &flag), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdDirCreate(nullptr, Path("a\\c").c_str()), KIV_ST_OK);
  EXPECT_EQ(KivSdDirCreate(nullptr, Path("a\\d").c_str()), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 2u);
  EXPECT_EQ(KivSdDirRemove(nullptr, Path("a").c_str()), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 3u);
  Write("file");
  EXPECT_EQ(KivSdCreateLink(nullptr, Path("file").c_str(), Path("link").c_str(), 0), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdUnLink(nullptr, Path("link").c_str()), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 2u);
  EXPECT_EQ(KivSdFileGetCanonicalPath(kRoot.c_str(), sizeof out, out), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  // Changing the directory does not run the guard.
  EXPECT_EQ(KivSdDirChange(nullptr, before.c_str()), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 0u);
}

}  // namespace
