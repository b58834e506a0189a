// Mutexes, semaphores and sets that all processes share by name. A killed process leaves a mutex
// abandoned and takes tokens of a semaphore with it.
#include <string>

#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kNames = 3;
constexpr int32_t kTokens = 2;
constexpr uint16_t kMembers = 3;
constexpr uint32_t kPatienceMs = 60'000;
constexpr uint32_t kShortMs = 5;

struct SharedPair {
  volatile uint64_t first;
  volatile uint64_t second;
};

class NamedObjectsVisitor : public Visitor {
 public:
  NamedObjectsVisitor(const World& world, uint32_t /*place*/, Random* random)
      : prefix_(world.prefix), random_(*random) {}

  void Step() override {
    const std::string name = prefix_ + "-" + std::to_string(random_.Below(kNames));
    switch (random_.Below(3)) {
      case 0:
        return UseMutex(name);
      case 1:
        return UseSemaphore(name + "-semaphore");
      default:
        return UseSet(name + "-set");
    }
  }

 private:
  // The mutex guards a pair in a shared block. After its owner was killed, the caller owns the mutex
  // in spite of the status, and repairs the pair.
  void UseMutex(const std::string& name) {
    KivHandle mutex = nullptr;
    Done(KivSdMutexCreate(nullptr, (name + "-mutex").c_str(), &mutex), "KivSdMutexCreate");
    const bool isWhole = DoneOr(KivSdMutexRequest(nullptr, &mutex, kPatienceMs),
                                KIV_ST_MUTEX_REQUEST, "KivSdMutexRequest");
    UsePair(name + "-pair", isWhole);
    Done(KivSdMutexClear(nullptr, &mutex), "KivSdMutexClear");
    Done(KivSdMutexClose(nullptr, &mutex), "KivSdMutexClose");
  }

  static void UsePair(const std::string& name, bool isWhole) {
    KivHandle mapping = nullptr;
    uint32_t id = 0;
    void* view = nullptr;
    Done(KivSdSharedMemAlloc(nullptr, name.c_str(), sizeof(SharedPair),
                             KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                             KIV_SHAREDMEM_PAGES_READ_WRITE, &mapping, &id, &view),
         "KivSdSharedMemAlloc");
    auto* pair = static_cast<SharedPair*>(view);
    if (!isWhole) pair->second = pair->first;
    Expect(pair->first == pair->second, "a named mutex admits one thread of all processes");
    pair->first = pair->first + 1;
    pair->second = pair->second + 1;
    Expect(pair->first == pair->second, "a named mutex admits one thread of all processes");
    Done(KivSdSharedMemFree(nullptr, mapping, view), "KivSdSharedMemFree");
  }

  // A time-out stands for tokens that killed processes had: it puts one back.
  void UseSemaphore(const std::string& name) {
    KivHandle semaphore = nullptr;
    Done(KivSdCntSemCreate(nullptr, name.c_str(), kTokens, kTokens, &semaphore),
         "KivSdCntSemCreate");
    KivHandle second = nullptr;
    Done(KivSdCntSemOpen(nullptr, name.c_str(), &second), "KivSdCntSemOpen");
    DoneOr(KivSdCntSemRequest(nullptr, &semaphore, kShortMs), KIV_ST_SEM_TIMEOUT,
           "KivSdCntSemRequest");
    DoneOr(KivSdCntSemClear(nullptr, &second, 1, nullptr), KIV_ST_SEM_OVERFLOW, "KivSdCntSemClear");
    Done(KivSdCntSemClose(nullptr, &semaphore), "KivSdCntSemClose");
    Done(KivSdCntSemClose(nullptr, &second), "KivSdCntSemClose");
  }

  void UseSet(const std::string& name) {
    const int32_t ones[kMembers] = {1, 1, 1};
    KivSdShSemSet* set = nullptr;
    Done(KivSdShSemSetCreate(nullptr, name.c_str(), kMembers, 0, ones, ones, &set),
         "KivSdShSemSetCreate");
    const auto member = static_cast<uint16_t>(random_.Below(kMembers));
    DoneOr(KivSdShSemSetRequest(nullptr, member, set, kShortMs), KIV_ST_SEM_TIMEOUT,
           "KivSdShSemSetRequest");
    DoneOr(KivSdShSemSetClear(nullptr, member, set), KIV_ST_SEM_CLEAR, "KivSdShSemSetClear");
    Done(KivSdShSemSetClose(nullptr, set), "KivSdShSemSetClose");
  }

  const std::string prefix_;
  Random& random_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeNamedObjects(const World& world) {
  return std::make_unique<Separate<NamedObjectsVisitor>>(world);
}

}  // namespace kiv::soak
