// Collecting names and building lists of files without memory and when the search fails, and the
// sizes of their allocations.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guarded.h"
#include "support/import_patch.h"
#include "support/last_error.h"
#include "support/os_errors.h"
#include "support/paths.h"
#include "support/runtime_memory.h"
#include "support/temporary_folder.h"

namespace {

using kiv::test::Context;
using kiv::test::Guarded;
using kiv::test::Here;
using kiv::test::ImportPatch;
using kiv::test::kRoot;
using kiv::test::RuntimeMemory;
using kiv::test::ScriptedImport;
using kiv::test::TemporaryFolder;

constexpr uintptr_t kInvalid = static_cast<uintptr_t>(-1);
constexpr uint32_t kErrorAccessDenied = 5;

// ---- Collecting names ----

class NameCollection : public testing::Test {
 protected:
  static constexpr uint32_t kFiles = 17;  // the fewest for which the array grows

  NameCollection() {
    for (uint32_t i = 0; i < kFiles; ++i) folder_.Write("file" + std::to_string(i), "");
  }

  uint32_t Find(KivSdContext* ctx) {
    return KivSdFileFind(nullptr, ctx, nullptr, folder_.Path("file*").c_str(), 0, &names_, &count_);
  }

  void ExpectNothing() {
    EXPECT_EQ(names_, nullptr);
    EXPECT_EQ(count_, 0u);
  }

  void Spoil() {
    names_ = reinterpret_cast<char**>(8);
    count_ = 4711;
  }

  Context ctx_;
  char** names_ = nullptr;
  uint32_t count_ = 0;

