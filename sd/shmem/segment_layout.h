// The halves of a segment's chunks: their addresses, their headers, and the members of the
// segment's semaphore set that hand them over.
#ifndef KIV_SHMEM_SEGMENT_LAYOUT_H
#define KIV_SHMEM_SEGMENT_LAYOUT_H

#include <atomic>
#include <bit>

#include "kivsdu/segment.h"

namespace kiv {

constexpr uint16_t kChunkLock = 0;  // member that guards the taking of chunks
constexpr uint16_t kMembersPerChunk = 4;
constexpr uint16_t kSegmentMembers = KIV_SEGMENT_CHUNKS * kMembersPerChunk + 1;

constexpr uint32_t kWritesFirstHalves = 1;  // the kind of descriptor that writes first halves

// The first 8 bytes of a half. Two processes share them.
struct HalfHeader {
  uint32_t code;
  uint32_t lengthBytes;
};
static_assert(offsetof(HalfHeader, code) == 0, "shared layout");
static_assert(offsetof(HalfHeader, lengthBytes) == 4, "shared layout");
static_assert(sizeof(HalfHeader) == sizeof(uint64_t), "written in one store");

constexpr uint16_t kPayloadOffset = sizeof(HalfHeader);

static_assert(KIV_SEGMENT_HALF_BYTES == kPayloadOffset + KIV_SEGMENT_PAYLOAD_BYTES);
static_assert(KIV_SEGMENT_AREA_BYTES == KIV_SEGMENT_CHUNKS * 2 * KIV_SEGMENT_HALF_BYTES);

struct Half {
  unsigned char* bytes;
  uint16_t full;   // member that is cleared to hand the half to its reader
  uint16_t empty;  // member that is cleared to hand it back to its writer
};

inline bool HasChunk(const KivSharedMemSeg* segment, int32_t chunk) {
  return segment != nullptr && chunk >= 0 && static_cast<uint32_t>(chunk) < segment->chunkCount;
}

inline Half HalfOf(const KivSharedMemSeg& segment, int32_t chunk, bool first) {
  const size_t number = static_cast<size_t>(chunk) * 2 + (first ? 0 : 1);
  const auto full = static_cast<uint16_t>(number * 2 + 1);
  return {static_cast<unsigned char*>(segment.buffer) + number * segment.halfBytes, full,
          static_cast<uint16_t>(full + 1)};
}

inline Half WritingHalf(const KivSharedMemSeg& segment, int32_t chunk) {
  return HalfOf(segment, chunk, segment.kind == kWritesFirstHalves);
}

inline Half ReadingHalf(const KivSharedMemSeg& segment, int32_t chunk) {
  return HalfOf(segment, chunk, segment.kind != kWritesFirstHalves);
}

// Both words are stored and loaded at once. Relaxed: the semaphores order the halves' bytes. Atomic
// because a broken peer may write at any time: the header is loaded once, and the values that were
// checked are the values that are used.
inline void StoreHeader(const Half& half, HalfHeader header) {
  std::atomic_ref<uint64_t>(*reinterpret_cast<uint64_t*>(half.bytes))
      .store(std::bit_cast<uint64_t>(header), std::memory_order_relaxed);
}

inline HalfHeader LoadHeader(const Half& half) {
  return std::bit_cast<HalfHeader>(
      std::atomic_ref<uint64_t>(*reinterpret_cast<uint64_t*>(half.bytes))
          .load(std::memory_order_relaxed));
}

inline uint32_t Request(KivSdContext* ctx, const KivSharedMemSeg& segment, uint16_t member) {
  return KivSdShSemSetRequest(ctx, member, segment.semaphores, segment.timeoutMs);
}

inline uint32_t Clear(KivSdContext* ctx, const KivSharedMemSeg& segment, uint16_t member) {
  return KivSdShSemSetClear(ctx, member, segment.semaphores);
}

}  // namespace kiv

#endif
