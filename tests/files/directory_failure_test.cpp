// Directories, links and the steps of a search when the system's calls fail: statuses and records;
// and the arguments that they pass to the system.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/import_patch.h"
#include "support/last_error.h"
#include "support/os_errors.h"
#include "support/paths.h"

namespace {

using kiv::test::Context;
using kiv::test::GuardWatch;
using kiv::test::Here;
using kiv::test::ImportPatch;
using kiv::test::kEveryFile;
using kiv::test::kOsNameTooLong;
using kiv::test::kOsNoMoreFiles;
using kiv::test::ScriptedImport;
using kiv::test::SetErrors;

constexpr uintptr_t kFailed = 0xFFFFFFFF;
constexpr uintptr_t kInvalid = static_cast<uintptr_t>(-1);
constexpr uint32_t kErrorAccessDenied = 5;
constexpr uint32_t kOtherError = 4712;

// ---- Calls with one status for every failure ----

struct Operation {
  const char* call;
  uintptr_t failure;
  std::function<uint32_t(KivSdContext*)> run;
  uint32_t status;
};

KivSdFindRecord record;
const Operation kOperations[] = {
    {"_mkdir", kFailed, [](KivSdContext* ctx) { return KivSdDirCreate(ctx, "d"); },
     KIV_ST_DIR_CREATE},
    {"_chdir", kFailed, [](KivSdContext* ctx) { return KivSdDirChange(ctx, "d"); },
     KIV_ST_DIR_CHANGE},
    {"FindFirstFileA", kInvalid,
     [](KivSdContext* ctx) { return KivSdFileFindFirst(ctx, "d", 0, &record); }, KIV_ST_FIND_START},
    {"FindNextFileA", 0, [](KivSdContext* ctx) { return KivSdFileFindNext(ctx, &record); },
     KIV_ST_FIND_NEXT},
    {"FindClose", 0, [](KivSdContext* ctx) { return KivSdFileFindClose(ctx, &record); },
     KIV_ST_FIND_CLOSE},
    {"CreateHardLinkA", 0, [](KivSdContext* ctx) { return KivSdCreateLink(ctx, "e", "n", 0); },
     KIV_ST_FILE_CREATE},
    {"DeleteFileA", 0, [](KivSdContext* ctx) { return KivSdUnLink(ctx, "f"); }, KIV_ST_FILE_REMOVE},
};

TEST(FileNamesFailure, ReportsTheOperationsStatusAndTheError) {
  Context ctx;
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.call);
    for (const uint32_t error : {kErrorAccessDenied, 1u, 17u, 19u, 0x7FFFFFFFu}) {
      const ScriptedImport failing(operation.call, {.result = operation.failure, .error = error});
      CHECK_OUTCOME(ctx, operation.run(ctx), operation.status, error);
      EXPECT_EQ(operation.run(nullptr), operation.status);
      EXPECT_EQ(failing.calls().size(), 2u);
    }
  }
}

TEST(FileNamesFailure, IsNotReportedIfASuccessfulCallLeavesAnError) {
  Context ctx;
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.call);
    const uintptr_t success = operation.failure == 0 ? 1 : 0;
    for (const uint32_t error : {2u, kOsNoMoreFiles}) {
      const ScriptedImport call(operation.call, {.result = success, .error = error});
      CHECK_OK(ctx, operation.run(ctx));
    }
  }
}

// Stubs that leave an errno and a last error that differ.
int FailWithErrno(const char*) {
  SetErrors(ENOSPC, kErrorAccessDenied);
  return -1;
}

int32_t FailWithLastError(void*, void*, void*) {
  SetErrors(ENOSPC, kErrorAccessDenied);
  return 0;
}

void* FailToStart(const char*, void*) {
  SetErrors(ENOSPC, kErrorAccessDenied);
  return reinterpret_cast<void*>(kInvalid);
}

TEST(FileNamesFailure, ReportsErrnoOfTheRuntimeAndTheLastErrorOfTheSystem) {
  Context ctx;
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.call);
    const bool runtime = operation.call[0] == '_';
    void* replacement = runtime ? reinterpret_cast<void*>(&FailWithErrno)
                        : operation.failure == kInvalid
                            ? reinterpret_cast<void*>(&FailToStart)
                            : reinterpret_cast<void*>(&FailWithLastError);
    const ImportPatch patch(operation.call, replacement);
    CHECK_OUTCOME(ctx, operation.run(ctx), operation.status,
                  runtime ? uint32_t{ENOSPC} : kErrorAccessDenied);
  }
}

