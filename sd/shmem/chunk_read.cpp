// Reading from a chunk.
//
// The length of a message is the peer's word, and the peer may be broken or hostile. It is counted
// down, and compared with 0; where the half is touched is decided by the offset, which is this
// process's own and never passes the half's end.
#include <algorithm>
#include <cstring>

#include "kivsdu/status.h"
#include "shmem/segment_layout.h"

using namespace kiv;

namespace {

// Waits for a message and takes its header into the state.
uint32_t Await(KivSdContext* ctx, const KivSharedMemSeg& segment, const Half& half,
               KivSharedMemTransfer* state) {
  const uint32_t status = Request(ctx, segment, half.full);
  if (status != KIV_ST_OK) return status;
  const HalfHeader header = LoadHeader(half);
  state->code = header.code;
  state->lengthBytes = header.lengthBytes;
  return KIV_ST_OK;
}

void Tell(uint32_t* code, uint32_t value) {
  if (code != nullptr) *code = value;
}

// Up to and with the first zero byte of what is left of the message, or all that is left.
uint32_t StringBytes(const Half& half, const KivSharedMemTransfer& state, uint32_t room) {
  const unsigned char* text = half.bytes + state.offset;
  const uint32_t most = std::min(room, state.lengthBytes);
  const auto* zero = static_cast<const unsigned char*>(std::memchr(text, 0, most));
  return zero == nullptr ? most : static_cast<uint32_t>(zero - text) + 1;
}

// Copies the next bytes of the half and counts them.
void Take(const Half& half, KivSharedMemTransfer* state, uint32_t bytes, unsigned char* to) {
  std::memcpy(to, half.bytes + state->offset, bytes);
  state->offset = static_cast<uint16_t>(state->offset + bytes);
  state->lengthBytes -= bytes;
}

// Hands back a half that brought a code, and whatever data lay before it.
uint32_t EndWithCode(KivSdContext* ctx, const KivSharedMemSeg& segment, const Half& half,
                     KivSharedMemTransfer* state) {
  // Kept: the code has come, whether or not the half can be handed back.
  static_cast<void>(Clear(ctx, segment, half.empty));
  state->code = 0;
  state->lengthBytes = 0;
  return KIV_ST_OK;
}

// Leaves the chunk blocked for reading.
uint32_t Break(KivSharedMemTransfer* state, uint32_t* code, uint32_t how) {
  state->code = how;
  Tell(code, how);
  return how;
}

}  // namespace

uint32_t KivReadSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment, int32_t chunk,
                               uint32_t lengthBytes, uint8_t stringFlag, uint32_t* code,
                               void* buffer) {
  if (!HasChunk(segment, chunk) || buffer == nullptr) return KIV_ST_ARGUMENT;
  KivSharedMemTransfer* state = &segment->reading[chunk];
  if (state->code != 0) return KIV_CHUNK_LATCHED;

  const Half half = ReadingHalf(*segment, chunk);
  auto* to = static_cast<unsigned char*>(buffer);
  uint32_t rest = lengthBytes;
  bool string = stringFlag != 0;
  while (rest != 0 || string) {
    if (state->lengthBytes == 0) {
      const uint32_t awaited = Await(ctx, *segment, half, state);
      if (awaited != KIV_ST_OK) return awaited;
      Tell(code, state->code);
      if (state->code != 0) return EndWithCode(ctx, *segment, half, state);
      state->offset = kPayloadOffset;
    }
    const uint32_t room = segment->halfBytes - uint32_t{state->offset};
    // Nothing can come of this message any more, and its half is not the writer's yet.
    if (room == 0 && !string) return Break(state, code, KIV_CHUNK_OVERRUN);
    if (string) rest = StringBytes(half, *state, room);
    string = false;
    // Kept: bounded by the half's end alone. Who reads more than the message holds gets what lies
    // there, and the count of what is left wraps.
    const uint32_t portion = std::min(rest, room);
    Take(half, state, portion, to);
    to += portion;
    rest -= portion;
    if (state->lengthBytes == 0 && Clear(ctx, *segment, half.empty) != KIV_ST_OK) {
      return Break(state, code, KIV_CHUNK_NOT_GIVEN);
    }
  }
  return KIV_ST_OK;
}

uint32_t KivReadSharedMemChunkCode(KivSdContext* ctx, KivSharedMemSeg* segment, int32_t chunk,
                                   uint32_t* code) {
  if (!HasChunk(segment, chunk) || code == nullptr) return KIV_ST_ARGUMENT;
  KivSharedMemTransfer* state = &segment->reading[chunk];
  if (state->code != 0) return KIV_ST_CHUNK_CODE;

  const Half half = ReadingHalf(*segment, chunk);
  const uint32_t awaited = Await(ctx, *segment, half, state);
  if (awaited != KIV_ST_OK) return awaited;
  *code = state->code;
  // Kept: the length stays as the header said. A caller that is told of data by the code 0 sees in
  // the descriptor how much there was.
  state->code = 0;
  return Clear(ctx, *segment, half.empty);
}
