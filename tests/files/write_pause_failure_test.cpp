// The write pause step by step: the gates that are opened, closed and waited for, the time-outs,
// and failures of the system's calls.
//
// The test records the system's calls on the pause block's two gates and sets their results.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/heap_watch.h"
#include "support/import_patch.h"
#include "support/last_error.h"
#include "support/os_errors.h"
#include "support/waiting.h"
#include "support/write_pause.h"

namespace {

using kiv::test::Comes;
using kiv::test::Context;
using kiv::test::HeapWatch;
using kiv::test::ImportPatch;
using kiv::test::kOsDiskFull;
using kiv::test::Participant;
using kiv::test::PauseBlock;
using kiv::test::ScriptedImport;
using kiv::test::SetErrors;

constexpr uint32_t kErrorInvalidHandle = 6;
constexpr uint32_t kErrnoBadDescriptor = 9;
constexpr uint32_t kErrorNoMemory = 8;
constexpr uint32_t kUntouched = 4711;

// Records every call on a pause block's gates with the paused flag at that moment, and returns the
// given results of the waits in turn. Calls on other handles go to the system.
class Gates {
 public:
  using Answer = std::function<uint32_t()>;

  Gates(KivSdWritePause* block, std::vector<Answer> answers) {
    block_ = block;
    answers_ = std::move(answers);
    log_.clear();
    error_ = 0;
  }
  ~Gates() { EXPECT_TRUE(answers_.empty()) << answers_.size() << " waits were not made"; }
  Gates(const Gates&) = delete;
  Gates& operator=(const Gates&) = delete;

  const std::vector<std::string>& log() const { return log_; }
  // Makes all further opening and closing fail.
  void Fail(uint32_t error) { error_ = error; }

 private:
  static std::string NameOf(void* gate) {
    if (gate == block_->drained) return "drained";
    return gate == block_->resume ? "resume" : "";
  }

  static bool Note(const char* verb, void* gate, const std::string& more = "") {
    const std::string name = NameOf(gate);
    if (name.empty()) return false;
    std::string line = verb;
    line.append(1, ' ').append(name).append(more);
    if (block_->paused != 0) line.append(", paused");
    log_.push_back(line);
    return true;
  }

  static int32_t Answered() {
    SetErrors(0, error_);
    return error_ == 0 ? 1 : 0;
  }

  static int32_t Open(void* gate) {
    return Note("open", gate) ? Answered()
                              : reinterpret_cast<int32_t (*)(void*)>(originalOpen_)(gate);
  }
  static int32_t Close(void* gate) {
    return Note("close", gate) ? Answered()
                               : reinterpret_cast<int32_t (*)(void*)>(originalClose_)(gate);
  }
  static uint32_t Wait(void* gate, uint32_t timeoutMs) {
    if (!Note("wait", gate, std::string(" ").append(std::to_string(timeoutMs)))) {
      return reinterpret_cast<uint32_t (*)(void*, uint32_t)>(originalWait_)(gate, timeoutMs);
    }
    if (answers_.empty()) {
      ADD_FAILURE() << "more waits than expected";
      return 0xFFFFFFFF;
    }
    const Answer answer = answers_.front();
    answers_.erase(answers_.begin());
    SetErrors(0, kErrorInvalidHandle);
    return answer();
  }

  static inline KivSdWritePause* block_ = nullptr;
  static inline std::vector<Answer> answers_;
  static inline std::vector<std::string> log_;
  static inline uint32_t error_ = 0;
  static inline void* originalOpen_ = nullptr;
  static inline void* originalClose_ = nullptr;
  static inline void* originalWait_ = nullptr;

  struct Patches {
    Patches() {
      originalOpen_ = open.original();
      originalClose_ = close.original();
      originalWait_ = wait.original();
    }
    ImportPatch open{"SetEvent", reinterpret_cast<void*>(&Gates::Open)};
    ImportPatch close{"ResetEvent", reinterpret_cast<void*>(&Gates::Close)};
    ImportPatch wait{"WaitForSingleObject", reinterpret_cast<void*>(&Gates::Wait)};
  };
  Patches patches_;
};

using Log = std::vector<std::string>;

uint32_t Passes() { return 0; }
uint32_t TimesOut() { return 258; }
uint32_t Fails() { return 0xFFFFFFFF; }

// The time that the stub of the runtime's clock returns.
int64_t clockSeconds;
int64_t ReadClock(int64_t* seconds) {
  if (seconds != nullptr) *seconds = clockSeconds;
  return clockSeconds;
}

// A block and a participant that has taken the lock once, so that the lock makes no kernel object
// later.
class WritePauseSteps : public testing::Test {
 protected:
  WritePauseSteps() {
    EXPECT_EQ(KivSdStartRead(nullptr, &self_->locks, &block_->lock), KIV_ST_OK);
    EXPECT_EQ(KivSdEndRW(nullptr, &self_->locks, &block_->lock), KIV_ST_OK);
    self_.ctx().Spoil();
  }

