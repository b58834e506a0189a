// Shared semaphore sets: the members' names, the state after a failure, and sharing between two
// processes. A set writes only argument errors into the record.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#endif

#include <cstdlib>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::kLimitMs;
using kiv::test::kRoleDone;
using kiv::test::kShortAtLeastMs;
using kiv::test::kShortMs;
using kiv::test::Later;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::SharedSignal;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;

KivSdShSemSet* Unwritten() { return reinterpret_cast<KivSdShSemSet*>(uintptr_t{0x5A5A5A50}); }

bool IsInUse(const std::string& name) {
  KivHandle opened = nullptr;
  if (KivSdCntSemOpen(nullptr, name.c_str(), &opened) != KIV_ST_OK) return false;
  EXPECT_EQ(KivSdCntSemClose(nullptr, &opened), KIV_ST_OK);
  return true;
}

std::string Member(const std::string& base, int index) {
  return base + "_" + std::to_string(index);
}

uint32_t Create(KivSdContext* ctx, const std::string& base, const std::vector<int32_t>& initial,
                const std::vector<int32_t>& maximum, KivSdShSemSet** set) {
  constexpr uint64_t kIgnored = 0xDEADBEEF'DEADBEEF;
  return KivSdShSemSetCreate(ctx, base.c_str(), static_cast<uint16_t>(initial.size()), kIgnored,
                             initial.data(), maximum.data(), set);
}

// Creates a set of `count` members, each with the count 0 and the maximum 1.
uint32_t CreateEmpty(KivSdContext* ctx, const std::string& base, uint16_t count,
                     KivSdShSemSet** set) {
  return Create(ctx, base, std::vector<int32_t>(count, 0), std::vector<int32_t>(count, 1), set);
}

class SemaphoreSet : public testing::Test {
 protected:
  void TearDown() override {
    if (set_ != nullptr) {
      EXPECT_EQ(KivSdShSemSetClose(nullptr, set_), KIV_ST_OK);
    }
  }

  Context ctx_;
  KivSdShSemSet* set_ = nullptr;
};

