// The fuzzer's bytes act as the peer of a shared memory segment: they decide the contents of the
// halves, when these change, and the results of the semaphores. An operation may touch only its own
// half of the area; the rest is poisoned.
#include <cstring>

#include "fuzz/input.h"
#include "fuzz/poison.h"
#include "fuzz/segment_operations.h"
#include "kivsdu/segment.h"
#include "kivsdu/status.h"
#include "support/segment_calls.h"

namespace {

using kiv::fuzz::Input;
using kiv::fuzz::Poison;
using kiv::fuzz::Unpoison;

constexpr int kMaxRequests = 60;

alignas(4096) unsigned char area[KIV_SEGMENT_AREA_BYTES];

// Writes into the reading half whenever the library waits for the peer.
class Peer : public kiv::test::SegmentCalls {
 public:
  Peer(Input* input, int32_t chunk, uint32_t kind) : input_(input) {
    std::memset(area, 0xEE, sizeof area);
    unsigned char* first = area + 4096 * chunk;
    read_ = first + (kind == 1 ? 2048 : 0);
    written_ = first + (kind == 1 ? 0 : 2048);
  }
  ~Peer() override { Unpoison(area, sizeof area); }

  // Unpoisons the half that the next operation may touch, and nothing else.
  void Expose(bool reading) {
    reading_ = reading;
    Poison(area, sizeof area);
    Unpoison(reading ? read_ : written_, KIV_SEGMENT_HALF_BYTES);
  }

  uint32_t Request(KivSdContext*, uint16_t, KivSdShSemSet*, uint32_t) override {
    const uint8_t what = input_->Byte();
    if (++requests_ > kMaxRequests || what == 1) return KIV_ST_SEM_TIMEOUT;
    if (what == 2) return KIV_ST_SEM_REQUEST;
    if (!reading_) return KIV_ST_OK;
    input_->Fill(read_, 8);
    if (what % 2 != 0) input_->Fill(read_ + 8, what * 8);
    return KIV_ST_OK;
  }

  uint32_t Clear(KivSdContext*, uint16_t, KivSdShSemSet*) override {
    return input_->Byte() == 1 ? KIV_ST_SEM_CLEAR : KIV_ST_OK;
  }

  bool IsTired() const { return requests_ > kMaxRequests; }

 private:
  Input* input_;
  unsigned char* read_;
  unsigned char* written_;
  bool reading_ = false;
  int requests_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  Input input(bytes, count);
  const uint8_t which = input.Byte();
  const int32_t chunk = which % static_cast<int32_t>(KIV_SEGMENT_CHUNKS);
  KivSharedMemSeg segment = {};
  segment.halfBytes = KIV_SEGMENT_HALF_BYTES;
  segment.chunkCount = KIV_SEGMENT_CHUNKS;
  segment.kind = which >> 7;
  segment.buffer = area;
  Peer peer(&input, chunk, segment.kind);
  while (!input.IsAtEnd() && !peer.IsTired()) {
    kiv::fuzz::OperateOnChunk(&input, &segment, chunk, [&](bool reading) { peer.Expose(reading); });
    // Otherwise a latched chunk would stay latched for the rest of the input.
    if ((which & 0x40) != 0) segment.reading[chunk].code = segment.writing[chunk].code = 0;
  }
  return 0;
}
