// The per-thread utility slot.
#include "kivsdu/vorutil.h"

#include <gtest/gtest.h>

#include <thread>

#include "kivsdu/kivsdu.h"
#include "support/process.h"
#include "support/threads.h"

namespace {

using kiv::test::OnThreads;

constexpr char kSource[] = "sd/sdvorutil";

void* Value(uintptr_t bits) { return reinterpret_cast<void*>(bits); }

// A slot that exists for the duration of the test.
class Slot : public testing::Test {
 protected:
  Slot() { EXPECT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK); }
  ~Slot() override { KivSdVorUtilTlsTerm(); }
};

TEST(NoSlot, IsTheInitialState) {
  IN_FRESH_PROCESS([] {
    ASSERT_NE(KivSdVorUtilGlobals(), nullptr);
    EXPECT_EQ(KivSdVorUtilGlobals()->hostValue, nullptr);
    EXPECT_EQ(KivSdVorUtilGlobals()->tlsKey, nullptr);
  });
}

TEST(NoSlot, ReadsNullBeforeTheFirstInit) {
  IN_FRESH_PROCESS([] { EXPECT_EQ(KivSdVorUtilTlsGet(), nullptr); });
}

TEST(NoSlot, TermDoesNothing) {
  KivSdVorUtilTlsTerm();
  KivSdVorUtilTlsTerm();
  EXPECT_EQ(KivSdVorUtilGlobals()->tlsKey, nullptr);
  EXPECT_EQ(KivSdVorUtilTlsGet(), nullptr);
}

TEST(NoSlot, SettingAValueBeforeInitEndsTheProcess) {
  EXPECT_ASSERTION(KivSdVorUtilTlsSet(Value(1)), "key != KIV_NULL", kSource, 43);
}

TEST(NoSlot, SettingAValueAfterTermEndsTheProcess) {
  ASSERT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK);
  KivSdVorUtilTlsTerm();
  EXPECT_ASSERTION(KivSdVorUtilTlsSet(Value(1)), "key != KIV_NULL", kSource, 43);
}

TEST_F(Slot, ASecondInitEndsTheProcess) {
  EXPECT_ASSERTION(KivSdVorUtilTlsInit(), "KivSdVorUtilGlobals()->tlsKey == KIV_NULL", kSource,
                   109);
}

TEST_F(Slot, HoldsNullUntilTheThreadSetsAValue) { EXPECT_EQ(KivSdVorUtilTlsGet(), nullptr); }

TEST_F(Slot, KeepsEveryBitOfTheLastValueSet) {
  for (const uintptr_t bits : {uintptr_t{1}, UINTPTR_MAX, uintptr_t{1} << 63, uintptr_t{0}}) {
    EXPECT_EQ(KivSdVorUtilTlsSet(Value(bits)), KIV_ST_OK);
    EXPECT_EQ(KivSdVorUtilTlsGet(), Value(bits));
  }
}

TEST_F(Slot, AThreadDoesNotSeeAnotherThreadsValue) {
  EXPECT_EQ(KivSdVorUtilTlsSet(Value(7)), KIV_ST_OK);
  void* before = Value(99);
  void* after = nullptr;
  std::thread([&] {
    before = KivSdVorUtilTlsGet();
    EXPECT_EQ(KivSdVorUtilTlsSet(Value(8)), KIV_ST_OK);
    after = KivSdVorUtilTlsGet();
  }).join();
  EXPECT_EQ(before, nullptr);
  EXPECT_EQ(after, Value(8));
  EXPECT_EQ(KivSdVorUtilTlsGet(), Value(7));
}

TEST_F(Slot, EachOfManyThreadsReadsItsOwnValue) {
  constexpr uint32_t kThreads = 8;
  constexpr uintptr_t kRounds = 20000;
  uintptr_t wrong[kThreads] = {};
  OnThreads(kThreads, [&](uint32_t thread) {
    for (uintptr_t round = 1; round <= kRounds; ++round) {
      void* value = Value(round * kThreads + thread);
      if (KivSdVorUtilTlsSet(value) != KIV_ST_OK || KivSdVorUtilTlsGet() != value) ++wrong[thread];
    }
  });
  for (const uintptr_t count : wrong) EXPECT_EQ(count, 0u);
}

TEST_F(Slot, ReadsNullAfterTerm) {
  EXPECT_EQ(KivSdVorUtilTlsSet(Value(7)), KIV_ST_OK);
  KivSdVorUtilTlsTerm();
  EXPECT_EQ(KivSdVorUtilTlsGet(), nullptr);
  EXPECT_EQ(KivSdVorUtilGlobals()->tlsKey, nullptr);
}

TEST_F(Slot, CanBeMadeAgainAndThenHoldsNoOldValue) {
  for (int round = 0; round < 3000; ++round) {  // more rounds than any system has slots
    ASSERT_EQ(KivSdVorUtilTlsGet(), nullptr);
    ASSERT_EQ(KivSdVorUtilTlsSet(Value(7)), KIV_ST_OK);
    KivSdVorUtilTlsTerm();
    ASSERT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK);
  }
}

TEST_F(Slot, LeavesTheHostsFieldOfTheRecordAlone) {
  KivSdVorUtilGlobalsRecord* globals = KivSdVorUtilGlobals();
  globals->hostValue = Value(0x1234);
  EXPECT_NE(globals->tlsKey, nullptr);
  EXPECT_EQ(KivSdVorUtilTlsSet(Value(7)), KIV_ST_OK);
  EXPECT_EQ(KivSdVorUtilTlsGet(), Value(7));
  KivSdVorUtilTlsTerm();
  EXPECT_EQ(KivSdVorUtilGlobals(), globals);
  EXPECT_EQ(globals->hostValue, Value(0x1234));
  globals->hostValue = nullptr;
}

}  // namespace
