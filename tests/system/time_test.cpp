// Broken-down local times and their texts.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guarded.h"
#include "support/import_patch.h"
#include "support/os_errors.h"

namespace {

using kiv::test::Context;
using kiv::test::ExpectText;
using kiv::test::Guarded;
using kiv::test::GuardedBytes;
using kiv::test::kOsTimeOutOfRange;
using kiv::test::kSpoilt;
using kiv::test::ScriptedImport;

constexpr int64_t kBefore1970 = -100000;
constexpr int64_t kAfter3000 = int64_t{1} << 40;
constexpr uint32_t kErrorInvalid = 22;  // errno of fields that have no text

// Times that the runtime cannot convert, and those for which it also has no text.
#ifdef _WIN32
constexpr int64_t kNoLocalTimes[] = {kBefore1970, kAfter3000, INT64_MIN, INT64_MAX};
constexpr int64_t kNoTexts[] = {kBefore1970, kAfter3000, INT64_MIN, INT64_MAX};
#else
constexpr int64_t kNoLocalTimes[] = {INT64_MIN, INT64_MAX};
constexpr int64_t kNoTexts[] = {kAfter3000, INT64_MIN, INT64_MAX};
#endif

// 2026-11-21, a Saturday.
constexpr KivSdLocalTime kSaturday = {.time = 1795267035,
                                      .second = 15,
                                      .minute = 17,
                                      .hour = 13,
                                      .day = 21,
                                      .month = 10,
                                      .year = 126,
                                      .weekday = 6};
constexpr char kSaturdayText[] = "Sat Nov 21 13:17:15 2026";

// Sets the process's time zone during its lifetime.
class TimeZone {
 public:
  explicit TimeZone(const std::string& zone) {
    const char* old = std::getenv("TZ");
    if (old != nullptr) old_ = old;
    Set(zone);
  }
  ~TimeZone() { Set(old_); }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  static void Set(const std::string& zone) {
#ifdef _WIN32
    _putenv(("TZ=" + zone).c_str());
    _tzset();
#else
    zone.empty() ? unsetenv("TZ") : setenv("TZ", zone.c_str(), 1);
    tzset();
#endif
  }

