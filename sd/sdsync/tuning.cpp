// The tuning variables, and how they are read from the environment.
#include "sdsync/tuning.h"

#include <cstdio>
#include <cstdlib>

#include "os/environment.h"
#include "sdsync/calibrating_thread.h"

using namespace kiv;

int32_t KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = 20000;

namespace kiv {

WaitLimits spinlockLimits = {1, 1, 0};
WaitLimits readerLimits = {1, 0, 1};
WaitLimits writerLimits = {1, 0, 1};

}  // namespace kiv

namespace {

constexpr char kDisplay[] = "KIV_DISPLAY_LOCKCONFIG";

// How a value that is too small is corrected.
struct Correction {
  int32_t least;    // smallest valid value
  int32_t instead;  // replaces a smaller value
};
constexpr Correction kAtLeastOne = {1, 1};
constexpr Correction kNegativeIsOne = {0, 1};
constexpr Correction kNegativeIsZero = {0, 0};
constexpr Correction kAsGiven = {INT32_MIN, INT32_MIN};

struct Variable {
  const char* name;
  Atomic<int32_t>* value;
  Correction correction;
};

// In the order in which they are read and displayed. Compatibility: 0 loops or yields are invalid
// for spinlocks but valid for reader-writer locks, and a spinlock's wait loops are not checked.
// Hosts have set these variables with this meaning.
const Variable kVariables[] = {
    {"KIV_SPINLOCK_MAXSPINLOOPS", &spinlockLimits.spinLoops, kAtLeastOne},
    {"KIV_SPINLOCK_MAXSPINYIELDS", &spinlockLimits.spinYields, kAtLeastOne},
    {"KIV_SPINLOCK_MAXWAITLOOPS", &spinlockLimits.waitLoops, kAsGiven},
    {"KIV_RWLOCK_RMAXSPINLOOPS", &readerLimits.spinLoops, kNegativeIsOne},
    {"KIV_RWLOCK_RMAXSPINYIELDS", &readerLimits.spinYields, kNegativeIsZero},
    {"KIV_RWLOCK_RMAXWAITLOOPS", &readerLimits.waitLoops, kNegativeIsOne},
    {"KIV_RWLOCK_WMAXSPINLOOPS", &writerLimits.spinLoops, kNegativeIsOne},
    {"KIV_RWLOCK_WMAXSPINYIELDS", &writerLimits.spinYields, kNegativeIsZero},
    {"KIV_RWLOCK_WMAXWAITLOOPS", &writerLimits.waitLoops, kNegativeIsOne},
};

// Set after everything has been read. Two first callers may both read; the outcome is the same.
Atomic<bool> environmentRead{false};

void ReadVariable(const Variable& variable) {
  const char* text = os::EnvironmentValue(variable.name);
  if (text == nullptr) return;
  const auto given = static_cast<int32_t>(std::atol(text));
  const Correction& correction = variable.correction;
  variable.value->store(given < correction.least ? correction.instead : given,
                        std::memory_order_relaxed);
  if (variable.value != &spinlockLimits.waitLoops) return;
  // Compatibility: reading the wait loops re-applies a lower limit of 0 to the spin loops. These
  // are at least 1 by then, so the check has no effect.
  if (spinlockLimits.spinLoops.load(std::memory_order_relaxed) <= 0) {
    spinlockLimits.spinLoops.store(0, std::memory_order_relaxed);
  }
}

void Display() {
  for (const Variable& variable : kVariables) {
    std::printf("%s=%ld\n", variable.name,
                static_cast<long>(variable.value->load(std::memory_order_relaxed)));
  }
}

}  // namespace

void KivSyncEnvInit() {
  // acquire: pairs with the release below; a caller that finds the flag set sees the values.
  if (environmentRead.load(std::memory_order_acquire)) return;
  // A lease guard may call this again during the measurement. The locks that it creates use the
  // current budget and limits.
  if (CalibratingThread::IsCurrent()) return;
  int32_t limit = 0;
  // If the measurement fails, the budget stays unchanged.
  static_cast<void>(KivGetSpinUpperLimit(&limit));
  for (const Variable& variable : kVariables) ReadVariable(variable);
  if (os::EnvironmentValue(kDisplay) != nullptr) Display();
  environmentRead.store(true, std::memory_order_release);
}

void KivSdSetHardwareAcceleration(uint8_t flag) {
  hardwareAcceleration.store(flag, std::memory_order_relaxed);
}

uint32_t KivSdGetSpinlockCount() { return 0; }

void* KivSdGetFirstAllocSpinlock() { return nullptr; }
