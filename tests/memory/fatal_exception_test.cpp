// Plain mode after a fatal exception has been recorded: only the thread that recorded it is served,
// from the exception stack. The record cannot be cleared, so that every test runs in its own
// process.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "kivsdu/kivsdu.h"
#include "support/policy.h"
#include "support/process.h"
#include "support/runtime_watch.h"
#ifdef _WIN32
#include "support/import_patch.h"
#else
#include "sdthrw32/exception_stack.h"
#endif

namespace {

using kiv::test::Allocate;
using kiv::test::Fill;
using kiv::test::Free;
using kiv::test::IsFilled;
using kiv::test::Reallocate;
using kiv::test::RuntimeWatch;

constexpr uint64_t kStackBytes = 1 << 20;
constexpr int kSurvived = 7;  // exit code of a process that the library should have ended

// Values that choose how the process ends when the stack has no room. Tests that must not end use
// the value whose end they notice.
constexpr uint8_t kOrderly = 0;
constexpr uint8_t kAbort = 1;

char* Bytes(void* block) { return static_cast<char*>(block); }

void Record(uint8_t value) {
  KivSdXcptCreateStackHeader();
  ASSERT_EQ(KivSdXcptSetFatExceptionOccured(value), KIV_ST_OK);
}

auto EndedByAbort() {
#ifdef _WIN32
  return testing::ExitedWithCode(3);
#else
  return testing::KilledBySignal(SIGABRT);
#endif
}

// Returns the largest piece that fits the empty stack: the size of a block that fills whole pages
// with the manager's 128 bytes, less the block's header.
uint64_t EmptyRoom() {
  uint32_t page = 0;
  EXPECT_EQ(KivSdPageSizeGet(nullptr, &page), KIV_ST_OK);
  const uint64_t block = (kStackBytes + 128 + page - 1) / page * page - 128;
  return block - 16;
}

TEST(FatalException, ServesAllocationsFromTheExceptionStackAlone) {
  IN_FRESH_PROCESS([] {
    Record(kAbort);
    const RuntimeWatch watch;
    void* first = Allocate(100);
    void* second = Allocate(10, AD_POLICY_MANDATORY);
    void* third = Allocate(1000);
    EXPECT_EQ(Bytes(second), Bytes(first) + 104);
    EXPECT_EQ(Bytes(third), Bytes(second) + 16);
    Fill(first, 100);
    Fill(third, 1000);
    EXPECT_TRUE(IsFilled(first, 100));
    KivSdContext* ctx = nullptr;
    EXPECT_EQ(KivSdInit(&ctx), KIV_ST_OK);
    EXPECT_EQ(KivSdTerm(ctx), KIV_ST_OK);
    EXPECT_TRUE(watch.sizes().empty());
    EXPECT_TRUE(watch.freed().empty());
  });
}

TEST(FatalException, LeavesTheCacheOfAThreadAlone) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    EXPECT_EQ(adCreateThreadAlloc(), KIV_ST_OK);
    void* cached = Allocate(100);
    void* used = Allocate(100);
    Free(cached);
    Record(kAbort);
    void* block = Allocate(100);
    EXPECT_NE(block, cached);
    EXPECT_EQ(adFree(used, nullptr, 0), KIV_ST_ARGUMENT);
    EXPECT_EQ(Bytes(Allocate(100)), Bytes(block) + 104);
  });
}

TEST(FatalException, StillRefusesBadArguments) {
  IN_FRESH_PROCESS([] {
    Record(kAbort);
    void* block = &block;
    EXPECT_EQ(adMalloc(nullptr, 0, &block, nullptr, 0), KIV_ST_ARGUMENT);
    EXPECT_EQ(adFree(nullptr, nullptr, 0), KIV_ST_ARGUMENT);
    EXPECT_EQ(adRealloc(nullptr, 0, Allocate(1), &block, nullptr, 0), KIV_ST_ARGUMENT);
  });
}

TEST(FatalException, ReleasesNothingAndRefusesBlocksFromElsewhere) {
  IN_FRESH_PROCESS([] {
    void* before = Allocate(100);
    Record(kAbort);
    EXPECT_EQ(adFree(before, nullptr, 0), KIV_ST_ARGUMENT);
    void* block = Allocate(100);
    Fill(block, 100);
    EXPECT_EQ(adFree(block, nullptr, 0), KIV_ST_OK);
    EXPECT_EQ(adFree(Bytes(block) + 5, nullptr, 0), KIV_ST_OK);
    EXPECT_EQ(adFree(Bytes(block) - 1, nullptr, 0), KIV_ST_ARGUMENT);
    EXPECT_EQ(adFree(&block, nullptr, 0), KIV_ST_ARGUMENT);
    EXPECT_EQ(adFree(block, nullptr, 0), KIV_ST_OK);
    EXPECT_TRUE(IsFilled(block, 100));
    EXPECT_EQ(Bytes(Allocate(8)), Bytes(block) + 104);
  });
}

