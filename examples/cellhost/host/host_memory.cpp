// Blocks from the library's memory front; see host_memory.h.
#include "host/host_memory.h"

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/memory.h"

namespace cellhost {
namespace {

constexpr uint32_t kLineResize = 1;
constexpr uint32_t kLineRelease = 2;
constexpr uint64_t kBlockBytesMax = 0xFFFFFFFFu;  // the memory front's sizes have 32 bits

}  // namespace

bool ResizeBlock(void** block, uint64_t sizeBytes, const char* source) {
  if (sizeBytes > kBlockBytesMax) {
    return Complain("%s would pass 4 GiB in one block; load fewer rows", source);
  }
  KivSdContext* ctx = ThisContext();
  const uint32_t status =
      KivSdMemRealloc(ctx, static_cast<uint32_t>(sizeBytes), *block, block, source, kLineResize);
  return Succeeded(ctx, status, "get memory");
}

void ReleaseBlock(void* block, const char* source) {
  if (block == nullptr) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdMemFree(ctx, block, source, kLineRelease), "free memory");
}

}  // namespace cellhost
