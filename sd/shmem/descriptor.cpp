// Finds, sets up and tears down the descriptors of segments.
//
// No lock: the caller owns the list and works on it from one thread.
#include <cstring>

#include "kivsdu/memory.h"
#include "kivsdu/segment.h"
#include "kivsdu/sharedmem.h"
#include "kivsdu/status.h"
#include "shmem/segment_layout.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/shmem";
constexpr uint32_t kLineDescriptorAlloc = 84;
constexpr uint32_t kLineDescriptorFree = 192;

constexpr size_t kNameBytesThatEmpty = 8;

bool IsMapped(const KivSharedMemSeg& segment) {
  return reinterpret_cast<uintptr_t>(segment.buffer) != KIV_SEGMENT_NOT_MAPPED;
}

void SetFlag(uint8_t* flag, uint8_t value) {
  if (flag != nullptr) *flag = value;
}

// The link that points to the descriptor of that name, or the null link at the list's end.
KivSharedMemSeg** LinkOf(KivSharedMemSeg** list, const char* name) {
  KivSharedMemSeg** link = list;
  while (*link != nullptr && std::strcmp((*link)->name, name) != 0) link = &(*link)->next;
  return link;
}

// Whether there is a set to close. Setting up creates the set and the area together. A descriptor
// that refers to a set but has neither area nor view was renewed, and its set is closed already.
bool HasSet(const KivSharedMemSeg& segment) {
  return segment.semaphores != nullptr && (segment.mapping != nullptr || IsMapped(segment));
}

// Leaves the reference to the set; the caller clears it.
uint32_t CloseSet(KivSdContext* ctx, const KivSharedMemSeg& segment) {
  if (!HasSet(segment)) return KIV_ST_OK;
  return KivSdShSemSetClose(ctx, segment.semaphores);
}

// Frees the area, if there is one. Fails if the descriptor does not know the view: the view then
// cannot be unmapped. The handle is closed even then, so the descriptor forgets the handle.
uint32_t FreeArea(KivSdContext* ctx, KivSharedMemSeg* segment) {
  if (segment->mapping == nullptr) return KIV_ST_OK;
  const uint32_t status = KivSdSharedMemFree(ctx, segment->mapping, segment->buffer);
  segment->mapping = nullptr;
  return status;
}

void SetOwner(KivSharedMemSeg* segment, uint32_t ownerStamp1, uint32_t ownerStamp2) {
  constexpr uintptr_t kNotMapped = KIV_SEGMENT_NOT_MAPPED;
  segment->buffer = reinterpret_cast<void*>(kNotMapped);  // NOLINT(performance-no-int-to-ptr)
  segment->mapping = nullptr;
  segment->ownerStamp1 = ownerStamp1;
  segment->ownerStamp2 = ownerStamp2;
}

// Only the end that writes the first halves belongs to an owner: each owner sets it up again.
bool IsFromEarlierOwner(const KivSharedMemSeg& segment, uint32_t ownerStamp1,
                        uint32_t ownerStamp2) {
  return segment.kind == kWritesFirstHalves &&
         (segment.ownerStamp1 != ownerStamp1 || segment.ownerStamp2 != ownerStamp2);
}

// Closes an earlier owner's set, and its area if the set could be closed. Ignores failures.
//
// Compatibility: the reference to the closed set stays, and callers see by it that there was a set.
// Setting the segment up again overwrites the reference. Until then HasSet recognises the set as
// closed.
void Renew(KivSdContext* ctx, KivSharedMemSeg* segment, uint32_t ownerStamp1,
           uint32_t ownerStamp2) {
  if (CloseSet(ctx, *segment) == KIV_ST_OK) static_cast<void>(FreeArea(ctx, segment));
  SetOwner(segment, ownerStamp1, ownerStamp2);
}

// Appends a zeroed descriptor, which can be deleted even if it is never set up.
uint32_t Append(KivSdContext* ctx, KivSharedMemSeg** end, uint32_t ownerStamp1,
                uint32_t ownerStamp2) {
  void* block = nullptr;
  const uint32_t status =
      KivSdMemAlloc(ctx, 0, sizeof(KivSharedMemSeg), &block, kSource, kLineDescriptorAlloc);
  if (status != KIV_ST_OK) return status;
  auto* segment = static_cast<KivSharedMemSeg*>(block);
  *segment = KivSharedMemSeg{};
  SetOwner(segment, ownerStamp1, ownerStamp2);
  *end = segment;
  return KIV_ST_OK;
}

// The semaphores' initial and maximum counts. At the start the lock is free and every half is
// empty.
struct MemberCounts {
  int32_t initial[kSegmentMembers];
  int32_t maximum[kSegmentMembers];
};

constexpr MemberCounts CountsAtStart() {
  MemberCounts counts = {};
  for (uint16_t member = 0; member < kSegmentMembers; ++member) {
    counts.initial[member] = member % 2 == 0 ? 1 : 0;
    counts.maximum[member] = 1;
  }
  return counts;
}
constexpr MemberCounts kCounts = CountsAtStart();

void Fill(KivSharedMemSeg* segment, const char* name, size_t length, uint32_t timeoutMs) {
  std::memmove(segment->name, name, length + 1);  // the name may be the descriptor's own
  segment->halfBytes = KIV_SEGMENT_HALF_BYTES;
  segment->chunkCount = KIV_SEGMENT_CHUNKS;
  segment->timeoutMs = timeoutMs;
  segment->takenMask = 0;
  std::memset(segment->reading, 0, sizeof segment->reading);
  std::memset(segment->writing, 0, sizeof segment->writing);
}

}  // namespace

