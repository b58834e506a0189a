// The write pause for tests: a pause block, threads that take part, and access to the block while
// they do.
#ifndef KIV_TESTS_WRITE_PAUSE_H
#define KIV_TESTS_WRITE_PAUSE_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>

#include "kivsdu/event.h"
#include "kivsdu/status.h"
#include "kivsdu/writepause.h"
#include "support/context.h"
#include "support/waiting.h"

namespace kiv::test {

class PauseBlock {
 public:
  PauseBlock() {
    EXPECT_EQ(KivSdEventCreate(nullptr, &block_.drained), KIV_ST_OK);
    EXPECT_EQ(KivSdEventCreate(nullptr, &block_.resume), KIV_ST_OK);
    EXPECT_EQ(KivRWLockInit(nullptr, 0, &block_.lock, 1, 3), KIV_ST_OK);
  }
  ~PauseBlock() {
    EXPECT_EQ(KivSdEventClose(nullptr, &block_.drained), KIV_ST_OK);
    EXPECT_EQ(KivSdEventClose(nullptr, &block_.resume), KIV_ST_OK);
  }
  PauseBlock(const PauseBlock&) = delete;
  PauseBlock& operator=(const PauseBlock&) = delete;

  operator KivSdWritePause*() { return &block_; }
  KivSdWritePause* operator->() { return &block_; }

  bool IsPaused() const { return __atomic_load_n(&block_.paused, __ATOMIC_SEQ_CST) != 0; }
  int32_t LeaseCount() const { return __atomic_load_n(&block_.leases, __ATOMIC_SEQ_CST); }
  void ShutDown() { __atomic_store_n(&block_.shutdown, uint8_t{1}, __ATOMIC_SEQ_CST); }

  // Count of writers that wait for the end of a pause. They hold the lock for reading.
  uint64_t WaitingWriters() const { return LockWord() / 8; }
  bool IsLockFree() const { return LockWord() == 0; }

  // Whether a gate is open. Leaves the gate unchanged.
  static bool IsOpen(KivHandle* gate) {
    if (KivSdEventWait(nullptr, gate, 0) != KIV_ST_OK) return false;
    EXPECT_EQ(KivSdEventClear(nullptr, gate), KIV_ST_OK);
    return true;
  }
  bool IsResumeOpen() { return IsOpen(&block_.resume); }
  bool IsDrainedOpen() { return IsOpen(&block_.drained); }
  void CloseDrained() { EXPECT_EQ(KivSdEventSet(nullptr, &block_.drained), KIV_ST_OK); }

 private:
  uint64_t LockWord() const {
    return __atomic_load_n(&block_.lock.countAndFlags, __ATOMIC_SEQ_CST);
  }

  KivSdWritePause block_ = {};
};

// One thread's lease context. Make and use it on the same thread.
class Participant {
 public:
  explicit Participant(KivSdWritePause* pause) { lease_ = {{}, pause, ctx_, 0}; }
  ~Participant() { EXPECT_EQ(KivRWLockFreeQNodes(&lease_.locks), KIV_ST_OK); }
  Participant(const Participant&) = delete;
  Participant& operator=(const Participant&) = delete;

  operator KivSdWriteLease*() { return &lease_; }
  KivSdWriteLease* operator->() { return &lease_; }
  Context& ctx() { return ctx_; }

 private:
  Context ctx_;
  KivSdWriteLease lease_;
};

// Waits until another thread makes the condition true. Returns false after kLimitMs.
template <typename Condition>
bool Comes(Condition condition) {
  const Stopwatch watch;
  while (!condition()) {
    if (watch.ElapsedMs() > kLimitMs) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace kiv::test

#endif