TEST_F(SemaphoreSet, RefusesNullPointersAndRecordsTheError) {
  constexpr int32_t kCounts[] = {1};
  KivSdShSemSet* set = Unwritten();
  CHECK_ARGUMENT(ctx_, KivSdShSemSetCreate(ctx_, nullptr, 1, 0, kCounts, kCounts, &set));
  CHECK_ARGUMENT(ctx_, KivSdShSemSetCreate(ctx_, "", 1, 0, kCounts, kCounts, &set));
  CHECK_ARGUMENT(ctx_, KivSdShSemSetCreate(ctx_, "q", 1, 0, nullptr, kCounts, &set));
  CHECK_ARGUMENT(ctx_, KivSdShSemSetCreate(ctx_, "q", 1, 0, kCounts, nullptr, &set));
  CHECK_ARGUMENT(ctx_, KivSdShSemSetCreate(ctx_, "q", 1, 0, kCounts, kCounts, nullptr));
  EXPECT_EQ(set, Unwritten());
  CHECK_ARGUMENT(ctx_, KivSdShSemSetClose(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdShSemSetRequest(ctx_, 0, nullptr, 0));
  CHECK_ARGUMENT(ctx_, KivSdShSemSetClear(ctx_, 0, nullptr));
}

TEST_F(SemaphoreSet, RefusesNullCountsOfAnEmptySetToo) {
  constexpr int32_t kCounts[] = {1};
  CHECK_ARGUMENT(ctx_, KivSdShSemSetCreate(ctx_, "q", 0, 0, nullptr, kCounts, &set_));
  CHECK_ARGUMENT(ctx_, KivSdShSemSetCreate(ctx_, "q", 0, 0, kCounts, nullptr, &set_));
}

TEST_F(SemaphoreSet, WorksWithoutAContext) {
  const std::string base = UniqueName("no-context");
  EXPECT_EQ(CreateEmpty(nullptr, base, 1, &set_), KIV_ST_OK);
  EXPECT_EQ(KivSdShSemSetClear(nullptr, 0, set_), KIV_ST_OK);
  EXPECT_EQ(KivSdShSemSetRequest(nullptr, 0, set_, 0), KIV_ST_OK);
  EXPECT_EQ(KivSdShSemSetRequest(nullptr, 1, set_, 0), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdShSemSetClear(nullptr, 1, set_), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdShSemSetClose(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdShSemSetCreate(nullptr, nullptr, 1, 0, nullptr, nullptr, nullptr),
            KIV_ST_ARGUMENT);
}

TEST_F(SemaphoreSet, NamesItsMembersByTheirNumbers) {
  const std::string base = UniqueName("q");
  ASSERT_FALSE(IsInUse(base + "_0"));
  CHECK_SILENT(ctx_, CreateEmpty(ctx_, base, 3, &set_), KIV_ST_OK);
  ASSERT_NE(set_, nullptr);
  EXPECT_EQ(set_->count, 3u);
  for (const char* end : {"_0", "_1", "_2"}) EXPECT_TRUE(IsInUse(base + end)) << end;
  for (const char* end : {"", "_", "_3", "_-1", "_00"}) EXPECT_FALSE(IsInUse(base + end)) << end;
  CHECK_SILENT(ctx_, KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
  set_ = nullptr;
  for (const char* end : {"_0", "_1", "_2"}) EXPECT_FALSE(IsInUse(base + end)) << end;
}

TEST_F(SemaphoreSet, CreatesEveryMemberWithItsOwnCounts) {
  CHECK_SILENT(ctx_, Create(ctx_, UniqueName("counts"), {0, 1, 2}, {1, 1, 3}, &set_), KIV_ST_OK);
  for (uint16_t index = 0; index < 3; ++index) {
    for (int taken = 0; taken < index; ++taken) {
      CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, index, set_, 0), KIV_ST_OK);
    }
    CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, index, set_, 0), KIV_ST_SEM_TIMEOUT);
  }
  const int maximum[] = {1, 1, 3};
  for (uint16_t index = 0; index < 3; ++index) {
    for (int given = 0; given < maximum[index]; ++given) {
      CHECK_SILENT(ctx_, KivSdShSemSetClear(ctx_, index, set_), KIV_ST_OK);
    }
    CHECK_SILENT(ctx_, KivSdShSemSetClear(ctx_, index, set_), KIV_ST_SEM_CLEAR);
  }
}

TEST_F(SemaphoreSet, RefusesAnIndexOutOfRange) {
  CHECK_SILENT(ctx_, Create(ctx_, UniqueName("index"), {1, 1, 1}, {2, 2, 2}, &set_), KIV_ST_OK);
  for (const uint16_t index : {uint16_t{3}, uint16_t{4}, uint16_t{0xFFFF}}) {
    CHECK_ARGUMENT(ctx_, KivSdShSemSetRequest(ctx_, index, set_, 0));
    CHECK_ARGUMENT(ctx_, KivSdShSemSetClear(ctx_, index, set_));
  }
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 2, set_, 0), KIV_ST_OK);
}