  std::string old_;
};

void ExpectSame(const KivSdLocalTime& local, const tm& expected) {
  EXPECT_EQ(local.second, expected.tm_sec);
  EXPECT_EQ(local.minute, expected.tm_min);
  EXPECT_EQ(local.hour, expected.tm_hour);
  EXPECT_EQ(local.day, expected.tm_mday);
  EXPECT_EQ(local.month, expected.tm_mon);
  EXPECT_EQ(local.year, expected.tm_year);
  EXPECT_EQ(local.weekday, expected.tm_wday);
}

// ---- Broken-down times ----

TEST(LocalTime, AgreesWithTheRuntimes) {
  for (const int64_t seconds :
       {int64_t{0}, int64_t{86399}, int64_t{951782400}, int64_t{1795267035}, int64_t{0x7FFFFFFF},
        int64_t{0x80000000}, int64_t{0xFFFFFFFF}, int64_t{0x100000000}, int64_t{0x123456789}}) {
    SCOPED_TRACE(seconds);
    Context ctx;
    Guarded<KivSdLocalTime> local;
    CHECK_OK(ctx, KivSdLocalTimeGet(ctx, seconds, local));
    EXPECT_EQ(local->time, static_cast<uint32_t>(seconds));
    const time_t time = seconds;
    const tm* expected = std::localtime(&time);
    ASSERT_NE(expected, nullptr);
    ExpectSame(*local, *expected);
    EXPECT_EQ(KivSdLocalTimeGet(nullptr, seconds, local), KIV_ST_OK);
  }
}

TEST(LocalTime, IsThatOfTheTimeZone) {
  const TimeZone zone("KIV-5:30");
  Guarded<KivSdLocalTime> local;
  EXPECT_EQ(KivSdLocalTimeGet(nullptr, 1795267035, local), KIV_ST_OK);
  EXPECT_EQ(local->hour, 18);
  EXPECT_EQ(local->minute, 47);
}

TEST(LocalTime, CopiesTheRuntimesFields) {
  tm odd = {};
  odd.tm_sec = 61;
  odd.tm_min = -1;
  odd.tm_hour = 70000;
  odd.tm_mday = 31;
  odd.tm_mon = 11;
  odd.tm_year = 1100;
  odd.tm_wday = 6;
  odd.tm_yday = 365;
  odd.tm_isdst = 1;
  const ScriptedImport convert("_localtime64", {.result = reinterpret_cast<uintptr_t>(&odd)});
  Guarded<KivSdLocalTime> local;
  EXPECT_EQ(KivSdLocalTimeGet(nullptr, 5, local), KIV_ST_OK);
  EXPECT_EQ(local->second, 61);
  EXPECT_EQ(local->minute, 0xFFFF);
  EXPECT_EQ(local->hour, 70000 & 0xFFFF);
  EXPECT_EQ(local->day, 31);
  EXPECT_EQ(local->month, 11);
  EXPECT_EQ(local->year, 1100);
  EXPECT_EQ(local->weekday, 6);
}

// All 20 bytes are defined, so that a caller can compare records as memory.
TEST(LocalTime, ClearsTheWholeRecord) {
  GuardedBytes buffer(sizeof(KivSdLocalTime));
  auto* local = reinterpret_cast<KivSdLocalTime*>(buffer.data());
  EXPECT_EQ(KivSdLocalTimeGet(nullptr, 1795267035, local), KIV_ST_OK);
  EXPECT_TRUE(buffer.IsAll(0, offsetof(KivSdLocalTime, weekday) + 2, sizeof(KivSdLocalTime)));
}

TEST(LocalTime, KeepsTheSecondsIfTheyCannotBeConverted) {
  const ScriptedImport convert("_localtime64", {.result = 0, .error = 33});
  for (const int64_t seconds : {int64_t{5}, int64_t{0x123456789}, int64_t{-1}}) {
    Context ctx;
    GuardedBytes buffer(sizeof(KivSdLocalTime));
    auto* local = reinterpret_cast<KivSdLocalTime*>(buffer.data());
    CHECK_OUTCOME(ctx, KivSdLocalTimeGet(ctx, seconds, local), KIV_ST_LOCAL_TIME, 33u);
    EXPECT_EQ(local->time, static_cast<uint32_t>(seconds));
    EXPECT_TRUE(buffer.IsAll(0, sizeof local->time, sizeof *local));
    EXPECT_EQ(KivSdLocalTimeGet(nullptr, seconds, local), KIV_ST_LOCAL_TIME);
  }
}

TEST(LocalTime, CannotBeOutsideTheRuntimesCenturies) {
  for (const int64_t seconds : kNoLocalTimes) {
    Context ctx;
    Guarded<KivSdLocalTime> local;
    CHECK_OUTCOME(ctx, KivSdLocalTimeGet(ctx, seconds, local), KIV_ST_LOCAL_TIME,
                  kOsTimeOutOfRange);
  }
}

#ifndef _WIN32
// The runtime of Windows refuses these times.
TEST(LocalTime, CanBeBefore1970AndInALateYear) {
  const TimeZone zone("UTC0");
  Context ctx;
  Guarded<KivSdLocalTime> local;
  CHECK_OK(ctx, KivSdLocalTimeGet(ctx, kBefore1970, local));
  EXPECT_EQ(local->time, static_cast<uint32_t>(kBefore1970));
  EXPECT_EQ(local->year, 69);
  EXPECT_EQ(local->month, 11);
  EXPECT_EQ(local->day, 30);
  CHECK_OK(ctx, KivSdLocalTimeGet(ctx, kAfter3000, local));
  EXPECT_EQ(local->year, 36812 - 1900);
}
#endif

TEST(LocalTime, NeedsARecord) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdLocalTimeGet(ctx, 1, nullptr));
  EXPECT_EQ(KivSdLocalTimeGet(nullptr, 1, nullptr), KIV_ST_ARGUMENT);
}