TEST(FileNamesFailure, OfAChangeReportsAMissingDirectory) {
  Context ctx;
  for (const uint32_t error : {1u, 2u, 3u, 20u}) {
    const ScriptedImport failing("_chdir", {.result = kFailed, .error = error});
    CHECK_OUTCOME(ctx, KivSdDirChange(ctx, "d"),
                  error == 2 ? KIV_ST_DIR_MISSING : KIV_ST_DIR_CHANGE, error);
  }
}

TEST(FileNamesFailure, OfTheNextFileReportsTheEndOfTheSearch) {
  Context ctx;
  for (const uint32_t error : {0u, 1u, 17u, kOsNoMoreFiles, 19u}) {
    const ScriptedImport failing("FindNextFileA", {.result = 0, .error = error});
    CHECK_OUTCOME(ctx, KivSdFileFindNext(ctx, &record),
                  error == kOsNoMoreFiles ? 1130601u : 1130602u, error);
  }
}

TEST(FileNames, BadArgumentsMakeNoCall) {
  const ScriptedImport mkdir("_mkdir", {.result = 0});
  const ScriptedImport chdir("_chdir", {.result = 0});
  const ScriptedImport rmdir("_rmdir", {.result = 0});
  const ScriptedImport access("_access", {.result = 0});
  const ScriptedImport first("FindFirstFileA", {.result = kInvalid});
  const ScriptedImport next("FindNextFileA", {.result = 1});
  const ScriptedImport close("FindClose", {.result = 1});
  const ScriptedImport full("GetFullPathNameA", {.result = 0});
  char** names = nullptr;
  uint32_t count = 0;
  static_cast<void>(KivSdDirChange(nullptr, nullptr));
  static_cast<void>(KivSdDirCreate(nullptr, nullptr));
  static_cast<void>(KivSdDirRemove(nullptr, nullptr));
  static_cast<void>(KivSdDirRemove(nullptr, ""));
  static_cast<void>(KivSdCreatePath(nullptr, nullptr));
  static_cast<void>(KivSdCreatePath(nullptr, std::string(1030, 'p').c_str()));
  static_cast<void>(KivSdFileFindFirst(nullptr, "*", 0, nullptr));
  static_cast<void>(KivSdFileFindNext(nullptr, nullptr));
  static_cast<void>(KivSdFileFindClose(nullptr, nullptr));
  static_cast<void>(KivSdFileFind(nullptr, nullptr, nullptr, nullptr, 0, &names, &count));
  static_cast<void>(KivSdFileFind(nullptr, nullptr, nullptr, "*", 0, nullptr, &count));
  static_cast<void>(KivSdFileFind(nullptr, nullptr, nullptr, "*", 0, &names, nullptr));
  for (const ScriptedImport* call :
       {&mkdir, &chdir, &rmdir, &access, &first, &next, &close, &full}) {
    EXPECT_TRUE(call->calls().empty());
  }
}

// ---- Making paths ----

std::vector<std::string> asked;  // paths whose existence was checked
std::vector<std::string> made;   // paths that were made
size_t existing;                 // count of levels that exist

int Access(const char* path, int mode) {
  EXPECT_EQ(mode, 0);
  asked.emplace_back(path);
  return asked.size() <= existing ? 0 : -1;
}

int Mkdir(const char* path) {
  made.emplace_back(path);
  return 0;
}

class PathCreation : public testing::Test {
 protected:
  using Paths = std::vector<std::string>;

  PathCreation() {
    asked.clear();
    made.clear();
    existing = 0;
  }

  // With backslashes for the platform's separator.
  void ExpectLevels(const std::string& written, Paths levels) {
    const std::string path = Here(written);
    for (std::string& level : levels) level = Here(level);
    asked.clear();
    made.clear();
    CHECK_OK(ctx_, KivSdCreatePath(ctx_, path.c_str()));
    EXPECT_EQ(asked, levels) << path;
    EXPECT_EQ(made, Paths(levels.begin() + static_cast<std::ptrdiff_t>(existing), levels.end()));
  }

