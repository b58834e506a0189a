// Taking a segment's chunks and giving them back.
//
// Which chunks are taken is each process's own knowledge, and lies in its descriptor. The lock is
// the segment's: it serialises the threads of both processes.
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
  // Kept: finding none is a success whatever became of the lock.
  return free == KIV_CHUNK_NONE ? KIV_ST_OK : cleared;
}

uint32_t KivPutSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment, int32_t chunk) {
  if (!HasChunk(segment, chunk)) return KIV_ST_ARGUMENT;
  const uint32_t requested = Request(ctx, *segment, kChunkLock);
  if (requested != KIV_ST_OK) return requested;

  // Kept: the lock is not released. Who gives back what it has not taken has lost count of its
  // chunks, and both processes stop taking any until the segment is set up anew.
  if ((segment->takenMask & MaskOf(chunk)) == 0) return KIV_ST_CHUNK_NOT_TAKEN;
  segment->takenMask &= ~MaskOf(chunk);
  return Clear(ctx, *segment, kChunkLock);
}
