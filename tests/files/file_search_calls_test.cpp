// Collecting names and removing trees in simulated folders: the calls of the memory manager, and
// that no path or name overruns its buffer, however long it is.
//
// This file implements the platform's part of file search. The linker redirects the library's calls
// of the manager to here; they are recorded and passed on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "os/file_names.h"
#include "os/file_search.h"
#include "os/folders.h"
#include "os/path.h"
#include "support/context.h"

namespace {

using kiv::test::Context;

struct Call {
  std::string function;
  uint64_t sizeBytes;
  std::string file;
  uint32_t line;

  bool operator==(const Call&) const = default;
};

void PrintTo(const Call& call, std::ostream* out) {
  *out << call.function << "(" << call.sizeBytes << ", " << call.file << ":" << call.line << ")";
}

std::vector<Call> calls;
void* expectedOwner;

}  // namespace

extern "C" {

uint32_t __real_adMalloc(void*, uint64_t, void**, const char*, uint32_t);
uint32_t __wrap_adMalloc(void*, uint64_t, void**, const char*, uint32_t);
uint32_t __real_adRealloc(void*, uint64_t, void*, void**, const char*, uint32_t);
uint32_t __wrap_adRealloc(void*, uint64_t, void*, void**, const char*, uint32_t);
uint32_t __real_adFree(void*, const char*, uint32_t);
uint32_t __wrap_adFree(void*, const char*, uint32_t);

uint32_t __wrap_adMalloc(void* owner, uint64_t sizeBytes, void** block, const char* file,
                         uint32_t line) {
  EXPECT_EQ(owner, expectedOwner);
  calls.push_back({"adMalloc", sizeBytes, file, line});
  return __real_adMalloc(owner, sizeBytes, block, file, line);
}

uint32_t __wrap_adRealloc(void* owner, uint64_t sizeBytes, void* oldBlock, void** newBlock,
                          const char* file, uint32_t line) {
  EXPECT_EQ(owner, expectedOwner);
  calls.push_back({"adRealloc", sizeBytes, file, line});
  return __real_adRealloc(owner, sizeBytes, oldBlock, newBlock, file, line);
}

uint32_t __wrap_adFree(void* block, const char* file, uint32_t line) {
  calls.push_back({"adFree", 0, file, line});
  return __real_adFree(block, file, line);
}

}  // extern "C"

// ---- The platform ----

namespace {

struct Entry {
  std::string name;
  bool isFolder = false;
};

std::vector<Entry> folder;  // the content of every folder
size_t searches = 0;        // count of open searches
size_t deepest = 0;         // most searches open at a time
size_t longestPath = 0;
std::map<std::string, int> removed;

struct Search {
  size_t next = 0;
};

bool Show(Search* search, KivSdFindData* found) {
  if (search->next == folder.size()) return false;
  const Entry& entry = folder[search->next++];
  std::memset(found, 0, sizeof *found);
  found->attributes = entry.isFolder ? KIV_ATTRIBUTE_DIRECTORY : 0;
  std::memcpy(found->name, entry.name.c_str(), entry.name.size() + 1);
  return true;
}

void NotePath(const char* path) { longestPath = std::max(longestPath, std::strlen(path)); }

}  // namespace

namespace kiv::os {

const uint32_t kErrorNoMoreFiles = 18;
const uint32_t kErrorPathTooLong = 206;
const char* const kEveryFile = "*.*";

ValueResult<void*> StartFileSearch(const char* pattern, KivSdFindData* found) {
  NotePath(pattern);
  auto* search = new Search;
  if (Show(search, found)) {
    deepest = std::max(deepest, ++searches);
    return {true, 0, search};
  }
  delete search;
  return {false, 2, nullptr};
}

Result ContinueFileSearch(void* search, KivSdFindData* found) {
  if (Show(static_cast<Search*>(search), found)) return {true, 0};
  return {false, kErrorNoMoreFiles};
}

Result EndFileSearch(void* search) {
  --searches;
  delete static_cast<Search*>(search);
  return {true, 0};
}

uint32_t AbsolutePath(const char* path, uint32_t sizeBytes, char* buffer) {
  const auto length = static_cast<uint32_t>(std::strlen(path));
  if (length >= sizeBytes) return length + 1;
  std::memcpy(buffer, path, length + 1);
  return length;
}

Result RemoveFolder(const char* path) {
  NotePath(path);
  ++removed[path];
  return {false, 39};
}

Result MakeWritable(const char* path) {
  NotePath(path);
  return {true, 0};
}

Result RemoveFileByName(const char* path) {
  ++removed[path];
  return {true, 0};
}

}  // namespace kiv::os

namespace {

std::string Below(const std::string& path, const std::string& name) {
  return path + kiv::os::kPathSeparator + name;
}

class FileSearchCalls : public testing::Test {
 protected:
  FileSearchCalls() {
    calls.clear();
    folder.clear();
    removed.clear();
    searches = deepest = longestPath = 0;
    expectedOwner = nullptr;
  }
  ~FileSearchCalls() override { EXPECT_EQ(searches, 0u); }