TEST(FatalException, RefusesAFreeBeforeAnythingIsOnTheStack) {
  IN_FRESH_PROCESS([] {
    void* before = Allocate(100);
    Record(kAbort);
    EXPECT_EQ(adFree(before, nullptr, 0), KIV_ST_ARGUMENT);
  });
}

TEST(FatalException, RefusesEveryFreeWithoutAStack) {
  IN_FRESH_PROCESS([] {
    void* before = Allocate(100);
    EXPECT_EQ(KivSdXcptSetFatExceptionOccured(kAbort), KIV_ST_OK);
    EXPECT_EQ(adFree(before, nullptr, 0), KIV_ST_ARGUMENT);
  });
}

TEST(FatalException, FreesNothingWithTheNoFreeSwitchOn) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    Record(kAbort);
    EXPECT_EQ(adFree(nullptr, nullptr, 0), KIV_ST_OK);
    int elsewhere = 0;
    EXPECT_EQ(adFree(&elsewhere, nullptr, 0), KIV_ST_OK);
  });
}

TEST(FatalException, ServesElementsTextsAndAlignedRequestsFromTheStack) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    {
      RuntimeWatch dirty;
      dirty.FillWith(0xCD);
      Record(kAbort);
    }
    const RuntimeWatch watch;
    void* first = Allocate(8);
    void* elements = nullptr;
    EXPECT_EQ(adCalloc(nullptr, 10, 10, &elements, AD_POLICY_MANDATORY), KIV_ST_OK);
    EXPECT_EQ(Bytes(elements), Bytes(first) + 8);
    EXPECT_TRUE(std::all_of(Bytes(elements), Bytes(elements) + 100, [](char c) { return c == 0; }));
    EXPECT_NE(Bytes(elements)[100], 0) << "no more than was asked for";
    char* text = adStrDup("text", nullptr, 0);
    EXPECT_EQ(text, Bytes(elements) + 104);
    EXPECT_EQ(std::memcmp(text, "text\0\0\0\0", 9), 0);
    // Every alignment is accepted and ignored.
    void* aligned = nullptr;
    EXPECT_EQ(adMallocAligned(nullptr, 4096, 100, &aligned, nullptr, 0), KIV_ST_OK);
    EXPECT_EQ(Bytes(aligned), text + 16);
    EXPECT_EQ(Bytes(Allocate(8)), Bytes(aligned) + 104);
    EXPECT_TRUE(watch.sizes().empty());
  });
}

TEST(FatalException, ReleasesNothingWhateverTheOriginOfABlock) {
  IN_FRESH_PROCESS([] {
    void* before = Allocate(100);
    Record(kAbort);
    void* block = Allocate(100);
    const RuntimeWatch watch;
    for (const uint8_t origin : {uint8_t{0}, uint8_t{1}}) {
      EXPECT_EQ(adFreeAligned(block, origin), KIV_ST_OK);
      EXPECT_EQ(adFreeAligned(before, origin), KIV_ST_ARGUMENT);
      EXPECT_EQ(adFreeAligned(nullptr, origin), KIV_ST_ARGUMENT);
    }
    EXPECT_TRUE(watch.freed().empty());
  });
}

TEST(FatalException, ReallocatesByPushingACopy) {
  IN_FRESH_PROCESS([] {
    Record(kAbort);
    void* block = Allocate(100);
    Fill(block, 100);
    void* larger = Reallocate(block, 500);
    EXPECT_EQ(Bytes(larger), Bytes(block) + 104);
    EXPECT_TRUE(IsFilled(larger, 100));
    Fill(larger, 500);
    EXPECT_TRUE(IsFilled(block, 100));
    void* smaller = Reallocate(larger, 10);
    EXPECT_EQ(Bytes(smaller), Bytes(larger) + 504);
    EXPECT_TRUE(IsFilled(smaller, 10));
    EXPECT_TRUE(IsFilled(larger, 500));
    void* fresh = Reallocate(nullptr, 10);
    EXPECT_EQ(Bytes(fresh), Bytes(smaller) + 16);
  });
}