TEST_F(SemaphoreSet, MayBeEmpty) {
  constexpr int32_t kCounts[] = {1};
  const std::string base = UniqueName("empty");
  CHECK_SILENT(ctx_, KivSdShSemSetCreate(ctx_, base.c_str(), 0, 0, kCounts, kCounts, &set_),
               KIV_ST_OK);
  ASSERT_NE(set_, nullptr);
  EXPECT_EQ(set_->count, 0u);
  EXPECT_FALSE(IsInUse(Member(base, 0)));
  CHECK_ARGUMENT(ctx_, KivSdShSemSetRequest(ctx_, 0, set_, 0));
  CHECK_ARGUMENT(ctx_, KivSdShSemSetClear(ctx_, 0, set_));
  CHECK_SILENT(ctx_, KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
  set_ = nullptr;
}

TEST_F(SemaphoreSet, HoldsManyMembers) {
  constexpr uint16_t kCount = 1000;
  const std::string base = UniqueName("many");
  CHECK_SILENT(ctx_, CreateEmpty(ctx_, base, kCount, &set_), KIV_ST_OK);
  ASSERT_NE(set_, nullptr);
  EXPECT_TRUE(IsInUse(Member(base, kCount - 1)));
  CHECK_SILENT(ctx_, KivSdShSemSetClear(ctx_, kCount - 1, set_), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, kCount - 2, set_, 0), KIV_ST_SEM_TIMEOUT);
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, kCount - 1, set_, 0), KIV_ST_OK);
}

// ---- Names ----

// The beginning of this process's names.
const std::string& OwnBeginning() {
  static const std::string beginning = UniqueName("n");
  return beginning;
}

// A name of one-byte characters. No other process uses it unless it is very short.
std::string OwnName(size_t length) {
  return (OwnBeginning() + std::string(length, 'n')).substr(0, length);
}

TEST_F(SemaphoreSet, AcceptsNamesUpToTheSystemsLimit) {
  for (const size_t length : {size_t{1}, size_t{250}, size_t{257}}) {
    const std::string base = OwnName(length);
    CHECK_SILENT(ctx_, CreateEmpty(ctx_, base, 1, &set_), KIV_ST_OK);
    EXPECT_TRUE(IsInUse(Member(base, 0))) << length;
    CHECK_SILENT(ctx_, KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
    set_ = nullptr;
  }
}

#ifdef _WIN32
// A character of more than one byte, if the ANSI code page has such characters.
constexpr wchar_t kWideCharacter = 0x3042;

// In the ANSI code page.
std::string Character() {
  char bytes[8];
  BOOL isMissing = FALSE;
  const int count = WideCharToMultiByte(CP_ACP, 0, &kWideCharacter, 1, bytes, sizeof bytes, nullptr,
                                        GetACP() == CP_UTF8 ? nullptr : &isMissing);
  return count > 0 && !isMissing ? std::string(bytes, static_cast<size_t>(count)) : "n";
}

// Whether a semaphore has this name, asked of the system without a code page.
bool IsInUseInUnicode(size_t characters, const std::wstring& suffix) {
  const wchar_t character = Character() == "n" ? L'n' : kWideCharacter;
  const std::string& own = OwnBeginning();
  const std::wstring name = std::wstring(own.begin(), own.end()) +
                            std::wstring(characters - own.size(), character) + suffix;
  HANDLE opened = OpenSemaphoreW(SYNCHRONIZE, FALSE, name.c_str());
  if (opened != nullptr) CloseHandle(opened);
  return opened != nullptr;
}
#else
std::string Character() { return "\xE3\x81\x82"; }
#endif

std::string NameOf(size_t characters) {
  std::string name = OwnBeginning();
  for (size_t i = name.size(); i < characters; ++i) name += Character();
  return name;
}

TEST_F(SemaphoreSet, AcceptsNamesOfMultiByteCharactersUpToTheSystemsLimit) {
  const std::string name = NameOf(257);
  CHECK_SILENT(ctx_, CreateEmpty(ctx_, name, 1, &set_), KIV_ST_OK);
  EXPECT_TRUE(IsInUse(Member(name, 0)));
  EXPECT_FALSE(IsInUse(Member(NameOf(256), 0))) << "the name is not cut";
#ifdef _WIN32
  EXPECT_TRUE(IsInUseInUnicode(257, L"_0"));
#endif
  for (const size_t length : {258u, 300u, 5000u}) {
    KivSdShSemSet* set = Unwritten();
    CHECK_SILENT(ctx_, CreateEmpty(ctx_, NameOf(length), 1, &set), KIV_ST_SEM_CREATE);
    EXPECT_EQ(set, nullptr) << length;
  }
}

TEST_F(SemaphoreSet, OfANameThatDiffersAtTheEndIsAnotherSet) {
  const std::string base = NameOf(256);
  CHECK_SILENT(ctx_, Create(ctx_, base + "a", {1}, {1}, &set_), KIV_ST_OK);
  KivSdShSemSet* other = nullptr;
  CHECK_SILENT(ctx_, Create(ctx_, base + "b", {0}, {1}, &other), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 0, other, 0), KIV_ST_SEM_TIMEOUT);
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 0, set_, 0), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivSdShSemSetClose(ctx_, other), KIV_ST_OK);
}

