// Reader-writer locks: one that only spins and one whose waiters sleep, taken by readers and
// writers, also again by their holder.
#include "kivsdu/rwlock.h"
#include "kivsdu/status.h"
#include "soak/check.h"
#include "soak/guarded_pair.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr int kRounds = 10;

struct GuardedLock {
  KivRWLock lock = {};
  GuardedPair pair;
};

class RWLocksVisitor : public Visitor {
 public:
  RWLocksVisitor(GuardedLock* locks, Random* random) : locks_(locks), random_(*random) {}
  ~RWLocksVisitor() override { Done(KivRWLockFreeQNodes(&table_), "KivRWLockFreeQNodes"); }

  void Step() override {
    for (int round = 0; round < kRounds; ++round) {
      GuardedLock& chosen = locks_[random_.Below(2)];
      if (random_.OneIn(4)) {
        Write(&chosen);
      } else {
        Read(&chosen);
      }
    }
  }

 private:
  void Write(GuardedLock* chosen) {
    Done(KivSdStartWrite(nullptr, &table_, &chosen->lock), "KivSdStartWrite");
    chosen->pair.Write();
    Done(KivSdStartRead(nullptr, &table_, &chosen->lock), "KivSdStartRead of a writer");
    Done(KivSdEndRW(nullptr, &table_, &chosen->lock), "KivSdEndRW");
    chosen->pair.Write();
    Done(KivSdEndRW(nullptr, &table_, &chosen->lock), "KivSdEndRW");
  }

  void Read(GuardedLock* chosen) {
    Done(KivSdStartRead(nullptr, &table_, &chosen->lock), "KivSdStartRead");
    chosen->pair.Read();
    Expect(KivSdModeRW(nullptr, &table_, &chosen->lock) == KIV_RWLOCK_READ,
           "a reader holds its lock for reading");
    chosen->pair.Read();
    Done(KivSdEndRW(nullptr, &table_, &chosen->lock), "KivSdEndRW");
  }

  GuardedLock* locks_;
  Random& random_;
  KivRWLockTable table_ = {};
};

class RWLocks : public Subsystem {
 public:
  RWLocks() {
    for (uint8_t mayBlock = 0; mayBlock < 2; ++mayBlock) {
      Done(KivRWLockInit(nullptr, 0, &locks_[mayBlock].lock, mayBlock, mayBlock), "KivRWLockInit");
    }
  }

  std::unique_ptr<Visitor> Enter(uint32_t /*place*/, Random* random) override {
    return std::make_unique<RWLocksVisitor>(locks_, random);
  }

  void Check() override {
    for (const GuardedLock& guarded : locks_) {
      guarded.pair.Read();
      Expect(guarded.lock.countAndFlags == 0, "a released reader-writer lock is free");
    }
  }

 private:
  GuardedLock locks_[2];
};

}  // namespace

std::unique_ptr<Subsystem> MakeRWLocks(const World& /*world*/) {
  return std::make_unique<RWLocks>();
}

}  // namespace kiv::soak
