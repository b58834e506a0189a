// Shared by the tests of both kinds of spinlock: the two lock designs, and access to a lock's bytes
// while other threads use the lock.
#ifndef KIV_TESTS_LOCK_DESIGN_H
#define KIV_TESTS_LOCK_DESIGN_H

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

#include "kivsdu/sync.h"

namespace kiv::test {

struct LockDesign {
  const char* name;
  uint8_t flag;  // for KivSdSetHardwareAcceleration
};

constexpr LockDesign kTestAndSet = {"TestAndSet", 0};
constexpr LockDesign kTicket = {"Ticket", 1};
constexpr uint8_t kAnyOtherFlag = 0x80;  // selects tickets too

inline std::string DesignName(const testing::TestParamInfo<LockDesign>& info) {
  return info.param.name;
}

// The field at an offset in a lock's record.
template <typename T>
std::atomic_ref<T> FieldOf(void* lock, size_t offset) {
  return std::atomic_ref<T>(*reinterpret_cast<T*>(static_cast<unsigned char*>(lock) + offset));
}

// Waits until another thread makes the condition true. If it never does, the program's time limit
// ends the test.
template <typename Condition>
void Await(Condition holds) {
  while (!holds()) std::this_thread::yield();
}

// Selects the design during the test, and a small spin budget, so that on a busy machine waiters
// yield to the owner.
class LockDesignTest : public testing::TestWithParam<LockDesign> {
 protected:
  static constexpr int32_t kSmallBudget = 20;

  LockDesignTest() { KivSdSetHardwareAcceleration(GetParam().flag); }
  ~LockDesignTest() override { KivSdSetHardwareAcceleration(0); }

  // Runs after the test's lock is made: the first lock of a process measures the budget.
  void SetUp() override { KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kSmallBudget; }

  static bool UsesTickets() { return GetParam().flag != 0; }
};

}  // namespace kiv::test

#endif
