// Direct I/O without waiting on real files: transfers that are started and collected later.
//
// The system may complete a transfer at once or leave it pending; these tests accept both.
// direct_io_failure_test.cpp checks the statuses of both.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/direct_io.h"
#include "support/temporary_folder.h"

namespace {

using kiv::test::Blocks;
using kiv::test::Context;
using kiv::test::DirectFile;
using kiv::test::IsSignalled;
using kiv::test::kBlockBytes;
using kiv::test::kOverlapped;
using kiv::test::Records;
using kiv::test::TemporaryFolder;

constexpr uint32_t kUntouched = 4711;
constexpr uint32_t kErrorEndOfFile = 38;
constexpr uint32_t kErrorTransferPending = 997;
constexpr uint32_t kInFlight = 16;

class NoWait : public testing::Test {
 protected:
  // Checks that a transfer has started: either it has completed with all blocks, or it is pending
  // with a count of 0.
  void ExpectStarted(uint32_t status, uint32_t pending, uint32_t count, uint32_t blocks) {
    if (status == KIV_ST_OK) {
      EXPECT_EQ(count, blocks);
      EXPECT_EQ(ctx_.osError(), 0u);
      return;
    }
    EXPECT_EQ(status, pending);
    EXPECT_EQ(ctx_.osError(), kErrorTransferPending);
    EXPECT_EQ(count, 0u);
  }

  void StartWrite(uint32_t block, unsigned char* buffer, uint32_t blocks, KivSdNoWaitCb* record) {
    uint32_t count = kUntouched;
    const uint32_t status =
        KivSdDirectIOFileWrite(ctx_, file_, block, buffer, blocks, record, &count);
    ExpectStarted(status, KIV_ST_DIRECT_WRITE_PENDING, count, blocks);
  }

  void StartRead(uint32_t block, unsigned char* buffer, uint32_t blocks, KivSdNoWaitCb* record) {
    uint32_t count = kUntouched;
    const uint32_t status =
        KivSdDirectIOFileRead(ctx_, file_, block, buffer, blocks, record, &count);
    ExpectStarted(status, KIV_ST_DIRECT_READ_PENDING, count, blocks);
  }

  void Collect(KivSdNoWaitCb* record, uint32_t blocks) {
    uint32_t count = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOWait(ctx_, file_, record, &count));
    EXPECT_EQ(count, blocks);
    EXPECT_FALSE(IsSignalled(*record));
  }

  TemporaryFolder folder_;
  DirectFile file_{folder_.Path("blocks"), kOverlapped};
  Context ctx_;
};

std::vector<uint32_t> Shuffled(uint32_t count, uint32_t seed) {
  std::vector<uint32_t> order(count);
  std::iota(order.begin(), order.end(), 0u);
  std::shuffle(order.begin(), order.end(), std::mt19937(seed));
  return order;
}

TEST_F(NoWait, SixteenTransfersAreCollectedInAnyOrder) {
  Records<kInFlight> records;
  Blocks blocks(kInFlight);
  for (uint32_t round = 0; round < 50; ++round) {
    SCOPED_TRACE(round);
    for (uint32_t i = 0; i < kInFlight; ++i) blocks.Fill(i, i, round);
    for (const uint32_t i : Shuffled(kInFlight, 3 * round)) {
      StartWrite(i, blocks.At(i), 1, &records[i]);
    }
    for (const uint32_t i : Shuffled(kInFlight, 3 * round + 1)) Collect(&records[i], 1);

    Blocks read(kInFlight);
    for (uint32_t i = 0; i < kInFlight; ++i) StartRead(i, read.At(i), 1, &records[i]);
    for (const uint32_t i : Shuffled(kInFlight, 3 * round + 2)) {
      Collect(&records[i], 1);
      EXPECT_TRUE(read.Holds(i, i, round)) << i;
    }
  }
}

TEST_F(NoWait, TransfersOfSeveralSizesCanBePendingTogether) {
  constexpr uint32_t kSizes[] = {1, 8, 128, 3};
  Records<4> records;
  Blocks blocks(140);
  for (uint32_t i = 0; i < 140; ++i) blocks.Fill(i, i);
  uint32_t block = 0;
  for (uint32_t i = 0; i < 4; ++i) {
    StartWrite(block, blocks.At(block), kSizes[i], &records[i]);
    EXPECT_EQ(records[i].offsetLow, block * kBlockBytes);
    EXPECT_EQ(records[i].offsetHigh, 0u);
    block += kSizes[i];
  }
  for (const uint32_t i : {2u, 3u, 0u, 1u}) Collect(&records[i], kSizes[i]);

  Blocks read(140);
  StartRead(0, read.At(0), 140, &records[0]);
  Collect(&records[0], 140);
  for (uint32_t i = 0; i < 140; ++i) EXPECT_TRUE(read.Holds(i, i)) << i;
}

