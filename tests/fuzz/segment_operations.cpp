#include "fuzz/segment_operations.h"

#include <algorithm>
#include <vector>

#include "kivsdu/status.h"

namespace kiv::fuzz {
namespace {

constexpr uint32_t kMaxBytes = 5000;

bool IsTransferStatus(uint32_t status) {
  return status == KIV_ST_OK || status == KIV_CHUNK_LATCHED || status == KIV_ST_SEM_TIMEOUT ||
         status == KIV_ST_SEM_REQUEST || status == KIV_ST_SEM_CLEAR;
}

}  // namespace

void OperateOnChunk(Input* input, KivSharedMemSeg* segment, int32_t chunk,
                    const std::function<void(bool reading)>& expose) {
  const uint8_t what = input->Byte();
  expose(what % 5 < 3);
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

}  // namespace kiv::fuzz
