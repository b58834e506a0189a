// Requests and answers in a chunk; see chunk_channel.h.
//
// Each library call here moves bytes of one half. It waits for a semaphore once, before it moves
// any byte, and can therefore be repeated after a time-out.
#include "channel/chunk_channel.h"

#include <string.h>

#include <algorithm>

#include "channel/protocol.h"
#include "host/complain.h"
#include "kivsdu/status.h"

namespace cellhost {
namespace {

constexpr uint8_t kWhole = 0;  // the data fits the half
constexpr uint8_t kBytes = 0;
constexpr uint8_t kString = 1;
constexpr uint32_t kOnlyTry = 0;

// Members of the segment's semaphore set.
constexpr uint16_t kMembersPerChunk = 4;
constexpr uint16_t kFirstHalfFull = 1;  // of chunk 0
constexpr uint16_t kSecondHalfFull = 3;
constexpr uint16_t kEmptyBehindFull = 1;

constexpr uint32_t kWritesFirstHalves = 1;  // the end of this kind writes the first halves

uint16_t MemberOf(int32_t chunk, uint16_t ofChunk0) {
  return static_cast<uint16_t>(chunk * kMembersPerChunk + ofChunk0);
}

// Makes one step of a transfer. Repeats it after a time-out while `watch` keeps waiting.
template <class Step>
Carried Persist(ChunkWatch* watch, Step step) {
  for (;;) {
    const uint32_t status = step();
    if (status == KIV_ST_OK) return Carried::kDone;
    if (status != KIV_ST_SEM_TIMEOUT || !watch->KeepsWaiting()) return Carried::kBroken;
  }
}

// Cuts the text that follows a length into pieces, so that each piece ends with a half. Calls
// carry(start, length) for each.
template <class Carry>
Carried InPieces(uint32_t lengthBytes, Carry carry) {
  uint32_t roomBytes = KIV_SEGMENT_PAYLOAD_BYTES - kLengthBytes;
  for (uint32_t at = 0; at < lengthBytes;) {
    const uint32_t piece = std::min(lengthBytes - at, roomBytes);
    const Carried carried = carry(at, piece);
    if (carried != Carried::kDone) return carried;
    at += piece;
    roomBytes = KIV_SEGMENT_PAYLOAD_BYTES;
  }
  return Carried::kDone;
}

}  // namespace

void ChunkChannel::Use(KivSharedMemSeg* segment, int32_t chunk) {
  segment_ = segment;
  chunk_ = chunk;
  segment_->reading[chunk_] = {};
  segment_->writing[chunk_] = {};
}

Carried ChunkChannel::Write(const char* bytes, uint32_t lengthBytes, bool handOver,
                            ChunkWatch* watch) {
  return Persist(watch, [&] {
    return KivWriteSharedMemChunk(nullptr, segment_, chunk_, lengthBytes, handOver ? 1 : 0, kWhole,
                                  bytes);
  });
}

// After a code was not sent, the library blocks the chunk, because otherwise the next message would
// take the code's place. Clearing `code` lifts the block: here nothing but the code itself follows.
Carried ChunkChannel::WriteCode(uint32_t code, ChunkWatch* watch) {
  return Persist(watch, [&] {
    segment_->writing[chunk_].code = 0;
    return KivWriteSharedMemChunkCode(nullptr, segment_, chunk_, code);
  });
}

Carried ChunkChannel::Read(char* room, uint32_t lengthBytes, ChunkWatch* watch) {
  uint32_t code = 0;
  const Carried carried = Persist(watch, [&] {
    return KivReadSharedMemChunk(nullptr, segment_, chunk_, lengthBytes, kBytes, &code, room);
  });
  return carried == Carried::kDone && code != 0 ? Carried::kNonsense : carried;
}

Carried ChunkChannel::ReadCode(uint32_t* code, ChunkWatch* watch) {
  return Persist(watch, [&] { return KivReadSharedMemChunkCode(nullptr, segment_, chunk_, code); });
}

Carried ChunkChannel::SendRequest(std::string_view text, ChunkWatch* watch) {
  constexpr char kEnd = '\0';
  const Carried begun = Write(text.data(), static_cast<uint32_t>(text.size()), false, watch);
  return begun == Carried::kDone ? Write(&kEnd, 1, true, watch) : begun;
}

Carried ChunkChannel::ReceiveAnswer(ChunkWatch* watch, HostArray<char>* answer, uint32_t* code) {
  char length[kLengthBytes];
  Carried carried = Read(length, kLengthBytes, watch);
  if (carried != Carried::kDone) return carried;
  const uint32_t lengthBytes = ReadLength(length);
  if (lengthBytes > kReplyBytesMax) return Carried::kNonsense;
  if (!answer->Resize(lengthBytes, 0)) return Carried::kNoMemory;
  carried = InPieces(lengthBytes, [&](uint32_t at, uint32_t piece) {
    return Read(answer->data() + at, piece, watch);
  });
  return carried == Carried::kDone ? ReadCode(code, watch) : carried;
}

// Discards the rest of the current message.
Carried ChunkChannel::TakeAway() {
  segment_->reading[chunk_] = {};
  const uint16_t firstFull =
      segment_->kind == kWritesFirstHalves ? kSecondHalfFull : kFirstHalfFull;
  const uint16_t empty = MemberOf(chunk_, firstFull) + kEmptyBehindFull;
  const uint32_t status = KivSdShSemSetClear(nullptr, empty, segment_->semaphores);
  return status == KIV_ST_OK ? Carried::kNonsense : Carried::kBroken;
}

// The library reads a string up to its zero byte or the end of the message, and does not return the
// length. The buffer is therefore zeroed first, and its last byte is never written.
Carried ChunkChannel::ReceiveRequest(std::string_view* text) {
  memset(request_, 0, sizeof request_);
  uint32_t code = 0;
  const uint32_t status =
      KivReadSharedMemChunk(nullptr, segment_, chunk_, 0, kString, &code, request_);
  if (status == KIV_ST_SEM_TIMEOUT) return Carried::kNothing;
  if (status != KIV_ST_OK) return Carried::kBroken;
  if (code != 0) return Carried::kNonsense;
  // The message has bytes behind the zero byte, or claims to be longer than a half. Discard them:
  // reading on to an invented length might never end.
  if (segment_->reading[chunk_].lengthBytes != 0) return TakeAway();
  *text = request_;
  return Carried::kDone;
}

Carried ChunkChannel::SendAnswer(std::string_view text, uint32_t code, ChunkWatch* watch) {
  const uint32_t lengthBytes = static_cast<uint32_t>(text.size());
  char length[kLengthBytes];
  WriteLength(lengthBytes, length);
  Carried carried = Write(length, kLengthBytes, lengthBytes == 0, watch);
  if (carried != Carried::kDone) return carried;
  carried = InPieces(lengthBytes, [&](uint32_t at, uint32_t piece) {
    return Write(text.data() + at, piece, true, watch);
  });
  return carried == Carried::kDone ? WriteCode(code, watch) : carried;
}

// Tries to acquire both semaphores, and then releases "empty". This leads from each of the four
// states to the first.
bool ChunkChannel::ResetHalf(uint16_t full) {
  const uint16_t members[] = {full, static_cast<uint16_t>(full + kEmptyBehindFull)};
  for (const uint16_t member : members) {
    const uint32_t status = KivSdShSemSetRequest(nullptr, member, segment_->semaphores, kOnlyTry);
    if (status != KIV_ST_SEM_TIMEOUT && !Succeeded(nullptr, status, "empty a chunk")) return false;
  }
  return Succeeded(nullptr, KivSdShSemSetClear(nullptr, members[1], segment_->semaphores),
                   "release a chunk's half");
}

bool ChunkChannel::Reset() {
  Use(segment_, chunk_);
  return ResetHalf(MemberOf(chunk_, kFirstHalfFull)) &&
         ResetHalf(MemberOf(chunk_, kSecondHalfFull));
}

}  // namespace cellhost
