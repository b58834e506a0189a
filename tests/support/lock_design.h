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

// Every value of the flag but 0 stands for tickets.
constexpr LockDesign kLockDesigns[] = {{"TestAndSet", 0}, {"Ticket", 1}, {"TicketByAnyFlag", 0x80}};

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

  LockDesignTest() {
    KivSyncEnvInit();
    KivSdSetHardwareAcceleration(GetParam().flag);
    KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = kSmallBudget;
  }
  ~LockDesignTest() override { KivSdSetHardwareAcceleration(0); }

  static bool UsesTickets() { return GetParam().flag != 0; }
};

}  // namespace kiv::test

#endif
