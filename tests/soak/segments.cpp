// Segments: each thread has both ends of one, and the process has one with the coordinator, which
// sends every message back.
#include <cstring>
#include <mutex>

#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/segment_end.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kPatienceMs = 60'000;

// The process's end of its segment with the coordinator. One thread at a time uses it.
struct Echo {
  explicit Echo(const World& world)
      : end(EchoName(world.prefix, world.process), kEchoClientKind, kPatienceMs) {}

  SegmentEnd end;
  std::mutex mutex;
};

class SegmentsVisitor : public Visitor {
 public:
  SegmentsVisitor(const World& world, Echo* echo, uint32_t place, Random* random)
      : echo_(*echo),
        random_(*random),
        first_(NameOf(world, place, "segment"), 1, kPatienceMs),
        second_(NameOf(world, place, "segment"), 0, kPatienceMs) {}

  void Step() override {
    const auto chunk = static_cast<int32_t>(random_.Below(KIV_SEGMENT_CHUNKS));
    Transfer(&first_, &second_, chunk);
    Transfer(&second_, &first_, chunk);
    if (random_.OneIn(4)) AskCoordinator();
  }

 private:
  void Transfer(SegmentEnd* from, SegmentEnd* to, int32_t chunk) {
    char sent[KIV_SEGMENT_PAYLOAD_BYTES];
    char received[KIV_SEGMENT_PAYLOAD_BYTES];
    const uint32_t length = random_.Between(1, KIV_SEGMENT_PAYLOAD_BYTES);
    Fill(sent, length, length);
    Done(from->Send(chunk, sent, length), "KivWriteSharedMemChunk");
    Done(to->Receive(chunk, received, length), "KivReadSharedMemChunk");
    Expect(IsFilled(received, length, length), "a chunk passes the bytes that were written");
  }

  void AskCoordinator() {
    const std::unique_lock<std::mutex> guard(echo_.mutex, std::try_to_lock);
    if (!guard.owns_lock()) return;
    EchoMessage sent = {random_.Next(), {}};
    EchoMessage received = {};
    Fill(sent.bytes, sizeof sent.bytes, sent.number);
    Done(echo_.end.Send(kEchoChunk, &sent, sizeof sent), "KivWriteSharedMemChunk");
    Done(echo_.end.Receive(kEchoChunk, &received, sizeof received), "KivReadSharedMemChunk");
    Expect(std::memcmp(&sent, &received, sizeof sent) == 0, "a message comes back as it was sent");
  }

  Echo& echo_;
  Random& random_;
  SegmentEnd first_;
  SegmentEnd second_;
};

class Segments : public Subsystem {
 public:
  explicit Segments(const World& world) : world_(world), echo_(world) {}

  std::unique_ptr<Visitor> Enter(uint32_t place, Random* random) override {
    return std::make_unique<SegmentsVisitor>(world_, &echo_, place, random);
  }

 private:
  const World world_;
  Echo echo_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeSegments(const World& world) {
  return std::make_unique<Segments>(world);
}

}  // namespace kiv::soak
