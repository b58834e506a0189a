// The per-thread utility slot when a system call or an allocation fails.
#include <gtest/gtest.h>
#include <windows.h>

#include "kivsdu/kivsdu.h"
#include "support/import_patch.h"

namespace {

using kiv::test::ScriptedImport;

constexpr uint32_t kNoSlot = 0xFFFFFFFF;
const kiv::test::Script kPassThrough = {.failCount = 0};

TEST(SlotFailure, WithoutASlotTheKeyIsFreedAndNothingIsStored) {
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

TEST(SlotFailure, WithoutMemoryNoSlotIsAllocated) {
  const ScriptedImport alloc("TlsAlloc", kPassThrough);
  const ScriptedImport malloc("malloc", {.result = 0, .error = 8});
  EXPECT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(KivSdVorUtilGlobals()->tlsKey, nullptr);
  EXPECT_TRUE(alloc.calls().empty());
}

// The existing slot stays usable, and the second init frees everything that it allocated.
TEST(SlotFailure, OfASecondInitIsReportedWithoutAnAssertion) {
  int value = 0;
  ASSERT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK);
  ASSERT_EQ(KivSdVorUtilTlsSet(&value), KIV_ST_OK);
  const uint32_t* key = KivSdVorUtilGlobals()->tlsKey;
  {
    const ScriptedImport malloc("malloc", {.result = 0, .error = 8});
    EXPECT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OUT_OF_MEMORY);
  }
  {
    const ScriptedImport malloc("malloc", kPassThrough);
    const ScriptedImport free("free", kPassThrough);
    const ScriptedImport alloc("TlsAlloc", {.result = kNoSlot, .error = 259});
    EXPECT_EQ(KivSdVorUtilTlsInit(), KIV_ST_THREAD_SLOT);
    EXPECT_EQ(malloc.calls().size(), 1u);
    ASSERT_EQ(free.calls().size(), 1u);
    EXPECT_NE(free.calls()[0][0], reinterpret_cast<uintptr_t>(key));
  }
  EXPECT_EQ(KivSdVorUtilGlobals()->tlsKey, key);
  EXPECT_EQ(KivSdVorUtilTlsGet(), &value);
  KivSdVorUtilTlsTerm();
}

// Memory for the key that is read-only at first: the first write traps, and the handler records the
// key that other threads see at that moment.
class TrappingCell {
 public:
  TrappingCell() {
    page_ = VirtualAlloc(nullptr, kPageBytes, MEM_COMMIT | MEM_RESERVE, PAGE_READONLY);
    writes_ = 0;
    handler_ = AddVectoredExceptionHandler(1, &Trap);
  }
  ~TrappingCell() {
    RemoveVectoredExceptionHandler(handler_);
    VirtualFree(page_, 0, MEM_RELEASE);
  }
  TrappingCell(const TrappingCell&) = delete;
  TrappingCell& operator=(const TrappingCell&) = delete;

  static void* page() { return page_; }
  static int writes() { return writes_; }
  static const uint32_t* keyAtWrite() { return keyAtWrite_; }

 private:
  static LONG CALLBACK Trap(EXCEPTION_POINTERS* info) {
    const EXCEPTION_RECORD& record = *info->ExceptionRecord;
    if (record.ExceptionCode != EXCEPTION_ACCESS_VIOLATION ||
        record.ExceptionInformation[1] != reinterpret_cast<uintptr_t>(page_)) {
      return EXCEPTION_CONTINUE_SEARCH;
    }
    ++writes_;
    keyAtWrite_ = KivSdVorUtilGlobals()->tlsKey;
    DWORD before = 0;
    VirtualProtect(page_, kPageBytes, PAGE_READWRITE, &before);
    return EXCEPTION_CONTINUE_EXECUTION;
  }

  static constexpr size_t kPageBytes = 4096;
  static inline void* page_;
  static inline int writes_;
  static inline const uint32_t* keyAtWrite_;
  void* handler_;
};

TEST(SlotInit, FillsTheKeyBeforeOtherThreadsSeeIt) {
  const TrappingCell cell;
  const ScriptedImport malloc("malloc", {.result = reinterpret_cast<uintptr_t>(cell.page())});
  const ScriptedImport free("free", {});
  ASSERT_EQ(KivSdVorUtilTlsInit(), KIV_ST_OK);
  EXPECT_EQ(cell.writes(), 1);
  EXPECT_EQ(cell.keyAtWrite(), nullptr);
  EXPECT_EQ(KivSdVorUtilGlobals()->tlsKey, cell.page());
  KivSdVorUtilTlsTerm();
}

TEST(SlotFailure, AFailedSetLeavesTheOldValue) {
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

TEST(SlotTerm, FreesTheSlotAndItsKeyOnce) {
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