 private:
  TemporaryFolder folder_;
};

TEST_F(NameCollection, AllocatesAnArrayThatDoublesAndABlockForEachName) {
  const ScriptedImport malloc("malloc", {.passFirst = UINT32_MAX});
  const ScriptedImport realloc("realloc", {.passFirst = UINT32_MAX});
  CHECK_OK(ctx_, Find(ctx_));
  EXPECT_EQ(count_, kFiles);
  ASSERT_EQ(malloc.calls().size(), 1 + kFiles);
  EXPECT_EQ(malloc.calls()[0][0], 16 * sizeof(char*));
  for (uint32_t i = 1; i <= kFiles; ++i) EXPECT_EQ(malloc.calls()[i][0], 1029u);
  ASSERT_EQ(realloc.calls().size(), 1u);
  EXPECT_EQ(realloc.calls()[0][1], 32 * sizeof(char*));
  EXPECT_EQ(KivSdFileFreeNames(nullptr, names_, count_), KIV_ST_OK);
}

TEST_F(NameCollection, IsFreedCompletely) {
  const RuntimeMemory memory;
  CHECK_OK(ctx_, Find(ctx_));
  EXPECT_EQ(memory.live(), int64_t{kFiles} + 1);
  EXPECT_EQ(KivSdFileFreeNames(nullptr, names_, count_), KIV_ST_OK);
  EXPECT_EQ(memory.live(), 0);
}

TEST_F(NameCollection, LeaksNothingWithoutMemory) {
  constexpr uint64_t kAllocations = 1 + kFiles + 1;
  for (uint64_t failing = 1; failing <= kAllocations + 1; ++failing) {
    SCOPED_TRACE(failing);
    const ScriptedImport close("FindClose", {.passFirst = UINT32_MAX});
    const RuntimeMemory memory(failing);
    Spoil();
    if (failing > kAllocations) {
      CHECK_OK(ctx_, Find(ctx_));
      EXPECT_FALSE(memory.failed());
      EXPECT_EQ(KivSdFileFreeNames(nullptr, names_, count_), KIV_ST_OK);
    } else {
      CHECK_OUTCOME(ctx_, Find(ctx_), KIV_ST_OUT_OF_MEMORY, 0u);
      EXPECT_TRUE(memory.failed());
      ExpectNothing();
    }
    EXPECT_EQ(memory.live(), 0);
    EXPECT_EQ(close.calls().size(), 1u);
  }
}

TEST_F(NameCollection, LeaksNothingIfTheSearchFails) {
  for (const uint32_t before : {0u, 1u, 15u, kFiles - 1}) {
    SCOPED_TRACE(before);
    const ScriptedImport next("FindNextFileA",
                              {.result = 0, .error = kErrorAccessDenied, .passFirst = before});
    const ScriptedImport close("FindClose", {.passFirst = UINT32_MAX});
    const RuntimeMemory memory;
    Spoil();
    CHECK_OUTCOME(ctx_, Find(ctx_), KIV_ST_FIND_NEXT, kErrorAccessDenied);
    ExpectNothing();
    EXPECT_EQ(Find(nullptr), KIV_ST_FIND_NEXT);
    EXPECT_EQ(memory.live(), 0);
    EXPECT_EQ(close.calls().size(), 2u);
  }
}

TEST_F(NameCollection, EndsWhereTheSearchEnds) {
  const ScriptedImport next("FindNextFileA",
                            {.result = 0, .error = kiv::test::kOsNoMoreFiles, .passFirst = 4});
  CHECK_OK(ctx_, Find(ctx_));
  EXPECT_EQ(count_, 5u);
  EXPECT_EQ(KivSdFileFreeNames(nullptr, names_, count_), KIV_ST_OK);
}

TEST_F(NameCollection, AllocatesNothingIfTheSearchCannotStart) {
  const ScriptedImport first("FindFirstFileA", {.result = kInvalid, .error = kErrorAccessDenied});
  const ScriptedImport close("FindClose", {.result = 1});
  const RuntimeMemory memory;
  Spoil();
  CHECK_OK(ctx_, Find(ctx_));
  ExpectNothing();
  EXPECT_EQ(memory.allocations(), 0u);
  EXPECT_TRUE(close.calls().empty());
}

std::string searched;     // pattern of the last search
uint32_t absoluteLength;  // length that the system returns for the next pattern

void* NotePattern(const char* pattern, void*) {
  searched = pattern;
  kiv::test::SetErrors(0, kiv::test::kOsNotFound);
  return reinterpret_cast<void*>(kInvalid);
}

uint32_t TellLength(const char*, uint32_t sizeBytes, char* buffer, char**) {
  EXPECT_EQ(sizeBytes, 1029u);
  std::strcpy(buffer, "what the system left there");
  return absoluteLength;
}

TEST_F(NameCollection, SearchesForTheAbsolutePattern) {
  const ImportPatch first("FindFirstFileA", reinterpret_cast<void*>(&NotePattern));
  static_cast<void>(KivSdFileFind(nullptr, nullptr, nullptr, Here(kRoot + "a\\..\\b/*").c_str(), 0,
                                  &names_, &count_));
  EXPECT_EQ(searched, Here(kRoot + "b\\*"));

  const ImportPatch full("GetFullPathNameA", reinterpret_cast<void*>(&TellLength));
  for (const uint32_t length : {1u, 26u, 1028u}) {
    absoluteLength = length;
    static_cast<void>(Find(nullptr));
    EXPECT_EQ(searched, "what the system left there");
  }
  for (const uint32_t length : {0u, 1029u, 1030u, 0xFFFFFFFFu}) {
    absoluteLength = length;
    Spoil();
    CHECK_OK(ctx_, Find(ctx_));
    ExpectNothing();
    EXPECT_EQ(searched, "");
    searched = "no search";
  }
}

// ---- Lists ----

TEST(FileListFailure, WithoutMemoryIsReportedAndKeepsTheList) {
  KivSdFindRecord found = {};
  found.name = "name";
  Guarded<KivSdFileListItem> item;
  const RuntimeMemory memory(1);
  EXPECT_EQ(KivSdAddFileListItem(item, &found, 1), 1u);
  EXPECT_TRUE(memory.failed());
  EXPECT_EQ(item->next, nullptr);
  EXPECT_EQ(item->size, 0xEEEEEEEEu);
  EXPECT_EQ(memory.live(), 0);
}

TEST(FileList, AllocatesBlocksOf1056Bytes) {
  KivSdFindRecord found = {};
  found.name = "name";
  KivSdFileListItem head = {};
  const ScriptedImport malloc("malloc", {.passFirst = UINT32_MAX});
  EXPECT_EQ(KivSdAddFileListItem(&head, &found, 1), 0u);
  ASSERT_EQ(malloc.calls().size(), 1u);
  EXPECT_EQ(malloc.calls()[0][0], 1056u);
  EXPECT_EQ(KivSdDeleteFileListItems(&head), 0u);
}

}  // namespace
