// Makes, opens and frees named shared memory blocks.
//
// Compatibility: if making or opening a block fails without an OS error, the allocation goes on,
// and the mapping decides. If the mapping fails without an OS error, the allocation succeeds with
// null outputs.
#include "kivsdu/sharedmem.h"
#include "lease_guard.h"
#include "os/shared_memory.h"
#include "report.h"

using namespace kiv;

namespace {

// Portable flags of the callers. Both flag words use them.
constexpr uint32_t kPairsWith2 = 0x2 | 0x4;
constexpr uint32_t kPairsWith4 = 0x1;

static_assert((KIV_SHAREDMEM_WRITE & kPairsWith2) != 0 && os::kViewWrite == 2);
static_assert((KIV_SHAREDMEM_PAGES_READ_ONLY & kPairsWith2) != 0 && os::kPagesReadOnly == 2);
static_assert(KIV_SHAREDMEM_READ == kPairsWith4 && os::kViewRead == 4);
static_assert(KIV_SHAREDMEM_PAGES_READ_WRITE == kPairsWith4 && os::kPagesReadWrite == 4);

bool Has(uint32_t flags, uint32_t anyOf) { return (flags & anyOf) != 0; }

// Translates both words by one rule, although 2 has opposite meanings on this platform: write
// access in the word of open flags, read-only pages in the word of protection flags.
uint32_t PlatformValue(uint32_t flags) {
  uint32_t value = 0;
  if (Has(flags, kPairsWith2)) {
    value = 2;
  } else if (Has(flags, kPairsWith4)) {
    value = 4;
  }
  if (Has(flags, KIV_SHAREDMEM_ADD_4)) {
    value |= 4;
  } else if (Has(flags, KIV_SHAREDMEM_ADD_2)) {
    value |= 2;
  }
  if (Has(flags, KIV_SHAREDMEM_COMMIT)) {
    value |= os::kPagesCommit;
  } else if (Has(flags, KIV_SHAREDMEM_RESERVE)) {
    value |= os::kPagesReserve;
  }
  return value;
}

// Compatibility: exclusive creation fails only if the system returns no block. A block that existed
// before is used, although the last error says that it existed.
os::ValueResult<void*> MakeOrOpen(const char* name, uint32_t sizeBytes, uint32_t openFlags,
                                  uint32_t protectionFlags) {
  if (Has(openFlags, KIV_SHAREDMEM_CREATE)) {
    const os::ValueResult<void*> made =
        os::MakeBlock(name, sizeBytes, PlatformValue(protectionFlags));
    const bool exists = !made.ok && made.error == os::kErrorNameExists;
    if (!exists || Has(openFlags, KIV_SHAREDMEM_EXCLUSIVE)) return made;
  }
  return os::OpenBlock(name, PlatformValue(openFlags));
}

template <typename Outcome>
bool Failed(const Outcome& outcome) {
  return !outcome.ok && outcome.error != 0;
}

}  // namespace

uint32_t KivSdSharedMemAlloc(KivSdContext* ctx, const char* name, uint32_t sizeBytes,
                             uint32_t openFlags, uint32_t protectionFlags, KivHandle* mapping,
                             uint32_t* mappingId, void** view) {
  RunLeaseGuard();
  if (name == nullptr || mapping == nullptr || mappingId == nullptr || view == nullptr) {
    return Report(ctx, KIV_ST_ARGUMENT);
  }
  *mappingId = KIV_SHAREDMEM_NO_ID;
  *mapping = nullptr;
  *view = nullptr;
  const os::ValueResult<void*> block = MakeOrOpen(name, sizeBytes, openFlags, protectionFlags);
  if (Failed(block)) return Report(ctx, KIV_ST_SHARED_MEM_ALLOC, block.error);

  const os::ValueResult<void*> mapped =
      os::MapBlock(block.value, PlatformValue(openFlags), sizeBytes);
  if (!mapped.ok) {
    static_cast<void>(os::CloseBlock(block.value));
    return Report(ctx, Failed(mapped) ? KIV_ST_SHARED_MEM_ALLOC : KIV_ST_OK, mapped.error);
  }
  *mapping = block.value;
  *view = mapped.value;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdSharedMemFree(KivSdContext* ctx, KivHandle mapping, void* view) {
  os::Result outcome = {true, 0};
  if (view != nullptr) outcome = os::UnmapBlock(view);
  const os::Result closed = os::CloseBlock(mapping);
  if (!closed.ok) outcome = closed;
  return ReportOutcome(ctx, outcome, KIV_ST_SHARED_MEM_FREE);
}