// ---- The text of a broken-down time ----

TEST(TimeText, HasNoNewline) {
  for (const uint32_t length : {25u, 26u, 27u, 100u}) {
    Context ctx;
    GuardedBytes text(length);
    CHECK_OK(ctx, KivSdTimeStrGet(ctx, &kSaturday, length, text.text()));
    ExpectText(text, kSaturdayText);
    EXPECT_EQ(KivSdTimeStrGet(nullptr, &kSaturday, length, text.text()), KIV_ST_OK);
  }
}

TEST(TimeText, IsCutToTheLengthAndThenTrimmed) {
  struct {
    uint32_t length;
    const char* text;
  } const cases[] = {{1, ""},
                     {2, "S"},
                     {4, "Sat"},
                     {5, "Sat"},
                     {6, "Sat N"},
                     {8, "Sat Nov"},
                     {9, "Sat Nov"},
                     {10, "Sat Nov 2"},
                     {12, "Sat Nov 21"},
                     {13, "Sat Nov 21 1"},
                     {24, "Sat Nov 21 13:17:15 202"}};
  for (const auto& [length, expected] : cases) {
    SCOPED_TRACE(length);
    Context ctx;
    GuardedBytes text(length);
    CHECK_OK(ctx, KivSdTimeStrGet(ctx, &kSaturday, length, text.text()));
    ExpectText(text, expected);
  }
}

TEST(TimeText, LosesTrailingWhiteSpaceButNeverItsFirstCharacter) {
  struct {
    const char* made;
    uint32_t length;
    const char* text;
  } const cases[] = {
      {"a b \t\r\v\f\n", 26, "a b"},
      {" \n", 26, " "},
      {"\n\n\n\n", 26, "\n"},
      {"\n", 26, "\n"},
      {" a", 2, " "},
      {"", 26, ""},
      {"  x  \n", 26, "  x"},
      {" \n\n", 3, " "},
      {"ab", 26, "ab"},
  };
  for (const auto& [made, length, expected] : cases) {
    const ScriptedImport format("asctime", {.result = reinterpret_cast<uintptr_t>(made)});
    GuardedBytes text(length);
    EXPECT_EQ(KivSdTimeStrGet(nullptr, &kSaturday, length, text.text()), KIV_ST_OK);
    ExpectText(text, expected);
  }
}

TEST(TimeText, OfAnEmptyRecordIsEmpty) {
  const ScriptedImport format("asctime", {.result = 0, .error = kErrorInvalid});
  KivSdLocalTime empty = kSaturday;
  empty.time = 0;
  for (const uint32_t length : {1u, 2u, 26u}) {
    Context ctx;
    GuardedBytes text(length);
    CHECK_OK(ctx, KivSdTimeStrGet(ctx, &empty, length, text.text()));
    ExpectText(text, "");
  }
  EXPECT_TRUE(format.calls().empty());
}

TEST(TimeText, IsMadeOfTheFieldsAndNotOfTheTime) {
  KivSdLocalTime local = kSaturday;
  local.time = 1;
  GuardedBytes text(26);
  EXPECT_EQ(KivSdTimeStrGet(nullptr, &local, 26, text.text()), KIV_ST_OK);
  ExpectText(text, kSaturdayText);
}

tm formatted;

char* KeepTheTime(const tm* time) {
  static char text[] = "text";
  formatted = *time;
  return text;
}

TEST(TimeText, LeavesTheOtherFieldsOfTheRuntimeZero) {
  std::memset(&formatted, 0xEE, sizeof formatted);
  const kiv::test::ImportPatch format("asctime", reinterpret_cast<void*>(&KeepTheTime));
  GuardedBytes text(26);
  EXPECT_EQ(KivSdTimeStrGet(nullptr, &kSaturday, 26, text.text()), KIV_ST_OK);
  ExpectSame(kSaturday, formatted);
  EXPECT_EQ(formatted.tm_yday, 0);
  EXPECT_EQ(formatted.tm_isdst, 0);
}