  Context ctx_;
  ImportPatch access_{"_access", reinterpret_cast<void*>(&Access)};
  ImportPatch mkdir_{"_mkdir", reinterpret_cast<void*>(&Mkdir)};
};

TEST_F(PathCreation, TriesEachLevelInTurn) {
  ExpectLevels("a", {"a"});
  ExpectLevels("a\\b\\c", {"a", "a\\b", "a\\b\\c"});
  ExpectLevels("C:\\a\\b", {"C:", "C:\\a", "C:\\a\\b"});
  ExpectLevels("\\a\\b", {"\\a", "\\a\\b"});
  ExpectLevels("a\\", {"a"});
  ExpectLevels("a\\\\b", {"a", "a\\\\b"});
  ExpectLevels("\\\\server\\share", {"\\\\server", "\\\\server\\share"});
#ifdef _WIN32  // a slash separates for the system, but makes no level
  ExpectLevels("a/b\\c", {"a/b", "a/b\\c"});
#endif
  ExpectLevels("\\", {});
  ExpectLevels("", {});
  existing = 2;
  ExpectLevels("a\\b\\c\\d", {"a", "a\\b", "a\\b\\c", "a\\b\\c\\d"});
  ExpectLevels("a\\b", {"a", "a\\b"});
}

TEST_F(PathCreation, AcceptsUpTo1029Characters) {
  for (const size_t length : {size_t{1028}, size_t{1029}}) {
    const std::string path = "a\\" + std::string(length - 2, 'l');
    ExpectLevels(path, {"a", path});
    const std::string trailing = std::string(length - 1, 'l') + "\\";
    ExpectLevels(trailing, {trailing.substr(0, length - 1)});
  }
  asked.clear();
  ctx_.Spoil();
  EXPECT_EQ(KivSdCreatePath(ctx_, std::string(1030, 'l').c_str()), 1u);
  EXPECT_TRUE(asked.empty());
  EXPECT_TRUE(ctx_.IsUntouched());
}

TEST_F(PathCreation, StopsAtALevelThatCannotBeMade) {
  const ScriptedImport failing(
      "_mkdir", {.result = kFailed, .error = EACCES, .passFirst = 1, .failCount = 1});
  CHECK_OUTCOME(ctx_, KivSdCreatePath(ctx_, Here("a\\b\\c").c_str()), KIV_ST_DIR_CREATE,
                uint32_t{EACCES});
  EXPECT_EQ(asked, (Paths{"a", Here("a\\b")}));
  EXPECT_EQ(made, Paths{"a"});
}

TEST_F(PathCreation, RunsTheGuardForEachStep) {
  GuardWatch guard;
  existing = 1;
  EXPECT_EQ(KivSdCreatePath(nullptr, Here("a\\b\\c").c_str()), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 1 + 3 + 2u);
}

// ---- Removing trees ----

// A stub of the search, with the entries of each folder.
struct Entry {
  std::string name;
  bool isFolder;
};
std::deque<Entry> entries;          // entries of the next folder that is searched
std::deque<Entry> innerEntries;     // entries of the folder that is searched after it
std::vector<std::string> patterns;  // patterns of all searches
uint32_t endOfWalk;                 // error after the last entry
int openSearches;

void Show(void* data, const Entry& entry) {
  constexpr uint32_t kNormal = 0x80;
  KivSdFindData found = {};
  found.attributes = entry.isFolder ? KIV_ATTRIBUTE_DIRECTORY : kNormal;
  std::strncpy(found.name, entry.name.c_str(), sizeof found.name - 1);
  std::memcpy(data, &found, sizeof found);
}

std::deque<std::deque<Entry>> searches;

void* FindFirst(const char* pattern, void* data) {
  patterns.emplace_back(pattern);
  if (entries.empty()) {
    SetErrors(0, kOtherError);
    return reinterpret_cast<void*>(kInvalid);
  }
  ++openSearches;
  searches.push_back(entries);
  entries = innerEntries;
  innerEntries.clear();
  Show(data, searches.back().front());
  searches.back().pop_front();
  return reinterpret_cast<void*>(searches.size());
}