TEST(FatalException, ReallocatesUpToTheEndOfTheStack) {
  IN_FRESH_PROCESS([] {
    Record(kAbort);
    const uint64_t half = EmptyRoom() / 2 / 8 * 8;
    void* block = Allocate(half);
    Fill(block, half);
    void* moved = Reallocate(block, EmptyRoom() - half);
    EXPECT_TRUE(IsFilled(moved, half));
  });
}

TEST(FatalException, ReallocatesABlockFromBeforeWithItsContent) {
  IN_FRESH_PROCESS([] {
    void* bare = Allocate(100);
    Fill(bare, 100);
    KivSdSetMemoryManager(1);
    void* full = Allocate(100);
    void* mandatory = Allocate(100, AD_POLICY_MANDATORY);
    for (void* block : {full, mandatory}) Fill(block, 100);
    Record(kAbort);
    for (void* block : {full, mandatory}) {
      void* moved = Reallocate(block, 50000);
      EXPECT_TRUE(IsFilled(moved, 100));
      EXPECT_TRUE(IsFilled(Reallocate(block, 30), 30));
    }
    KivSdSetMemoryManager(0);
    EXPECT_TRUE(IsFilled(Reallocate(bare, 50000), 100));
  });
}

// Blocks of a node come from the runtime and return to it in every mode.
#ifdef _WIN32  // elsewhere the runtime reports no failure
TEST(FatalException, ReallocatesABlockOfUnknownSizeWithoutItsContent) {
  IN_FRESH_PROCESS([] {
    void* before = Allocate(100);
    Fill(before, 100);
    Record(kAbort);
    const kiv::test::ScriptedImport size("_msize", {.result = UINTPTR_MAX});
    void* moved = Reallocate(before, 100);
    EXPECT_EQ(size.calls().size(), 1u);
    EXPECT_NE(moved, before);
    EXPECT_FALSE(IsFilled(moved, 100));
    EXPECT_TRUE(IsFilled(before, 100));
  });
}
#endif

TEST(FatalException, LeavesBlocksOfANodeToTheRuntime) {
  IN_FRESH_PROCESS([] {
    Record(kAbort);
    void* piece = Allocate(8);
    const RuntimeWatch watch;
    uint64_t size = 0;
    void* block = nullptr;
    EXPECT_EQ(adMallocOnNode(nullptr, 2 * kStackBytes, &size, &block), KIV_ST_OK);
    EXPECT_EQ(watch.sizes(), std::vector<size_t>{2 * kStackBytes});
    EXPECT_EQ(size, 2 * kStackBytes);
    EXPECT_EQ(adFreeOnNode(0, 0, block), KIV_ST_OK);
    EXPECT_EQ(watch.freed(), std::vector<const void*>{block});
    EXPECT_EQ(Bytes(Allocate(8)), Bytes(piece) + 8);
  });
}

// ---- The end of the stack ----

TEST(FatalException, FillsTheStackToItsLastByte) {
  IN_FRESH_PROCESS([] {
    Record(kAbort);
    const RuntimeWatch watch;
    void* block = Allocate(EmptyRoom());
    Fill(block, EmptyRoom());
    EXPECT_TRUE(watch.sizes().empty());
  });
  IN_FRESH_PROCESS([] {
    Record(kAbort);
    const RuntimeWatch watch;
    void* block = Allocate(8);
    EXPECT_EQ(Bytes(Allocate(EmptyRoom() - 8)), Bytes(block) + 8);
    EXPECT_TRUE(watch.sizes().empty());
  });
}

// Runs checks in a process that the library must end.
template <typename Checks>
void MustNotReturn(Checks checks) {
  checks();
  std::_Exit(kSurvived);
}

#define EXPECT_ENDS(how, ...)                         \
  do {                                                \
    GTEST_FLAG_SET(death_test_style, "threadsafe");   \
    EXPECT_EXIT(MustNotReturn(__VA_ARGS__), how, ""); \
  } while (false)

TEST(FatalExceptionBeyondItsRoom, EndsTheProcessByTheRecordedValue) {
  EXPECT_ENDS(testing::ExitedWithCode(0), [] {
    Record(kOrderly);
    Allocate(EmptyRoom() + 1);
  });
  EXPECT_ENDS(EndedByAbort(), [] {
    Record(kAbort);
    Allocate(EmptyRoom() + 1);
  });
  EXPECT_ENDS(EndedByAbort(), [] {
    Record(255);
    Allocate(UINT64_MAX);
  });
}

