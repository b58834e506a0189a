// File search on Linux: patterns, attributes, links, handles, and the removal of trees with links.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "os/lnx/file_pattern.h"
#include "support/context.h"
#include "support/temporary_folder.h"

namespace {

using kiv::os::FilePattern;
using kiv::test::Context;
using kiv::test::TemporaryFolder;

// ---- Patterns ----

TEST(FilePatterns, MatchLikeThoseOfWindowsExceptForCase) {
  struct {
    const char* pattern;
    std::vector<const char*> matches;
    std::vector<const char*> others;
  } const cases[] = {
      {"*", {"a", "a.b", ".a", "."}, {}},
      {"*.*", {"a", "a.b", ".a", ".."}, {}},
      {"a", {"a"}, {"A", "aa", "", "a."}},
      {"a*", {"a", "ab", "a.b"}, {"b", "A"}},
      {"*a", {"a", "ba", "b.a"}, {"ab"}},
      {"a*c*e", {"ace", "abcde", "acece"}, {"ac", "aec"}},
      {"*.txt", {"a.txt", "a.b.txt", ".txt"}, {"a.tx", "a.txt.b", "txt", "a.TXT"}},
      {"*.", {"a", "abc"}, {"a.b"}},
      {"a.*", {"a", "a.", "a.b", "a.b.c"}, {"b", "ab"}},
      {"?", {"a"}, {"ab"}},
      {"a?", {"a", "ab"}, {"abc"}},
      {"a??", {"a", "ab", "abc"}, {"abcd"}},
      {"a?.b", {"a.b", "ac.b"}, {"acc.b"}},
      {"?a", {"ba"}, {"a", "bba"}},
      {"a.?", {"a", "a.b"}, {"a.bc"}},
      {"\xC3\xA4?", {"\xC3\xA4\xC3\xB6", "\xC3\xA4"}, {"\xC3\xA4\xC3\xB6\xC3\xBC"}},
      {"?\xC3\xB6", {"\xC3\xA4\xC3\xB6", "\xFF\xC3\xB6"}, {"\xC3\xA4\xC3\xA4\xC3\xB6"}},
      // Bytes that begin a character but do not complete it are two.
      {"?", {"\xE2"}, {"\xE2\x82"}},
      {"?\x82z", {"\xE2\x82z"}, {"\xE2\x82\x82z"}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.pattern);
    FilePattern pattern;
    ASSERT_TRUE(pattern.Set(each.pattern));
    for (const char* name : each.matches) EXPECT_TRUE(pattern.Matches(name)) << name;
    for (const char* name : each.others) EXPECT_FALSE(pattern.Matches(name)) << name;
  }
}

TEST(FilePatterns, WithManyStarsTakeNoLongerThanOthers) {
  std::string text;
  for (int i = 0; i < 120; ++i) text += "*a";
  FilePattern pattern;
  ASSERT_TRUE(pattern.Set((text + "b").c_str()));
  EXPECT_FALSE(pattern.Matches(std::string(255, 'a').c_str()));
  EXPECT_TRUE(pattern.Matches((std::string(254, 'a') + "b").c_str()));
}

TEST(FilePatterns, HaveUpTo259Characters) {
  FilePattern pattern;
  EXPECT_TRUE(pattern.Set(std::string(259, 'a').c_str()));
  EXPECT_TRUE(pattern.Matches(std::string(259, 'a').c_str()));
  EXPECT_FALSE(pattern.Set(std::string(260, 'a').c_str()));
}

// ---- Searches ----

class LinuxSearch : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path(name); }

  KivSdFindData Find(const std::string& name) {
    KivSdFindRecord record = {};
    CHECK_OK(ctx_, KivSdFileFindFirst(ctx_, Path(name).c_str(), 0, &record));
    CHECK_OK(ctx_, KivSdFileFindClose(ctx_, &record));
    return record.data;
  }

  TemporaryFolder folder_;
  Context ctx_;
};

TEST_F(LinuxSearch, ReportsAttributes) {
  folder_.Write("plain", "12345");
  folder_.Write(".hidden", "");
  folder_.Write("readonly", "");
  ASSERT_EQ(chmod(Path("readonly").c_str(), 0444), 0);
  folder_.Make("folder");
  folder_.Make(".folder");
  std::filesystem::create_symlink("plain", Path("link"));
  std::filesystem::create_symlink("folder", Path("folderlink"));
  std::filesystem::create_symlink("missing", Path("dangling"));
  EXPECT_EQ(Find("plain").attributes, 0x80u);
  EXPECT_EQ(Find(".hidden").attributes, 0x02u);
  EXPECT_EQ(Find("readonly").attributes, 0x01u);
  EXPECT_EQ(Find("folder").attributes, 0x10u);
  EXPECT_EQ(Find(".folder").attributes, 0x12u);
  EXPECT_EQ(Find("link").attributes, 0x400u);
  EXPECT_EQ(Find("link").sizeLow, 5u);
  EXPECT_EQ(Find("folderlink").attributes, 0x400u) << "a link to a folder is no folder";
  EXPECT_EQ(Find("dangling").attributes, 0x400u);
  EXPECT_EQ(Find("folder").sizeLow, 0u);
}

TEST_F(LinuxSearch, ReportsSizesIn64Bits) {
  folder_.Write("large", "");
  ASSERT_EQ(truncate(Path("large").c_str(), (int64_t{5} << 32) + 7), 0);
  const KivSdFindData found = Find("large");
  EXPECT_EQ(found.sizeHigh, 5u);
  EXPECT_EQ(found.sizeLow, 7u);
}