int32_t FindNext(void* search, void* data) {
  EXPECT_EQ(reinterpret_cast<size_t>(search), searches.size());
  std::deque<Entry>& left = searches.back();
  if (left.empty()) {
    SetErrors(0, endOfWalk);
    return 0;
  }
  Show(data, left.front());
  left.pop_front();
  return 1;
}

int32_t FindEnd(void* search) {
  EXPECT_EQ(reinterpret_cast<size_t>(search), searches.size());
  --openSearches;
  searches.pop_back();
  SetErrors(0, kErrorAccessDenied);
  return 0;  // must be ignored
}

std::vector<std::string> steps;  // all calls of the runtime
const char* failingStep;         // the call that fails, or null

int Step(const std::string& step) {
  steps.push_back(step);
  SetErrors(EACCES, kErrorAccessDenied);
  return failingStep != nullptr && step == failingStep ? -1 : 0;
}

int Chmod(const char* path, int mode) {
  EXPECT_EQ(mode, 0x180);
  return Step(std::string("chmod ") + path);
}
int Unlink(const char* path) { return Step(std::string("unlink ") + path); }
int Rmdir(const char* path) { return Step(std::string("rmdir ") + path); }

class TreeRemoval : public testing::Test {
 protected:
  using Steps = std::vector<std::string>;

  TreeRemoval() {
    entries.clear();
    innerEntries.clear();
    patterns.clear();
    searches.clear();
    steps.clear();
    endOfWalk = kOsNoMoreFiles;
    openSearches = 0;
    failingStep = nullptr;
  }
  ~TreeRemoval() override { EXPECT_EQ(openSearches, 0); }

  static Steps HereEach(Steps written) {
    for (std::string& step : written) step = Here(step);
    return written;
  }

  Context ctx_;
  ImportPatch first_{"FindFirstFileA", reinterpret_cast<void*>(&FindFirst)};
  ImportPatch next_{"FindNextFileA", reinterpret_cast<void*>(&FindNext)};
  ImportPatch close_{"FindClose", reinterpret_cast<void*>(&FindEnd)};
  ImportPatch chmod_{"_chmod", reinterpret_cast<void*>(&Chmod)};
  ImportPatch unlink_{"_unlink", reinterpret_cast<void*>(&Unlink)};
  ImportPatch rmdir_{"_rmdir", reinterpret_cast<void*>(&Rmdir)};
};

const std::deque<Entry> kTwoFiles = {{".", true}, {"..", true}, {"a", false}, {"b", false}};

TEST_F(TreeRemoval, MakesEachFileWritableAndRemovesIt) {
  entries = kTwoFiles;
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, "d"));
  EXPECT_EQ(patterns, Steps{Here("d\\") + kEveryFile});
  EXPECT_EQ(steps, HereEach({"chmod d\\a", "unlink d\\a", "chmod d\\b", "unlink d\\b", "rmdir d"}));
}

TEST_F(TreeRemoval, RemovesFilesWhoseNamesBeginWithDots) {
  entries = {{".a", false}, {"..b", false}, {"...", false}};
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, "d"));
  EXPECT_EQ(steps.size(), 7u);
}

TEST_F(TreeRemoval, EndsAtTheFirstFailureAndStillTriesTheFolder) {
  for (const std::string& step : HereEach({"chmod d\\a", "unlink d\\a"})) {
    SCOPED_TRACE(step);
    entries = kTwoFiles;
    steps.clear();
    failingStep = step.c_str();
    // The stub of _rmdir succeeds, so the error is that of the failing step.
    CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, "d"), KIV_ST_DIR_REMOVE, uint32_t{EACCES});
    EXPECT_EQ(steps.back(), "rmdir d");
    EXPECT_EQ(steps[steps.size() - 2], step);
    EXPECT_EQ(openSearches, 0);
  }
}

TEST_F(TreeRemoval, SucceedsIfTheEmptiedFolderStays) {
  entries = kTwoFiles;
  failingStep = "rmdir d";
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, "d"));
  entries = kTwoFiles;
  EXPECT_EQ(KivSdDirRemove(nullptr, "d"), KIV_ST_OK);
}

