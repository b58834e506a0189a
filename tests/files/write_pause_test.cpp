// The write pause: pausing, leases, waiting, expiry, shutdown, and writes under a lease.
#include <gtest/gtest.h>

#include <fcntl.h>
#ifndef _WIN32
#include <unistd.h>
#endif

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>
#ifdef _WIN32
#include <io.h>
#endif

#include "kivsdu/kivsdu.h"
#include "support/temporary_folder.h"
#include "support/waiting.h"
#include "support/write_pause.h"

namespace {

using kiv::test::Comes;
using kiv::test::Context;
using kiv::test::Later;
using kiv::test::OnAnotherThread;
using kiv::test::Participant;
using kiv::test::PauseBlock;
using kiv::test::Stopwatch;
using kiv::test::TemporaryFolder;

constexpr double kPollMs = 2000;       // poll interval of waiting writers
constexpr double kDrainPollMs = 1000;  // poll interval of a pauser
// The longest time that waking a thread takes on a busy machine; well below both polls.
constexpr double kWakeMs = 700;
constexpr double kTickMs = 50;  // tolerance for waits that seem too short

uint32_t Now() {
  uint64_t seconds = 0;
  EXPECT_EQ(KivSdTime(nullptr, &seconds), KIV_ST_OK);
  return static_cast<uint32_t>(seconds);
}

// A thread that takes a lease and gives it back.
class Writer {
 public:
  explicit Writer(KivSdWritePause* pause)
      : thread_([this, pause] {
          Participant self(pause);
          const Stopwatch watch;
          status_ = KivSdGetWriteIOLease(self);
          waitedMs_ = watch.ElapsedMs();
          held_ = self->held;
          EXPECT_EQ(KivSdReleaseWriteIOLease(self), KIV_ST_OK);
          done_ = true;
        }) {}
  ~Writer() {
    if (thread_.joinable()) thread_.join();
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  bool IsDone() const { return done_; }

  // Joins the thread. Returns how long it waited for the lease.
  double Ended() {
    thread_.join();
    EXPECT_EQ(status_, KIV_ST_OK);
    EXPECT_EQ(held_, 1u);
    return waitedMs_;
  }

 private:
  uint32_t status_ = 0;
  uint8_t held_ = 0;
  double waitedMs_ = 0;
  std::atomic<bool> done_{false};
  std::thread thread_;
};

std::vector<std::unique_ptr<Writer>> Writers(PauseBlock& block, size_t count) {
  std::vector<std::unique_ptr<Writer>> writers;
  for (size_t i = 0; i < count; ++i) writers.push_back(std::make_unique<Writer>(block));
  EXPECT_TRUE(Comes([&] { return block.WaitingWriters() == count; }));
  return writers;
}

// ---- Pausing without writers ----

TEST(WritePause, WithoutWritersBeginsAtOnce) {
  PauseBlock block;
  Participant self(block);
  const uint32_t before = Now();
  CHECK_OK(self.ctx(), KivSdPauseWriteIO(self, 5));
  EXPECT_EQ(block->paused, 1u);
  EXPECT_EQ(block->maximumSeconds, 5);
  EXPECT_GE(block->startSeconds, before);
  EXPECT_LE(block->startSeconds, Now());
  EXPECT_EQ(block->leases, 0);
  EXPECT_FALSE(block.IsResumeOpen());
  EXPECT_TRUE(block.IsDrainedOpen()) << "there was no lease to wait for";
  EXPECT_TRUE(block.IsLockFree());
  EXPECT_EQ(self->held, 0u);
}

TEST(WritePause, LastsUntilItIsLifted) {
  PauseBlock block;
  Participant self(block);
  EXPECT_EQ(KivSdPauseWriteIO(self, 0), KIV_ST_OK);
  CHECK_OK(self.ctx(), KivSdUnpauseWriteIO(self));
  EXPECT_EQ(block->paused, 0u);
  EXPECT_TRUE(block.IsResumeOpen());
  EXPECT_TRUE(block.IsLockFree());
  EXPECT_EQ(KivSdPauseWriteIO(self, 0), KIV_ST_OK) << "another pause must be possible";
}

TEST(WritePause, IsRefusedDuringAPauseAndChangesNothing) {
  PauseBlock block;
  Participant first(block);
  Participant second(block);
  EXPECT_EQ(KivSdPauseWriteIO(first, 5), KIV_ST_OK);
  const KivSdWritePause before = *static_cast<KivSdWritePause*>(block);
  // The lock is taken, so a pauser that requested it would wait.
  EXPECT_EQ(KivSdStartRead(nullptr, &first->locks, &block->lock), KIV_ST_OK);
  EXPECT_EQ(OnAnotherThread([&] { return KivSdPauseWriteIO(second, 9); }), KIV_ST_WRITE_PAUSE);
  EXPECT_EQ(KivSdEndRW(nullptr, &first->locks, &block->lock), KIV_ST_OK);
  EXPECT_EQ(std::memcmp(&before, static_cast<KivSdWritePause*>(block), sizeof before), 0);
  EXPECT_TRUE(second.ctx().IsUntouched());
}

TEST(WritePause, IsRefusedForAThreadThatHoldsTheLockForReadingAndChangesNothing) {
  PauseBlock block;
  Participant self(block);
  EXPECT_EQ(KivSdStartRead(nullptr, &self->locks, &block->lock), KIV_ST_OK);
  const KivSdWritePause before = *static_cast<KivSdWritePause*>(block);
  EXPECT_EQ(KivSdPauseWriteIO(self, 5), KIV_ST_MUTEX_REQUEST);
  EXPECT_EQ(std::memcmp(&before, static_cast<KivSdWritePause*>(block), sizeof before), 0);
  EXPECT_TRUE(block.IsResumeOpen());
  EXPECT_TRUE(self.ctx().IsUntouched());
  EXPECT_EQ(KivSdModeRW(nullptr, &self->locks, &block->lock), KIV_RWLOCK_READ);
  EXPECT_EQ(KivSdEndRW(nullptr, &self->locks, &block->lock), KIV_ST_OK);
  EXPECT_TRUE(block.IsLockFree());
}

TEST(WritePause, LiftingWithoutAPauseDoesNothing) {
  PauseBlock block;
  Participant self(block);
  EXPECT_EQ(KivSdEventSet(nullptr, &block->resume), KIV_ST_OK);
  EXPECT_EQ(KivSdUnpauseWriteIO(self), KIV_ST_OK);
  EXPECT_EQ(KivSdUnpauseWriteIO(self), KIV_ST_OK);
  EXPECT_FALSE(block.IsResumeOpen());
  EXPECT_EQ(block->paused, 0u);
  EXPECT_TRUE(self.ctx().IsUntouched());
}

TEST(WritePause, IsLiftedWhileAnotherThreadHoldsTheLockForReading) {
  PauseBlock block;
  Participant pauser(block);
  EXPECT_EQ(KivSdPauseWriteIO(pauser, 0), KIV_ST_OK);
  Participant reader(block);
  EXPECT_EQ(KivSdStartRead(nullptr, &reader->locks, &block->lock), KIV_ST_OK);
  EXPECT_EQ(OnAnotherThread([&] { return KivSdUnpauseWriteIO(pauser); }), KIV_ST_OK);
  EXPECT_FALSE(block.IsPaused());
  EXPECT_EQ(KivSdModeRW(nullptr, &reader->locks, &block->lock), KIV_RWLOCK_READ);
  EXPECT_EQ(KivSdEndRW(nullptr, &reader->locks, &block->lock), KIV_ST_OK);
}

TEST(WritePause, CanBeLiftedByAThreadThatHoldsTheLockForReading) {
  PauseBlock block;
  Participant self(block);
  EXPECT_EQ(KivSdPauseWriteIO(self, 0), KIV_ST_OK);
  EXPECT_EQ(KivSdStartRead(nullptr, &self->locks, &block->lock), KIV_ST_OK);
  EXPECT_EQ(KivSdUnpauseWriteIO(self), KIV_ST_OK);
  EXPECT_FALSE(block.IsPaused());
  EXPECT_EQ(KivSdEndRW(nullptr, &self->locks, &block->lock), KIV_ST_OK);
  EXPECT_TRUE(block.IsLockFree());
}

// ---- Leases without a pause ----

TEST(WriteLease, IsCountedWhileItIsHeld) {
  PauseBlock block;
  Participant first(block);
  Participant second(block);
  EXPECT_EQ(KivSdGetWriteIOLease(first), KIV_ST_OK);
  EXPECT_EQ(first->held, 1u);
  EXPECT_EQ(block->leases, 1);
  EXPECT_EQ(KivSdGetWriteIOLease(second), KIV_ST_OK);
  EXPECT_EQ(block->leases, 2);
  EXPECT_TRUE(block.IsLockFree()) << "leases need no lock";
  block.CloseDrained();
  EXPECT_EQ(KivSdReleaseWriteIOLease(first), KIV_ST_OK);
  EXPECT_EQ(first->held, 0u);
  EXPECT_EQ(block->leases, 1);
  EXPECT_EQ(KivSdReleaseWriteIOLease(second), KIV_ST_OK);
  EXPECT_EQ(block->leases, 0);
  EXPECT_FALSE(block.IsDrainedOpen()) << "no pauser waits";
  EXPECT_TRUE(first.ctx().IsUntouched());
}

TEST(WriteLease, IsNotGivenBackIfItIsNotHeld) {
  PauseBlock block;
  Participant self(block);
  block->leases = 3;
  EXPECT_EQ(KivSdReleaseWriteIOLease(self), KIV_ST_OK);
  EXPECT_EQ(block->leases, 3);
  EXPECT_EQ(self->held, 0u);
}

TEST(WriteLease, TakenWithinALeaseIsCountedAndNeverGivenBack) {
  PauseBlock block;
  Participant self(block);
  EXPECT_EQ(KivSdGetWriteIOLease(self), KIV_ST_OK);
  EXPECT_EQ(KivSdGetWriteIOLease(self), KIV_ST_OK);
  EXPECT_EQ(block->leases, 2);
  EXPECT_EQ(self->held, 1u);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(KivSdReleaseWriteIOLease(self), KIV_ST_OK);
    EXPECT_EQ(block->leases, 1);
    EXPECT_EQ(self->held, 0u);
  }
}

TEST(WriteLease, IsNeverCountedBelowZero) {
  PauseBlock block;
  Participant self(block);
  for (const int32_t count : {0, -1}) {
    block->leases = count;
    self->held = 1;
    EXPECT_EQ(KivSdReleaseWriteIOLease(self), KIV_ST_OK);
    EXPECT_EQ(block->leases, count);
    EXPECT_EQ(self->held, 0u);
  }
}

TEST(WriteLease, NeedsNoContext) {
  PauseBlock block;
  Participant self(block);
  self->ctx = nullptr;
  EXPECT_EQ(KivSdGetWriteIOLease(self), KIV_ST_OK);
  EXPECT_EQ(KivSdReleaseWriteIOLease(self), KIV_ST_OK);
  EXPECT_EQ(KivSdPauseWriteIO(self, 0), KIV_ST_OK);
  EXPECT_EQ(KivSdUnpauseWriteIO(self), KIV_ST_OK);
  uint32_t count = 0;
  uint32_t osError = 0;
  EXPECT_EQ(KivSdLeasedFilePWrite(self, KIV_FILE_NONE, "x", 0, 1, &count, &osError),
            KIV_ST_FILE_READ);
  EXPECT_EQ(block->leases, 0);
}

// ---- Giving back during a pause ----

TEST(WriteLease, OpensTheDrainedGateIfItIsTheLastGivenBackDuringAPause) {
  PauseBlock block;
  Participant first(block);
  Participant second(block);
  EXPECT_EQ(KivSdGetWriteIOLease(first), KIV_ST_OK);
  EXPECT_EQ(KivSdGetWriteIOLease(second), KIV_ST_OK);
  block->paused = 1;
  block.CloseDrained();
  EXPECT_EQ(KivSdReleaseWriteIOLease(first), KIV_ST_OK);
  EXPECT_FALSE(block.IsDrainedOpen());
  EXPECT_TRUE(first.ctx().IsUntouched());
  CHECK_OK(second.ctx(), KivSdReleaseWriteIOLease(second));
  EXPECT_TRUE(block.IsDrainedOpen());
}

TEST(WriteLease, OpensTheDrainedGateDuringAPauseEvenIfItIsNotHeld) {
  PauseBlock block;
  Participant self(block);
  block->paused = 1;
  block.CloseDrained();
  EXPECT_EQ(KivSdReleaseWriteIOLease(self), KIV_ST_OK);
  EXPECT_TRUE(block.IsDrainedOpen());
  EXPECT_EQ(block->leases, 0);

  block.CloseDrained();
  block->leases = 1;
  EXPECT_EQ(KivSdReleaseWriteIOLease(self), KIV_ST_OK);
  EXPECT_FALSE(block.IsDrainedOpen());
  EXPECT_EQ(block->leases, 1);
}

TEST(WritePause, WaitsForTheLeasesThatAreOut) {
  PauseBlock block;
  Participant first(block);
  Participant second(block);
  EXPECT_EQ(KivSdGetWriteIOLease(first), KIV_ST_OK);
  EXPECT_EQ(KivSdGetWriteIOLease(second), KIV_ST_OK);
  std::atomic<bool> paused{false};
  uint32_t status = 1;
  std::thread thread([&] {
    Participant pauser(block);
    status = KivSdPauseWriteIO(pauser, 0);
    EXPECT_EQ(block.LeaseCount(), 0);
    paused = true;
  });
  EXPECT_TRUE(Comes([&] { return block.IsPaused(); }));
  EXPECT_FALSE(block.IsLockFree());
  EXPECT_EQ(KivSdReleaseWriteIOLease(first), KIV_ST_OK);
  // Longer than a poll: a time-out must not end the pauser's wait for leases.
  std::this_thread::sleep_for(std::chrono::milliseconds(1300));
  EXPECT_FALSE(paused);
  EXPECT_EQ(KivSdReleaseWriteIOLease(second), KIV_ST_OK);
  thread.join();
  EXPECT_EQ(status, KIV_ST_OK);
  EXPECT_TRUE(block.IsPaused());
  EXPECT_TRUE(block.IsLockFree());
}

TEST(WritePause, RefusesASecondPauserAtOnceDuringADrain) {
  PauseBlock block;
  Participant writer(block);
  EXPECT_EQ(KivSdGetWriteIOLease(writer), KIV_ST_OK);
  std::thread thread([&] {
    Participant pauser(block);
    EXPECT_EQ(KivSdPauseWriteIO(pauser, 0), KIV_ST_OK);
  });
  EXPECT_TRUE(Comes([&] { return block.IsPaused(); }));
  Participant second(block);
  EXPECT_EQ(KivSdPauseWriteIO(second, 0), KIV_ST_WRITE_PAUSE);
  EXPECT_EQ(block.LeaseCount(), 1);
  EXPECT_EQ(KivSdReleaseWriteIOLease(writer), KIV_ST_OK);
  thread.join();
}

// ---- Waiting for the end of a pause ----

TEST(WriteLease, IsNeitherTakenNorCountedDuringAPause) {
  PauseBlock block;
  Participant pauser(block);
  EXPECT_EQ(KivSdPauseWriteIO(pauser, 0), KIV_ST_OK);
  block.CloseDrained();
  const auto writers = Writers(block, 1);
  EXPECT_EQ(block.LeaseCount(), 0);
  EXPECT_TRUE(block.IsDrainedOpen()) << "a withdrawn lease must wake a pauser";
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(writers[0]->IsDone());
  EXPECT_EQ(KivSdUnpauseWriteIO(pauser), KIV_ST_OK);
  EXPECT_LT(writers[0]->Ended(), kPollMs - kTickMs);
  EXPECT_EQ(block.LeaseCount(), 0);
  EXPECT_TRUE(block.IsLockFree());
}

TEST(WriteLease, IsTakenByAllWaitingWritersAtOnceWhenThePauseIsLifted) {
  constexpr size_t kWriters = 12;
  PauseBlock block;
  Participant pauser(block);
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    EXPECT_EQ(KivSdPauseWriteIO(pauser, 0), KIV_ST_OK);
    const auto writers = Writers(block, kWriters);
    const Stopwatch watch;
    EXPECT_EQ(KivSdUnpauseWriteIO(pauser), KIV_ST_OK);
    for (const auto& writer : writers) static_cast<void>(writer->Ended());
    EXPECT_LT(watch.ElapsedMs(), kWakeMs);
    EXPECT_TRUE(block.IsResumeOpen()) << "the gate must be open without a pause";
    EXPECT_TRUE(block.IsLockFree());
    EXPECT_EQ(block.LeaseCount(), 0);
  }
}