TEST(FatalExceptionBeyondItsRoom, ReadsEveryBitOfTheRecordedValue) {
  for (int value = 2; value <= 128; value *= 2) {
    SCOPED_TRACE(value);
    EXPECT_ENDS(EndedByAbort(), [value] {
      EXPECT_EQ(KivSdXcptSetFatExceptionOccured(static_cast<uint8_t>(value)), KIV_ST_OK);
      Allocate(1);
    });
  }
}

TEST(FatalExceptionBeyondItsRoom, EndsTheProcessByTheValueRecordedLast) {
  EXPECT_ENDS(testing::ExitedWithCode(0), [] {
    Record(kAbort);
    EXPECT_EQ(KivSdXcptSetFatExceptionOccured(kOrderly), KIV_ST_OK);
    Allocate(EmptyRoom() + 1);
  });
}

TEST(FatalExceptionBeyondItsRoom, EndsTheProcessWhenTheTopBlockIsFull) {
  EXPECT_ENDS(testing::ExitedWithCode(0), [] {
    Record(kOrderly);
    Allocate(8);
    Allocate(EmptyRoom() - 7);
  });
  EXPECT_ENDS(testing::ExitedWithCode(0), [] {
    Record(kOrderly);
    // The offset after the piece is rounded up past the end.
    Allocate(EmptyRoom() - 3);
    Allocate(1);
  });
  EXPECT_ENDS(testing::ExitedWithCode(0), [] {
    Record(kOrderly);
    Allocate(100);
    Allocate(UINT64_C(1) << 32);
  });
}

TEST(FatalExceptionBeyondItsRoom, EndsTheProcessInAReallocation) {
  EXPECT_ENDS(EndedByAbort(), [] {
    Record(kAbort);
    Reallocate(Allocate(100), EmptyRoom());
  });
}

TEST(FatalExceptionWithoutAStack, EndsTheProcess) {
  EXPECT_ENDS(testing::ExitedWithCode(0), [] {
    EXPECT_EQ(KivSdXcptSetFatExceptionOccured(kOrderly), KIV_ST_OK);
    Allocate(1);
  });
  EXPECT_ENDS(EndedByAbort(), [] {
    KivSdXcptCreateStackHeader();
    KivSdXcptDestroyStackHeader();
    EXPECT_EQ(KivSdXcptSetFatExceptionOccured(kAbort), KIV_ST_OK);
    Allocate(1);
  });
}

TEST(FatalExceptionWithoutAStack, EndsTheProcessWhenTheStackIsCreatedTooLate) {
  EXPECT_ENDS(EndedByAbort(), [] {
    EXPECT_EQ(KivSdXcptSetFatExceptionOccured(kAbort), KIV_ST_OK);
    KivSdXcptCreateStackHeader();
  });
}

TEST(FatalExceptionWithoutAStack, EndsTheProcessWhenTheStackIsIncomplete) {
  for (const size_t made : {size_t{0}, size_t{1}}) {
    EXPECT_ENDS(EndedByAbort(), [made] {
      RuntimeWatch watch;
      watch.FailAfter(made);
      KivSdXcptCreateStackHeader();
      watch.FailNoMore();
      EXPECT_EQ(KivSdXcptSetFatExceptionOccured(kAbort), KIV_ST_OK);
      Allocate(1);
    });
  }
}

// ---- Other threads ----

// Expects that a thread does not return from the allocator after another thread recorded an
// exception. A faulty library returns at once, which the timed wait detects.
template <typename Call>
void ExpectOtherThreadsStop(Call call) {
  IN_FRESH_PROCESS([call] {
    static std::atomic<bool> called{false};
    static std::atomic<bool> returned{false};
    static void* block;
    block = Allocate(100);
    Record(kAbort);
    void* mine = Allocate(8);
    std::thread([call] {
      called = true;
      call(block);
      returned = true;
    }).detach();
    while (!called) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(returned);
    // The recording thread is still served, and the other thread has taken nothing.
    EXPECT_EQ(Bytes(Allocate(8)), Bytes(mine) + 8);
  });
}

TEST(FatalExceptionOtherThreads, StopWhenTheyAllocate) {
  ExpectOtherThreadsStop([](void*) { Allocate(100); });
}

TEST(FatalExceptionOtherThreads, StopWhenTheyReallocate) {
  ExpectOtherThreadsStop([](void* block) { Reallocate(block, 200); });
}

TEST(FatalExceptionOtherThreads, StopWhenTheyFree) {
  ExpectOtherThreadsStop([](void* block) { Free(block); });
}

