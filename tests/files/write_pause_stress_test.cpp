// Sixteen writers and a pauser: no writer writes during a pause, all leases are given back, and
// every writer goes on after each pause.
//
// The environment variable KIVSDU_PAUSE_SECONDS sets the duration; 10 seconds by default.
#include <gtest/gtest.h>

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>
#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include "kivsdu/kivsdu.h"
#include "support/store_buffering.h"
#include "support/temporary_folder.h"
#include "support/threads.h"
#include "support/waiting.h"
#include "support/write_pause.h"

namespace {

using kiv::test::Comes;
using kiv::test::Participant;
using kiv::test::PauseBlock;
using kiv::test::Stopwatch;
using kiv::test::TemporaryFolder;

constexpr uint32_t kWriters = 16;
constexpr uint32_t kRecordBytes = 32;
constexpr double kPollMs = 2000;
// A writer stops after so many records, which limits the size of its file.
constexpr uint32_t kMaxRecords = 1u << 20;

double SecondsToRun() {
  const char* wanted = std::getenv("KIVSDU_PAUSE_SECONDS");
  return wanted != nullptr ? std::atof(wanted) : 10;
}

// One writer's file. Its length shows how many records have been written.
struct Journal {
  explicit Journal(const std::string& path) : name(path) {
#ifdef _WIN32
    descriptor = _open(path.c_str(), _O_CREAT | _O_RDWR | _O_BINARY, 0600);
#else
    descriptor = open(path.c_str(), O_CREAT | O_RDWR, 0600);
#endif
    EXPECT_NE(descriptor, -1);
  }
  ~Journal() { EXPECT_EQ(close(descriptor), 0); }
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  std::string name;
  int descriptor = -1;
  std::atomic<uint32_t> records{0};
};

class WritePauseStress : public testing::Test {
 protected:
  WritePauseStress() {
    for (uint32_t i = 0; i < kWriters; ++i) {
      journals_.push_back(std::make_unique<Journal>(folder_.Path(std::to_string(i))));
    }
  }

  // Half of the writers write at the file's position, the others at an offset.
  void Write(uint32_t number) {
    Participant self(block_);
    Journal& journal = *journals_[number];
    const auto file = static_cast<uint32_t>(journal.descriptor);
    const std::string record(kRecordBytes, static_cast<char>('a' + number));
    while (!stop_ && journal.records < kMaxRecords) {
      uint32_t count = 0;
      uint32_t osError = 0;
      const uint32_t status =
          number % 2 == 0
              ? KivSdLeasedFileWrite(self, file, record.data(), kRecordBytes, &count)
              : KivSdLeasedFilePWrite(self, file, record.data(), journal.records * kRecordBytes,
                                      kRecordBytes, &count, &osError);
      ASSERT_EQ(status, KIV_ST_OK);
      ASSERT_EQ(count, kRecordBytes);
      ASSERT_EQ(self->held, 0u);
      ++journal.records;
    }
  }

  std::vector<uint64_t> Lengths() const {
    std::vector<uint64_t> lengths;
    for (const auto& journal : journals_) {
      lengths.push_back(std::filesystem::file_size(journal->name));
    }
    return lengths;
  }

  std::vector<uint32_t> Counts() const {
    std::vector<uint32_t> counts;
    for (const auto& journal : journals_) counts.push_back(journal->records);
    return counts;
  }

  // Whether every writer has written since it had `since` records.
  bool HaveAllGoneOn(const std::vector<uint32_t>& since) const {
    for (uint32_t i = 0; i < kWriters; ++i) {
      if (journals_[i]->records == since[i] && since[i] < kMaxRecords) return false;
    }
    return true;
  }

