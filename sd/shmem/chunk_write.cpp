// Writing into a chunk.
//
// A half is open from the request of its empty semaphore until it is handed over, which is while
// its state counts bytes: no half is open and empty between two calls.
#include <algorithm>
#include <cstring>

#include "kivsdu/status.h"
#include "shmem/segment_layout.h"

using namespace kiv;

namespace {

// Waits for the half unless it is open.
uint32_t Open(KivSdContext* ctx, const KivSharedMemSeg& segment, const Half& half,
              KivSharedMemTransfer* state) {
  if (state->lengthBytes != 0) return KIV_ST_OK;
  const uint32_t status = Request(ctx, segment, half.empty);
  if (status == KIV_ST_OK) state->offset = kPayloadOffset;
  return status;
}

// Gives the half to the reader, with the state's code. A failure blocks the chunk: it is not known
// whose the half is.
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
      // Kept: data that is not to be split leaves the half as it is, though it be empty. Data that
      // fits no half empties one half after the other so, until the reader takes no more.
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
  // Kept: the code is in the state before the wait, and a wait that fails leaves it there. The
  // chunk is blocked then: what would follow must not reach the reader in place of the code.
  state->code = code;
  const uint32_t opened = Open(ctx, *segment, half, state);
  if (opened != KIV_ST_OK) return opened;
  return HandOver(ctx, *segment, half, state);
}