TEST_F(TreeRemoval, FailsIfTheSearchFailsEvenIfTheFolderIsRemoved) {
  for (const uint32_t error : {0u, kErrorAccessDenied, kOsNoMoreFiles - 1}) {
    entries = kTwoFiles;
    endOfWalk = error;
    CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, "d"), KIV_ST_DIR_REMOVE, error);
  }
  entries.clear();
  CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, "d"), KIV_ST_DIR_REMOVE, kOtherError);
  EXPECT_EQ(steps.back(), "rmdir d");
  failingStep = "rmdir d";
  CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, "d"), KIV_ST_DIR_REMOVE, uint32_t{EACCES});
  EXPECT_EQ(KivSdDirRemove(nullptr, "d"), KIV_ST_DIR_REMOVE);
}

// The inner folder cannot be searched. Its removal fails and ends the removal of the outer folder.
TEST_F(TreeRemoval, EndsIfAnInnerFolderCannotBeEmptied) {
  entries = {{"inner", true}, {"after", false}};
  CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, "d"), KIV_ST_DIR_REMOVE, kOtherError);
  EXPECT_EQ(patterns, (Steps{Here("d\\") + kEveryFile, Here("d\\inner\\") + kEveryFile}));
  EXPECT_EQ(steps, HereEach({"rmdir d\\inner", "rmdir d"}));
}

TEST_F(TreeRemoval, GoesOnIfAnEmptiedInnerFolderStays) {
  entries = {{"inner", true}, {"after", false}};
  innerEntries = {{"file", false}};
  const std::string failing = Here("rmdir d\\inner");
  failingStep = failing.c_str();
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, "d"));
  EXPECT_EQ(steps, HereEach({"chmod d\\inner\\file", "unlink d\\inner\\file", "rmdir d\\inner",
                             "chmod d\\after", "unlink d\\after", "rmdir d"}));
}

TEST_F(TreeRemoval, RemovesPathsThatFitAndRefusesLongerOnes) {
  // With a separator and the pattern, a path of 1028 characters.
  const std::string longest(1028 - 1 - std::strlen(kEveryFile), 'd');
  const std::string fit(std::strlen(kEveryFile), 'f');
  entries = {{fit, false}};
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, longest.c_str()));
  ASSERT_EQ(patterns, Steps{longest + Here("\\") + kEveryFile});
  EXPECT_EQ(steps[1], "unlink " + longest + Here("\\") + fit);

  entries = {{fit + "f", false}};
  CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, longest.c_str()), KIV_ST_DIR_REMOVE, kOsNameTooLong);
  EXPECT_EQ(steps.back(), "rmdir " + longest);

  patterns.clear();
  const std::string full = longest + std::string(1028 - longest.size(), 'd');
  for (const std::string& path : {longest + "d", full}) {  // `full` has no room for a separator
    CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, path.c_str()), KIV_ST_DIR_REMOVE, kOsNameTooLong);
    EXPECT_EQ(steps.back(), "rmdir " + path);
  }
  steps.clear();
  CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, (full + "d").c_str()), KIV_ST_DIR_REMOVE,
                kOsNameTooLong);
  EXPECT_TRUE(steps.empty());
  EXPECT_TRUE(patterns.empty());
}

// ---- Links ----

#ifdef _WIN32  // only Windows has had versions without links
uint32_t majorVersion;

// The beginning of the record that the system fills.
struct Version {
  uint32_t sizeBytes;
  uint32_t major;
  uint32_t minor;
};

int32_t GetVersionOf(Version* version) {
  EXPECT_EQ(version->sizeBytes, 148u);
  version->major = majorVersion;
  version->minor = 9;
  return 1;
}

