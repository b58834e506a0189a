// The server's end of a client's chunk; see chunk_service.h.
#include "server/chunk_service.h"

namespace cellhost {

Taken ChunkService::Take(SegmentServer* segment) {
  if (!taken()) {
    int32_t chunk = KIV_CHUNK_NONE;
    if (!segment->TakeChunk(&chunk)) return Taken::kFailed;
    if (chunk == KIV_CHUNK_NONE) return Taken::kNone;
    segment_ = segment;
    chunk_ = chunk;
    channel_.Use(segment->segment(), chunk);
  }
  broken_ = !channel_.Reset();
  return broken_ ? Taken::kFailed : Taken::kOne;
}

Carried ChunkService::Note(Carried carried) {
  if (carried == Carried::kBroken) broken_ = true;
  return carried;
}

Carried ChunkService::Await(std::string_view* request) {
  return Note(channel_.ReceiveRequest(request));
}

void ChunkService::Answer(std::string_view text, FinalCode code, ChunkWatch* watch) {
  Note(channel_.SendAnswer(text, static_cast<uint32_t>(code), watch));
}

void ChunkService::GiveBack() {
  if (!taken()) return;
  // A chunk that cannot be reset stays reserved forever.
  if (channel_.Reset()) segment_->GiveBackChunk(chunk_);
  chunk_ = KIV_CHUNK_NONE;
  broken_ = false;
}

}  // namespace cellhost
