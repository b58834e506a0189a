// Extensions and parents of paths, joined paths, and packed dates.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "os/path.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/guarded.h"

namespace {

using kiv::test::Context;
using kiv::test::GuardedBytes;
using kiv::test::GuardWatch;
using kiv::test::kSpoilt;

// Returns the path with this system's separator in place of every "|".
std::string Here(std::string path) {
  std::replace(path.begin(), path.end(), '|', kiv::os::kPathSeparator);
  return path;
}

// ---- Extensions ----

std::string Extension(const char* path, uint8_t includeDot) {
  GuardedBytes out(64);
  EXPECT_EQ(KivSdFileGetExtension(path, includeDot, out.text()), out.text());
  return out.text();
}

TEST(Extension, StartsAtTheLastDotEvenInAFoldersName) {
  struct {
    const char* path;
    const char* extension;
  } const cases[] = {
      {"file.txt", ".txt"},
      {"a.b.c", ".c"},
      {".hidden", ".hidden"},
      {"dir.v1|name", ".v1|name"},
      {"dir.v1|name.x", ".x"},
      {"dir.v1/name", ".v1/name"},
      {"name.", "."},
      {"..", "."},
      {"C:|dir|file.longer", ".longer"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.path);
    const std::string path = Here(each.path);
    const std::string extension = Here(each.extension);
    EXPECT_EQ(Extension(path.c_str(), 0), extension.substr(1));
    for (const uint8_t with : {uint8_t{1}, uint8_t{2}, uint8_t{0x80}}) {
      EXPECT_EQ(Extension(path.c_str(), with), extension);
    }
  }
}

TEST(Extension, OfAPathWithoutADotIsEmpty) {
  for (const char* path : {"name", "dir/name", ""}) {
    EXPECT_EQ(Extension(path, 0), "");
    EXPECT_EQ(Extension(path, 1), "");
  }
  EXPECT_EQ(Extension(nullptr, 0), "");
  EXPECT_EQ(Extension(nullptr, 1), "");
}

TEST(Extension, WritesOnlyItsOwnLength) {
  GuardedBytes out(5);
  KivSdFileGetExtension("a/long/path/to/file.text", 0, out.text());
  EXPECT_STREQ(out.text(), "text");
}

TEST(Extension, MayOverwriteThePath) {
  char path[] = "dir.v1/some name";
  EXPECT_EQ(KivSdFileGetExtension(path, 1, path), path);
  EXPECT_STREQ(path, ".v1/some name");
}

// ---- Parents ----

std::string Parent(const char* path) {
  GuardedBytes out(64);
  EXPECT_EQ(KivSdFileGetParentPath(path, out.text()), out.text());
  return out.text();
}

TEST(ParentPath, EndsAtTheLastSeparatorOfEitherKind) {
  struct {
    const char* path;
    const char* parent;
  } const cases[] = {
      {"a/b|c", "a/b|"}, {"a|b/c", "a|b/"}, {"a|b|", "a|b|"}, {"|a", "|"},
      {"/a", "/"},       {"|", "|"},        {"/", "/"},       {"C:|dir|file.txt", "C:|dir|"},
      {"a||b", "a||"},   {"a//", "a//"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.path);
    EXPECT_EQ(Parent(Here(each.path).c_str()), Here(each.parent));
  }
}

TEST(ParentPath, IsTheWorkingDirectoryIfThePathHasNoParent) {
  for (const char* path : {"file.txt", "a", "", "C:file"}) EXPECT_EQ(Parent(path), Here(".|"));
  EXPECT_EQ(Parent(nullptr), Here(".|"));
}

TEST(ParentPath, WritesOnlyItsOwnLength) {
  GuardedBytes out(5);
  KivSdFileGetParentPath("a/b/much longer than that", out.text());
  EXPECT_STREQ(out.text(), "a/b/");
}

TEST(ParentPath, MayOverwriteThePath) {
  char path[] = "some/dir/name";
  EXPECT_EQ(KivSdFileGetParentPath(path, path), path);
  EXPECT_STREQ(path, "some/dir/");
}

// ---- Joining ----

TEST(PathCreate, JoinsThePartsUnchanged) {
  Context ctx;
  GuardedBytes out(32);
  CHECK_OK(ctx, KivSdPathCreate(ctx, 3, out.text(), "C:\\", "dir\\", "file.txt"));
  EXPECT_STREQ(out.text(), "C:\\dir\\file.txt");
  CHECK_OK(ctx, KivSdPathCreate(ctx, 2, out.text(), "a", "b"));
  EXPECT_STREQ(out.text(), "ab");
  EXPECT_EQ(KivSdPathCreate(nullptr, 1, out.text(), "one"), KIV_ST_OK);
  EXPECT_STREQ(out.text(), "one");
}

TEST(PathCreate, SkipsNullAndEmptyParts) {
  Context ctx;
  const char* const none = nullptr;
  GuardedBytes out(32);
  CHECK_OK(ctx, KivSdPathCreate(ctx, 6, out.text(), none, "a", "", none, "b", none));
  EXPECT_STREQ(out.text(), "ab");
}

TEST(PathCreate, WithoutPartsIsEmpty) {
  Context ctx;
  const char* const none = nullptr;
  GuardedBytes out(32);
  CHECK_OK(ctx, KivSdPathCreate(ctx, 0, out.text(), "not counted"));
  EXPECT_STREQ(out.text(), "");
  EXPECT_TRUE(out.IsAll(kSpoilt, 1, 32));
  out.data()[0] = 'x';
  CHECK_OK(ctx, KivSdPathCreate(ctx, 2, out.text(), none, ""));
  EXPECT_STREQ(out.text(), "");
}

TEST(PathCreate, EmptiesTheBufferBeforeItReadsTheParts) {
  Context ctx;
  GuardedBytes out(32);
  out.data()[0] = 'x';
  out.data()[1] = '\0';
  CHECK_OK(ctx, KivSdPathCreate(ctx, 2, out.text(), out.text(), "a"));
  EXPECT_STREQ(out.text(), "a");
}

TEST(PathCreate, HasNoLengthLimit) {
  Context ctx;
  const std::string part(3000, 'p');
  GuardedBytes out(2 * part.size() + 1);
  CHECK_OK(ctx, KivSdPathCreate(ctx, 2, out.text(), part.c_str(), part.c_str()));
  EXPECT_EQ(out.text(), part + part);
}

TEST(PathCreate, NeedsABuffer) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdPathCreate(ctx, 1, nullptr, "a"));
  EXPECT_EQ(KivSdPathCreate(nullptr, 0, nullptr), KIV_ST_ARGUMENT);
}

