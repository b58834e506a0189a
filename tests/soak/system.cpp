// Queries about machine, process and time. None of them touches the console.
#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kQueries = 8;

class SystemVisitor : public Visitor {
 public:
  SystemVisitor(const World& /*world*/, uint32_t /*place*/, Random* random) : random_(*random) {}

  void Step() override {
    switch (random_.Below(kQueries)) {
      case 0:
        return AskProcessor();
      case 1:
        return AskMemory();
      case 2:
        return AskDrives();
      case 3:
        return AskTime();
      case 4:
        return AskUser();
      case 5:
        return AskLimits();
      case 6:
        return AskProcess();
      default:
        return AskTimer();
    }
  }

 private:
  static void AskProcessor() {
    KivSdProcessorInfo info = {};
    Done(KivSdCPUInfoGet(nullptr, &info), "KivSdCPUInfoGet");
    Expect(info.count >= 1 && info.count == KivSdCPUCountGet(), "the machine has processors");
  }

  static void AskMemory() {
    KivSdPhysMemInfo memory = {};
    uint64_t virtualKiB = 0;
    Done(KivSdPhysMemInfoGet(nullptr, &memory), "KivSdPhysMemInfoGet");
    Expect(memory.usedKiB + memory.availableKiB == memory.totalKiB,
           "used and available memory are the whole memory");
    Done(KivSdAvailVirtMemGet(nullptr, &virtualKiB), "KivSdAvailVirtMemGet");
  }

  static void AskDrives() {
    KivSdDrives drives = {};
    Done(KivSdDrivesGet(nullptr, &drives), "KivSdDrivesGet");
    Expect(drives.count >= 1 && drives.mask != 0, "the machine has drives");
  }

  static void AskTime() {
    uint64_t seconds = 0;
    KivSdLocalTime local = {};
    char text[64] = "";
    Done(KivSdTime(nullptr, &seconds), "KivSdTime");
    Done(KivSdLocalTimeGet(nullptr, static_cast<int64_t>(seconds), &local), "KivSdLocalTimeGet");
    Expect(local.time == static_cast<uint32_t>(seconds), "a local time keeps its seconds");
    Done(KivSdCTime(nullptr, static_cast<int64_t>(seconds), sizeof text, text), "KivSdCTime");
  }

  static void AskUser() {
    char name[KIV_LOGIN_NAME_MAX] = "";
    uint32_t length = 0;
    Done(KivSdGetSessionLoginUsername(nullptr, name, &length), "KivSdGetSessionLoginUsername");
    Expect(name[0] != '\0', "the user has a name");
  }

  static void AskLimits() {
    uint32_t pageBytes = 0;
    uint64_t most = 0;
    Done(KivSdPageSizeGet(nullptr, &pageBytes), "KivSdPageSizeGet");
    Done(KivSdMaxAllocGet(nullptr, &most), "KivSdMaxAllocGet");
    Expect(pageBytes >= 4096 && most != 0, "the machine has pages");
  }

  static void AskProcess() {
    uint32_t id = 0;
    KivHandle thread = nullptr;
    Done(KivSdProcessIdGet(nullptr, &id), "KivSdProcessIdGet");
    Done(KivSdThreadHandleGet(nullptr, &thread), "KivSdThreadHandleGet");
    Expect(id != 0 && thread != nullptr, "process and thread can be named");
    Done(KivSdThreadDelete(nullptr, &thread), "KivSdThreadDelete");
  }

  static void AskTimer() {
    uint32_t before = 0;
    uint32_t after = 0;
    Done(KivSdGetFastTimer(nullptr, &before), "KivSdGetFastTimer");
    Done(KivSdGetFastTimer(nullptr, &after), "KivSdGetFastTimer");
    Expect(after - before < UINT32_MAX / 2, "the timer does not go back");
  }

  Random& random_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeSystem(const World& world) {
  return std::make_unique<Separate<SystemVisitor>>(world);
}

}  // namespace kiv::soak
