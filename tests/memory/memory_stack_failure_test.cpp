// Memory stacks without memory, where each of their allocations fails in turn, and on a system with
// larger pages.
#include <gtest/gtest.h>

#include <cstring>

#include "kivsdu/kivsdu.h"
#include "sdcommon/memory_stack.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/system_interface.h"

namespace {

using kiv::test::Context;
using kiv::test::ImportPatch;
using kiv::test::Script;
using kiv::test::ScriptedImport;

const Script kPassThrough = {.failCount = 0};
void* const kUntouched = reinterpret_cast<void*>(0x5A5A);

Script NoMemoryAfter(uint32_t calls) { return {.result = 0, .error = 8, .passFirst = calls}; }

KivSdMemStack* MakeStack() {
  KivSdMemStack* stack = nullptr;
  EXPECT_EQ(KivSdMemStackCreate(nullptr, &stack, 8, 1000), KIV_ST_OK);
  return stack;
}

TEST(StackFailure, WithoutMemoryForTheRecordReturnsNull) {
  Context ctx;
  auto* stack = static_cast<KivSdMemStack*>(kUntouched);
  const ScriptedImport malloc("malloc", NoMemoryAfter(0));
  CHECK_OUTCOME(ctx, KivSdMemStackCreate(ctx, &stack, 8, 1000), KIV_ST_OUT_OF_MEMORY, 0u);
  EXPECT_EQ(stack, nullptr);
  ASSERT_EQ(malloc.calls().size(), 1u);
  EXPECT_EQ(malloc.calls()[0][0], 56u);
}

TEST(StackFailure, WithoutMemoryForTheFirstBlockReturnsAStackToDelete) {
  Context ctx;
  KivSdMemStack* stack = nullptr;
  {
    const ScriptedImport malloc("malloc", NoMemoryAfter(1));
    CHECK_OUTCOME(ctx, KivSdMemStackCreate(ctx, &stack, 8, 1000), KIV_ST_OUT_OF_MEMORY, 0u);
    ASSERT_EQ(malloc.calls().size(), 2u);
    EXPECT_EQ(malloc.calls()[1][0], 4096u - 128u);
  }
  ASSERT_NE(stack, nullptr);
  EXPECT_EQ(stack->top, nullptr);
  EXPECT_EQ(stack->freeList, nullptr);
  const ScriptedImport free("free", kPassThrough);
  CHECK_OK(ctx, KivSdMemStackDelete(ctx, stack));
  ASSERT_EQ(free.calls().size(), 1u);
  EXPECT_EQ(free.calls()[0][0], reinterpret_cast<uintptr_t>(stack));
}

TEST(StackFailure, APushWithoutMemoryChangesNothing) {
  Context ctx;
  KivSdMemStack* stack = MakeStack();
  void* piece = nullptr;
  ASSERT_EQ(KivSdMemStackAllocAndPush(nullptr, stack, 3000, &piece), KIV_ST_OK);
  const KivSdMemStack before = *stack;
  const kiv::StackBlock top = *stack->top;
  {
    const ScriptedImport malloc("malloc", NoMemoryAfter(0));
    void* out = kUntouched;
    CHECK_OUTCOME(ctx, KivSdMemStackAllocAndPush(ctx, stack, 2000, &out), KIV_ST_OUT_OF_MEMORY, 0u);
    EXPECT_EQ(out, kUntouched);
    EXPECT_EQ(malloc.calls().size(), 1u);
  }
  EXPECT_EQ(std::memcmp(&before, stack, sizeof before), 0);
  EXPECT_EQ(stack->top->sizeBytes, top.sizeBytes);
  EXPECT_EQ(stack->top->next, top.next);
  // A smaller push still fits, and the failed push succeeds later.
  void* out = nullptr;
  CHECK_OK(ctx, KivSdMemStackAllocAndPush(ctx, stack, 100, &out));
  EXPECT_EQ(out, static_cast<unsigned char*>(piece) + 3000);
  CHECK_OK(ctx, KivSdMemStackAllocAndPush(ctx, stack, 2000, &out));
  CHECK_OK(ctx, KivSdMemStackDelete(ctx, stack));
}

TEST(StackFailure, AFailedPushDoesNotTakeTheFreeBlockThatIsTooSmall) {
  Context ctx;
  KivSdMemStack* stack = MakeStack();
  kiv::StackBlock* freeBlock = stack->freeList;
  {
    const ScriptedImport malloc("malloc", NoMemoryAfter(0));
    void* out = kUntouched;
    CHECK_OUTCOME(ctx, KivSdMemStackAllocAndPush(ctx, stack, 10000, &out), KIV_ST_OUT_OF_MEMORY,
                  0u);
    CHECK_OK(ctx, KivSdMemStackAllocAndPush(ctx, stack, 10, &out));  // the free block fits
  }
  EXPECT_EQ(stack->top, freeBlock);
  EXPECT_EQ(stack->freeList, nullptr);
  CHECK_OK(ctx, KivSdMemStackDelete(ctx, stack));
}

TEST(StackFailure, RequestsTheLargestBlockButNotOneByteMore) {
  constexpr uint32_t kLargest = 0xFFFFFF80;  // whole pages less 128 bytes
  constexpr uint32_t kHeader = 16;
  Context ctx;
  KivSdMemStack* stack = MakeStack();
  {
    const ScriptedImport malloc("malloc", NoMemoryAfter(0));
    void* out = kUntouched;
    CHECK_OUTCOME(ctx, KivSdMemStackAllocAndPush(ctx, stack, kLargest - kHeader, &out),
                  KIV_ST_OUT_OF_MEMORY, 0u);
    ASSERT_EQ(malloc.calls().size(), 1u);
    EXPECT_EQ(malloc.calls()[0][0], kLargest);
    CHECK_OUTCOME(ctx, KivSdMemStackAllocAndPush(ctx, stack, kLargest - kHeader + 1, &out),
                  KIV_ST_OUT_OF_MEMORY, 0u);
    EXPECT_EQ(malloc.calls().size(), 1u);
  }
  CHECK_OK(ctx, KivSdMemStackDelete(ctx, stack));

  const ScriptedImport malloc("malloc", NoMemoryAfter(1));
  CHECK_OUTCOME(ctx, KivSdMemStackCreate(ctx, &stack, 8, kLargest), KIV_ST_OUT_OF_MEMORY, 0u);
  ASSERT_EQ(malloc.calls().size(), 2u);
  EXPECT_EQ(malloc.calls()[1][0], kLargest);
  CHECK_OK(ctx, KivSdMemStackDelete(ctx, stack));
}

TEST(StackDelete, FreesTheRecordThenTheFreeBlocksThenTheUsedBlocks) {
  KivSdMemStack* stack = MakeStack();
  void* out = nullptr;
  for (int i = 0; i < 2; ++i) ASSERT_EQ(KivSdMemStackAllocAndPush(nullptr, stack, 3900, &out), 0u);
  ASSERT_EQ(KivSdMemStackReset(nullptr, stack), KIV_ST_OK);
  for (int i = 0; i < 2; ++i) ASSERT_EQ(KivSdMemStackAllocAndPush(nullptr, stack, 9000, &out), 0u);
  const uintptr_t expected[] = {
      reinterpret_cast<uintptr_t>(stack),
      reinterpret_cast<uintptr_t>(stack->freeList),
      reinterpret_cast<uintptr_t>(stack->freeList->next),
      reinterpret_cast<uintptr_t>(stack->top),
      reinterpret_cast<uintptr_t>(stack->top->next),
  };
  const ScriptedImport free("free", kPassThrough);
  EXPECT_EQ(KivSdMemStackDelete(nullptr, stack), KIV_ST_OK);
  ASSERT_EQ(free.calls().size(), 5u);
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(free.calls()[i][0], expected[i]) << i;
}

void WINAPI DescribeLargePages(SYSTEM_INFO* info) {
  *info = {};
  info->dwPageSize = 8192;
}

TEST(StackPages, Of8KibibytesAreFilledByTheBlocks) {
  const ImportPatch pages("GetSystemInfo", reinterpret_cast<void*>(&DescribeLargePages));
  KivSdMemStack* stack = MakeStack();
  EXPECT_EQ(stack->pageBytes, 8192u);
  EXPECT_EQ(stack->defaultBlockBytes, 8064u);
  EXPECT_EQ(stack->freeList->sizeBytes, 8064u);
  void* piece = nullptr;
  EXPECT_EQ(KivSdMemStackAllocAndPush(nullptr, stack, 8064 - 16 + 1, &piece), KIV_ST_OK);
  EXPECT_EQ(stack->top->sizeBytes, 2u * 8192 - 128);
  EXPECT_EQ(KivSdMemStackDelete(nullptr, stack), KIV_ST_OK);
}

}  // namespace