TEST_F(NoWait, CollectingOneTransferLeavesTheOthers) {
  Records<3> records;
  Blocks blocks(3);
  for (uint32_t i = 0; i < 3; ++i) StartWrite(i, blocks.At(i), 1, &records[i]);
  for (uint32_t i = 0; i < 3; ++i) {
    ASSERT_TRUE(IsSignalled(records[i], 20'000));
  }
  Collect(&records[1], 1);
  EXPECT_TRUE(IsSignalled(records[0]));
  EXPECT_TRUE(IsSignalled(records[2]));
  Collect(&records[2], 1);
  EXPECT_TRUE(IsSignalled(records[0]));
  Collect(&records[0], 1);
}

TEST_F(NoWait, AnyThreadCanCollect) {
  Records<kInFlight> records;
  Blocks blocks(kInFlight);
  for (uint32_t i = 0; i < kInFlight; ++i) StartWrite(i, blocks.At(i), 1, &records[i]);
  std::vector<std::thread> threads;
  uint32_t counts[kInFlight] = {};
  for (uint32_t i = 0; i < kInFlight; ++i) {
    threads.emplace_back([&, i] {
      Context own;
      CHECK_OK(own, KivSdDirectIOWait(own, file_, &records[i], &counts[i]));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const uint32_t count : counts) EXPECT_EQ(count, 1u);
}

TEST_F(NoWait, TheFirstTransferMakesTheRecordsEventAndTheNextKeepsIt) {
  KivSdNoWaitCb record = {};
  Blocks blocks(1);
  StartWrite(0, blocks.At(0), 1, &record);
  const KivHandle event = record.event;
  ASSERT_NE(event, nullptr);
  Collect(&record, 1);
  StartRead(0, blocks.At(0), 1, &record);
  EXPECT_EQ(record.event, event);
  // A manual event: it stays signalled until it is reset.
  ASSERT_TRUE(IsSignalled(record, 20'000));
  EXPECT_TRUE(IsSignalled(record));
  Collect(&record, 1);
  CHECK_OK(ctx_, KivSdDirectIONoWaitCbsTerm(ctx_, &record, 1));
}

TEST_F(NoWait, AReadThatPassesTheEndCountsWholeBlocks) {
  folder_.Write("short", std::string(kBlockBytes + kBlockBytes / 2, 'x'));
  const DirectFile shorter(folder_.Path("short"), kOverlapped);
  Records<1> records;
  Blocks blocks(3);
  uint32_t count = kUntouched;
  static_cast<void>(KivSdDirectIOFileRead(ctx_, shorter, 0, blocks.At(0), 3, &records[0], &count));
  CHECK_OK(ctx_, KivSdDirectIOWait(ctx_, shorter, &records[0], &count));
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(blocks.At(1)[kBlockBytes / 2 - 1], 'x');
}

TEST_F(NoWait, AReadBehindTheEndFailsAtOnceOrWhenItIsCollected) {
  Records<1> records;
  Blocks blocks(1);
  uint32_t count = kUntouched;
  uint32_t status = KivSdDirectIOFileRead(ctx_, file_, 3, blocks.At(0), 1, &records[0], &count);
  EXPECT_EQ(count, 0u);
  if (status == KIV_ST_DIRECT_READ_PENDING) {
    count = kUntouched;
    status = KivSdDirectIOWait(ctx_, file_, &records[0], &count);
  }
  EXPECT_EQ(status, KIV_ST_FILE_END);
  EXPECT_EQ(ctx_.osError(), kErrorEndOfFile);
  EXPECT_EQ(count, 0u);
}

// ---- Arrays of records ----

TEST(NoWaitRecords, EachGetItsOwnUnsignalledManualEvent) {
  Context ctx;
  KivSdNoWaitCb records[3] = {};
  records[1] = {1, 2, 3, 4, nullptr};
  CHECK_OK(ctx, KivSdDirectIONoWaitCbsInit(ctx, records, 3));
  for (KivSdNoWaitCb& record : records) {
    ASSERT_NE(record.event, nullptr);
    EXPECT_FALSE(IsSignalled(record));
  }
  CHECK_OK(ctx, KivSdEventClear(ctx, &records[1].event));  // signals it
  EXPECT_TRUE(IsSignalled(records[1]));
  EXPECT_TRUE(IsSignalled(records[1]));
  EXPECT_FALSE(IsSignalled(records[0]));
  EXPECT_FALSE(IsSignalled(records[2]));
  EXPECT_EQ(records[1].internalStatus, 1u);
  EXPECT_EQ(records[1].internalBytes, 2u);
  EXPECT_EQ(records[1].offsetLow, 3u);
  EXPECT_EQ(records[1].offsetHigh, 4u);

  const KivHandle first = records[0].event;
  CHECK_OK(ctx, KivSdDirectIONoWaitCbsTerm(ctx, records, 3));
  EXPECT_EQ(records[0].event, first) << "the field must keep the closed handle";
  for (KivSdNoWaitCb& record : records) {
    EXPECT_EQ(KivSdEventWait(nullptr, &record.event, 0), KIV_ST_EVENT_WAIT);
  }
}

TEST(NoWaitRecords, GetEventsUpToTheCount) {
  Context ctx;
  KivSdNoWaitCb records[3] = {};
  CHECK_OK(ctx, KivSdDirectIONoWaitCbsInit(ctx, records, 2));
  EXPECT_NE(records[1].event, nullptr);
  EXPECT_EQ(records[2].event, nullptr);
  CHECK_OK(ctx, KivSdDirectIONoWaitCbsTerm(ctx, records, 3));  // skips the third, without an event
}

TEST(NoWaitRecords, MayBeNullIfTheCountIsZero) {
  Context ctx;
  CHECK_OK(ctx, KivSdDirectIONoWaitCbsInit(ctx, nullptr, 0));
  CHECK_OK(ctx, KivSdDirectIONoWaitCbsTerm(ctx, nullptr, 0));
}

}  // namespace
