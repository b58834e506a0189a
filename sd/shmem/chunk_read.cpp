// Reads from a chunk.
//
// The peer states the length of a message, and the peer may be broken or hostile. The length is
// only counted down, compared with 0, and used as a limit for the search for a string's end. The
// offset alone decides which bytes of the half are touched: this process keeps it and never moves
// it past the half's end.
#include <algorithm>
#include <cstring>

#include "kivsdu/status.h"
#include "shmem/segment_layout.h"

using namespace kiv;

namespace {

// Waits for a message and copies its header into the state.
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

// The length of the next string in the message, its zero byte included. Without a zero byte it is
// all that is left of the message. Never more than `room`.
uint32_t StringBytes(const Half& half, const KivSharedMemTransfer& state, uint32_t room) {
  const unsigned char* text = half.bytes + state.offset;
  const uint32_t most = std::min(room, state.lengthBytes);
  const auto* zero = static_cast<const unsigned char*>(std::memchr(text, 0, most));
  return zero == nullptr ? most : static_cast<uint32_t>(zero - text) + 1;
}

// Copies the next bytes of the half and advances the state past them.
void Take(const Half& half, KivSharedMemTransfer* state, uint32_t bytes, unsigned char* to) {
  std::memcpy(to, half.bytes + state->offset, bytes);
  state->offset = static_cast<uint16_t>(state->offset + bytes);
  state->lengthBytes -= bytes;
}

// Hands back a half that carries a code. Data in that half is dropped.
uint32_t EndWithCode(KivSdContext* ctx, const KivSharedMemSeg& segment, const Half& half,
                     KivSharedMemTransfer* state) {
  // Compatibility: the read succeeds even if the half cannot be handed back. The caller has the
  // code by then.
  static_cast<void>(Clear(ctx, segment, half.empty));
  state->code = 0;
  state->lengthBytes = 0;
  return KIV_ST_OK;
}

// Blocks the chunk for reading and returns the reason.
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
    // The half is read to its end, but the length says that bytes are left. The message cannot be
    // completed, and the half has not gone back to the writer.
    if (room == 0 && !string) return Break(state, code, KIV_CHUNK_OVERRUN);
    if (string) rest = StringBytes(half, *state, room);
    string = false;
    // Compatibility: only the half's end bounds the copy. A caller that reads more than the message
    // holds gets the bytes behind it, and the length left wraps around.
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
  // Compatibility: the length of the header stays in the state. After code 0, which means data, the
  // caller finds in the descriptor how much data there was.
  state->code = 0;
  return Clear(ctx, *segment, half.empty);
}