TEST(TimeText, AcceptsTheFirstAndTheLastYear) {
  KivSdLocalTime local = kSaturday;
  local.year = 0;
  GuardedBytes text(26);
  EXPECT_EQ(KivSdTimeStrGet(nullptr, &local, 26, text.text()), KIV_ST_OK);
  EXPECT_STREQ(text.text(), "Sat Nov 21 13:17:15 1900");
  local.year = 9999 - 1900;
  EXPECT_EQ(KivSdTimeStrGet(nullptr, &local, 26, text.text()), KIV_ST_OK);
  EXPECT_STREQ(text.text(), "Sat Nov 21 13:17:15 9999");
}

// Returns the record with one field changed.
KivSdLocalTime With(uint16_t KivSdLocalTime::*field, uint16_t value) {
  KivSdLocalTime local = kSaturday;
  local.*field = value;
  return local;
}

TEST(TimeText, PassesPrintableFieldsToTheRuntime) {
  const ScriptedImport format("asctime", {.result = reinterpret_cast<uintptr_t>("text")});
  const KivSdLocalTime cases[] = {
      With(&KivSdLocalTime::month, 11),  With(&KivSdLocalTime::month, 0),
      With(&KivSdLocalTime::weekday, 0), With(&KivSdLocalTime::year, 8099),
      With(&KivSdLocalTime::day, 0),     With(&KivSdLocalTime::day, 99),
      With(&KivSdLocalTime::hour, 99),   With(&KivSdLocalTime::minute, 99),
      With(&KivSdLocalTime::second, 99),
  };
  for (const KivSdLocalTime& local : cases) {
    GuardedBytes text(26);
    EXPECT_EQ(KivSdTimeStrGet(nullptr, &local, 26, text.text()), KIV_ST_OK);
    ExpectText(text, "text");
  }
  EXPECT_EQ(format.calls().size(), std::size(cases));
}

// The runtime is not called, because not every version of it checks the fields.
TEST(TimeText, CannotBeMadeOfImpossibleFields) {
  const ScriptedImport format("asctime", {.result = reinterpret_cast<uintptr_t>("text")});
  const KivSdLocalTime cases[] = {
      With(&KivSdLocalTime::month, 12),   With(&KivSdLocalTime::month, 0xFFFF),
      With(&KivSdLocalTime::weekday, 7),  With(&KivSdLocalTime::weekday, 0xFFFF),
      With(&KivSdLocalTime::year, 8100),  With(&KivSdLocalTime::year, 0xFFFF),
      With(&KivSdLocalTime::day, 100),    With(&KivSdLocalTime::day, 0xFFFF),
      With(&KivSdLocalTime::hour, 100),   With(&KivSdLocalTime::hour, 0xFFFF),
      With(&KivSdLocalTime::minute, 100), With(&KivSdLocalTime::minute, 0xFFFF),
      With(&KivSdLocalTime::second, 100), With(&KivSdLocalTime::second, 0xFFFF),
  };
  for (const KivSdLocalTime& local : cases) {
    Context ctx;
    GuardedBytes text(26);
    CHECK_OUTCOME(ctx, KivSdTimeStrGet(ctx, &local, 26, text.text()), KIV_ST_TIME_STRING,
                  kErrorInvalid);
    ExpectText(text, "");
    EXPECT_EQ(KivSdTimeStrGet(nullptr, &local, 26, text.text()), KIV_ST_TIME_STRING);
  }
  EXPECT_TRUE(format.calls().empty());
}

TEST(TimeText, FailsWithTheRuntimesError) {
  const ScriptedImport format("asctime", {.result = 0, .error = 33});
  Context ctx;
  GuardedBytes text(26);
  CHECK_OUTCOME(ctx, KivSdTimeStrGet(ctx, &kSaturday, 26, text.text()), KIV_ST_TIME_STRING, 33u);
  ExpectText(text, "");
}

