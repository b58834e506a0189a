// Waiting and waking.
//
// The wake mutex prevents lost wake-ups. The sleeper tests `blocked` again under the mutex and
// releases the mutex only in the call that puts it to sleep. The waker clears `blocked` under the
// mutex and raises the semaphore if there is a sleeper. Failures of system calls are ignored,
// because every wait tests `blocked` again. The model checker covers this part too
// (tests/model/rwlock.pml, SLEEPING).
#include "sdrwlock/wait.h"

#include "os/critical_section.h"
#include "os/park.h"
#include "sdsync/spin.h"

namespace kiv {
namespace {

// Limits of one wait. `spinLoops` comes from the lock, the other two from the node.
struct Patience {
  int32_t spinLoops;   // spin budgets per round
  int32_t spinYields;  // yields after each round
  int32_t waitLoops;   // rounds and yields before the thread sleeps; 0 or less: never sleeps
};

class Waiter {
 public:
  Waiter(const KivRWLockNode& node, const Patience& patience) : node_(node), patience_(patience) {}

  // Spins and yields until the thread may enter or its patience is spent. Returns whether it may
  // enter.
  bool SpinAndYield() {
    while (IsBlocked(node_)) {
      if (IsSpent()) return false;
      if (Spin()) return true;
      ++rounds_;
      Yield();
    }
    return true;
  }

 private:
  bool IsSpent() const {
    return patience_.waitLoops > 0 && rounds_ + yields_ >= patience_.waitLoops;
  }

  bool Spin() const {
    for (int32_t loop = 0; loop < patience_.spinLoops; ++loop) {
      if (SpinWithinBudget([this] { return !IsBlocked(node_); })) return true;
    }
    return false;
  }

  void Yield() {
    for (int32_t i = 0; i < patience_.spinYields && !IsSpent() && IsBlocked(node_); ++i) {
      os::YieldThread();
      ++yields_;
    }
  }

  const KivRWLockNode& node_;
  const Patience patience_;
  int64_t rounds_ = 0;
  int64_t yields_ = 0;
};

// Called with the wake mutex held; releases it while sleeping and takes it again.
void WaitOnCondition(KivRWLockNode* node) {
  KivRWLockCondition& condition = node->condition;
  os::EnterCriticalSection(condition.section.opaque);
  ++condition.waiters;
  os::LeaveCriticalSection(condition.section.opaque);

  static_cast<void>(os::ReleaseAndPark(node->wakeMutex, condition.semaphore));

  os::EnterCriticalSection(condition.section.opaque);
  --condition.waiters;
  const bool lastOfMany = condition.broadcasting != 0 && condition.waiters == 0;
  os::LeaveCriticalSection(condition.section.opaque);
  if (lastOfMany) {
    static_cast<void>(os::SignalAndTake(condition.event, node->wakeMutex));
  } else {
    static_cast<void>(os::TakeParkMutex(node->wakeMutex));
  }
}

void Sleep(KivRWLockNode* node) {
  while (IsBlocked(*node)) {
    static_cast<void>(os::TakeParkMutex(node->wakeMutex));
    if (IsBlocked(*node)) {
      // relaxed: written and read under the wake mutex.
      node->sleeping.store(1, std::memory_order_relaxed);
      WaitOnCondition(node);
      node->sleeping.store(0, std::memory_order_relaxed);
    }
    static_cast<void>(os::ReleaseParkMutex(node->wakeMutex));
  }
}

void Wait(KivRWLockNode* node, const Patience& patience) {
  if (node->lock->blockingAllowed == 0) {
    // Compatibility: never yields. Such locks guard a few instructions, and a host that forbids
    // blocking has a processor for every thread.
    SpinUntil([node] { return !IsBlocked(*node); });
    return;
  }
  if (!Waiter(*node, patience).SpinAndYield()) Sleep(node);
}

bool HasSleeper(KivRWLockNode* node) {
  if (node->sleeping.load(std::memory_order_relaxed) == 0) return false;
  os::EnterCriticalSection(node->condition.section.opaque);
  const bool waits = node->condition.waiters > 0;
  os::LeaveCriticalSection(node->condition.section.opaque);
  return waits;
}

}  // namespace

void WaitAsReader(KivRWLockNode* node) {
  Wait(node, {node->lock->readerSpinLoops, node->readerSpinYields, node->readerWaitLoops});
}

void WaitAsWriter(KivRWLockNode* node) {
  Wait(node, {node->lock->writerSpinLoops, node->writerSpinYields, node->writerWaitLoops});
}

void WakeOther(KivRWLockNode* node) {
  void* mutex = node->wakeMutex;
  static_cast<void>(os::TakeParkMutex(mutex));
  if (IsBlocked(*node)) {
    const bool sleeps = HasSleeper(node);
    void* semaphore = node->condition.semaphore;
    Unblock(node);
    if (sleeps) static_cast<void>(os::Unpark(semaphore));
  }
  static_cast<void>(os::ReleaseParkMutex(mutex));
}

}  // namespace kiv
