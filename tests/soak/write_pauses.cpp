// The write pause: while it is in force, no thread writes.
#include <atomic>
#include <mutex>
#include <string>

#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr int64_t kMostSeconds = 20;  // of a pause; it is lifted within milliseconds
constexpr uint32_t kPauseMs = 2;
constexpr uint32_t kStepsPerPause = 20;

struct Pause {
  KivSdWritePause block = {};
  uint32_t file = KIV_FILE_NONE;
  std::mutex pausing;  // a host allows one pauser at a time
  std::atomic<int32_t> writing{0};
};

class WritePausesVisitor : public Visitor {
 public:
  WritePausesVisitor(Pause* pause, uint32_t place, Random* random)
      : pause_(*pause), place_(place), random_(*random) {
    lease_.pause = &pause_.block;
  }
  ~WritePausesVisitor() override {
    Done(KivRWLockFreeQNodes(&lease_.locks), "KivRWLockFreeQNodes");
  }

  void Step() override {
    if (random_.OneIn(kStepsPerPause)) return PauseWrites();
    WriteUnderLease();
    WriteByLibrary();
  }

 private:
  void PauseWrites() {
    const std::unique_lock<std::mutex> guard(pause_.pausing, std::try_to_lock);
    if (!guard.owns_lock()) return;
    Done(KivSdPauseWriteIO(&lease_, kMostSeconds), "KivSdPauseWriteIO");
    Expect(pause_.writing.load() == 0, "a pause begins when all leases are back");
    KivSdSleep(nullptr, random_.Below(kPauseMs + 1));
    Expect(pause_.writing.load() == 0, "nobody writes during a pause");
    Done(KivSdUnpauseWriteIO(&lease_), "KivSdUnpauseWriteIO");
  }

  void WriteUnderLease() {
    Done(KivSdGetWriteIOLease(&lease_), "KivSdGetWriteIOLease");
    pause_.writing.fetch_add(1);
    KivSdThreadYield(nullptr);
    pause_.writing.fetch_sub(1);
    Done(KivSdReleaseWriteIOLease(&lease_), "KivSdReleaseWriteIOLease");
  }

  void WriteByLibrary() {
    const uint32_t number = random_.Next();
    uint32_t count = 0;
    uint32_t found = 0;
    const auto offset = static_cast<uint32_t>(place_ * sizeof number);
    Done(KivSdLeasedFilePWrite(&lease_, pause_.file, &number, offset, sizeof number, &count,
                               nullptr),
         "KivSdLeasedFilePWrite");
    Done(KivSdFilePRead(nullptr, pause_.file, &found, offset, sizeof found, &count),
         "KivSdFilePRead");
    Expect(found == number, "a leased write reaches the file");
  }

  Pause& pause_;
  const uint32_t place_;
  Random& random_;
  KivSdWriteLease lease_ = {};
};

class WritePauses : public Subsystem {
 public:
  explicit WritePauses(const World& world) : path_(world.folder + "/leased") {
    Done(KivSdEventCreate(nullptr, &pause_.block.drained), "KivSdEventCreate");
    Done(KivSdEventCreate(nullptr, &pause_.block.resume), "KivSdEventCreate");
    Done(KivRWLockInit(nullptr, 0, &pause_.block.lock, 1, 3), "KivRWLockInit");
    Done(KivSdFileOpen(nullptr, path_.c_str(),
                       KIV_FILEO_READ_WRITE | KIV_FILEO_CREATE | KIV_FILEO_BINARY,
                       KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE, &pause_.file),
         "KivSdFileOpen");
  }
  ~WritePauses() override {
    Done(KivSdFileClose(nullptr, pause_.file), "KivSdFileClose");
    Done(KivSdEventClose(nullptr, &pause_.block.drained), "KivSdEventClose");
    Done(KivSdEventClose(nullptr, &pause_.block.resume), "KivSdEventClose");
  }

  std::unique_ptr<Visitor> Enter(uint32_t place, Random* random) override {
    return std::make_unique<WritePausesVisitor>(&pause_, place, random);
  }

  void Check() override {
    Expect(pause_.block.leases == 0, "all leases are back");
    Expect(pause_.block.paused == 0, "no pause is left in force");
  }

 private:
  const std::string path_;
  Pause pause_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeWritePauses(const World& world) {
  return std::make_unique<WritePauses>(world);
}

}  // namespace kiv::soak
