// The fuzzer's bytes act as the peer of a shared memory segment: they decide the contents of the
// halves, when these change, and the results of the semaphores. An operation may touch only its own
// half of the area; the rest is poisoned. The caller's buffers have the smallest size allowed.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/poison.h"
#include "kivsdu/segment.h"
#include "kivsdu/status.h"
#include "support/segment_calls.h"

namespace {

using kiv::fuzz::Check;
using kiv::fuzz::Input;
using kiv::fuzz::Poison;
using kiv::fuzz::Unpoison;

constexpr int kMaxRequests = 60;
constexpr uint32_t kMaxBytes = 5000;

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

bool IsTransferStatus(uint32_t status) {
  return status == KIV_ST_OK || status == KIV_CHUNK_LATCHED || status == KIV_ST_SEM_TIMEOUT ||
         status == KIV_ST_SEM_REQUEST || status == KIV_ST_SEM_CLEAR;
}

// Runs one operation on the chunk, chosen by the input.
void Operate(Input* input, Peer* peer, KivSharedMemSeg* segment, int32_t chunk) {
  const uint8_t what = input->Byte();
  peer->Expose(what % 5 < 3);
  uint32_t length = input->Word();
  uint32_t code = 0;
  KivSharedMemTransfer* reading = &segment->reading[chunk];
  const uint32_t latched = reading->code;
  switch (what % 5) {
    case 0:
    case 1: {
      const bool string = what % 5 == 1;
      if (!string) length %= kMaxBytes;
      std::vector<unsigned char> buffer(string ? KIV_SEGMENT_HALF_BYTES : length + 1);
      unsigned char* to = buffer.data() + (string ? 0 : 1);
      const uint32_t status =
          KivReadSharedMemChunk(nullptr, segment, chunk, length, string ? 1 : 0, &code, to);
      Check(IsTransferStatus(status) || status == reading->code, "the status of a read");
      Check(latched == 0 || status == KIV_CHUNK_LATCHED, "a latched chunk is not read");
      Check(status != KIV_ST_OK || reading->code == 0, "a successful read latches nothing");
      break;
    }
    case 2: {
      const uint32_t status = KivReadSharedMemChunkCode(nullptr, segment, chunk, &code);
      Check(IsTransferStatus(status) || status == KIV_ST_CHUNK_CODE, "the status of a code");
      Check(latched == reading->code, "reading a code latches nothing");
      break;
    }
    case 3: {
      // Data that may not be split and does not fit is never read, so its length may be huge.
      const bool split = (what & 0x40) != 0;
      const bool huge = !split && (what & 0x20) != 0;
      if (!huge) length %= kMaxBytes;
      const std::vector<unsigned char> data(huge ? KIV_SEGMENT_PAYLOAD_BYTES : length + 1, 0xDA);
      if (huge) length = std::max(length, kMaxBytes);
      const uint32_t status = KivWriteSharedMemChunk(nullptr, segment, chunk, length, what & 0x80,
                                                     split ? 1 : 0, data.data());
      Check(IsTransferStatus(status), "the status of a write");
      break;
    }
    default:
      Check(IsTransferStatus(KivWriteSharedMemChunkCode(nullptr, segment, chunk, length)),
            "the status of a code");
  }
  Check(reading->offset <= KIV_SEGMENT_HALF_BYTES, "reading stays in the half");
  Check(segment->writing[chunk].offset <= KIV_SEGMENT_HALF_BYTES, "writing stays in the half");
  Check(segment->writing[chunk].lengthBytes <= KIV_SEGMENT_PAYLOAD_BYTES, "a half holds 2040");
}

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
    Operate(&input, &peer, &segment, chunk);
    // Otherwise a latched chunk would stay latched for the rest of the input.
    if ((which & 0x40) != 0) segment.reading[chunk].code = segment.writing[chunk].code = 0;
  }
  return 0;
}
