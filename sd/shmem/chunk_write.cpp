// Writes into a chunk.
//
// A half is open from the request of its empty semaphore until it is handed over. Between two calls
// a half is open exactly if its state's length is not 0: no call leaves an open half empty.
#include <algorithm>
#include <cstring>

#include "kivsdu/status.h"
#include "shmem/segment_layout.h"

using namespace kiv;

namespace {

// Waits until the half is empty, unless it is open already.
uint32_t Open(KivSdContext* ctx, const KivSharedMemSeg& segment, const Half& half,
              KivSharedMemTransfer* state) {
  if (state->lengthBytes != 0) return KIV_ST_OK;
  const uint32_t status = Request(ctx, segment, half.empty);
  if (status == KIV_ST_OK) state->offset = kPayloadOffset;
  return status;
}

// Hands the half over to the reader, with the state's code. A failure blocks the chunk, because it
// is then unknown which process owns the half.
uint32_t HandOver(KivSdContext* ctx, const KivSharedMemSeg& segment, const Half& half,
                  KivSharedMemTransfer* state) {
  StoreHeader(half, {state->code, state->lengthBytes});
  const uint32_t status = Clear(ctx, segment, half.full);
  if (status != KIV_ST_OK) {
    state->code = KIV_CHUNK_NOT_GIVEN;
    return status;
  }
  *state = {};
  return KIV_ST_OK;
}

}  // namespace

uint32_t KivWriteSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment, int32_t chunk,
                                uint32_t lengthBytes, uint8_t endFlag, uint8_t splitFlag,
                                const void* data) {
  if (!HasChunk(segment, chunk) || data == nullptr) return KIV_ST_ARGUMENT;
  KivSharedMemTransfer* state = &segment->writing[chunk];
  if (state->code != 0) return KIV_CHUNK_LATCHED;

  const Half half = WritingHalf(*segment, chunk);
  const auto* from = static_cast<const unsigned char*>(data);
  bool end = endFlag != 0;
  for (uint32_t rest = lengthBytes; rest != 0;) {
    const uint32_t opened = Open(ctx, *segment, half, state);
    if (opened != KIV_ST_OK) return opened;

    const uint32_t room = segment->halfBytes - uint32_t{state->offset};
    uint32_t portion = std::min(rest, room);
    if (rest > room && splitFlag == 0) {
      // Compatibility: if the data does not fit and must not be split, the current half is sent as
      // it is, even empty. Data that fits no half therefore sends one empty half after another
      // until the reader takes no more.
      portion = 0;
      end = true;
    }
    std::memcpy(half.bytes + state->offset, from, portion);
    state->offset = static_cast<uint16_t>(state->offset + portion);
    state->lengthBytes += portion;
    from += portion;
    rest -= portion;
    if (!end && state->offset < segment->halfBytes) continue;

    const uint32_t handedOver = HandOver(ctx, *segment, half, state);
    if (handedOver != KIV_ST_OK) return handedOver;
  }
  return KIV_ST_OK;
}

uint32_t KivWriteSharedMemChunkCode(KivSdContext* ctx, KivSharedMemSeg* segment, int32_t chunk,
                                    uint32_t code) {
  if (!HasChunk(segment, chunk)) return KIV_ST_ARGUMENT;
  KivSharedMemTransfer* state = &segment->writing[chunk];
  if (state->code != 0) return KIV_CHUNK_LATCHED;

  const Half half = WritingHalf(*segment, chunk);
  // Compatibility: the code is stored before the wait, and stays if the wait fails. The chunk is
  // then blocked, so that no later message reaches the reader in place of the code.
  state->code = code;
  const uint32_t opened = Open(ctx, *segment, half, state);
  if (opened != KIV_ST_OK) return opened;
  return HandOver(ctx, *segment, half, state);
}