TEST(CreateLink, CallsTheSystemOnlyOnVersionsWithLinks) {
  Context ctx;
  const ImportPatch version("GetVersionExA", reinterpret_cast<void*>(&GetVersionOf));
  const ScriptedImport link("CreateHardLinkA", {.result = 0, .error = kErrorAccessDenied});
  for (const uint32_t major : {0u, 4u}) {
    majorVersion = major;
    CHECK_OK(ctx, KivSdCreateLink(ctx, "existing", "new", 1));
    EXPECT_EQ(KivSdCreateLink(nullptr, "existing", "new", 1), KIV_ST_OK);
  }
  EXPECT_TRUE(link.calls().empty());
  for (const uint32_t major : {5u, 6u, 10u}) {
    majorVersion = major;
    CHECK_OUTCOME(ctx, KivSdCreateLink(ctx, "existing", "new", 1), KIV_ST_FILE_CREATE,
                  kErrorAccessDenied);
  }
  ASSERT_EQ(link.calls().size(), 3u);
  EXPECT_STREQ(reinterpret_cast<const char*>(link.calls()[0][0]), "new");
  EXPECT_STREQ(reinterpret_cast<const char*>(link.calls()[0][1]), "existing");
  EXPECT_EQ(link.calls()[0][2], 0u);
}

TEST(CreateLink, MakesNoLinkIfTheVersionIsUnknown) {
  Context ctx;
  const ScriptedImport version("GetVersionExA", {.result = 0, .error = kErrorAccessDenied});
  const ScriptedImport link("CreateHardLinkA", {.result = 1});
  CHECK_OK(ctx, KivSdCreateLink(ctx, "existing", "new", 0));
  EXPECT_TRUE(link.calls().empty());
}
#endif

std::vector<std::string> order;

void NoteGuard() { order.emplace_back("guard"); }

int32_t NoteLink(const char*, const char*, void*) {
  order.emplace_back("link");
  return 1;
}

TEST(CreateLink, RunsTheInstalledGuardFirst) {
  order.clear();
  const ImportPatch link("CreateHardLinkA", reinterpret_cast<void*>(&NoteLink));
  KivSdSetLeaseGuardAccessFunction(&NoteGuard);
  EXPECT_EQ(KivSdCreateLink(nullptr, "existing", "new", 0), KIV_ST_OK);
  KivSdSetFailoverModeFlag(1);
  EXPECT_EQ(KivSdCreateLink(nullptr, "existing", "new", 0), KIV_ST_OK);
  KivSdSetLeaseGuardAccessFunction(nullptr);
  EXPECT_EQ(KivSdCreateLink(nullptr, "existing", "new", 0), KIV_ST_OK);
  KivSdSetFailoverModeFlag(0);
  EXPECT_EQ(order, (std::vector<std::string>{"link", "guard", "link", "link"}));
}

// ---- Absolute paths ----

TEST(CanonicalPathFailure, IsNotReportedIfTheSystemCannotResolveThePath) {
  const ScriptedImport full("GetFullPathNameA", {.result = 0, .error = kErrorAccessDenied});
  char out[4] = "xyz";
  EXPECT_EQ(KivSdFileGetCanonicalPath("path", sizeof out, out), KIV_ST_OK);
  EXPECT_EQ(KivSdFileGetCanonicalPath("path", 0, out), KIV_ST_OK);
  EXPECT_STREQ(out, "xyz");
  ASSERT_EQ(full.calls().size(), 2u);
  EXPECT_STREQ(reinterpret_cast<const char*>(full.calls()[0][0]), "path");
  EXPECT_EQ(static_cast<uint32_t>(full.calls()[0][1]), sizeof out);
  EXPECT_EQ(full.calls()[0][2], reinterpret_cast<uintptr_t>(out));
  EXPECT_EQ(full.calls()[0][3], 0u);
}

TEST(CanonicalPathFailure, ComparesTheSizesAsSignedNumbers) {
  struct {
    uint32_t needed;
    int32_t sizeBytes;
    uint32_t status;
  } const cases[] = {
      {10, 10, KIV_ST_OK},
      {10, 9, KIV_ST_FILE_LENGTH},
      {10, -1, KIV_ST_FILE_LENGTH},
      {0, -1, KIV_ST_FILE_LENGTH},
      {0, 0, KIV_ST_OK},
      {0x80000000, 5, KIV_ST_OK},
      {0xFFFFFFFF, -1, KIV_ST_OK},
      {0x7FFFFFFF, 0x7FFFFFFF, KIV_ST_OK},
  };
  for (const auto& each : cases) {
    const ScriptedImport full("GetFullPathNameA", {.result = each.needed});
    EXPECT_EQ(KivSdFileGetCanonicalPath("path", each.sizeBytes, nullptr), each.status)
        << each.needed << " " << each.sizeBytes;
  }
}

}  // namespace
