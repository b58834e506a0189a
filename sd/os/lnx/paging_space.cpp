#include "os/lnx/paging_space.h"

#include <limits.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "os/lnx/text_file.h"

namespace kiv::os {
namespace {

constexpr size_t kPathBytes = 1024;

struct PagingFile {
  char path[PATH_MAX];
  uint64_t totalBytes;
  uint64_t usedBytes;
};

// Calls `visit` for each line after the first, which has the titles:
//
//   Filename   Type   Size   Used   Priority      sizes in KiB
template <typename Visit>
Result ForEachPagingFile(const char* root, Visit visit) {
  char name[kPathBytes];
  std::snprintf(name, sizeof name, "%s/proc/swaps", root);
  TextFile file(name);
  while (file.NextLine()) {
    PagingFile paging = {};
    if (!file.ReadField(paging.path, sizeof paging.path) || !file.SkipFields(1)) continue;
    if (!file.ReadNumber(&paging.totalBytes) || !file.ReadNumber(&paging.usedBytes)) continue;
    paging.totalBytes *= 1024;
    paging.usedBytes *= 1024;
    visit(static_cast<const PagingFile&>(paging));
  }
  return {file.error() == 0, file.error()};
}

}  // namespace

ValueResult<MemoryStatus> PagingSpace(const char* root) {
  MemoryStatus status = {};
  const Result result = ForEachPagingFile(root, [&](const PagingFile& paging) {
    status.totalBytes += paging.totalBytes;
    status.availableBytes += paging.totalBytes - std::min(paging.totalBytes, paging.usedBytes);
  });
  return {result.ok, result.error, status};
}

ValueResult<uint32_t> PagingPaths(const char* root, char* buffer, uint32_t sizeBytes) {
  uint32_t size = 0;
  const auto append = [&](const char* text) {
    const auto bytes = static_cast<uint32_t>(std::strlen(text)) + 1;
    if (size + bytes <= sizeBytes) std::memcpy(buffer + size, text, bytes);
    size += bytes;
  };
  const Result result =
      ForEachPagingFile(root, [&](const PagingFile& paging) { append(paging.path); });
  append("");
  return {result.ok, result.error, size};
}

}  // namespace kiv::os