  void ExpectNoLease() {
    EXPECT_EQ(block_->leases, 0);
    EXPECT_EQ(self_->held, 0u);
    EXPECT_TRUE(block_.IsLockFree());
  }

  void SetPause(int64_t maximumSeconds = 0, uint64_t startSeconds = 0) {
    block_->paused = 1;
    block_->maximumSeconds = maximumSeconds;
    block_->startSeconds = startSeconds;
  }

  PauseBlock block_;
  Participant self_{block_};
};

// ---- Pausing ----

TEST_F(WritePauseSteps, APauseClosesTheGateBeforeItSetsTheFlag) {
  const Gates gates(block_, {});
  EXPECT_EQ(KivSdPauseWriteIO(self_, 0), KIV_ST_OK);
  EXPECT_EQ(gates.log(), (Log{"close resume"}));
}

TEST_F(WritePauseSteps, ADrainReadsTheCountAgainAfterEveryWait) {
  block_->leases = 2;
  clockSeconds = 5'000'000'000;
  const ImportPatch clock("_time64", reinterpret_cast<void*>(&ReadClock));
  const Gates gates(block_, {TimesOut, Passes,
                             [&] {
                               EXPECT_EQ(block_->maximumSeconds, 0) << "set after the drain";
                               EXPECT_EQ(KivSdModeRW(nullptr, &self_->locks, &block_->lock),
                                         KIV_RWLOCK_WRITE);
                               --block_->leases;
                               return Passes();
                             },
                             [&] {
                               --block_->leases;
                               return TimesOut();
                             }});
  CHECK_OK(self_.ctx(), KivSdPauseWriteIO(self_, 7));
  Log expected = {"close resume"};
  for (int i = 0; i < 4; ++i) {
    expected.emplace_back("close drained, paused");
    expected.emplace_back("wait drained 1000, paused");
  }
  EXPECT_EQ(gates.log(), expected);
  EXPECT_EQ(block_->maximumSeconds, 7);
  EXPECT_EQ(block_->startSeconds, 5'000'000'000u);
  EXPECT_TRUE(block_.IsLockFree());
}

TEST_F(WritePauseSteps, ADrainEndsIfItsWaitFailsAndThePauseStaysInForce) {
  block_->leases = 1;
  block_->maximumSeconds = 77;
  block_->startSeconds = 88;
  const Gates gates(block_, {Fails});
  CHECK_OUTCOME(self_.ctx(), KivSdPauseWriteIO(self_, 7), KIV_ST_EVENT_WAIT, kErrorInvalidHandle);
  EXPECT_EQ(block_->paused, 1u);
  EXPECT_EQ(block_->leases, 1);
  EXPECT_EQ(block_->maximumSeconds, 77);
  EXPECT_EQ(block_->startSeconds, 88u);
  EXPECT_TRUE(block_.IsLockFree());
}

TEST_F(WritePauseSteps, AShutdownIsNoticedAfterAWaitOfAnyOutcome) {
  for (uint32_t (*outcome)() : {Passes, TimesOut, Fails}) {
    block_->leases = 1;
    block_->paused = 0;
    block_->shutdown = 0;
    const Gates gates(block_, {[&] {
                        block_->shutdown = 2;  // any value except 0
                        return outcome();
                      }});
    EXPECT_EQ(KivSdPauseWriteIO(self_, 7), KIV_WRITE_PAUSE_SHUTDOWN);
    EXPECT_EQ(block_->paused, 1u);
    EXPECT_TRUE(block_.IsLockFree());
  }
}

TEST_F(WritePauseSteps, AShutdownIsReportedEvenIfTheLastLeaseWasGivenBackMeanwhile) {
  block_->leases = 1;
  block_->shutdown = 1;
  const Gates gates(block_, {[&] {
                      block_->leases = 0;
                      return Passes();
                    }});
  EXPECT_EQ(KivSdPauseWriteIO(self_, 7), KIV_WRITE_PAUSE_SHUTDOWN);
}

TEST_F(WritePauseSteps, APauseSucceedsIfTheGatesCannotBeClosed) {
  block_->leases = 1;
  Gates gates(block_, {[&] {
                block_->leases = 0;
                return Passes();
              }});
  gates.Fail(kErrorInvalidHandle);
  CHECK_OK(self_.ctx(), KivSdPauseWriteIO(self_, 7));
  EXPECT_EQ(block_->paused, 1u);
}

TEST_F(WritePauseSteps, LiftingAPauseClearsTheFlagBeforeItOpensTheGate) {
  SetPause();
  const Gates gates(block_, {});
  EXPECT_EQ(KivSdUnpauseWriteIO(self_), KIV_ST_OK);
  EXPECT_EQ(gates.log(), (Log{"open resume"}));
}

TEST_F(WritePauseSteps, LiftingAPauseSucceedsIfTheGateCannotBeOpened) {
  SetPause();
  Gates gates(block_, {});
  gates.Fail(kErrorInvalidHandle);
  EXPECT_EQ(KivSdUnpauseWriteIO(self_), KIV_ST_OK);
  EXPECT_EQ(self_.ctx().status(), KIV_ST_EVENT_CLEAR);
  EXPECT_EQ(self_.ctx().osError(), kErrorInvalidHandle);
  EXPECT_EQ(block_->paused, 0u);
  EXPECT_TRUE(block_.IsLockFree());
}

// Both pausers check the flag before either sets it: the first stops where it closes the gate until
// the second waits for the lock.
PauseBlock* racing;
std::atomic<bool> secondWaits;
void* originalReset;

int32_t CloseWhenTheSecondWaits(void* gate) {
  if (gate == (*racing)->resume && !secondWaits) {
    const void* own = __atomic_load_n(&(*racing)->lock.writerTail, __ATOMIC_SEQ_CST);
    EXPECT_TRUE(Comes(
        [&] { return __atomic_load_n(&(*racing)->lock.writerTail, __ATOMIC_SEQ_CST) != own; }));
    secondWaits = true;
  }
  return reinterpret_cast<int32_t (*)(void*)>(originalReset)(gate);
}

TEST(TwoPausers, ThatArriveTogetherBothSucceed) {
  PauseBlock block;
  racing = &block;
  secondWaits = false;
  const ImportPatch patch("ResetEvent", reinterpret_cast<void*>(&CloseWhenTheSecondWaits));
  originalReset = patch.original();
  uint32_t first = 1;
  std::thread thread([&] {
    Participant self(block);
    first = KivSdPauseWriteIO(self, 3);
  });
  EXPECT_TRUE(Comes([&] { return !block.IsLockFree(); }));
  Participant self(block);
  EXPECT_EQ(KivSdPauseWriteIO(self, 4), KIV_ST_OK);
  thread.join();
  EXPECT_EQ(first, KIV_ST_OK);
  EXPECT_EQ(block->maximumSeconds, 4);
  EXPECT_TRUE(block.IsPaused());
  EXPECT_TRUE(block.IsLockFree());
  EXPECT_EQ(KivSdUnpauseWriteIO(self), KIV_ST_OK);
  EXPECT_FALSE(block.IsPaused());
}

// ---- Leases ----

TEST_F(WritePauseSteps, ALeaseWithoutAPauseUsesNoGate) {
  const Gates gates(block_, {});
  EXPECT_EQ(KivSdGetWriteIOLease(self_), KIV_ST_OK);
  EXPECT_EQ(KivSdReleaseWriteIOLease(self_), KIV_ST_OK);
  EXPECT_EQ(gates.log(), Log{});
}

TEST_F(WritePauseSteps, AWriterWithdrawsItsLeaseWaitsAndPassesTheWakeUpOn) {
  SetPause();
  const Gates gates(block_, {[&] {
                               EXPECT_EQ(block_->leases, 0);
                               EXPECT_EQ(self_->held, 0u);
                               EXPECT_EQ(KivSdModeRW(nullptr, &self_->locks, &block_->lock),
                                         KIV_RWLOCK_READ);
                               return TimesOut();
                             },
                             [&] {
                               block_->paused = 0;
                               return Passes();
                             }});
  CHECK_OK(self_.ctx(), KivSdGetWriteIOLease(self_));
  EXPECT_EQ(gates.log(), (Log{"open drained, paused", "wait resume 2000, paused",
                              "wait resume 2000, paused", "open resume"}));
  EXPECT_EQ(block_->leases, 1);
  EXPECT_EQ(self_->held, 1u);
  EXPECT_TRUE(block_.IsLockFree());
}

TEST_F(WritePauseSteps, AWriterThatWithdrawsWhileOthersHoldLeasesDoesNotWakeThePauser) {
  SetPause();
  block_->leases = 2;
  const Gates gates(block_, {[&] {
                      EXPECT_EQ(block_->leases, 2);
                      block_->paused = 0;
                      return Passes();
                    }});
  EXPECT_EQ(KivSdGetWriteIOLease(self_), KIV_ST_OK);
  EXPECT_EQ(gates.log(), (Log{"wait resume 2000, paused", "open resume"}));
  EXPECT_EQ(block_->leases, 3);
}

TEST_F(WritePauseSteps, AWriterThatPassesTheGateDuringAPauseDoesNotOpenItAgain) {
  SetPause();
  const Gates gates(block_, {Passes, [&] {
                               block_->paused = 0;
                               return Passes();
                             }});
  EXPECT_EQ(KivSdGetWriteIOLease(self_), KIV_ST_OK);
  EXPECT_EQ(gates.log(), (Log{"open drained, paused", "wait resume 2000, paused",
                              "open drained, paused", "wait resume 2000, paused", "open resume"}));
  EXPECT_EQ(block_->leases, 1);
}

TEST_F(WritePauseSteps, AWriterThatMissedItsWakeUpGoesOnAfterOnePoll) {
  SetPause();
  const Gates gates(block_, {[&] {
                      block_->paused = 0;
                      return TimesOut();
                    }});
  EXPECT_EQ(KivSdGetWriteIOLease(self_), KIV_ST_OK);
  EXPECT_EQ(gates.log(), (Log{"open drained, paused", "wait resume 2000, paused"}));
  EXPECT_EQ(block_->leases, 1);
  EXPECT_TRUE(block_.IsLockFree());
}

TEST_F(WritePauseSteps, AFailedWaitEndsTheRequestWithoutALease) {
  SetPause();
  const Gates gates(block_, {TimesOut, Fails});
  CHECK_OUTCOME(self_.ctx(), KivSdGetWriteIOLease(self_), KIV_ST_EVENT_WAIT, kErrorInvalidHandle);
  ExpectNoLease();
  EXPECT_EQ(block_->paused, 1u);
}

TEST_F(WritePauseSteps, AWriterLiftsAPauseAtItsMaximumAndNotBefore) {
  struct {
    int64_t maximum;
    std::vector<int64_t> clock;  // time at each time-out; the pause is lifted at the last
  } const pauses[] = {{5, {1000, 1004, 1005}}, {5, {1006}},
                      {1, {1000, 1001}},       {-1, {1000}},
                      {-5, {994, 995}},        {1, {999, 900, 2000}}};
  const ImportPatch clock("_time64", reinterpret_cast<void*>(&ReadClock));
  for (const auto& pause : pauses) {
    SCOPED_TRACE(testing::Message() << pause.maximum << " at " << pause.clock.front());
    SetPause(pause.maximum, 1000);
    std::vector<Gates::Answer> answers;
    for (const int64_t seconds : pause.clock) {
      answers.emplace_back([=] {
        clockSeconds = seconds;
        return TimesOut();
      });
    }
    const Gates gates(block_, answers);
    EXPECT_EQ(KivSdGetWriteIOLease(self_), KIV_ST_OK);
    EXPECT_EQ(block_->paused, 0u);
    EXPECT_EQ(gates.log().back(), "open resume");
    EXPECT_TRUE(block_.IsLockFree());
    block_->paused = 0;
    EXPECT_EQ(KivSdReleaseWriteIOLease(self_), KIV_ST_OK);
  }
}

TEST_F(WritePauseSteps, AWriterDoesNotLiftAPauseWithoutAMaximum) {
  const ImportPatch clock("_time64", reinterpret_cast<void*>(&ReadClock));
  clockSeconds = INT64_MAX;
  SetPause(0, 1000);
  const Gates gates(block_, {TimesOut, TimesOut, [&] {
                               EXPECT_EQ(block_->paused, 1u);
                               block_->paused = 0;
                               return Passes();
                             }});
  EXPECT_EQ(KivSdGetWriteIOLease(self_), KIV_ST_OK);
}

TEST_F(WritePauseSteps, AWriterThatIsWokenDoesNotCheckTheMaximum) {
  const ImportPatch clock("_time64", reinterpret_cast<void*>(&ReadClock));
  clockSeconds = 9000;
  SetPause(1, 1000);
  const Gates gates(block_, {Passes, Fails});
  EXPECT_EQ(KivSdGetWriteIOLease(self_), KIV_ST_EVENT_WAIT);
  EXPECT_EQ(block_->paused, 1u);
}

TEST_F(WritePauseSteps, AWriterLiftsThePauseAtShutdownAfterAWaitOfAnyOutcome) {
  for (uint32_t (*outcome)() : {Passes, TimesOut, Fails}) {
    SetPause();
    block_->shutdown = 1;
    const Gates gates(block_, {outcome});
    EXPECT_EQ(KivSdGetWriteIOLease(self_), KIV_ST_OK);
    EXPECT_EQ(gates.log(),
              (Log{"open drained, paused", "wait resume 2000, paused", "open resume"}));
    EXPECT_EQ(block_->leases, 1);
    EXPECT_TRUE(block_.IsLockFree());
    EXPECT_EQ(KivSdReleaseWriteIOLease(self_), KIV_ST_OK);
  }
}

TEST_F(WritePauseSteps, AFailureToWakeThePauserIsReported) {
  EXPECT_EQ(KivSdGetWriteIOLease(self_), KIV_ST_OK);
  SetPause();
  Gates gates(block_, {});
  gates.Fail(kErrorInvalidHandle);
  CHECK_OUTCOME(self_.ctx(), KivSdReleaseWriteIOLease(self_), KIV_ST_EVENT_CLEAR,
                kErrorInvalidHandle);
  EXPECT_EQ(block_->leases, 0);
  EXPECT_EQ(self_->held, 0u);
}

// ---- Memory for the lock ----

TEST(WritePauseMemory, IsNeededToBeginAPause) {
  PauseBlock block;
  Participant self(block);
  const HeapWatch heap(0, kErrorNoMemory);
  EXPECT_EQ(KivSdPauseWriteIO(self, 5), KIV_ST_OUT_OF_MEMORY);
  EXPECT_FALSE(block.IsPaused());
  EXPECT_TRUE(block.IsLockFree());
  EXPECT_TRUE(block.IsResumeOpen());
}

TEST(WritePauseMemory, IsNeededToWaitForALease) {
  PauseBlock block;
  Participant self(block);
  block->paused = 1;
  const HeapWatch heap(0, kErrorNoMemory);
  EXPECT_EQ(KivSdGetWriteIOLease(self), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(block.LeaseCount(), 0);
  EXPECT_EQ(self->held, 0u);
}

TEST(WritePauseMemory, IsNotNeededToLiftAPause) {
  PauseBlock block;
  Participant self(block);
  block->paused = 1;
  EXPECT_EQ(KivSdEventSet(nullptr, &block->resume), KIV_ST_OK);
  const HeapWatch heap(0, kErrorNoMemory);
  EXPECT_EQ(KivSdUnpauseWriteIO(self), KIV_ST_OK);
  EXPECT_FALSE(block.IsPaused());
  EXPECT_TRUE(block.IsResumeOpen());
}

// Without memory for a lock node, KivSdUnpauseWriteIO cannot wait for the pauser.
TEST_F(WritePauseSteps, WithoutMemoryAPauseIsLiftedDuringTheDrainWhichGoesOn) {
  block_->leases = 1;
  Participant other(block_);
  const Gates gates(block_, {[&] {
                               const HeapWatch heap(0, kErrorNoMemory);
                               EXPECT_EQ(KivSdUnpauseWriteIO(other), KIV_ST_OK);
                               EXPECT_EQ(block_->paused, 0u);
                               EXPECT_EQ(KivSdModeRW(nullptr, &self_->locks, &block_->lock),
                                         KIV_RWLOCK_WRITE);
                               return TimesOut();
                             },
                             [&] {
                               --block_->leases;
                               return TimesOut();
                             }});
  CHECK_OK(self_.ctx(), KivSdPauseWriteIO(self_, 7));
  EXPECT_EQ(gates.log(), (Log{"close resume", "close drained, paused", "wait drained 1000, paused",
                              "open resume", "close drained", "wait drained 1000"}));
  EXPECT_EQ(block_->paused, 0u);
  EXPECT_EQ(block_->maximumSeconds, 7);
  EXPECT_TRUE(block_.IsLockFree());
}

// ---- Writes under a lease ----

struct Outputs {
  uint32_t count = kUntouched;
  uint32_t osError = kUntouched;
};

const std::function<uint32_t(KivSdWriteLease*, Outputs&)> kLeasedWrites[] = {
    [](KivSdWriteLease* lease, Outputs& outputs) {
      return KivSdLeasedFileWrite(lease, 3, "abc", 3, &outputs.count);
    },
    [](KivSdWriteLease* lease, Outputs& outputs) {
      return KivSdLeasedFilePWrite(lease, 3, "abc", 100, 3, &outputs.count, &outputs.osError);
    },
};

TEST_F(WritePauseSteps, AWriteIsNotMadeWithoutALease) {
  const ScriptedImport write("_write", {.result = 3});
  const ScriptedImport handle("_get_osfhandle", {.result = 8});
  for (const auto& run : kLeasedWrites) {
    SetPause();
    const Gates gates(block_, {Fails});
    Outputs outputs;
    CHECK_OUTCOME(self_.ctx(), run(self_, outputs), KIV_ST_EVENT_WAIT, kErrorInvalidHandle);
    EXPECT_EQ(outputs.count, kUntouched);
    EXPECT_EQ(outputs.osError, kUntouched);
    ExpectNoLease();
  }
  EXPECT_TRUE(write.calls().empty());
  EXPECT_TRUE(handle.calls().empty());
}

// Stubs of a write that fails, and during which a pause begins.
KivSdWritePause* pausedMeanwhile;

int FailToWrite(int, const void*, unsigned) {
  EXPECT_EQ(pausedMeanwhile->leases, 1);
  pausedMeanwhile->paused = 1;
  errno = kErrnoBadDescriptor;
  return -1;
}

intptr_t FailToFind(int) {
  static_cast<void>(FailToWrite(0, nullptr, 0));
  return -1;
}

TEST_F(WritePauseSteps, ThePauserIsWokenAndTheRecordKeepsTheWritesOutcome) {
  const ImportPatch write("_write", reinterpret_cast<void*>(&FailToWrite));
  const ImportPatch handle("_get_osfhandle", reinterpret_cast<void*>(&FailToFind));
  pausedMeanwhile = block_;
  const uint32_t statuses[] = {KIV_ST_FILE_WRITE, KIV_ST_FILE_READ};
  for (size_t i = 0; i < 2; ++i) {
    block_->paused = 0;
    const Gates gates(block_, {});
    Outputs outputs;
    CHECK_OUTCOME(self_.ctx(), kLeasedWrites[i](self_, outputs), statuses[i], kErrnoBadDescriptor);
    EXPECT_EQ(gates.log(), (Log{"open drained, paused"}));
    ExpectNoLease();
  }
}

TEST_F(WritePauseSteps, AWritesOutcomeStaysIfThePauserCannotBeWoken) {
  const ImportPatch write("_write", reinterpret_cast<void*>(&FailToWrite));
  pausedMeanwhile = block_;
  Gates gates(block_, {});
  gates.Fail(kErrorInvalidHandle);
  Outputs outputs;
  CHECK_OUTCOME(self_.ctx(), kLeasedWrites[0](self_, outputs), KIV_ST_FILE_WRITE,
                kErrnoBadDescriptor);
}

TEST_F(WritePauseSteps, ALeasedWritePassesItsArgumentsToTheFileWrite) {
  const ScriptedImport write("_write", {.result = 2});
  Outputs outputs;
  const char text[] = "abc";
  CHECK_OK(self_.ctx(), KivSdLeasedFileWrite(self_, 3, text, 3, &outputs.count));
  EXPECT_EQ(outputs.count, 2u);
  EXPECT_EQ(write.calls()[0][1], reinterpret_cast<uintptr_t>(text));
  EXPECT_EQ(static_cast<uint32_t>(write.calls()[0][0]), 3u);
  EXPECT_EQ(static_cast<uint32_t>(write.calls()[0][2]), 3u);

  const ScriptedImport handle("_get_osfhandle", {.result = 0x88});
  const ScriptedImport writeAt("WriteFile", {.result = 0, .error = kOsDiskFull});
  CHECK_OUTCOME(self_.ctx(),
                KivSdLeasedFilePWrite(self_, 3, text, 100, 3, &outputs.count, &outputs.osError),
                KIV_ST_DISK_FULL, kOsDiskFull);
  EXPECT_EQ(outputs.osError, kOsDiskFull);
  EXPECT_EQ(writeAt.calls()[0][1], reinterpret_cast<uintptr_t>(text));
  ExpectNoLease();
}

}  // namespace
