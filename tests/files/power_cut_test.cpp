// Kills a writing process a hundred times at random moments. Checks that the files hold every
// record and block that the process had reported as flushed or collected.
//
// These tests cannot cut the power. Killing a process shows less: that no part of a flushed record
// or a collected block is still buffered in the process.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <thread>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/direct_io.h"
#include "support/shared_record.h"
#include "support/temporary_folder.h"
#include "support/waiting.h"

namespace {

using kiv::test::Blocks;
using kiv::test::ChildProcess;
using kiv::test::DirectFile;
using kiv::test::kKilled;
using kiv::test::kLimitMs;
using kiv::test::kRoleDone;
using kiv::test::Records;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::Stopwatch;
using kiv::test::TemporaryFolder;
using kiv::test::UniqueName;

constexpr uint32_t kKills = 100;
constexpr uint32_t kLongestMicroseconds = 30'000;  // from a child's first report to the kill
constexpr uint32_t kInFlight = 4;
constexpr uint32_t kOpenFlags = 0x8000 | 0x0100 | 0x0002;  // binary, create, read and write
constexpr uint32_t kPermissions = 0x100 | 0x80;

// One record of a journal.
struct Record {
  uint64_t number;
  uint64_t seed;
  uint64_t filling;
  uint64_t checksum;
};
static_assert(sizeof(Record) == 32);

Record RecordOf(uint64_t number, uint64_t seed) {
  const uint64_t filling = (number + 1) * 0x9E3779B97F4A7C15 ^ seed;
  return {number, seed, filling, number ^ (seed << 32) ^ (filling >> 7)};
}

// The writing process's progress, in memory that it shares with the test.
struct Progress {
  std::atomic<uint32_t> flushedRecords;
  std::atomic<uint32_t> collectedBlocks;
};

// What a process had reported when it was killed.
struct Reported {
  uint32_t flushedRecords;
  uint32_t collectedBlocks;
};

using SharedProgress = kiv::test::SharedRecord<Progress>;

// ---- The writing process ----

// Appends records in lots of several sizes, and flushes each lot.
class JournalWriter {
 public:
  JournalWriter(const std::string& path, uint64_t seed) : seed_(seed) {
    EXPECT_EQ(KivSdFileOpen(nullptr, path.c_str(), kOpenFlags, kPermissions, &file_), KIV_ST_OK);
  }

  bool WriteLot(uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
      if (!Append()) return false;
    }
    return KivSdFileFlush(nullptr, file_) == KIV_ST_OK;
  }

  uint32_t written() const { return written_; }

 private:
  bool Append() {
    const Record record = RecordOf(written_, seed_);
    const uint32_t offset = written_ * static_cast<uint32_t>(sizeof record);
    ++written_;
    uint32_t count = 0;
    uint32_t osError = 0;
    return KivSdFilePWrite(nullptr, file_, &record, offset, sizeof record, &count, &osError) ==
               KIV_ST_OK &&
           count == sizeof record;
  }

  uint64_t seed_;
  uint32_t file_ = KIV_FILE_NONE;
  uint32_t written_ = 0;
};

// Keeps several block writes pending, and collects the oldest.
class BlockWriter {
 public:
  BlockWriter(const std::string& path, uint64_t seed)
      : seed_(seed), file_(path, kiv::test::kOverlapped) {}

  bool StartOne() {
    const uint32_t slot = started_ % kInFlight;
    blocks_.Fill(slot, started_, seed_);
    uint32_t count = 0;
    const uint32_t status = KivSdDirectIOFileWrite(nullptr, file_, started_, blocks_.At(slot), 1,
                                                   &records_[slot], &count);
    ++started_;
    return status == KIV_ST_OK || status == KIV_ST_DIRECT_WRITE_PENDING;
  }

  bool CollectOne() {
    uint32_t count = 0;
    const uint32_t status =
        KivSdDirectIOWait(nullptr, file_, &records_[collected_ % kInFlight], &count);
    ++collected_;
    return status == KIV_ST_OK && count == 1;
  }

  uint32_t underWay() const { return started_ - collected_; }
  uint32_t collected() const { return collected_; }

