// The memory front: blocks from the memory manager, copies, and whole pages from the system.
//
// Its only state is the manager's three switches. Whole pages come in two kinds: locked
// (KivSdPhysMem...) and page-aligned (KivSdAlignedMem...). The kinds differ in their statuses and
// in what a failed reallocation leaves allocated.
#include <cstring>

#include "kivsdu/manager.h"
#include "kivsdu/memory.h"
#include "memheap/switches.h"
#include "os/heap.h"
#include "os/pages.h"
#include "report.h"
#include "tail_calls.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdmemw32";
constexpr uint32_t kLineRealloc = 540;

// Converts a page count to bytes. Compatibility: 524288 pages or more wrap in 32 bits, on every
// platform.
uint32_t PageBytes(uint32_t pageCount) {
  static_assert(KIV_PAGE_UNIT == 1u << 13, "page counts are shifted, not multiplied");
  return pageCount << 13;
}

// Reports an allocation by the block that it returned. The OS error of a failure is the system's
// last error after the manager returned, whatever set it.
uint32_t ReportBlock(KivSdContext* ctx, uint32_t status, const void* block) {
  if (block == nullptr) return Report(ctx, KIV_ST_OUT_OF_MEMORY, os::LastError());
  return Report(ctx, status);
}

constexpr uint32_t kVectorBytes = 16;  // of the largest registers that every processor has

struct Vector {
  unsigned char bytes[kVectorBytes];
};

Vector Load(const unsigned char* from) {
  Vector vector;
  std::memcpy(&vector, from, sizeof vector);
  return vector;
}

void Store(unsigned char* to, Vector vector) { std::memcpy(to, &vector, sizeof vector); }

// Copies two to four vectors without a call. All are loaded before the first is stored, because the
// regions may overlap. Unless there are four, those of the back repeat bytes of the front.
void MoveVectors(void* destination, const void* source, uint32_t lengthBytes) {
  const auto* from = static_cast<const unsigned char*>(source);
  auto* to = static_cast<unsigned char*>(destination);
  const uint32_t last = lengthBytes - kVectorBytes;
  const Vector first = Load(from);
  const Vector second = Load(from + kVectorBytes);
  const Vector third = Load(from + last - kVectorBytes);
  const Vector fourth = Load(from + last);
  Store(to, first);
  Store(to + kVectorBytes, second);
  Store(to + last - kVectorBytes, third);
  Store(to + last, fourth);
}

bool IsTwoToFourVectors(uint32_t lengthBytes) {
  return lengthBytes - 2 * kVectorBytes <= 2 * kVectorBytes;
}

uint32_t LockStatus(uint32_t osError) {
  return osError == os::kErrorLockQuota ? KIV_ST_WORKING_SET_QUOTA : KIV_ST_PAGE_LOCK;
}

uint32_t ReleasePages(KivSdContext* ctx, void* block, uint32_t failure) {
  if (block == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::ReleasePages(block), failure);
}

}  // namespace

