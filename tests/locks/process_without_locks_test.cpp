// The spin budget is measured for the first lock of a process. A process without locks need not wait for
// the measurement. The cases share a process and run in their order.
#include <gtest/gtest.h>

#include <cstdint>

#include "kivsdu/kivsdu.h"

namespace {

constexpr int32_t kDefaultBudget = 20000;

uint32_t EndAtOnce(void* /*argument*/) { return 0; }

void UseContextAndMemory() {
  KivSdContext* ctx = nullptr;
  ASSERT_EQ(KivSdInit(&ctx), KIV_ST_OK);
  void* block = nullptr;
  ASSERT_EQ(adMalloc(nullptr, 100, &block, "tests/locks", 1), KIV_ST_OK);
  EXPECT_EQ(adFree(block, "tests/locks", 2), KIV_ST_OK);
  KivSdMemStack* stack = nullptr;
  ASSERT_EQ(KivSdMemStackCreate(ctx, &stack, 8, 1000), KIV_ST_OK);
  EXPECT_EQ(KivSdMemStackDelete(ctx, stack), KIV_ST_OK);
  EXPECT_EQ(KivSdTerm(ctx), KIV_ST_OK);
}

void UseThreadAndEvent() {
  uint32_t id = 0;
  KivHandle thread = nullptr;
  ASSERT_EQ(KivSdThreadCreate(nullptr, EndAtOnce, 0, 0, nullptr, &id, &thread), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadJoin(nullptr, &thread), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadDelete(nullptr, &thread), KIV_ST_OK);
  KivHandle mutex = nullptr;
  ASSERT_EQ(KivSdMutexCreate(nullptr, nullptr, &mutex), KIV_ST_OK);
  EXPECT_EQ(KivSdMutexClose(nullptr, &mutex), KIV_ST_OK);
}

void UsePipe() {
  KivHandle read = nullptr;
  KivHandle write = nullptr;
  ASSERT_EQ(KivSdPipeCreate(nullptr, &read, &write, 0), KIV_ST_OK);
  EXPECT_EQ(KivSdPipeClose(nullptr, &read), KIV_ST_OK);
  EXPECT_EQ(KivSdPipeClose(nullptr, &write), KIV_ST_OK);
}

TEST(ProcessWithoutLocks, DoesNotMeasureTheSpinBudget) {
  UseContextAndMemory();
  UseThreadAndEvent();
  UsePipe();
  EXPECT_GT(KivSdCPUCountGet(), 0u);
  EXPECT_EQ(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, kDefaultBudget);
}

TEST(ProcessWithoutLocks, MeasuresItForItsFirstLock) {
  KivSdSpinlock* lock = KivSdSpinlockCreate(nullptr, 0);
  ASSERT_NE(lock, nullptr);
  EXPECT_NE(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, kDefaultBudget);
  KivSdSpinlockDestroy(nullptr, lock);
}

}  // namespace