TEST(TimeText, NeedsARecordABufferAndALength) {
  Context ctx;
  GuardedBytes text(26);
  CHECK_ARGUMENT(ctx, KivSdTimeStrGet(ctx, nullptr, 26, text.text()));
  CHECK_ARGUMENT(ctx, KivSdTimeStrGet(ctx, &kSaturday, 26, nullptr));
  CHECK_ARGUMENT(ctx, KivSdTimeStrGet(ctx, &kSaturday, 0, text.text()));
  EXPECT_EQ(KivSdTimeStrGet(nullptr, nullptr, 0, nullptr), KIV_ST_ARGUMENT);
  EXPECT_TRUE(text.IsAll(kSpoilt));
}

// ---- The runtime's text of a time ----

TEST(RuntimeTimeText, KeepsItsNewline) {
  const time_t time = kSaturday.time;
  const std::string expected = std::ctime(&time);
  ASSERT_EQ(expected.size(), 25u);
  ASSERT_EQ(expected.back(), '\n');
  for (const uint32_t length : {26u, 27u, 100u}) {
    Context ctx;
    GuardedBytes text(length);
    CHECK_OK(ctx, KivSdCTime(ctx, time, length, text.text()));
    ExpectText(text, expected);
    EXPECT_EQ(KivSdCTime(nullptr, time, length, text.text()), KIV_ST_OK);
  }
}

TEST(RuntimeTimeText, IsCutToTheLengthAndNotTrimmed) {
  const time_t time = kSaturday.time;
  const std::string whole = std::ctime(&time);
  for (uint32_t length = 1; length <= 25; ++length) {
    Context ctx;
    GuardedBytes text(length);
    CHECK_OK(ctx, KivSdCTime(ctx, time, length, text.text()));
    ExpectText(text, whole.substr(0, length - 1));
  }
}

TEST(RuntimeTimeText, IsInTheTimeZone) {
  const TimeZone zone("KIV-5:30");
  GuardedBytes text(26);
  EXPECT_EQ(KivSdCTime(nullptr, kSaturday.time, 26, text.text()), KIV_ST_OK);
  ExpectText(text, "Sat Nov 21 18:47:15 2026\n");
}

TEST(RuntimeTimeText, TakesTimesBeyondThirtyTwoBits) {
  const time_t time = 0x123456789;
  GuardedBytes text(26);
  EXPECT_EQ(KivSdCTime(nullptr, time, 26, text.text()), KIV_ST_OK);
  ExpectText(text, std::ctime(&time));
}

TEST(RuntimeTimeText, CannotBeOutsideTheRuntimesCenturies) {
  for (const int64_t seconds : kNoTexts) {
    Context ctx;
    GuardedBytes text(26);
    CHECK_OUTCOME(ctx, KivSdCTime(ctx, seconds, 26, text.text()), KIV_ST_TIME_FORMAT,
                  kOsTimeOutOfRange);
    ExpectText(text, "");
    EXPECT_EQ(KivSdCTime(nullptr, seconds, 26, text.text()), KIV_ST_TIME_FORMAT);
  }
}

TEST(RuntimeTimeText, FailsWithTheRuntimesError) {
  const ScriptedImport format("_ctime64", {.result = 0, .error = 33});
  Context ctx;
  GuardedBytes text(26);
  CHECK_OUTCOME(ctx, KivSdCTime(ctx, 1, 26, text.text()), KIV_ST_TIME_FORMAT, 33u);
  ExpectText(text, "");
}

TEST(RuntimeTimeText, NeedsABufferAndALength) {
  Context ctx;
  GuardedBytes text(26);
  CHECK_ARGUMENT(ctx, KivSdCTime(ctx, 1, 26, nullptr));
  CHECK_ARGUMENT(ctx, KivSdCTime(ctx, 1, 0, text.text()));
  EXPECT_EQ(KivSdCTime(nullptr, 1, 0, nullptr), KIV_ST_ARGUMENT);
  EXPECT_TRUE(text.IsAll(kSpoilt));
}

}  // namespace
