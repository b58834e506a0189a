// Sizes and limits: page, largest allocation, alignment, processor count, and the test for finite
// numbers.
#include "kivsdu/system.h"
#include "lease_guard.h"
#include "os/processor.h"
#include "report.h"

using namespace kiv;

namespace {

// The largest 64-bit size, less room for a block's own header.
constexpr uint64_t kMaxAllocBytes = UINT64_MAX - 31;
constexpr uint32_t kMaxAlignBytes = 8;

}  // namespace

uint32_t KivSdCPUCountGet() {
  RunLeaseGuard();
  const uint32_t count = os::ProcessorCount();
  return count == 0 ? 1 : count;
}

uint32_t KivSdPageSizeGet(KivSdContext* ctx, uint32_t* sizeBytes) {
  RunLeaseGuard();
  if (sizeBytes == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *sizeBytes = os::PageSizeBytes();
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdMaxAllocGet(KivSdContext* ctx, uint64_t* sizeBytes) {
  RunLeaseGuard();
  if (sizeBytes == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *sizeBytes = kMaxAllocBytes;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdMaxAlignGet(KivSdContext* ctx, uint32_t* alignment) {
  RunLeaseGuard();
  if (alignment == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *alignment = kMaxAlignBytes;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdIsInfinite(KivSdContext* ctx, double value, uint8_t* flag) {
  RunLeaseGuard();
  if (flag == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *flag = os::IsFinite(value) ? 0 : 1;
  return Report(ctx, KIV_ST_OK);
}
