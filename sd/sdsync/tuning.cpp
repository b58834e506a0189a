// The tuning variables, and reading them from the environment.
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

constexpr std::memory_order kRelaxed = std::memory_order_relaxed;
constexpr char kDisplay[] = "KIV_DISPLAY_LOCKCONFIG";

// What becomes of a value that a limit cannot have.
struct Correction {
  int32_t least;    // that is taken as it is
  int32_t instead;  // of a smaller one
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

// In the order in which they are read and shown. Kept: 0 is no count of loops or yields for a
// spinlock, is one for a reader-writer lock, and a spinlock's wait loops are taken unchecked.
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

// Set when all is read, and not before: two first callers may both read, with one outcome.
Atomic<bool> environmentRead{false};

void ReadVariable(const Variable& variable) {
  const char* text = os::EnvironmentValue(variable.name);
  if (text == nullptr) return;
  const auto given = static_cast<int32_t>(std::atol(text));
  const Correction& correction = variable.correction;
  variable.value->store(given < correction.least ? correction.instead : given, kRelaxed);
  if (variable.value != &spinlockLimits.waitLoops) return;
  // Kept: reading the wait loops looks at the spin loops again. They are at least 1 by then, so
  // that nothing comes of it.
  if (spinlockLimits.spinLoops.load(kRelaxed) <= 0) spinlockLimits.spinLoops.store(0, kRelaxed);
}

void Display() {
  for (const Variable& variable : kVariables) {
    std::printf("%s=%ld\n", variable.name, static_cast<long>(variable.value->load(kRelaxed)));
  }
}

}  // namespace

void KivSyncEnvInit() {
  // acquire, and release below: who finds it read sees what was read.
  if (environmentRead.load(std::memory_order_acquire)) return;
  // A lease guard may come here again from inside the measurement; its locks then have the budget
  // and the limits as they stand.
  if (CalibratingThread::IsCurrent()) return;
  int32_t limit = 0;
  // A machine that cannot be measured keeps the budget that it had.
  static_cast<void>(KivGetSpinUpperLimit(&limit));
  for (const Variable& variable : kVariables) ReadVariable(variable);
  if (os::EnvironmentValue(kDisplay) != nullptr) Display();
  environmentRead.store(true, std::memory_order_release);
}

void KivSdSetHardwareAcceleration(uint8_t flag) { hardwareAcceleration.store(flag, kRelaxed); }

uint32_t KivSdGetSpinlockCount() { return 0; }

void* KivSdGetFirstAllocSpinlock() { return nullptr; }
