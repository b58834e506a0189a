// Semaphores, mutexes, critical sections and events without names.
#include <atomic>

#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/guarded_pair.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr int32_t kTokens = 3;
constexpr uint32_t kPatienceMs = 60'000;

struct Objects {
  KivHandle tokens = nullptr;
  KivHandle mutex = nullptr;
  KivHandle gate = nullptr;    // open: nobody is behind it
  KivHandle signal = nullptr;  // a standard event, used like the gate
  KivSdCritSec section = {};
  std::atomic<int32_t> holders{0};
  GuardedPair pairs[4];
};

class KernelObjectsVisitor : public Visitor {
 public:
  KernelObjectsVisitor(Objects* objects, Random* random) : objects_(*objects), random_(*random) {
    Done(KivSdCountingEventCreate(nullptr, &own_, 0), "KivSdCountingEventCreate");
  }
  ~KernelObjectsVisitor() override {
    Done(KivSdCountingEventClose(nullptr, &own_), "KivSdCountingEventClose");
  }

  void Step() override {
    switch (random_.Below(6)) {
      case 0:
        return UseToken();
      case 1:
        return UseMutex();
      case 2:
        return UseSection();
      case 3:
        return UseGate();
      case 4:
        return UseSignal();
      default:
        return CountEvents();
    }
  }

 private:
  void UseToken() {
    Done(KivSdCntSemRequest(nullptr, &objects_.tokens, kPatienceMs), "KivSdCntSemRequest");
    Expect(objects_.holders.fetch_add(1) < kTokens, "a semaphore admits as many as it counts");
    objects_.holders.fetch_sub(1);
    Done(KivSdCntSemClear(nullptr, &objects_.tokens, 1, nullptr), "KivSdCntSemClear");
  }

  void UseMutex() {
    Done(KivSdMutexRequest(nullptr, &objects_.mutex, kPatienceMs), "KivSdMutexRequest");
    Done(KivSdMutexRequest(nullptr, &objects_.mutex, 0), "KivSdMutexRequest of the owner");
    objects_.pairs[0].Write();
    Done(KivSdMutexClear(nullptr, &objects_.mutex), "KivSdMutexClear");
    objects_.pairs[0].Write();
    Done(KivSdMutexClear(nullptr, &objects_.mutex), "KivSdMutexClear");
  }

  void UseSection() {
    Done(KivSdCritSecEnter(nullptr, &objects_.section), "KivSdCritSecEnter");
    objects_.pairs[1].Write();
    Done(KivSdCritSecExit(nullptr, &objects_.section), "KivSdCritSecExit");
  }

  void UseGate() {
    Done(KivSdEventWait(nullptr, &objects_.gate, kPatienceMs), "KivSdEventWait");
    objects_.pairs[2].Write();
    Done(KivSdEventClear(nullptr, &objects_.gate), "KivSdEventClear");
  }

  void UseSignal() {
    Done(KivSdStdEventTimedWait(nullptr, &objects_.signal, kPatienceMs), "KivSdStdEventTimedWait");
    objects_.pairs[3].Write();
    Done(KivSdStdEventSet(nullptr, &objects_.signal), "KivSdStdEventSet");
  }

  // A counting event that only this thread uses has exactly the counts that were set.
  void CountEvents() {
    const uint32_t count = random_.Between(1, 5);
    for (uint32_t at = 0; at < count; ++at) {
      Done(KivSdCountingEventSet(nullptr, &own_), "KivSdCountingEventSet");
    }
    for (uint32_t at = 0; at < count; ++at) {
      Done(KivSdCountingEventTimedWait(nullptr, &own_, 0), "KivSdCountingEventTimedWait");
    }
    Expect(KivSdCountingEventTimedWait(nullptr, &own_, random_.Below(3)) == KIV_ST_SEM_TIMEOUT,
           "a counting event lets one through for each count");
  }

  Objects& objects_;
  Random& random_;
  KivHandle own_ = nullptr;
};

class KernelObjects : public Subsystem {
 public:
  KernelObjects() {
    Done(KivSdCntSemCreate(nullptr, nullptr, kTokens, kTokens, &objects_.tokens),
         "KivSdCntSemCreate");
    Done(KivSdMutexCreate(nullptr, nullptr, &objects_.mutex), "KivSdMutexCreate");
    Done(KivSdEventCreate(nullptr, &objects_.gate), "KivSdEventCreate");
    Done(KivSdStdEventCreate(nullptr, &objects_.signal), "KivSdStdEventCreate");
    Done(KivSdStdEventSet(nullptr, &objects_.signal), "KivSdStdEventSet");
    Done(KivSdCritSecInit(nullptr, &objects_.section), "KivSdCritSecInit");
  }
  ~KernelObjects() override {
    Done(KivSdCntSemClose(nullptr, &objects_.tokens), "KivSdCntSemClose");
    Done(KivSdMutexClose(nullptr, &objects_.mutex), "KivSdMutexClose");
    Done(KivSdEventClose(nullptr, &objects_.gate), "KivSdEventClose");
    Done(KivSdStdEventClose(nullptr, &objects_.signal), "KivSdStdEventClose");
    Done(KivSdCritSecDelete(nullptr, &objects_.section), "KivSdCritSecDelete");
  }

  std::unique_ptr<Visitor> Enter(uint32_t /*place*/, Random* random) override {
    return std::make_unique<KernelObjectsVisitor>(&objects_, random);
  }

  void Check() override {
    for (const GuardedPair& pair : objects_.pairs) pair.Read();
    int32_t previous = 0;
    Done(KivSdCntSemRequest(nullptr, &objects_.tokens, 0), "KivSdCntSemRequest of a free token");
    Done(KivSdCntSemClear(nullptr, &objects_.tokens, 1, &previous), "KivSdCntSemClear");
    Expect(previous == kTokens - 1, "all tokens of a semaphore are back");
  }

 private:
  Objects objects_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeKernelObjects(const World& /*world*/) {
  return std::make_unique<KernelObjects>();
}

}  // namespace kiv::soak