uint32_t KivSdMemAlloc(KivSdContext* ctx, uint64_t /*reserved*/, uint32_t sizeBytes, void** out,
                       const char* file, uint32_t line) {
  if (sizeBytes == 0 || out == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const uint32_t status = adMalloc(nullptr, sizeBytes, out, file, line);
  return ReportBlock(ctx, status, *out);
}

uint32_t KivSdMemAllocUsingPolicy(KivSdContext* ctx, uint64_t /*reserved*/, uint32_t sizeBytes,
                                  void** out, uint8_t policy, const char* file, uint32_t line) {
  if (sizeBytes == 0 || out == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const uint32_t status = adMallocPolicy(nullptr, sizeBytes, out, policy, file, line);
  return ReportBlock(ctx, status, *out);
}

uint32_t KivSdMemFree(KivSdContext* ctx, void* block, const char* file, uint32_t line) {
  if (block == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  static_cast<void>(adFree(block, file, line));
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdMemRealloc(KivSdContext* ctx, uint32_t newSizeBytes, void* oldBlock, void** out,
                         const char* file, uint32_t line) {
  if (newSizeBytes == 0) return Report(ctx, KIV_ST_ARGUMENT);
  if (oldBlock == nullptr) return KivSdMemAlloc(ctx, 0, newSizeBytes, out, file, line);
  if (out == nullptr) return Report(ctx, KIV_ST_ARGUMENT);

  // Compatibility: passes the front's own source position, not the caller's. Tools that group
  // allocations by position recognise a moved block by it.
  void* moved = nullptr;
  const uint32_t status = adRealloc(nullptr, newSizeBytes, oldBlock, &moved, kSource, kLineRealloc);
  if (moved != nullptr) *out = moved;
  return ReportBlock(ctx, status, moved);
}

// Never writes a record, because other operations call it with their caller's record.
uint32_t KivSdMemCopy(KivSdContext* /*ctx*/, void* destination, const void* source,
                      uint32_t lengthBytes) {
  if (destination == nullptr || source == nullptr) return KIV_ST_OK;
  if (!IsTwoToFourVectors(lengthBytes)) return MoveBytes(destination, source, lengthBytes);
  MoveVectors(destination, source, lengthBytes);
  return KIV_ST_OK;
}

uint32_t KivSdMemClear(KivSdContext* ctx, void* block, uint32_t lengthBytes) {
  if (block == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  os::ClearBytes(block, lengthBytes);
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdExtAllocMemFree(KivSdContext* ctx, void* block) {
  if (block == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  os::RawFree(block);
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdIsMemPageLocking(KivSdContext* ctx, uint64_t /*reserved*/, uint8_t* available) {
  *available = 1;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdPhysMemAlloc(KivSdContext* ctx, uint32_t pageCount, void** out) {
  if (out == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const uint32_t sizeBytes = PageBytes(pageCount);
  const os::ValueResult<void*> pages = os::CommitPages(sizeBytes);
  *out = pages.ok ? pages.value : nullptr;
  if (!pages.ok) return Report(ctx, KIV_ST_PAGE_COMMIT, pages.error);

  const os::Result locked = os::LockPages(pages.value, sizeBytes);
  if (locked.ok) return Report(ctx, KIV_ST_OK);
  // Compatibility: *out still points to the released pages. Callers check the status.
  static_cast<void>(os::ReleasePages(pages.value));
  return Report(ctx, LockStatus(locked.error), locked.error);
}

uint32_t KivSdPhysMemFree(KivSdContext* ctx, void* block) {
  return ReleasePages(ctx, block, KIV_ST_PAGE_RELEASE);
}

uint32_t KivSdPhysMemRealloc(KivSdContext* ctx, uint32_t oldPageCount, uint32_t newPageCount,
                             void** block) {
  if (block == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  void* moved = nullptr;
  const uint32_t allocated = KivSdPhysMemAlloc(ctx, newPageCount, &moved);
  if (allocated != KIV_ST_OK) return allocated;

  // Compatibility: the old count is copied even if the new block is smaller. Callers never shrink.
  static_cast<void>(KivSdMemCopy(nullptr, moved, *block, PageBytes(oldPageCount)));
  // Compatibility: if the old pages cannot be released, the new pages stay allocated, unlike those
  // of KivSdAlignedMemRealloc. Both are then locked, and only the host knows which one it uses.
  const uint32_t released = KivSdPhysMemFree(ctx, *block);
  if (released == KIV_ST_OK) *block = moved;
  return released;
}

uint32_t KivSdMemLock(KivSdContext* ctx, uint32_t pageCount, void* address) {
  if (address == nullptr || pageCount == 0) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Result locked = os::LockPages(address, PageBytes(pageCount));
  return ReportOutcome(ctx, locked, LockStatus(locked.error));
}

uint32_t KivSdMemUnlock(KivSdContext* ctx, uint32_t pageCount, void* address) {
  if (address == nullptr || pageCount == 0) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::UnlockPages(address, PageBytes(pageCount)), KIV_ST_PAGE_UNLOCK);
}

uint32_t KivSdAlignedMemAlloc(KivSdContext* ctx, uint32_t pageCount, void** out) {
  if (out == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<void*> pages = os::CommitPages(PageBytes(pageCount));
  *out = pages.ok ? pages.value : nullptr;
  return ReportOutcome(ctx, pages, KIV_ST_ALIGNED_COMMIT);
}

uint32_t KivSdAlignedMemFree(KivSdContext* ctx, void* block) {
  return ReleasePages(ctx, block, KIV_ST_ALIGNED_RELEASE);
}

uint32_t KivSdAlignedMemRealloc(KivSdContext* ctx, uint32_t oldPageCount, uint32_t newPageCount,
                                void** block) {
  void* moved = nullptr;
  const uint32_t allocated = KivSdAlignedMemAlloc(ctx, newPageCount, &moved);
  if (allocated != KIV_ST_OK) return allocated;

  // Compatibility: the old count is copied even if the new block is smaller. Callers never shrink.
  static_cast<void>(KivSdMemCopy(nullptr, moved, *block, PageBytes(oldPageCount)));
  const uint32_t released = KivSdAlignedMemFree(ctx, *block);
  if (released == KIV_ST_OK) {
    *block = moved;
  } else {
    static_cast<void>(os::ReleasePages(moved));
  }
  return released;
}

void KivSdSetMemoryManager(uint8_t flag) {
  memorySwitches.manager.store(flag, std::memory_order_relaxed);
  SetMemoryMode(kManagerMode, flag != 0);
}

void KivSdSetMmapAllocCfg(uint8_t setting) {
  memorySwitches.mappedAllocation.store(setting, std::memory_order_relaxed);
}

uint8_t KivSdSetMemDeallocOption() {
  // Compatibility: the switch must be exactly 1, although any value other than 0 turns the manager
  // on. A host that stores another value keeps freeing.
  if (memorySwitches.manager.load(std::memory_order_relaxed) == 1) SetMemoryMode(kNoFreeMode, true);
  return NoFreeSwitchIsOn() ? 1 : 0;
}