// ---- Two threads that record an exception ----

TEST(FatalExceptionOfTwoThreads, IsHandledByTheFirstWhileTheSecondWaits) {
  IN_FRESH_PROCESS([] {
    static std::atomic<bool> called{false};
    static std::atomic<bool> returned{false};
    Record(kAbort);
    void* mine = Allocate(8);
    std::thread([] {
      called = true;
      KivSdXcptSetFatExceptionOccured(kOrderly);
      returned = true;
      Allocate(100);
    }).detach();
    while (!called) std::this_thread::yield();
    // A faulty library lets the second thread return at once, which the timed wait detects.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(returned);
    EXPECT_EQ(KivSdXcptSetFatExceptionOccured(kAbort), KIV_ST_OK) << "the first may come again";
    EXPECT_EQ(Bytes(Allocate(8)), Bytes(mine) + 8);
  });
}

TEST(FatalExceptionOfTwoThreads, IsHandledByTheSecondWhenTheFirstHasEnded) {
  IN_FRESH_PROCESS([] {
    KivSdXcptCreateStackHeader();
    static std::atomic<bool> recorded{false};
    static std::atomic<bool> mayEnd{false};
    static std::atomic<bool> ended{false};
    static void* first;
    std::thread handler([] {
      EXPECT_EQ(KivSdXcptSetFatExceptionOccured(kAbort), KIV_ST_OK);
      first = Allocate(8);
      recorded = true;
      while (!mayEnd) std::this_thread::yield();
      ended = true;
    });
    while (!recorded) std::this_thread::yield();
    std::thread([] { mayEnd = true; }).detach();
    EXPECT_EQ(KivSdXcptSetFatExceptionOccured(kAbort), KIV_ST_OK);
    EXPECT_TRUE(ended) << "not before";
    EXPECT_EQ(Bytes(Allocate(8)), Bytes(first) + 8);
    handler.join();
  });
}

// Each thread fills every block that it gets with its own number, as often as it can.
TEST(FatalExceptionOfTwoThreads, NeverServesTwoThreadsAtOnce) {
  IN_FRESH_PROCESS([] {
    constexpr int kThreads = 4;
    constexpr int kPieces = 1000;
    static std::atomic<int> waiting{kThreads};
    static std::atomic<int> handlers{0};
    static std::atomic<int> finished{0};
    KivSdXcptCreateStackHeader();
    for (int thread = 0; thread < kThreads; ++thread) {
      std::thread([] {
        --waiting;
        while (waiting != 0) std::this_thread::yield();
        EXPECT_EQ(KivSdXcptSetFatExceptionOccured(kAbort), KIV_ST_OK);
        ++handlers;
        char* last = Bytes(Allocate(8));
        for (int i = 1; i < kPieces; ++i) {
          char* next = Bytes(Allocate(8));
          EXPECT_EQ(next, last + 8);
          last = next;
        }
        ++finished;
        while (true) std::this_thread::sleep_for(std::chrono::hours(1));  // still handles it
      }).detach();
    }
    while (finished == 0) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(handlers, 1);
  });
}

#ifdef _WIN32

uint32_t AllocateOnce(void* returned) {
  Allocate(100);
  static_cast<std::atomic<bool>*>(returned)->store(true);
  return 0;
}

TEST(FatalExceptionOtherThreads, StopAgainWhenTheyAreResumed) {
  IN_FRESH_PROCESS([] {
    Record(kAbort);
    static std::atomic<bool> returned{false};
    uint32_t id = 0;
    KivHandle thread = nullptr;
    EXPECT_EQ(KivSdThreadCreate(nullptr, AllocateOnce, 0, 0, &returned, &id, &thread), KIV_ST_OK);
    for (int i = 0; i < 20; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      EXPECT_EQ(KivSdThreadResume(nullptr, &thread), KIV_ST_OK);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(returned);
  });
}

#else

// Only a program that links the library statically can find the copies.
TEST(FatalException, LeavesThreeCopiesOfTheStacksRecordInTheProcess) {
  IN_FRESH_PROCESS([] {
    KivSdXcptCreateStackHeader();
    const KivSdMemStack made = *kiv::ExceptionStack();
    EXPECT_NE(made.defaultBlockBytes, 0u);
    Record(kAbort);
    Allocate(8);
    for (const KivSdMemStack& copy : kiv::exceptionStackCopies) {
      EXPECT_EQ(std::memcmp(&copy, &made, sizeof made), 0) << "as it was when it was made";
    }
  });
}

#endif

}  // namespace
