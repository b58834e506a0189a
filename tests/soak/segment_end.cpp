#include "soak/segment_end.h"

#include "kivsdu/semaphore.h"
#include "soak/check.h"

namespace kiv::soak {
namespace {

constexpr uint16_t kMembersPerChunk = 4;

}  // namespace

SegmentEnd::SegmentEnd(const std::string& name, uint32_t kind, uint32_t timeoutMs) {
  constexpr uint8_t kCreate = 1;
  uint8_t fresh = 0;
  uint8_t notMapped = 0;
  uint32_t id = 0;
  void* view = nullptr;
  Done(KivFindShareMemSeg(nullptr, name.c_str(), kind, &list_, kCreate, 0, 0, &fresh, &notMapped,
                          &segment_),
       "KivFindShareMemSeg");
  Done(
      KivCreateSharedMemSeg(nullptr, name.c_str(), kind, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                            KIV_SHAREDMEM_PAGES_READ_WRITE, segment_, timeoutMs, &id, &view),
      "KivCreateSharedMemSeg");
  Done(KivSetSharedMemSegBuffer(nullptr, segment_, view), "KivSetSharedMemSegBuffer");
}

SegmentEnd::~SegmentEnd() { Done(KivDeleteSharedMemSeg(nullptr, list_), "KivDeleteSharedMemSeg"); }

uint32_t SegmentEnd::Send(int32_t chunk, const void* data, uint32_t lengthBytes) {
  constexpr uint8_t kEnd = 1;
  constexpr uint8_t kWhole = 0;
  return KivWriteSharedMemChunk(nullptr, segment_, chunk, lengthBytes, kEnd, kWhole, data);
}

uint32_t SegmentEnd::Receive(int32_t chunk, void* buffer, uint32_t lengthBytes) {
  constexpr uint8_t kBytes = 0;
  uint32_t code = 0;
  return KivReadSharedMemChunk(nullptr, segment_, chunk, lengthBytes, kBytes, &code, buffer);
}

// Leaves each half empty, whatever the peer did with it last.
void SegmentEnd::Prepare(int32_t chunk) {
  segment_->reading[chunk] = {};
  segment_->writing[chunk] = {};
  for (uint16_t half = 0; half < 2; ++half) {
    const auto full = static_cast<uint16_t>(kMembersPerChunk * chunk + 2 * half + 1);
    const auto empty = static_cast<uint16_t>(full + 1);
    KivSdShSemSetRequest(nullptr, full, segment_->semaphores, 0);
    KivSdShSemSetRequest(nullptr, empty, segment_->semaphores, 0);
    Done(KivSdShSemSetClear(nullptr, empty, segment_->semaphores), "KivSdShSemSetClear");
  }
}

}  // namespace kiv::soak