  Context ctx_;
};

// ---- Collecting names ----

TEST_F(FileSearchCalls, PassTheirSourceAndTheHostsMemory) {
  for (int i = 0; i < 17; ++i) folder.push_back({std::to_string(i)});
  uint64_t owner = 0;
  expectedOwner = &owner;
  char** names = nullptr;
  uint32_t count = 0;
  CHECK_OK(ctx_, KivSdFileFind(&owner, ctx_, "", "*", 0, &names, &count));
  ASSERT_EQ(count, 17u);

  std::vector<Call> expected = {{"adMalloc", 128, "sd/sdfio", 117}};
  expected.insert(expected.end(), 16, {"adMalloc", 1029, "sd/sdfio", 157});
  expected.push_back({"adRealloc", 256, "sd/sdfio", 139});
  expected.push_back({"adMalloc", 1029, "sd/sdfio", 157});
  EXPECT_EQ(calls, expected);

  calls.clear();
  EXPECT_EQ(KivSdFileFreeNames(nullptr, names, count), KIV_ST_OK);
  expected.assign(17, {"adFree", 0, "sd/sdfio", 222});
  expected.push_back({"adFree", 0, "sd/sdfio", 225});
  EXPECT_EQ(calls, expected);
}

TEST_F(FileSearchCalls, GrowTheArrayOnlyWhenItIsFull) {
  struct {
    uint32_t names;
    size_t growths;
  } const cases[] = {{15, 0}, {16, 0}, {17, 1}, {32, 1}, {33, 2}, {1000, 6}};
  for (const auto& each : cases) {
    folder.assign(each.names, {"name"});
    calls.clear();
    char** names = nullptr;
    uint32_t count = 0;
    CHECK_OK(ctx_, KivSdFileFind(nullptr, ctx_, "d/", "*", 0, &names, &count));
    EXPECT_EQ(count, each.names);
    EXPECT_STREQ(names[count - 1], "d/name");
    EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                            [](const Call& call) { return call.function == "adRealloc"; }),
              static_cast<std::ptrdiff_t>(each.growths));
    EXPECT_EQ(KivSdFileFreeNames(nullptr, names, count), KIV_ST_OK);
  }
}

TEST_F(FileSearchCalls, SkipTheFoldersOwnNamesAtAnyPlace) {
  folder = {{".", true}, {"a"}, {"..", true}, {"..b"}, {".c"}, {"...", true}, {".", true}};
  char** names = nullptr;
  uint32_t count = 0;
  CHECK_OK(ctx_, KivSdFileFind(nullptr, ctx_, nullptr, "dir/*", 0, &names, &count));
  ASSERT_EQ(count, 4u);
  EXPECT_STREQ(names[0], "dir/a");
  EXPECT_STREQ(names[1], "dir/..b");
  EXPECT_STREQ(names[2], "dir/.c");
  EXPECT_STREQ(names[3], "dir/...");
  EXPECT_EQ(KivSdFileFreeNames(nullptr, names, count), KIV_ST_OK);
}

TEST_F(FileSearchCalls, FreeAllNamesIfOneDoesNotFit) {
  const std::string prefix(1029 - 260, 'p');
  folder = {{"short"}, {std::string(259, 'n')}};
  char** names = nullptr;
  uint32_t count = 0;
  CHECK_OK(ctx_, KivSdFileFind(nullptr, ctx_, prefix.c_str(), "*", 0, &names, &count));
  ASSERT_EQ(count, 2u);
  EXPECT_EQ(std::strlen(names[1]), 1028u);
  EXPECT_EQ(KivSdFileFreeNames(nullptr, names, count), KIV_ST_OK);

  CHECK_OUTCOME(ctx_, KivSdFileFind(nullptr, ctx_, (prefix + "p").c_str(), "*", 0, &names, &count),
                KIV_ST_FIND_NEXT, 206u);
  EXPECT_EQ(names, nullptr);
  EXPECT_EQ(count, 0u);
}

TEST_F(FileSearchCalls, OfAListPassTheirSource) {
  KivSdFindRecord record = {};
  record.name = "name";
  KivSdFileListItem head = {};
  EXPECT_EQ(KivSdAddFileListItem(&head, &record, 1), 0u);
  EXPECT_EQ(KivSdDeleteFileListItems(&head), 0u);
  EXPECT_EQ(calls, (std::vector<Call>{{"adMalloc", 1056, "sd/sdcommon", 1705},
                                      {"adFree", 0, "sd/sdcommon", 1735}}));
}

// ---- Removing trees ----

// Every folder holds another, so the paths grow up to the limit.
TEST_F(FileSearchCalls, OfARemovalEndAtTheLongestPath) {
  folder = {{"d", true}};
  CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, "d"), KIV_ST_DIR_REMOVE, 39u);
  EXPECT_EQ(longestPath, 1028u - 1);
  EXPECT_EQ(deepest, (1028u - 4 + 1) / 2);
  EXPECT_EQ(removed["d"], 1);
  EXPECT_EQ(removed[Below("d", "d")], 1);
  EXPECT_EQ(removed.size(), deepest + 1);
}

TEST_F(FileSearchCalls, OfARemovalAcceptTheLongestNamesThatFit) {
  const std::string name(259, 'n');
  folder = {{name}};
  const std::string path(1028 - 260, 'd');
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, path.c_str()));
  EXPECT_EQ(removed[Below(path, name)], 1);
  EXPECT_EQ(longestPath, 1028u);
  CHECK_OUTCOME(ctx_, KivSdDirRemove(ctx_, (path + "d").c_str()), KIV_ST_DIR_REMOVE, 39u);
  EXPECT_EQ(longestPath, 1028u);
}

}  // namespace
