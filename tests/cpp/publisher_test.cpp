// A host's published memory figures, and their readers in the same and in another process.
#include "kivsdu/publisher.hpp"

#include <gtest/gtest.h>

#include <string>

#include "support/child_process.h"
#include "support/manager.h"
#include "support/threads.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kivsdu::MemoryBlock;
using kivsdu::MemoryPublisher;
using kivsdu::MemoryReader;
using kivsdu::MemorySample;

constexpr uint32_t kShortMs = 5;
constexpr uint64_t kMiB = 1024 * 1024;

uint32_t OwnProcessId() {
  uint32_t id = 0;
  KivSdProcessIdGet(nullptr, &id);
  return id;
}

// Waits until the block has a sample that fits. The test's time limit ends a wait in vain.
template <typename Fits>
MemorySample SampleThat(const MemoryReader& reader, Fits fits) {
  MemorySample sample;
  do {
    KivSdThreadYield(nullptr);
    EXPECT_EQ(reader.Read(&sample), MemoryReader::Outcome::kSample);
  } while (!fits(sample));
  return sample;
}

MemorySample NextSample(const MemoryReader& reader) {
  MemorySample sample;
  EXPECT_EQ(reader.Read(&sample), MemoryReader::Outcome::kSample);
  return SampleThat(reader, [&](const MemorySample& next) {
    return next.samples > sample.samples + 1;  // begun after this call
  });
}

// ---- One sample ----

// All words of a sample are equal, if it is whole.
MemorySample SampleOf(uint64_t number) {
  kivsdu::MemorySampleWords words;
  words.fill(number);
  return std::bit_cast<MemorySample>(words);
}

TEST(MemoryBlock, ReaderNeverSeesATornSample) {
  constexpr uint64_t kSamples = 50000;
  auto block = std::make_unique<MemoryBlock>();
  kivsdu::WriteMemorySample(block.get(), SampleOf(0));
  std::thread writer([&] {
    for (uint64_t i = 1; i <= kSamples; ++i) kivsdu::WriteMemorySample(block.get(), SampleOf(i));
  });
  uint64_t last = 0;
  while (last != kSamples) {
    MemorySample sample;
    if (!kivsdu::ReadMemorySample(*block, &sample)) continue;
    const auto words = std::bit_cast<kivsdu::MemorySampleWords>(sample);
    // The reader terminates the name in the eighth word.
    for (const size_t at : {size_t{0}, size_t{8}, words.size() / 2, words.size() - 1}) {
      ASSERT_EQ(words[at], sample.processId);
    }
    ASSERT_GE(sample.processId, last);
    last = sample.processId;
  }
  writer.join();
}

TEST(MemoryBlock, ReaderGivesUpOnASampleThatIsNeverFinished) {
  auto block = std::make_unique<MemoryBlock>();
  MemorySample sample;
  EXPECT_TRUE(kivsdu::ReadMemorySample(*block, &sample));
  block->sequence = 7;
  EXPECT_FALSE(kivsdu::ReadMemorySample(*block, &sample));
}

TEST(MemoryBlock, ReaderWaitsForAWriterThatHasLostItsProcessor) {
  auto block = std::make_unique<MemoryBlock>();
  block->sequence = 7;
  std::thread writer([&] {
    KivSdSleep(nullptr, 20);
    block->sequence = 8;
  });
  MemorySample sample;
  EXPECT_TRUE(kivsdu::ReadMemorySample(*block, &sample));
  writer.join();
}

TEST(MemoryBlock, ReaderTerminatesAName) {
  auto block = std::make_unique<MemoryBlock>();
  kivsdu::WriteMemorySample(block.get(), SampleOf(~uint64_t{0}));
  MemorySample sample;
  ASSERT_TRUE(kivsdu::ReadMemorySample(*block, &sample));
  EXPECT_EQ(strlen(sample.host), kivsdu::kMemoryHostNameBytes - 1);
}

// ---- A host ----

