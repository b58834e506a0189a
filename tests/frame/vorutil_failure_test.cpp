// The per-thread utility slot when a system call or an allocation fails.
#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <signal.h>
#include <sys/mman.h>
#endif

#include <cstdlib>

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

// ---- A page that is read-only until it is written to ----

void (*onFirstWrite)(const void* address) = nullptr;

#ifdef _WIN32

class TrappedPage {
 public:
  TrappedPage()
      : page_(VirtualAlloc(nullptr, kBytes, MEM_COMMIT | MEM_RESERVE, PAGE_READONLY)),
        handler_(AddVectoredExceptionHandler(1, &Trap)) {}
  ~TrappedPage() {
    RemoveVectoredExceptionHandler(handler_);
    VirtualFree(page_, 0, MEM_RELEASE);
  }
  TrappedPage(const TrappedPage&) = delete;
  TrappedPage& operator=(const TrappedPage&) = delete;

  void* page() const { return page_; }

  static void MakeWritable(void* page) {
    DWORD before = 0;
    VirtualProtect(page, kBytes, PAGE_READWRITE, &before);
  }

 private:
  static constexpr size_t kBytes = 4096;

  static LONG CALLBACK Trap(EXCEPTION_POINTERS* info) {
    const EXCEPTION_RECORD& record = *info->ExceptionRecord;
    if (record.ExceptionCode != EXCEPTION_ACCESS_VIOLATION) return EXCEPTION_CONTINUE_SEARCH;
    onFirstWrite(reinterpret_cast<const void*>(record.ExceptionInformation[1]));
    return EXCEPTION_CONTINUE_EXECUTION;
  }

  void* page_;
  void* handler_;
};

#else

class TrappedPage {
 public:
  TrappedPage() : page_(mmap(nullptr, kBytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
    struct sigaction action = {};
    action.sa_sigaction = &Trap;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, &before_);
  }
  ~TrappedPage() {
    sigaction(SIGSEGV, &before_, nullptr);
    munmap(page_, kBytes);
  }
  TrappedPage(const TrappedPage&) = delete;
  TrappedPage& operator=(const TrappedPage&) = delete;

  void* page() const { return page_; }

  static void MakeWritable(void* page) { mprotect(page, kBytes, PROT_READ | PROT_WRITE); }

 private:
  static constexpr size_t kBytes = 4096;

  static void Trap(int, siginfo_t* info, void*) { onFirstWrite(info->si_addr); }

  void* page_;
  struct sigaction before_ = {};
};

#endif

// Memory for the key that traps the first write: records the key that other threads see at that
// moment.
class TrappingCell {
 public:
  TrappingCell() {
    cell_ = trapped_.page();
    writes_ = 0;
    onFirstWrite = &Look;
  }
  TrappingCell(const TrappingCell&) = delete;
  TrappingCell& operator=(const TrappingCell&) = delete;

  static void* page() { return cell_; }
  static int writes() { return writes_; }
  static const uint32_t* keyAtWrite() { return keyAtWrite_; }

 private:
  static void Look(const void* address) {
    if (address != cell_) std::abort();
    ++writes_;
    keyAtWrite_ = KivSdVorUtilGlobals()->tlsKey;
    TrappedPage::MakeWritable(cell_);
  }

  static inline void* cell_;
  static inline int writes_;
  static inline const uint32_t* keyAtWrite_;
  TrappedPage trapped_;
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