#ifdef _WIN32  // code pages
// If the locale were missing, the other tests of names would use one-byte characters only.
TEST_F(SemaphoreSet, RunsOnTheRequestedCodePage) {
  const char* wanted = std::getenv("KIV_TEST_CODE_PAGE");
  if (wanted == nullptr) GTEST_SKIP() << "any code page";
  EXPECT_EQ(std::to_string(GetACP()), wanted);
}
#endif

TEST_F(SemaphoreSet, IsNotCreatedUnderALongerName) {
  for (const size_t length : {258u, 259u, 260u, 300u, 399u, 400u, 401u, 410u, 5000u, 100'000u}) {
    KivSdShSemSet* set = Unwritten();
    CHECK_SILENT(ctx_, CreateEmpty(ctx_, OwnName(length), 1, &set), KIV_ST_SEM_CREATE);
    EXPECT_EQ(set, nullptr) << length;
  }
}

TEST_F(SemaphoreSet, IsNotCreatedWhenAMembersNumberIsOneDigitTooLong) {
  const std::string base = OwnName(257);  // "_9" still fits, "_10" does not
  CHECK_SILENT(ctx_, CreateEmpty(ctx_, base, 10, &set_), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
  set_ = Unwritten();
  CHECK_SILENT(ctx_, CreateEmpty(ctx_, base, 11, &set_), KIV_ST_SEM_CREATE);
  EXPECT_EQ(set_, nullptr);
  for (int i = 0; i < 10; ++i) EXPECT_FALSE(IsInUse(Member(base, i))) << i;
}

TEST_F(SemaphoreSet, UsesTheBaseNameLiterally) {
  const std::string base = UniqueName("50%d%s");
  CHECK_SILENT(ctx_, CreateEmpty(ctx_, base, 1, &set_), KIV_ST_OK);
  EXPECT_TRUE(IsInUse(Member(base, 0)));
}

TEST_F(SemaphoreSet, IsNotCreatedWhenTheThirdMembersNameIsTaken) {
  const std::string base = UniqueName("third");
  KivHandle taken = nullptr;  // a mutex with the member's name
  CHECK_OK(ctx_, KivSdMutexCreate(ctx_, Member(base, 2).c_str(), &taken));
  set_ = Unwritten();
  CHECK_SILENT(ctx_, CreateEmpty(ctx_, base, 4, &set_), KIV_ST_SEM_CREATE);
  EXPECT_EQ(set_, nullptr);
  for (const int index : {0, 1, 3}) EXPECT_FALSE(IsInUse(Member(base, index))) << index;
  CHECK_OK(ctx_, KivSdMutexClose(ctx_, &taken));
}

TEST_F(SemaphoreSet, IsNotCreatedWhenAMembersCountsAreInvalid) {
  const std::string base = UniqueName("counts");
  set_ = Unwritten();
  CHECK_SILENT(ctx_, Create(ctx_, base, {0, 0, 2}, {1, 1, 1}, &set_), KIV_ST_SEM_CREATE);
  EXPECT_EQ(set_, nullptr);
  EXPECT_FALSE(IsInUse(Member(base, 0)));
}

TEST_F(SemaphoreSet, OfAnExistingNameSharesItsMembersWhateverTheCounts) {
  const std::string base = UniqueName("twice");
  CHECK_SILENT(ctx_, Create(ctx_, base, {1, 0}, {1, 1}, &set_), KIV_ST_OK);
  KivSdShSemSet* second = nullptr;
  CHECK_SILENT(ctx_, Create(ctx_, base, {7, 7, 1}, {9, 9, 1}, &second), KIV_ST_OK);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, set_);
  EXPECT_EQ(second->count, 3u);
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 0, second, 0), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 0, second, 0), KIV_ST_SEM_TIMEOUT);
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 0, set_, 0), KIV_ST_SEM_TIMEOUT);
  CHECK_SILENT(ctx_, KivSdShSemSetClear(ctx_, 1, second), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivSdShSemSetClear(ctx_, 1, second), KIV_ST_SEM_CLEAR);
  CHECK_SILENT(ctx_, KivSdShSemSetClose(ctx_, second), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 1, set_, 0), KIV_ST_OK);
}

