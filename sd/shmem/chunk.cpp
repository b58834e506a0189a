// Takes a segment's chunks and gives them back.
//
// Each process records in its own descriptor which chunks it has taken. The lock belongs to the
// segment and serialises the threads of both processes.
#include "kivsdu/status.h"
#include "shmem/segment_layout.h"

using namespace kiv;

namespace {

uint32_t MaskOf(int32_t chunk) { return 1u << chunk; }

int32_t LowestFree(const KivSharedMemSeg& segment) {
  for (int32_t chunk = 0; HasChunk(&segment, chunk); ++chunk) {
    if ((segment.takenMask & MaskOf(chunk)) == 0) return chunk;
  }
  return KIV_CHUNK_NONE;
}

}  // namespace

uint32_t KivGetSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment, int32_t* chunk) {
  if (segment == nullptr || chunk == nullptr) return KIV_ST_ARGUMENT;
  const uint32_t requested = Request(ctx, *segment, kChunkLock);
  if (requested != KIV_ST_OK) return requested;

  const int32_t free = LowestFree(*segment);
  if (free != KIV_CHUNK_NONE) segment->takenMask |= MaskOf(free);
  const uint32_t cleared = Clear(ctx, *segment, kChunkLock);
  *chunk = free;
  // Compatibility: "no chunk is free" is a success even if the lock could not be released. Callers
  // look only at the chunk number then.
  return free == KIV_CHUNK_NONE ? KIV_ST_OK : cleared;
}

uint32_t KivPutSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment, int32_t chunk) {
  if (!HasChunk(segment, chunk)) return KIV_ST_ARGUMENT;
  const uint32_t requested = Request(ctx, *segment, kChunkLock);
  if (requested != KIV_ST_OK) return requested;

  // Compatibility: the lock stays taken. A process that gives back a chunk that it has not taken
  // has lost count of its chunks. Neither process can then take a chunk until the segment is set up
  // again.
  if ((segment->takenMask & MaskOf(chunk)) == 0) return KIV_ST_CHUNK_NOT_TAKEN;
  segment->takenMask &= ~MaskOf(chunk);
  return Clear(ctx, *segment, kChunkLock);
}
