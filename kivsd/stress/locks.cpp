// The locks: every kind guards two counters, which are equal whenever the lock is free.
#include <array>

#include "failure.h"
#include "kivsdu/mutex.h"
#include "kivsdu/rwlock.h"
#include "kivsdu/spinlock.h"
#include "kivsdu/sync.h"
#include "kivsdu/thread.h"
#include "stress/subject.h"

namespace kivsd {
namespace {

constexpr uint32_t kRounds = 64;  // between two looks at the clock
constexpr uint32_t kFences = 4;   // between the two counters
constexpr uint8_t kMaySleep = 1;
constexpr int32_t kSlot = 0;

// Plain integers: a lock that lets two threads in loses counts.
struct Pair {
  uint64_t first = 0;
  uint64_t second = 0;
};

enum Lock : uint32_t { kSpin, kLightSpin, kCritical, kReaderWriter, kLocks };
constexpr std::array<const char*, kLocks> kNames = {"spinlock", "lightweight spinlock",
                                                    "critical section", "reader-writer lock"};

class LockSubject : public StressSubject {
 public:
  LockSubject(StressRun* run, uint32_t threads) : StressSubject("locks", run), threads_(threads) {
    spin_ = KivSdSpinlockCreate(nullptr, 0);
    if (spin_ == nullptr) throw Failure("no memory for a spinlock; free memory and start again");
    KivSdLWSpinlockInit(&lightSpin_);
    KivSdCritSecInit(nullptr, &critical_);
    KivRWLockInit(nullptr, 0, &readerWriter_, kMaySleep, kSlot);
  }

  ~LockSubject() override {
    KivSdSpinlockDestroy(nullptr, spin_);
    KivSdLWSpinlockDestroy(&lightSpin_);
    KivSdCritSecDelete(nullptr, &critical_);
  }

  uint32_t ThreadCount() const override { return threads_; }

  void Work(uint32_t thread) override {
    Random random(thread + 1);
    KivRWLockTable table = {};
    uint32_t id = 0;
    KivSdThreadIdGet(nullptr, &id);
    while (!run()->IsOver()) {
      for (uint32_t i = 0; i < kRounds; ++i) UseOne(Below(&random, kLocks), id, &table, &random);
      Count(kRounds);
    }
    KivRWLockFreeQNodes(&table);
  }

  void CheckAtEnd() override {
    for (uint32_t lock = 0; lock < kLocks; ++lock) {
      // relaxed: all threads have ended.
      const uint64_t expected = changes_[lock].load(std::memory_order_relaxed);
      if (pairs_[lock].first != expected) {
        Fail(std::string("the ") + kNames[lock] + " lost " +
             std::to_string(expected - pairs_[lock].first) + " changes");
      }
    }
  }

 private:
  void UseOne(uint32_t lock, uint32_t id, KivRWLockTable* table, Random* random) {
    switch (lock) {
      case kSpin:
        KivSdSpinlockAcquire(spin_, id);
        Change(kSpin);
        KivSdSpinlockRelease(spin_);
        break;
      case kLightSpin:
        KivSdLWSpinlockAcquire(&lightSpin_);
        Change(kLightSpin);
        KivSdLWSpinlockRelease(&lightSpin_);
        break;
      case kCritical:
        KivSdCritSecEnter(nullptr, &critical_);
        Change(kCritical);
        KivSdCritSecExit(nullptr, &critical_);
        break;
      default:
        UseReaderWriter(table, Below(random, 4) == 0);
    }
  }

  void UseReaderWriter(KivRWLockTable* table, bool write) {
    const uint32_t status = write ? KivSdStartWrite(nullptr, table, &readerWriter_)
                                  : KivSdStartRead(nullptr, table, &readerWriter_);
    if (!Succeeded(status, "take the reader-writer lock")) return;
    if (write) {
      Change(kReaderWriter);
    } else {
      Check(kReaderWriter);
    }
    Succeeded(KivSdEndRW(nullptr, table, &readerWriter_), "release the reader-writer lock");
  }

  void Check(uint32_t lock) {
    if (pairs_[lock].first == pairs_[lock].second) return;
    Fail(std::string("two threads were inside the ") + kNames[lock] + " at once");
  }

  void Change(uint32_t lock) {
    Check(lock);
    ++pairs_[lock].first;
    changes_[lock].fetch_add(1, std::memory_order_relaxed);  // read when all threads have ended
    for (uint32_t i = 0; i < kFences; ++i) KivSdMemoryBarrier();  // time for another to come in
    ++pairs_[lock].second;
  }

  const uint32_t threads_;
  KivSdSpinlock* spin_ = nullptr;
  KivSdLWSpinlock lightSpin_ = {};
  KivSdCritSec critical_ = {};
  KivRWLock readerWriter_ = {};
  std::array<Pair, kLocks> pairs_ = {};  // each guarded by its lock
  std::array<std::atomic<uint64_t>, kLocks> changes_ = {};
};

}  // namespace

std::unique_ptr<StressSubject> MakeLockSubject(StressRun* run, uint32_t threads) {
  return std::make_unique<LockSubject>(run, threads);
}

}  // namespace kivsd