// ---- Waiting ----

TEST_F(SemaphoreSet, WaitsForAMemberUntilTheTimeOut) {
  CHECK_SILENT(ctx_, CreateEmpty(ctx_, UniqueName("short"), 1, &set_), KIV_ST_OK);
  const Stopwatch watch;
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 0, set_, kShortMs), KIV_ST_SEM_TIMEOUT);
  EXPECT_GE(watch.ElapsedMs(), kShortAtLeastMs);
  EXPECT_LT(watch.ElapsedMs(), kLimitMs);
}

TEST_F(SemaphoreSet, WaitsForeverUntilAnotherThreadClearsTheMember) {
  CHECK_SILENT(ctx_, CreateEmpty(ctx_, UniqueName("for-ever"), 2, &set_), KIV_ST_OK);
  const Later clear([&] { KivSdShSemSetClear(nullptr, 1, set_); });
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 1, set_, KIV_WAIT_INFINITE), KIV_ST_OK);
}

// ---- A second process ----

// Opens the set and, for each unit taken from member 0, releases one to member 1.
const RegisteredRole partner("passes-on", [](const RoleArguments& arguments) {
  Context ctx;
  KivSdShSemSet* set = nullptr;
  CHECK_SILENT(ctx, Create(ctx, arguments[0], {5, 5}, {5, 5}, &set), KIV_ST_OK);
  const SharedSignal joined(arguments[1]);
  joined.Set();
  for (int round = 0; round < 100; ++round) {
    CHECK_SILENT(ctx, KivSdShSemSetRequest(ctx, 0, set, kLimitMs), KIV_ST_OK);
    CHECK_SILENT(ctx, KivSdShSemSetClear(ctx, 1, set), KIV_ST_OK);
  }
  CHECK_SILENT(ctx, KivSdShSemSetClose(ctx, set), KIV_ST_OK);
  return kRoleDone;
});

TEST_F(SemaphoreSet, IsSharedByTwoProcesses) {
  const std::string base = UniqueName("shared");
  const SharedSignal joined(UniqueName("joined"));
  CHECK_SILENT(ctx_, CreateEmpty(ctx_, base, 2, &set_), KIV_ST_OK);
  const ChildProcess child("passes-on", {base, joined.name()});
  joined.Await();
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 1, set_, 0), KIV_ST_SEM_TIMEOUT);
  for (int round = 0; round < 100; ++round) {
    CHECK_SILENT(ctx_, KivSdShSemSetClear(ctx_, 0, set_), KIV_ST_OK);
    CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 1, set_, kLimitMs), KIV_ST_OK);
  }
  EXPECT_EQ(child.ExitCode(), kRoleDone);
  // The partner's close has no effect on this process.
  CHECK_SILENT(ctx_, KivSdShSemSetClear(ctx_, 0, set_), KIV_ST_OK);
  CHECK_SILENT(ctx_, KivSdShSemSetRequest(ctx_, 0, set_, 0), KIV_ST_OK);
}

}  // namespace