TEST(PathCreate, RunsTheGuardFirst) {
  GuardWatch guard;
  char out[8];
  EXPECT_EQ(KivSdPathCreate(nullptr, 1, nullptr, "a"), KIV_ST_ARGUMENT);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  EXPECT_EQ(KivSdPathCreate(nullptr, 1, out, "a"), KIV_ST_OK);
  EXPECT_EQ(guard.TakeRuns(), 1u);
  KivSdFileGetExtension("a", 0, out);
  KivSdFileGetParentPath("a", out);
  static_cast<void>(KivSdTimetFromDOS(0, 0));
  EXPECT_EQ(guard.TakeRuns(), 3u);
}

// ---- Packed dates ----

TEST(TimetFromDOS, ReturnsTheSameNumbersAsEarlierReleases) {
  struct {
    uint16_t time;
    uint16_t date;
    uint32_t number;
  } const cases[] = {
      {0, 0, 2255994240u},          {0xFFFF, 0xFFFF, 1494365374u}, {0, 0x21, 2256080640u},
      {0x645C, 0x585D, 312080440u}, {0x645C, 0x587D, 312080440u},  {0xBF7D, 0xFF9F, 1435375290u},
      {1, 0, 2255994242u},          {0x20, 0, 2255996160u},        {0x800, 0, 2263367040u},
      {0, 1, 2256080640u},          {0, 0x200, 1233616256u},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(KivSdTimetFromDOS(each.time, each.date), each.number)
        << std::hex << each.time << " " << each.date;
  }
}

// Computes the number in 64 bits and reduces it to 32 bits at the end.
uint32_t Recomputed(int64_t time, int64_t date) {
  const int64_t year = date / 512 * 512;
  // The library reduces each count to 32 bits. Reducing only the end result is equivalent, because
  // the counts are only added and multiplied.
  const int64_t leap = year / 4 - 492;
  const int64_t days = leap * 366 + (year - leap - 1970) * 365 + date % 32 - 1;
  const int64_t hours = time / 2048 * 2048 + days * 24;
  const int64_t minutes = hours * 60 + time % 2048 / 32 * 32;
  const int64_t number = (minutes * 30 + time % 32) * 2;
  return static_cast<uint32_t>(static_cast<uint64_t>(number) % (uint64_t{1} << 32));
}

TEST(TimetFromDOS, MatchesAComputationIn64BitsForEveryDateAndEveryTime) {
  for (uint32_t word = 0; word <= 0xFFFF; ++word) {
    const auto packed = static_cast<uint16_t>(word);
    for (const uint16_t other : {uint16_t{0}, uint16_t{0x645C}, uint16_t{0xFFFF}}) {
      ASSERT_EQ(KivSdTimetFromDOS(other, packed), Recomputed(other, packed)) << word;
      ASSERT_EQ(KivSdTimetFromDOS(packed, other), Recomputed(packed, other)) << word;
    }
  }
}

}  // namespace
