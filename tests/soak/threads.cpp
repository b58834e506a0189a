// Threads that a thread starts and joins, with their contexts.
#include <atomic>

#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kPatienceMs = 60'000;

// The started thread's view of its own identity.
struct Started {
  std::atomic<uint32_t> id{0};
};

uint32_t Run(void* argument) {
  auto* started = static_cast<Started*>(argument);
  KivSdContext* ctx = nullptr;
  uint32_t id = 0;
  Done(KivSdInit(&ctx), "KivSdInit");
  Done(KivSdThreadIdGet(ctx, &id), "KivSdThreadIdGet");
  Done(KivSdThreadYield(ctx), "KivSdThreadYield");
  started->id.store(id);
  Done(KivSdTerm(ctx), "KivSdTerm");
  return 0;
}

class ThreadsVisitor : public Visitor {
 public:
  ThreadsVisitor(const World& /*world*/, uint32_t /*place*/, Random* random) : random_(*random) {}

  void Step() override {
    Started started;
    uint32_t id = 0;
    KivHandle thread = nullptr;
    Done(KivSdThreadCreate(nullptr, &Run, 0, 0, &started, &id, &thread), "KivSdThreadCreate");
    if (random_.OneIn(2)) {
      Done(KivSdEventWait(nullptr, &thread, kPatienceMs), "KivSdEventWait for a thread");
    }
    Done(KivSdThreadJoin(nullptr, &thread), "KivSdThreadJoin");
    Expect(started.id.load() == id, "a joined thread has run, with the identifier of its handle");
    Done(KivSdThreadDelete(nullptr, &thread), "KivSdThreadDelete");
  }

 private:
  Random& random_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeThreads(const World& world) {
  return std::make_unique<Separate<ThreadsVisitor>>(world);
}

}  // namespace kiv::soak
