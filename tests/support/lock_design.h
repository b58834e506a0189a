// What the tests of both kinds of spinlock share: the two designs, and looking at a lock's bytes
// while other threads use it.
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
  uint8_t flag;  // of KivSdSetHardwareAcceleration
};

constexpr LockDesign kTestAndSet = {"TestAndSet", 0};
constexpr LockDesign kTicket = {"Ticket", 1};
constexpr uint8_t kAnyOtherFlag = 0x80;  // stands for tickets too

inline std::string DesignName(const testing::TestParamInfo<LockDesign>& info) {
  return info.param.name;
}

// A field of a lock, by its place in the record.
template <typename T>
std::atomic_ref<T> FieldOf(void* lock, size_t offset) {
  return std::atomic_ref<T>(*reinterpret_cast<T*>(static_cast<unsigned char*>(lock) + offset));
}

// Waits for what another thread is sure to do; the program's time limit ends a wait for what it
// does not do.
template <typename Condition>
void Await(Condition holds) {
  while (!holds()) std::this_thread::yield();
}

// The design is in force for the test's time, and the budget of spinning is small, so that waiters
// on a busy machine yield to the one they wait for.
class LockDesignTest : public testing::TestWithParam<LockDesign> {
 protected:
  static constexpr int32_t kSmallBudget = 20;

  LockDesignTest() { KivSdSetHardwareAcceleration(GetParam().flag); }
  ~LockDesignTest() override { KivSdSetHardwareAcceleration(0); }

  // After the test's lock is made, for the first of a process measures the budget.
  void SetUp() override { KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kSmallBudget; }

  static bool UsesTickets() { return GetParam().flag != 0; }
};

}  // namespace kiv::test

#endif