class Publishing : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(kiv::test::Initialize("numthreadheaps 4 heapsize 512K memorylimit 64M "
                                    "memoryblockscontrol"),
              KIV_ST_OK);
  }

  void Start() {
    ASSERT_EQ(publisher_.Start("a host", kShortMs), KIV_ST_OK);
    ASSERT_EQ(reader_.Open(OwnProcessId()), KIV_ST_OK);
  }

  MemoryPublisher publisher_;
  MemoryReader reader_;
};

TEST_F(Publishing, ShowsHostAndSettings) {
  Start();
  const MemorySample sample = NextSample(reader_);
  EXPECT_STREQ(sample.host, "a host");
  EXPECT_EQ(sample.processId, OwnProcessId());
  EXPECT_EQ(sample.intervalMs, kShortMs);
  EXPECT_GE(sample.timeMs, sample.startMs);
  EXPECT_EQ(sample.memoryControl, 1u);
  EXPECT_EQ(sample.limit, 64 * kMiB);
  EXPECT_EQ(sample.slots, 4u);
  EXPECT_EQ(sample.heapBytes, kMiB / 2);
  EXPECT_EQ(sample.largestRequest, 65536u);
  EXPECT_EQ(sample.inHeaps, 12 * kMiB / 2);
}

TEST_F(Publishing, FollowsTheMemoryInUse) {
  Start();
  const MemorySample before = NextSample(reader_);
  void* block = nullptr;
  ASSERT_EQ(adMalloc(nullptr, 3 * kMiB, &block, "test", 1), KIV_ST_OK);
  const MemorySample during = NextSample(reader_);
  adFree(block, "test", 1);
  const MemorySample after = NextSample(reader_);
  EXPECT_GE(during.usedOutsideHeaps, before.usedOutsideHeaps + 3 * kMiB);
  EXPECT_EQ(after.usedOutsideHeaps, before.usedOutsideHeaps);
  EXPECT_GE(after.usedPeak, during.usedOutsideHeaps + during.inHeaps);
  EXPECT_EQ(after.blockStatistics, 1u);
  constexpr size_t kUpTo4MiB = 13;
  EXPECT_EQ(after.allocated[kUpTo4MiB], before.allocated[kUpTo4MiB] + 1);
  EXPECT_EQ(after.freed[kUpTo4MiB], before.freed[kUpTo4MiB] + 1);
}

TEST_F(Publishing, CountsMessages) {
  Start();
  publisher_.CountMessage(KIV_ST_MSG_LIMIT_NEAR);
  publisher_.CountMessage(KIV_ST_MSG_LIMIT_NEAR);
  publisher_.CountMessage(KIV_ST_MSG_NO_MEMORY);
  publisher_.CountMessage(KIV_ST_OK);  // not a message
  const MemorySample sample = NextSample(reader_);
  EXPECT_EQ(sample.messages[0], 0u);
  EXPECT_EQ(sample.messages[1], 2u);
  EXPECT_EQ(sample.messages[2], 0u);
  EXPECT_EQ(sample.messages[3], 1u);
}

TEST_F(Publishing, ReaderKeepsTheLastSampleAfterTheEnd) {
  Start();
  publisher_.Stop();
  MemorySample sample;
  EXPECT_EQ(reader_.Read(&sample), MemoryReader::Outcome::kEnded);
  EXPECT_STREQ(sample.host, "a host");
  reader_.Close();
  EXPECT_EQ(reader_.Open(OwnProcessId()), KIV_ST_SHARED_MEM_ALLOC);
}

TEST_F(Publishing, StartsAgainAfterTheEnd) {
  Start();
  publisher_.Stop();
  publisher_.Stop();
  ASSERT_EQ(publisher_.Start(nullptr, kShortMs), KIV_ST_OK);
  const MemorySample sample = NextSample(reader_);  // opened before the end
  EXPECT_STREQ(sample.host, "");
}

TEST_F(Publishing, AProcessHasOnePublisher) {
  Start();
  EXPECT_EQ(publisher_.Start("again", kShortMs), KIV_ST_ARGUMENT);
  MemoryPublisher second;
  EXPECT_EQ(second.Start("second", kShortMs), KIV_ST_SHARED_MEM_ALLOC);
  publisher_.Stop();
  EXPECT_EQ(second.Start("second", kShortMs), KIV_ST_OK);
}