 private:
  uint64_t seed_;
  DirectFile file_;
  Blocks blocks_{kInFlight};
  Records<kInFlight> records_;
  uint32_t started_ = 0;
  uint32_t collected_ = 0;
};

// {journal, blocks, progress, seed}: writes until it is killed. Reports every lot after its flush,
// and every block after it is collected.
uint32_t WriteForEver(const RoleArguments& arguments) {
  const uint64_t seed = std::stoull(arguments[3]);
  const SharedProgress progress(arguments[2]);
  JournalWriter journal(arguments[0], seed);
  BlockWriter blocks(arguments[1], seed);
  for (uint32_t lot = 1;; lot = lot % 7 + 1) {
    while (blocks.underWay() < kInFlight) {
      if (!blocks.StartOne()) return kRoleDone;
    }
    if (!journal.WriteLot(lot)) return kRoleDone;
    progress->flushedRecords = journal.written();
    for (uint32_t i = 0; i < lot % kInFlight + 1; ++i) {
      if (!blocks.CollectOne()) return kRoleDone;
      progress->collectedBlocks = blocks.collected();
    }
  }
}
const RegisteredRole writer("writer", WriteForEver);

// ---- The test ----

class PowerCut : public testing::Test {
 protected:
  // Starts a writer and kills it some time after its first report. Returns its progress.
  Reported KillAfter(uint32_t microseconds, uint64_t seed) {
    const std::string name = UniqueName("power-cut");
    const SharedProgress progress(name);
    const ChildProcess child("writer", {journal_, blocks_, name, std::to_string(seed)});
    const Stopwatch sinceStart;
    while (progress->collectedBlocks == 0 && sinceStart.ElapsedMs() < kLimitMs) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const Stopwatch sinceReport;
    while (sinceReport.ElapsedMs() * 1000 < microseconds) std::this_thread::yield();
    child.Kill();
    EXPECT_EQ(child.ExitCode(), kKilled) << "the writer ended because a write failed";
    return {progress->flushedRecords, progress->collectedBlocks};
  }

  void ExpectRecords(uint32_t count, uint64_t seed) {
    std::FILE* file = std::fopen(journal_.c_str(), "rb");
    ASSERT_NE(file, nullptr);
    for (uint32_t i = 0; i < count; ++i) {
      Record found = {};
      ASSERT_EQ(std::fread(&found, sizeof found, 1, file), 1u) << "record " << i << " of " << count;
      const Record expected = RecordOf(i, seed);
      ASSERT_EQ(std::memcmp(&found, &expected, sizeof found), 0) << "record " << i;
    }
    std::fclose(file);
  }

  void ExpectBlocks(uint32_t count, uint64_t seed) {
    DirectFile file(blocks_);
    for (uint32_t i = 0; i < count; ++i) {
      ASSERT_TRUE(file.Holds(i, i, seed)) << "block " << i << " of " << count;
    }
  }

  TemporaryFolder folder_;
  std::string journal_ = folder_.Path("journal");
  std::string blocks_ = folder_.Path("blocks");
};

TEST_F(PowerCut, LosesNothingThatWasFlushedOrCollected) {
  std::mt19937 random(20260101);
  uint64_t records = 0;
  uint64_t blocks = 0;
  for (uint32_t kill = 0; kill < kKills; ++kill) {
    SCOPED_TRACE(testing::Message() << "kill " << kill);
    const uint64_t seed = kill + 1;  // distinguishes the bytes of earlier writers
    const Reported progress = KillAfter(random() % kLongestMicroseconds, seed);
    ASSERT_GT(progress.flushedRecords, 0u);
    ASSERT_GT(progress.collectedBlocks, 0u);
    ExpectRecords(progress.flushedRecords, seed);
    ExpectBlocks(progress.collectedBlocks, seed);
    if (HasFatalFailure()) return;
    records += progress.flushedRecords;
    blocks += progress.collectedBlocks;
    folder_.Remove("journal");
    folder_.Remove("blocks");
  }
  std::printf("%llu records and %llu blocks were there after %u kills\n",
              static_cast<unsigned long long>(records), static_cast<unsigned long long>(blocks),
              kKills);
}

}  // namespace