// A file system in memory, which can hold any time.
class LinuxSearchOfTimes : public testing::Test {
 protected:
  LinuxSearchOfTimes() { close(open(name_.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600)); }
  ~LinuxSearchOfTimes() override { unlink(name_.c_str()); }

  uint64_t WrittenAt(int64_t seconds, long nanoseconds) {
    const timespec times[] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    EXPECT_EQ(utimensat(AT_FDCWD, name_.c_str(), times, 0), 0);
    KivSdFindRecord record = {};
    CHECK_OK(ctx_, KivSdFileFindFirst(ctx_, name_.c_str(), 0, &record));
    CHECK_OK(ctx_, KivSdFileFindClose(ctx_, &record));
    const KivSdFileTime written = record.data.written;
    return uint64_t{written.high} << 32 | written.low;
  }

  const std::string name_ = "/dev/shm/kivsdu-times-" + std::to_string(getpid());
  Context ctx_;
};

TEST_F(LinuxSearchOfTimes, CountsIntervalsOf100NanosecondsSince1601) {
  constexpr int64_t k1601 = -11'644'473'600;
  EXPECT_EQ(WrittenAt(0, 0), 116'444'736'000'000'000u);
  EXPECT_EQ(WrittenAt(1'700'000'000, 123'456'799), 133'444'736'001'234'567u);
  EXPECT_EQ(WrittenAt(k1601 + 1, 0), 10'000'000u);
  EXPECT_EQ(WrittenAt(k1601, 199), 1u);
  EXPECT_EQ(WrittenAt(k1601, 0), 0u);
}

TEST_F(LinuxSearchOfTimes, HasNoTimeBefore1601) {
  EXPECT_EQ(WrittenAt(-11'644'473'601, 999'999'999), 0u);
  EXPECT_EQ(WrittenAt(-20'000'000'000, 500), 0u);
}

TEST_F(LinuxSearch, ListsTheDotsFirst) {
  folder_.Write("!", "");
  KivSdFindRecord record = {};
  CHECK_OK(ctx_, KivSdFileFindFirst(ctx_, Path("*").c_str(), 0, &record));
  EXPECT_STREQ(record.name, ".");
  CHECK_OK(ctx_, KivSdFileFindNext(ctx_, &record));
  EXPECT_STREQ(record.name, "..");
  CHECK_OK(ctx_, KivSdFileFindNext(ctx_, &record));
  EXPECT_STREQ(record.name, "!");
  CHECK_OUTCOME(ctx_, KivSdFileFindNext(ctx_, &record), KIV_ST_FIND_END, ENOENT);
  CHECK_OK(ctx_, KivSdFileFindClose(ctx_, &record));
}

TEST_F(LinuxSearch, FindsNamesOf255Bytes) {
  const std::string longest(255, 'n');
  folder_.Write(longest, "");
  EXPECT_EQ(Find("n*").name, longest);
}

TEST_F(LinuxSearch, RefusesHandlesThatAreNoSearch) {
  KivSdFindRecord record = {};
  KivHandle event = nullptr;
  ASSERT_EQ(KivSdEventCreate(nullptr, &event), KIV_ST_OK);
  CHECK_OK(ctx_, KivSdFileFindFirst(ctx_, Path("*").c_str(), 0, &record));
  const KivHandle closed = record.search;
  CHECK_OK(ctx_, KivSdFileFindClose(ctx_, &record));
  for (const KivHandle search : {KivHandle{nullptr}, closed, event}) {
    record.search = search;
    CHECK_OUTCOME(ctx_, KivSdFileFindNext(ctx_, &record), KIV_ST_FIND_NEXT, EBADF);
    CHECK_OUTCOME(ctx_, KivSdFileFindClose(ctx_, &record), KIV_ST_FIND_CLOSE, EBADF);
  }
  EXPECT_EQ(KivSdEventClose(nullptr, &event), KIV_ST_OK);
}

TEST_F(LinuxSearch, OfAnEmptyOrUnfinishedPatternFindsNothing) {
  KivSdFindRecord record = {};
  for (const std::string& pattern : {std::string(), Path("") + "/"}) {
    CHECK_OUTCOME(ctx_, KivSdFileFindFirst(ctx_, pattern.c_str(), 0, &record), KIV_ST_FIND_START,
                  ENOENT);
  }
  CHECK_OUTCOME(ctx_, KivSdFileFindFirst(ctx_, nullptr, 0, &record), KIV_ST_FIND_START, EFAULT);
}

// ---- Removing trees ----

TEST_F(LinuxSearch, RemovalOfATreeDoesNotFollowLinks) {
  folder_.Make("outside");
  folder_.Write("outside/file", "content");
  ASSERT_EQ(chmod(Path("outside/file").c_str(), 0444), 0);
  folder_.Make("tree");
  std::filesystem::create_symlink(Path("outside"), Path("tree/folder"));
  std::filesystem::create_symlink(Path("outside/file"), Path("tree/file"));
  std::filesystem::create_symlink(Path("missing"), Path("tree/dangling"));
  CHECK_OK(ctx_, KivSdDirRemove(ctx_, Path("tree").c_str()));
  EXPECT_FALSE(std::filesystem::exists(Path("tree")));
  EXPECT_TRUE(std::filesystem::exists(Path("outside/file")));
  struct stat status = {};
  ASSERT_EQ(stat(Path("outside/file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0444u) << "the rights of a link's target must stay";
}

}  // namespace