TEST_F(Publishing, RefusesAnIntervalOfZero) {
  EXPECT_EQ(publisher_.Start("a host", 0), KIV_ST_ARGUMENT);
  EXPECT_EQ(publisher_.Start("a host", 1), KIV_ST_OK);
}

TEST_F(Publishing, KeepsTheStartOfALongName) {
  ASSERT_EQ(publisher_.Start(std::string(100, 'n').c_str(), kShortMs), KIV_ST_OK);
  ASSERT_EQ(reader_.Open(OwnProcessId()), KIV_ST_OK);
  EXPECT_EQ(NextSample(reader_).host, std::string(kivsdu::kMemoryHostNameBytes - 1, 'n'));
}

TEST_F(Publishing, ReaderFindsTheBlockOfAService) {
  constexpr uint32_t kNoProcess = 4294967291;
  const kivsdu::MemoryBlockName name =
      kivsdu::MemoryBlockNameOf(kNoProcess, kivsdu::kMemoryServicePrefix);
  EXPECT_NE(reader_.Open(kNoProcess), KIV_ST_OK);
  KivHandle mapping = nullptr;
  uint32_t ignoredId = 0;
  void* view = nullptr;
  ASSERT_EQ(KivSdSharedMemAlloc(nullptr, name.text, sizeof(MemoryBlock),
                                KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                                KIV_SHAREDMEM_PAGES_READ_WRITE, &mapping, &ignoredId, &view),
            KIV_ST_OK);
  EXPECT_EQ(reader_.Open(kNoProcess), KIV_ST_OK);
  EXPECT_EQ(KivSdSharedMemFree(nullptr, mapping, view), KIV_ST_OK);
}

TEST_F(Publishing, ReaderRefusesAnotherLayout) {
  Start();
  KivHandle mapping = nullptr;
  uint32_t ignoredId = 0;
  void* view = nullptr;
  ASSERT_EQ(KivSdSharedMemAlloc(nullptr, kivsdu::MemoryBlockNameOf(OwnProcessId()).text,
                                sizeof(MemoryBlock), KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                                KIV_SHAREDMEM_PAGES_READ_WRITE, &mapping, &ignoredId, &view),
            KIV_ST_OK);
  auto* block = static_cast<MemoryBlock*>(view);
  block->version = kivsdu::kMemoryLayoutVersion + 1;
  MemorySample sample;
  EXPECT_EQ(reader_.Read(&sample), MemoryReader::Outcome::kUnknown);
  block->version = kivsdu::kMemoryLayoutVersion;
  EXPECT_EQ(reader_.Read(&sample), MemoryReader::Outcome::kSample);
  KivSdSharedMemFree(nullptr, mapping, view);
}

// ---- Another process ----

const RegisteredRole publishing("publishing", [](const RoleArguments&) -> uint32_t {
  MemoryPublisher publisher;
  if (publisher.Start("another process", kShortMs) != KIV_ST_OK) return kiv::test::kRoleFailed;
  for (;;) KivSdThreadYield(nullptr);
});

TEST(PublishingProcess, IsReadUntilItIsKilled) {
  const ChildProcess child("publishing");
  MemoryReader reader;
  while (reader.Open(child.id()) != KIV_ST_OK) KivSdThreadYield(nullptr);
  MemorySample sample;
  while (reader.Read(&sample) == MemoryReader::Outcome::kUnknown) KivSdThreadYield(nullptr);
  EXPECT_STREQ(NextSample(reader).host, "another process");
  child.Kill();
  EXPECT_EQ(child.ExitCode(), kiv::test::kKilled);
  const MemoryReader::Outcome outcome = reader.Read(&sample);
  EXPECT_TRUE(outcome == MemoryReader::Outcome::kSample || outcome == MemoryReader::Outcome::kTorn);
  reader.Close();
  EXPECT_EQ(reader.Open(child.id()), KIV_ST_SHARED_MEM_ALLOC);
}

}  // namespace
