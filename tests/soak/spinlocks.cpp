// Both kinds of spinlocks, counting and not counting, in the design of the process.
#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/guarded_pair.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr int kRounds = 20;

struct Locks {
  KivSdSpinlock* counting = KivSdSpinlockCreate(nullptr, 0);
  KivSdSpinlock* simple = KivSdSpinlockCreate(nullptr, 0);
  KivSdLWSpinlock light = {};
  GuardedPair pairs[3];
};

class SpinlocksVisitor : public Visitor {
 public:
  explicit SpinlocksVisitor(Locks* locks) : locks_(*locks) {
    Done(KivSdThreadIdGet(nullptr, &thread_), "KivSdThreadIdGet");
  }

  void Step() override {
    for (int round = 0; round < kRounds; ++round) {
      UseCounting();
      KivSdSpinlockAcquireNonReentrant(locks_.simple, thread_);
      locks_.pairs[1].Write();
      KivSdSpinlockReleaseNonReentrant(locks_.simple);
      KivSdLWSpinlockAcquire(&locks_.light);
      locks_.pairs[2].Write();
      KivSdLWSpinlockRelease(&locks_.light);
    }
    MakeOne();
  }

 private:
  void UseCounting() {
    KivSdSpinlockAcquire(locks_.counting, thread_);
    KivSdSpinlockAcquire(locks_.counting, thread_);
    locks_.pairs[0].Write();
    Expect(KivSdSpinlockOwner(locks_.counting, thread_) == 1, "the holder owns its spinlock");
    Expect(KivSdGetSpinlockRefCount(locks_.counting) == 2, "a spinlock counts its owner's entries");
    KivSdSpinlockRelease(locks_.counting);
    locks_.pairs[0].Write();
    KivSdSpinlockRelease(locks_.counting);
  }

  void MakeOne() const {
    KivSdSpinlock* lock = KivSdSpinlockCreate(nullptr, 0);
    Expect(lock != nullptr, "a spinlock can be made");
    KivSdSpinlockAcquire(lock, thread_);
    KivSdSpinlockRelease(lock);
    KivSdSpinlockDestroy(nullptr, lock);
  }

  Locks& locks_;
  uint32_t thread_ = 0;
};

class Spinlocks : public Subsystem {
 public:
  Spinlocks() { Done(KivSdLWSpinlockInit(&locks_.light), "KivSdLWSpinlockInit"); }
  ~Spinlocks() override {
    KivSdLWSpinlockDestroy(&locks_.light);
    KivSdSpinlockDestroy(nullptr, locks_.counting);
    KivSdSpinlockDestroy(nullptr, locks_.simple);
  }

  std::unique_ptr<Visitor> Enter(uint32_t /*place*/, Random* /*random*/) override {
    return std::make_unique<SpinlocksVisitor>(&locks_);
  }

  void Check() override {
    for (const GuardedPair& pair : locks_.pairs) pair.Read();
    Expect(KivSdGetSpinlockRefCount(locks_.counting) == 0, "a released spinlock has no owner");
  }

 private:
  Locks locks_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeSpinlocks(const World& /*world*/) {
  return std::make_unique<Spinlocks>();
}

}  // namespace kiv::soak
