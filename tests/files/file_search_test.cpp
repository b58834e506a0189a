// File search on real files: walking a folder with a record, and collecting names.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/guarded.h"
#include "support/os_errors.h"
#include "support/paths.h"
#include "support/temporary_folder.h"

namespace {

using kiv::test::Context;
using kiv::test::Guarded;
using kiv::test::GuardWatch;
using kiv::test::Here;
using kiv::test::kOsBadHandle;
using kiv::test::kOsNameTooLong;
using kiv::test::kOsNoMoreFiles;
using kiv::test::kOsNotFound;
using kiv::test::kOsPathNotFound;
using kiv::test::TemporaryFolder;

constexpr uint32_t kFlags = 0xFEDCBA98;

class FileSearch : public testing::Test {
 protected:
  // Names are written with backslashes for the platform's separator.
  std::string Path(const std::string& name) const { return folder_.Path(Here(name)); }
  void Write(const std::string& name, const std::string& bytes = "") const {
    folder_.Write(Here(name), bytes);
  }
  void Make(const std::string& name) const { folder_.Make(Here(name)); }

  Context ctx_;

 private:
  TemporaryFolder folder_;
};

// ---- Walking ----

TEST_F(FileSearch, FindsEachFileOnce) {
  Write("one.txt", "1");
  Write("two.txt", "22");
  Write("three.bin", "333");
  Make("four.txt");
  KivSdFindRecord record = {};
  std::set<std::string> names;
  CHECK_OK(ctx_, KivSdFileFindFirst(ctx_, Path("*.txt").c_str(), kFlags, &record));
  uint32_t status = KIV_ST_OK;
  for (; status == KIV_ST_OK; status = KivSdFileFindNext(ctx_, &record)) {
    EXPECT_EQ(record.name, record.data.name);
    EXPECT_EQ(record.attributes, record.data.attributes);
    EXPECT_TRUE(names.insert(record.name).second) << record.name;
    const bool isFolder = (record.attributes & KIV_ATTRIBUTE_DIRECTORY) != 0;
    EXPECT_EQ(isFolder, std::string(record.name) == "four.txt");
    if (std::string(record.name) == "two.txt") {
      EXPECT_EQ(record.data.sizeLow, 2u);
      EXPECT_EQ(record.data.sizeHigh, 0u);
    }
    EXPECT_EQ(record.flags, kFlags);
  }
  EXPECT_EQ(status, KIV_ST_FIND_END);
  EXPECT_EQ(ctx_.status(), KIV_ST_FIND_END);
  EXPECT_EQ(ctx_.osError(), kOsNoMoreFiles);
  EXPECT_EQ(names, (std::set<std::string>{"one.txt", "two.txt", "four.txt"}));
  CHECK_OK(ctx_, KivSdFileFindClose(ctx_, &record));
}

std::filesystem::file_time_type FileTime(int64_t secondsSince1970) {
  // The clocks start at different years, whole seconds apart.
  using FileClock = std::filesystem::file_time_type::clock;
  const auto apart = std::chrono::round<std::chrono::seconds>(
      FileClock::now().time_since_epoch() - std::chrono::system_clock::now().time_since_epoch());
  return std::filesystem::file_time_type(apart + std::chrono::seconds(secondsSince1970));
}

TEST_F(FileSearch, ReturnsTheTimeOfTheLastWrite) {
  Write("file", "12345");
  // A whole second, which every file system and library can store.
  constexpr uint64_t kWritten = 133'500'000'000'000'000;  // in 100 ns since 1601
  constexpr int64_t kSeconds = kWritten / 10'000'000 - 11'644'473'600;
  std::filesystem::last_write_time(Path("file"), FileTime(kSeconds));

  KivSdFindRecord record = {};
  CHECK_OK(ctx_, KivSdFileFindFirst(ctx_, Path("file").c_str(), 0, &record));
  EXPECT_EQ(record.data.written.low, static_cast<uint32_t>(kWritten));
  EXPECT_EQ(record.data.written.high, static_cast<uint32_t>(kWritten >> 32));
  uint32_t size = 0;
  int64_t time = 0;
  EXPECT_EQ(KivSdGetFileSizeAndCreateDate(&record, &size, &time), 0u);
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(time, kSeconds);

  KivSdFileListItem item = {};
  EXPECT_EQ(KivSdAddFileListItem(&item, &record, 0), 0u);
  EXPECT_STREQ(item.name, "file");
  EXPECT_EQ(item.size, 5u);
  EXPECT_EQ(item.modified, time);
  CHECK_OK(ctx_, KivSdFileFindClose(ctx_, &record));
}

TEST_F(FileSearch, ThatFindsNothingStoresNoNameAndNoAttributes) {
  Guarded<KivSdFindRecord> record;
  const char* const name = record->name;
  const uint32_t attributes = record->attributes;
  CHECK_OUTCOME(ctx_, KivSdFileFindFirst(ctx_, Path("*.none").c_str(), kFlags, record),
                KIV_ST_FIND_START, kOsNotFound);
  EXPECT_EQ(reinterpret_cast<intptr_t>(record->search), -1);
  EXPECT_EQ(record->flags, kFlags);
  EXPECT_EQ(record->name, name);
  EXPECT_EQ(record->attributes, attributes);
  CHECK_OUTCOME(ctx_, KivSdFileFindFirst(ctx_, Path("none\\*").c_str(), kFlags, record),
                KIV_ST_FIND_START, kOsPathNotFound);
  EXPECT_EQ(KivSdFileFindFirst(nullptr, Path("*.none").c_str(), 0, record), KIV_ST_FIND_START);
  CHECK_OUTCOME(ctx_, KivSdFileFindClose(ctx_, record), KIV_ST_FIND_CLOSE, kOsBadHandle);
  EXPECT_EQ(KivSdFileFindClose(nullptr, record), KIV_ST_FIND_CLOSE);
}

TEST_F(FileSearch, KeepsTheLastFileAfterItsEnd) {
  Write("only");
  KivSdFindRecord record = {};
  CHECK_OK(ctx_, KivSdFileFindFirst(ctx_, Path("only").c_str(), 0, &record));
  CHECK_OUTCOME(ctx_, KivSdFileFindNext(ctx_, &record), KIV_ST_FIND_END, kOsNoMoreFiles);
  EXPECT_EQ(KivSdFileFindNext(nullptr, &record), KIV_ST_FIND_END);
  EXPECT_STREQ(record.name, "only");
  EXPECT_EQ(KivSdFileFindClose(nullptr, &record), KIV_ST_OK);
  EXPECT_STREQ(record.name, "only");
}

TEST_F(FileSearch, NeedsARecord) {
  CHECK_ARGUMENT(ctx_, KivSdFileFindFirst(ctx_, "*", 0, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdFileFindNext(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdFileFindClose(ctx_, nullptr));
  EXPECT_EQ(KivSdFileFindFirst(nullptr, "*", 0, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdFileFindNext(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdFileFindClose(nullptr, nullptr), KIV_ST_ARGUMENT);
}

// ---- Collecting ----

// The names that KivSdFileFind collected. The destructor frees them.
class Collected {
 public:
  ~Collected() { EXPECT_EQ(KivSdFileFreeNames(this, names_, count_), KIV_ST_OK); }

  uint32_t Find(KivSdContext* ctx, const char* prefix, const std::string& pattern) {
    return KivSdFileFind(nullptr, ctx, prefix, pattern.c_str(), 0, &names_, &count_);
  }

  std::set<std::string> All() const { return {names_, names_ + count_}; }
  uint32_t count() const { return count_; }
  char** names() const { return names_; }

 private:
  char** names_ = nullptr;
  uint32_t count_ = 4711;
};

TEST_F(FileSearch, CollectsAnyNumberOfNames) {
  for (const uint32_t number : {1u, 16u, 17u, 32u, 33u, 1000u}) {
    SCOPED_TRACE(number);
    const std::string folder = std::to_string(number);
    Make(folder);
    std::set<std::string> expected;
    for (uint32_t i = 0; i < number; ++i) {
      const std::string name = "file" + std::to_string(i) + ".dat";
      Write(folder + "\\" + name);
      expected.insert(Path(folder + "\\" + name));
    }
    Write(folder + "\\other.txt");
    Collected collected;
    CHECK_OK(ctx_, collected.Find(ctx_, nullptr, Path(folder + "\\*.dat")));
    EXPECT_EQ(collected.count(), number);
    EXPECT_EQ(collected.All(), expected);
  }
}

TEST_F(FileSearch, CollectsNothingIfNothingMatches) {
  Make("empty");
  Write("file");
  for (const char* pattern : {"*.none", "empty\\*.dat", "missing\\*", "file\\*"}) {
    SCOPED_TRACE(pattern);
    Collected collected;
    CHECK_OK(ctx_, collected.Find(ctx_, nullptr, Path(pattern)));
    EXPECT_EQ(collected.names(), nullptr);
    EXPECT_EQ(collected.count(), 0u);
    EXPECT_EQ(collected.Find(nullptr, nullptr, Path(pattern)), KIV_ST_OK);
  }
}

TEST_F(FileSearch, CollectsFoldersExceptDotAndDotDot) {
  Make("folder");
  Make("folder\\empty");
  Make("folder\\inner");
  Write("folder\\file");
  Collected all;
  CHECK_OK(ctx_, all.Find(ctx_, "", Path("folder\\*")));
  EXPECT_EQ(all.All(), (std::set<std::string>{"empty", "inner", "file"}));
  Collected none;
  CHECK_OK(ctx_, none.Find(ctx_, "", Path("folder\\empty\\*.*")));
  EXPECT_EQ(none.count(), 0u);
  EXPECT_NE(none.names(), nullptr) << "an empty array must be returned, to be freed";
}

TEST_F(FileSearch, PutsThePrefixUnchangedBeforeEachName) {
  Write("file.dat");
  struct {
    const char* prefix;
    std::string name;
  } const cases[] = {{"some/dir/", "some/dir/file.dat"},
                     {"x", "xfile.dat"},
                     {"", "file.dat"},
                     {nullptr, Path("file.dat")}};
  for (const auto& each : cases) {
    Collected collected;
    CHECK_OK(ctx_, collected.Find(ctx_, each.prefix, Path("*.dat")));
    EXPECT_EQ(collected.All(), std::set<std::string>{each.name});
  }
}

TEST_F(FileSearch, CollectsAbsoluteNamesForARelativePattern) {
  Write("file.dat");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(std::filesystem::path(Path("file.dat")).parent_path());
  for (const std::string& pattern : {std::string("*.dat"), Here(".\\*.dat"), std::string("./f*")}) {
    Collected collected;
    CHECK_OK(ctx_, collected.Find(ctx_, nullptr, pattern));
    EXPECT_EQ(collected.All(), std::set<std::string>{Path("file.dat")});
  }
  std::filesystem::current_path(before);
}

TEST_F(FileSearch, StoresNamesOfUpTo1028Characters) {
  const std::string name(100, 'n');
  Write(name);
  const std::string longest(1029 - 1 - name.size(), 'p');
  Collected collected;
  CHECK_OK(ctx_, collected.Find(ctx_, longest.c_str(), Path("n*")));
  EXPECT_EQ(collected.All(), std::set<std::string>{longest + name});

  Collected none;
  CHECK_OUTCOME(ctx_, none.Find(ctx_, (longest + "p").c_str(), Path("n*")), KIV_ST_FIND_NEXT,
                kOsNameTooLong);
  EXPECT_EQ(none.names(), nullptr);
  EXPECT_EQ(none.count(), 0u);
}

TEST_F(FileSearch, CollectsNothingForAPatternThatIsTooLong) {
  Collected collected;
  const std::string pattern = Path("") + std::string(1029, 'p');
  CHECK_OK(ctx_, collected.Find(ctx_, nullptr, pattern));
  EXPECT_EQ(collected.names(), nullptr);
  EXPECT_EQ(collected.count(), 0u);
  CHECK_OK(ctx_, collected.Find(ctx_, nullptr, ""));
  EXPECT_EQ(collected.names(), nullptr);
}

TEST_F(FileSearch, NeedsAPatternAndOutputs) {
  char* name = nullptr;
  char** names = &name;
  uint32_t count = 4711;
  CHECK_ARGUMENT(ctx_, KivSdFileFind(nullptr, ctx_, nullptr, nullptr, 0, &names, &count));
  EXPECT_EQ(names, nullptr);
  EXPECT_EQ(count, 0u);
  CHECK_ARGUMENT(ctx_, KivSdFileFind(nullptr, ctx_, nullptr, "*", 0, nullptr, &count));
  CHECK_ARGUMENT(ctx_, KivSdFileFind(nullptr, ctx_, nullptr, "*", 0, &names, nullptr));
  EXPECT_EQ(KivSdFileFind(nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr),
            KIV_ST_ARGUMENT);
}

TEST_F(FileSearch, FreesNothingWithoutAnArray) {
  EXPECT_EQ(KivSdFileFreeNames(nullptr, nullptr, 5), KIV_ST_OK);
}

// ---- The lease guard ----

TEST_F(FileSearch, RunsTheGuardFirst) {
  Write("file1");
  Write("file2");
  const std::string pattern = Path("file*");
  GuardWatch guard;
  KivSdFindRecord record = {};
  EXPECT_EQ(KivSdFileFindFirst(nullptr, nullptr, 0, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdFileFindNext(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdFileFind(nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr),
            KIV_ST_ARGUMENT);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdFileFindFirst(nullptr, pattern.c_str(), 0, &record), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdFileFindNext(nullptr, &record), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdFileFindClose(nullptr, &record), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 0u);
  Collected collected;
  EXPECT_EQ(collected.Find(nullptr, nullptr, pattern), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 5u);  // itself, three steps of the search, the parent path
  EXPECT_EQ(KivSdFileFreeNames(nullptr, nullptr, 0), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 1u);
}

}  // namespace
