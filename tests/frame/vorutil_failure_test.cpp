// What the per-thread slot does when the system refuses.
#include <gtest/gtest.h>

#include "kivsdu/kivsdu.h"
#include "support/import_patch.h"

namespace {

using kiv::test::ScriptedImport;

constexpr uint32_t kNoSlot = 0xFFFFFFFF;
const kiv::test::Script kPassThrough = {.failCount = 0};

TEST(SlotFailure, WithoutASlotTheKeyCellIsFreedAndNothingIsStored) {
  const ScriptedImport malloc("malloc", kPassThrough);
  const ScriptedImport free("free", kPassThrough);
  const ScriptedImport alloc("TlsAlloc", {.result = kNoSlot, .error = 259});
  EXPECT_EQ(KivSdVorUtilTlsInit(), KIV_ST_THREAD_SLOT);
  EXPECT_EQ(KivSdVorUtilGlobals()->tlsKey, nullptr);
  EXPECT_EQ(KivSdVorUtilTlsGet(), nullptr);
  EXPECT_EQ(alloc.calls().size(), 1u);
  ASSERT_EQ(malloc.calls().size(), 1u);
  EXPECT_EQ(malloc.calls()[0][0], sizeof(uint32_t));
  EXPECT_EQ(free.calls().size(), 1u);
}

TEST(SlotFailure, CanBeFollowedByASuccess) {
  {
    const ScriptedImport alloc("TlsAlloc", {.result = kNoSlot, .error = 259});
    EXPECT_EQ(KivSdVorUtilTlsInit(), KIV_ST_THREAD_SLOT);
  }
  EXPECT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK);
  KivSdVorUtilTlsTerm();
}

TEST(SlotFailure, WithoutMemoryNoSlotIsAsked) {
  const ScriptedImport alloc("TlsAlloc", kPassThrough);
  const ScriptedImport malloc("malloc", {.result = 0, .error = 8});
  EXPECT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(KivSdVorUtilGlobals()->tlsKey, nullptr);
  EXPECT_TRUE(alloc.calls().empty());
}

TEST(SlotFailure, AValueThatCannotBeStoredLeavesTheOldOne) {
  int value = 0;
  ASSERT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK);
  ASSERT_EQ(KivSdVorUtilTlsSet(&value), KIV_ST_OK);
  {
    const ScriptedImport set("TlsSetValue", {.result = 0, .error = 87});
    EXPECT_EQ(KivSdVorUtilTlsSet(nullptr), KIV_ST_THREAD_SLOT);
    ASSERT_EQ(set.calls().size(), 1u);
    EXPECT_EQ(static_cast<uint32_t>(set.calls()[0][0]), *KivSdVorUtilGlobals()->tlsKey);
  }
  EXPECT_EQ(KivSdVorUtilTlsGet(), &value);
  KivSdVorUtilTlsTerm();
}

TEST(SlotTerm, GivesTheSlotAndItsCellBackOnce) {
  ASSERT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK);
  const auto cell = reinterpret_cast<uintptr_t>(KivSdVorUtilGlobals()->tlsKey);
  const uint32_t slot = *KivSdVorUtilGlobals()->tlsKey;
  const ScriptedImport free("free", kPassThrough);
  const ScriptedImport tlsFree("TlsFree", kPassThrough);
  KivSdVorUtilTlsTerm();
  KivSdVorUtilTlsTerm();
  ASSERT_EQ(free.calls().size(), 1u);
  EXPECT_EQ(free.calls()[0][0], cell);
  ASSERT_EQ(tlsFree.calls().size(), 1u);
  EXPECT_EQ(static_cast<uint32_t>(tlsFree.calls()[0][0]), slot);
}

}  // namespace
