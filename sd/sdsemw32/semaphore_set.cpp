// Shared semaphore sets: named semaphores that are created and closed together. Two processes that
// create sets under one name share their semaphores, because creating a semaphore opens an existing
// semaphore of that name.
//
// Only argument errors go into the caller's record: sets are used inside other operations, which
// write the record themselves.
#include <cstdio>

#include "kivsdu/memory.h"
#include "kivsdu/semaphore.h"
#include "os/kernel_objects.h"
#include "report.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdsemw32";
constexpr uint32_t kLineSetAlloc = 139;
constexpr uint32_t kLineMembersAlloc = 143;
constexpr uint32_t kLineMembersFreeOnFailure = 160;
constexpr uint32_t kLineSetFreeOnFailure = 161;
constexpr uint32_t kLineSetFreeWithoutMembers = 169;
constexpr uint32_t kLineMembersFree = 188;
constexpr uint32_t kLineSetFree = 189;

// The system refuses names of 260 characters or more, and no ANSI code page needs more than 4 bytes
// per character. A base name longer than this buffer is cut; the result is still long enough for
// the system to refuse it.
constexpr int kMaxNameCharacters = 260;
constexpr int kMaxCharacterBytes = 4;
constexpr int kMaxBaseBytes = (kMaxNameCharacters + 1) * kMaxCharacterBytes;
constexpr size_t kNameBytes = kMaxBaseBytes + sizeof "_65535";

void Free(void* block, uint32_t line) {
  // An empty set has no array.
  if (block != nullptr) static_cast<void>(KivSdMemFree(nullptr, block, kSource, line));
}

void CloseMembers(const KivSdShSemSet& set, uint16_t count) {
  for (uint16_t i = 0; i < count; ++i) static_cast<void>(os::CloseObject(set.members[i]));
}

void* MakeMember(const char* name, uint16_t index, int32_t initialCount, int32_t maximumCount) {
  char memberName[kNameBytes];
  std::sprintf(memberName, "%.*s_%d", kMaxBaseBytes, name, static_cast<int>(index));
  return os::MakeSemaphore(memberName, initialCount, maximumCount).value;
}

// Allocates nothing for an empty set, because KivSdMemAlloc refuses a size of 0.
uint32_t AllocateMembers(uint16_t count, KivHandle** members) {
  *members = nullptr;
  if (count == 0) return KIV_ST_OK;
  void* array = nullptr;
  const uint32_t status = KivSdMemAlloc(nullptr, 0, count * static_cast<uint32_t>(sizeof **members),
                                        &array, kSource, kLineMembersAlloc);
  *members = static_cast<KivHandle*>(array);
  return status;
}

// Makes all members or, on failure, none.
bool FillSet(KivSdShSemSet* set, const char* name, uint16_t count, const int32_t* initialCounts,
             const int32_t* maximumCounts) {
  for (uint16_t i = 0; i < count; ++i) {
    set->members[i] = MakeMember(name, i, initialCounts[i], maximumCounts[i]);
    if (set->members[i] == nullptr) {
      CloseMembers(*set, i);
      return false;
    }
  }
  set->count = count;
  return true;
}

bool HasMember(const KivSdShSemSet* set, uint16_t index) {
  return set != nullptr && index < set->count;
}

}  // namespace

uint32_t KivSdShSemSetCreate(KivSdContext* ctx, const char* name, uint16_t count,
                             uint64_t /*ignored*/, const int32_t* initialCounts,
                             const int32_t* maximumCounts, KivSdShSemSet** set) {
  if (name == nullptr || *name == '\0' || initialCounts == nullptr || maximumCounts == nullptr ||
      set == nullptr) {
    return Report(ctx, KIV_ST_ARGUMENT);
  }
  void* record = nullptr;
  uint32_t status =
      KivSdMemAlloc(nullptr, 0, sizeof(KivSdShSemSet), &record, kSource, kLineSetAlloc);
  *set = static_cast<KivSdShSemSet*>(record);
  if (status != KIV_ST_OK) return status;

  **set = KivSdShSemSet{};
  status = AllocateMembers(count, &(*set)->members);
  if (status != KIV_ST_OK) {
    // Compatibility: the variable keeps the address of the freed record. Callers check the status.
    Free(record, kLineSetFreeWithoutMembers);
    return status;
  }
  if (FillSet(*set, name, count, initialCounts, maximumCounts)) return KIV_ST_OK;
  Free((*set)->members, kLineMembersFreeOnFailure);
  Free(record, kLineSetFreeOnFailure);
  *set = nullptr;
  return KIV_ST_SEM_CREATE;
}

uint32_t KivSdShSemSetClose(KivSdContext* ctx, KivSdShSemSet* set) {
  if (set == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  CloseMembers(*set, set->count);
  Free(set->members, kLineMembersFree);
  Free(set, kLineSetFree);
  return KIV_ST_OK;
}

uint32_t KivSdShSemSetRequest(KivSdContext* ctx, uint16_t index, KivSdShSemSet* set,
                              uint32_t timeoutMs) {
  if (!HasMember(set, index)) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Wait waited = os::WaitOne(set->members[index], timeoutMs);
  if (waited.result == os::kWaitSignalled) return KIV_ST_OK;
  return waited.result == os::kWaitTimedOut ? KIV_ST_SEM_TIMEOUT : KIV_ST_SEM_REQUEST;
}

uint32_t KivSdShSemSetClear(KivSdContext* ctx, uint16_t index, KivSdShSemSet* set) {
  if (!HasMember(set, index)) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Result given = os::GiveSemaphore(set->members[index], 1, nullptr);
  return given.ok ? KIV_ST_OK : KIV_ST_SEM_CLEAR;
}