uint32_t KivFindShareMemSeg(KivSdContext* ctx, const char* name, uint32_t kind,
                            KivSharedMemSeg** list, uint8_t createFlag, uint32_t ownerStamp1,
                            uint32_t ownerStamp2, uint8_t* fresh, uint8_t* notMapped,
                            KivSharedMemSeg** segment) {
  SetFlag(fresh, 0);
  SetFlag(notMapped, 0);
  if (name == nullptr || list == nullptr || segment == nullptr) return KIV_ST_ARGUMENT;
  KivSharedMemSeg** link = LinkOf(list, name);
  KivSharedMemSeg* found = *link;
  *segment = found != nullptr && found->kind == kind ? found : nullptr;
  if (*segment != nullptr) {
    if (notMapped != nullptr && !IsMapped(*found)) {
      *notMapped = 1;
    } else if (IsFromEarlierOwner(*found, ownerStamp1, ownerStamp2)) {
      Renew(ctx, found, ownerStamp1, ownerStamp2);
      SetFlag(fresh, 1);
    }
  }
  if (found != nullptr || createFlag == 0) return KIV_ST_OK;

  // Compatibility: a caller with an empty name gets the first descriptor of its list as a fresh
  // one, whether or not that descriptor is in use and whatever its name is.
  if (*list != nullptr && *name == '\0') {
    *segment = *list;
    SetFlag(fresh, 1);
    return KIV_ST_OK;
  }
  const uint32_t appended = Append(ctx, link, ownerStamp1, ownerStamp2);
  *segment = *link;
  if (appended == KIV_ST_OK) SetFlag(fresh, 1);
  return appended;
}

uint32_t KivCreateSharedMemSeg(KivSdContext* ctx, const char* name, uint32_t kind,
                               uint32_t openFlags, uint32_t protectionFlags,
                               KivSharedMemSeg* segment, uint32_t timeoutMs, uint32_t* mappingId,
                               void** view) {
  if (name == nullptr || segment == nullptr) return KIV_ST_ARGUMENT;
  const size_t length = std::strlen(name);
  if (length >= KIV_SEGMENT_NAME_BYTES || kind > 1) return KIV_ST_SEGMENT_NAME;
  Fill(segment, name, length, timeoutMs);

  // Through a local variable: after a failure the output may hold a pointer that must not be used.
  KivSdShSemSet* set = nullptr;
  const uint32_t made = KivSdShSemSetCreate(ctx, segment->name, kSegmentMembers, openFlags,
                                            kCounts.initial, kCounts.maximum, &set);
  segment->semaphores = made == KIV_ST_OK ? set : nullptr;
  if (made != KIV_ST_OK) return made;

  // Through a local variable: after a failure the descriptor keeps its earlier area, and deleting
  // the descriptor still frees that area.
  KivHandle mapping = nullptr;
  const uint32_t allocated =
      KivSdSharedMemAlloc(ctx, segment->name, KIV_SEGMENT_AREA_BYTES, openFlags, protectionFlags,
                          &mapping, mappingId, view);
  if (allocated != KIV_ST_OK) {
    static_cast<void>(KivSdShSemSetClose(ctx, set));
    segment->semaphores = nullptr;
    return allocated;
  }
  segment->mapping = mapping;
  segment->kind = kind;
  return KIV_ST_OK;
}

uint32_t KivSetSharedMemSegBuffer(KivSdContext* /*ctx*/, KivSharedMemSeg* segment, void* view) {
  if (segment == nullptr) return KIV_ST_ARGUMENT;
  segment->buffer = view;
  if (view == nullptr) std::memset(segment->name, 0, kNameBytesThatEmpty);
  return KIV_ST_OK;
}

uint32_t KivGetSharedMemSegName(KivSdContext* /*ctx*/, KivSharedMemSeg* segment,
                                const char** name) {
  if (segment == nullptr || name == nullptr) return KIV_ST_ARGUMENT;
  *name = segment->name;
  return KIV_ST_OK;
}

uint32_t KivDeleteSharedMemSeg(KivSdContext* ctx, KivSharedMemSeg* list) {
  uint32_t status = KIV_ST_OK;
  for (KivSharedMemSeg* segment = list; segment != nullptr;) {
    // Compatibility: the status carries over to the next descriptor. Closing a set replaces the
    // status. A descriptor without a set keeps an earlier failure and is then not freed.
    if (HasSet(*segment)) status = CloseSet(ctx, *segment);
    segment->semaphores = nullptr;
    if (status == KIV_ST_OK) status = FreeArea(ctx, segment);
    KivSharedMemSeg* next = segment->next;
    if (status == KIV_ST_OK) {
      static_cast<void>(KivSdMemFree(nullptr, segment, kSource, kLineDescriptorFree));
    }
    segment = next;
  }
  return status;
}

uint32_t KivDeleteSingleSharedMemSeg(KivSdContext* ctx, KivSharedMemSeg* segment) {
  if (segment == nullptr) return KIV_ST_ARGUMENT;
  const uint32_t closed = CloseSet(ctx, *segment);
  if (closed != KIV_ST_OK) return closed;
  segment->semaphores = nullptr;
  return FreeArea(ctx, segment);
}