  void PauseOnce(Participant& self, std::mt19937& random) {
    const bool expires = random() % 64 == 0;
    ASSERT_EQ(KivSdPauseWriteIO(self, expires ? 1 : 0), KIV_ST_OK);
    const std::vector<uint64_t> lengths = Lengths();
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 30));
    EXPECT_EQ(Lengths(), lengths) << "a writer wrote during pause " << pauses_;
    const std::vector<uint32_t> counts = Counts();
    Stopwatch since;
    if (expires) {
      EXPECT_TRUE(Comes([&] { return !block_.IsPaused(); }));
      since = Stopwatch();
    } else {
      EXPECT_EQ(KivSdUnpauseWriteIO(self), KIV_ST_OK);
    }
    EXPECT_TRUE(Comes([&] { return HaveAllGoneOn(counts); }));
    longestMs_ = std::max(longestMs_, since.ElapsedMs());
    ++pauses_;
    if (expires) ++expired_;
  }

  void Pause() {
    Participant self(block_);
    std::mt19937 random(1);
    const Stopwatch watch;
    while (watch.ElapsedMs() < 1000 * SecondsToRun() && !HasFatalFailure()) {
      PauseOnce(self, random);
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % 10));
    }
    stop_ = true;
  }

  TemporaryFolder folder_;
  std::vector<std::unique_ptr<Journal>> journals_;
  PauseBlock block_;
  std::atomic<bool> stop_{false};
  uint32_t pauses_ = 0;
  uint32_t expired_ = 0;
  double longestMs_ = 0;
};

TEST_F(WritePauseStress, NothingIsWrittenDuringAPauseAndAllWritersGoOnAfterIt) {
  kiv::test::OnThreads(kWriters + 1, [&](uint32_t number) {
    if (number == kWriters) {
      Pause();
    } else {
      Write(number);
    }
  });
  EXPECT_LT(longestMs_, kPollMs);
  EXPECT_GT(pauses_, 10u);
  EXPECT_EQ(block_.LeaseCount(), 0);
  EXPECT_FALSE(block_.IsPaused());
  EXPECT_TRUE(block_.IsResumeOpen());
  EXPECT_TRUE(block_.IsLockFree());
  uint64_t records = 0;
  for (const auto& journal : journals_) {
    EXPECT_EQ(std::filesystem::file_size(journal->name), journal->records * kRecordBytes);
    records += journal->records;
  }
  std::printf("%u pauses, %u of them expired; %llu records; all writers on after %.1f ms at most\n",
              pauses_, expired_, static_cast<unsigned long long>(records), longestMs_);
}

// While it is paused, the pauser sets a flag; a writer with a lease must never see the flag. The
// writer takes one lease after another, so that some begin together with the pause. It holds each
// lease long enough for a pauser that missed it to set the flag.
TEST(WritePauseBarriers, APauserAndAWriterNeverMissEachOther) {
  constexpr int32_t kRounds = 40'000;
  constexpr int32_t kLeases = 20;
  constexpr int32_t kLooks = 300;
  constexpr double kLongEnoughMs = 3000;
  PauseBlock block;
  std::atomic<bool> isAlone{false};
  bool enough = false;
  uint32_t together = 0;
  kiv::test::Pace pace;
  const Stopwatch watch;
  kiv::test::OnThreads(2, [&](uint32_t number) {
    Participant self(block);
    for (int32_t round = 1; round <= kRounds; ++round) {
      pace.Meet(number, 2 * round - 1);
      if (enough) return;
      kiv::test::Stagger(number, round);
      if (number == 0) {
        EXPECT_EQ(KivSdPauseWriteIO(self, 0), KIV_ST_OK);
        isAlone = true;
        kiv::test::Stagger(0, 12);
        isAlone = false;
        EXPECT_EQ(KivSdUnpauseWriteIO(self), KIV_ST_OK);
      }
      for (int32_t lease = 0; number == 1 && lease < kLeases; ++lease) {
        EXPECT_EQ(KivSdGetWriteIOLease(self), KIV_ST_OK);
        for (int32_t look = 0; look < kLooks; ++look) {
          if (isAlone) ++together;
        }
        EXPECT_EQ(KivSdReleaseWriteIOLease(self), KIV_ST_OK);
      }
      pace.Meet(number, 2 * round);
      if (number == 0) enough = watch.ElapsedMs() > kLongEnoughMs;
    }
  });
  EXPECT_EQ(together, 0u);
}

}  // namespace