TEST(WritePause, CannotBeginWhileWritersWaitForTheEndOfAnEarlierPause) {
  PauseBlock block;
  Participant pauser(block);
  EXPECT_EQ(KivSdPauseWriteIO(pauser, 0), KIV_ST_OK);
  const auto writers = Writers(block, 2);
  // Acts as a second pauser that checked the flag just before the first pause began.
  std::atomic<bool> entered{false};
  std::thread thread([&] {
    KivRWLockTable table = {};
    EXPECT_EQ(KivSdStartWrite(nullptr, &table, &block->lock), KIV_ST_OK);
    entered = true;
    EXPECT_EQ(KivSdEndRW(nullptr, &table, &block->lock), KIV_ST_OK);
    EXPECT_EQ(KivRWLockFreeQNodes(&table), KIV_ST_OK);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(entered);
  // The test lifts the pause itself: KivSdUnpauseWriteIO would wait behind the second pauser.
  __atomic_store_n(&block->paused, uint64_t{0}, __ATOMIC_SEQ_CST);
  EXPECT_EQ(KivSdEventClear(nullptr, &block->resume), KIV_ST_OK);
  for (const auto& writer : writers) static_cast<void>(writer->Ended());
  thread.join();
}

// ---- Expiry and shutdown; several blocks at once, because each takes seconds ----

TEST(WritePauseExpiry, IsNoticedByAWaitingWriter) {
  PauseBlock block;
  Participant pauser(block);
  EXPECT_EQ(KivSdPauseWriteIO(pauser, 1), KIV_ST_OK);
  const auto writers = Writers(block, 3);
  double longestMs = 0;  // the first to poll ends the wait of all
  for (const auto& writer : writers) {
    const double waitedMs = writer->Ended();
    EXPECT_LT(waitedMs, kPollMs + kWakeMs);
    longestMs = std::max(longestMs, waitedMs);
  }
  EXPECT_GT(longestMs, kPollMs - kTickMs);
  EXPECT_FALSE(block.IsPaused());
  EXPECT_TRUE(block.IsResumeOpen());
  EXPECT_TRUE(block.IsLockFree());
}

TEST(WritePauseExpiry, DependsOnTheMaximum) {
  PauseBlock unlimited;
  PauseBlock fourSeconds;
  PauseBlock negative;
  PauseBlock withoutWriters;
  Participant pausers[] = {Participant(unlimited), Participant(fourSeconds), Participant(negative),
                           Participant(withoutWriters)};
  EXPECT_EQ(KivSdPauseWriteIO(pausers[0], 0), KIV_ST_OK);
  EXPECT_EQ(KivSdPauseWriteIO(pausers[1], 4), KIV_ST_OK);
  EXPECT_EQ(KivSdPauseWriteIO(pausers[2], -1), KIV_ST_OK);
  EXPECT_EQ(KivSdPauseWriteIO(pausers[3], 1), KIV_ST_OK);
  const auto forEver = Writers(unlimited, 1);
  // Times are truncated to whole seconds: at the first poll 2 or 3 seconds have passed, never 4.
  const auto twoPolls = Writers(fourSeconds, 1);
  const auto onePoll = Writers(negative, 1);

  const double second = twoPolls[0]->Ended();
  EXPECT_GT(second, 2 * (kPollMs - kTickMs));
  EXPECT_LT(second, 2 * kPollMs + kWakeMs);
  const double first = onePoll[0]->Ended();
  EXPECT_GT(first, kPollMs - kTickMs);
  EXPECT_LT(first, kPollMs + kWakeMs);
  EXPECT_FALSE(forEver[0]->IsDone());
  EXPECT_TRUE(unlimited.IsPaused());
  EXPECT_TRUE(withoutWriters.IsPaused()) << "only a waiting writer notices the expiry";
  EXPECT_EQ(KivSdUnpauseWriteIO(pausers[0]), KIV_ST_OK);
  static_cast<void>(forEver[0]->Ended());
}

TEST(WritePauseShutdown, EndsADrainAndLeavesThePauseInForce) {
  PauseBlock block;
  Participant holder(block);
  Participant pauser(block);
  block->maximumSeconds = 77;
  block->startSeconds = 88;
  EXPECT_EQ(KivSdGetWriteIOLease(holder), KIV_ST_OK);
  uint32_t status = 0;
  double tookMs = 0;
  std::thread thread([&] {
    const Stopwatch watch;
    status = KivSdPauseWriteIO(pauser, 5);
    tookMs = watch.ElapsedMs();
  });
  EXPECT_TRUE(Comes([&] { return block.IsPaused(); }));
  block.ShutDown();
  thread.join();
  EXPECT_EQ(status, KIV_WRITE_PAUSE_SHUTDOWN);
  EXPECT_LT(tookMs, kDrainPollMs + kWakeMs);
  EXPECT_TRUE(block.IsPaused());
  EXPECT_FALSE(block.IsResumeOpen());
  EXPECT_TRUE(block.IsLockFree());
  EXPECT_EQ(block.LeaseCount(), 1);
  EXPECT_EQ(block->maximumSeconds, 77);
  EXPECT_EQ(block->startSeconds, 88u);

  Writer writer(block);
  const double waitedMs = writer.Ended();
  EXPECT_GT(waitedMs, kPollMs - kTickMs);
  EXPECT_LT(waitedMs, kPollMs + kWakeMs);
  EXPECT_FALSE(block.IsPaused());
  EXPECT_TRUE(block.IsResumeOpen());
  EXPECT_EQ(block.LeaseCount(), 1);
  EXPECT_EQ(KivSdReleaseWriteIOLease(holder), KIV_ST_OK);
}

TEST(WritePauseShutdown, DoesNotStopAPauserWithoutLeasesToWaitFor) {
  PauseBlock block;
  block.ShutDown();
  Participant pauser(block);
  EXPECT_EQ(KivSdPauseWriteIO(pauser, 5), KIV_ST_OK);
  EXPECT_EQ(block->maximumSeconds, 5);
}

TEST(WritePauseShutdown, LetsAllWaitingWritersGoOn) {
  PauseBlock block;
  Participant pauser(block);
  EXPECT_EQ(KivSdPauseWriteIO(pauser, 0), KIV_ST_OK);
  const auto writers = Writers(block, 3);
  block.ShutDown();
  for (const auto& writer : writers) EXPECT_LT(writer->Ended(), kPollMs + kWakeMs);
  EXPECT_FALSE(block.IsPaused());
}

// ---- Writes under a lease ----

class LeasedWrite : public testing::Test {
 protected:
  LeasedWrite() : descriptor_(Open()) {}
  ~LeasedWrite() override { EXPECT_EQ(close(descriptor_), 0); }

  // Opens another descriptor of the file, with its own position.
  int Open() const {
#ifdef _WIN32
    const int descriptor = _open(path_.c_str(), _O_CREAT | _O_RDWR | _O_BINARY, 0600);
#else
    const int descriptor = open(path_.c_str(), O_CREAT | O_RDWR, 0600);
#endif
    EXPECT_NE(descriptor, -1);
    return descriptor;
  }

  uint32_t file() const { return static_cast<uint32_t>(descriptor_); }
  uint64_t Size() const { return std::filesystem::file_size(path_); }

  void ExpectNoLease() {
    EXPECT_EQ(block_.LeaseCount(), 0);
    EXPECT_EQ(self_->held, 0u);
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.Path("journal");
  const int descriptor_;
  PauseBlock block_;
  Participant self_{block_};
};

TEST_F(LeasedWrite, WritesAtThePositionAndAtAnOffset) {
  uint32_t count = 0;
  uint32_t osError = 4711;
  CHECK_OK(self_.ctx(), KivSdLeasedFileWrite(self_, file(), "abcdef", 6, &count));
  EXPECT_EQ(count, 6u);
  ExpectNoLease();
  CHECK_OK(self_.ctx(), KivSdLeasedFilePWrite(self_, file(), "XY", 2, 2, &count, &osError));
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(osError, 0u);
  ExpectNoLease();
  char text[7] = "";
  EXPECT_EQ(lseek(descriptor_, 0, SEEK_SET), 0);
  EXPECT_EQ(read(descriptor_, text, 6), 6);
  EXPECT_STREQ(text, "abXYef");
}

TEST_F(LeasedWrite, GivesTheLeaseBackIfTheWriteFails) {
  uint32_t count = 0;
  uint32_t osError = 0;
  constexpr uint32_t kBadDescriptor = 9;
  CHECK_OUTCOME(self_.ctx(),
                KivSdLeasedFilePWrite(self_, KIV_FILE_NONE, "x", 0, 1, &count, &osError),
                KIV_ST_FILE_READ, kBadDescriptor);
  EXPECT_EQ(osError, kBadDescriptor);
  ExpectNoLease();
  CHECK_OUTCOME(self_.ctx(), KivSdLeasedFileWrite(self_, KIV_FILE_NONE, "x", 1, &count),
                KIV_ST_FILE_WRITE, kBadDescriptor);
  ExpectNoLease();
}

TEST_F(LeasedWrite, WaitsForTheEndOfAPause) {
  Participant pauser(block_);
  EXPECT_EQ(KivSdPauseWriteIO(pauser, 0), KIV_ST_OK);
  std::thread first([&] {
    Participant self(block_);
    uint32_t count = 0;
    EXPECT_EQ(KivSdLeasedFileWrite(self, file(), "abc", 3, &count), KIV_ST_OK);
  });
  // The writers go on in either order, and a write at an offset moves its descriptor's position.
  // Each writer therefore has its own descriptor.
  std::thread second([&] {
    Participant self(block_);
    const int own = Open();
    uint32_t count = 0;
    uint32_t osError = 0;
    EXPECT_EQ(
        KivSdLeasedFilePWrite(self, static_cast<uint32_t>(own), "xyz", 100, 3, &count, &osError),
        KIV_ST_OK);
    EXPECT_EQ(close(own), 0);
  });
  EXPECT_TRUE(Comes([&] { return block_.WaitingWriters() == 2; }));
  EXPECT_EQ(Size(), 0u);
  EXPECT_EQ(KivSdUnpauseWriteIO(pauser), KIV_ST_OK);
  first.join();
  second.join();
  EXPECT_EQ(Size(), 103u);
  char text[103] = "";
  EXPECT_EQ(lseek(descriptor_, 0, SEEK_SET), 0);
  EXPECT_EQ(read(descriptor_, text, sizeof text), 103);
  EXPECT_EQ(std::string(text, 3), "abc");
  EXPECT_EQ(std::string(text + 100, 3), "xyz");
  ExpectNoLease();
}

}  // namespace
