// Collects the names that match a pattern. The array of names doubles when it is full. Each name is
// a block of its own.
#include <cstring>

#include "kivsdu/filesearch.h"
#include "kivsdu/manager.h"
#include "kivsdu/path.h"
#include "kivsdu/system.h"
#include "lease_guard.h"
#include "os/file_search.h"
#include "report.h"
#include "text.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdfio";
constexpr uint32_t kLineArrayAlloc = 117;
constexpr uint32_t kLineArrayGrow = 139;
constexpr uint32_t kLineNameAlloc = 157;
constexpr uint32_t kLineNameFree = 222;
constexpr uint32_t kLineArrayFree = 225;

constexpr uint32_t kFirstCapacity = 16;

struct Names {
  char** array;
  uint32_t count;
  uint32_t capacity;
};

uint64_t ArrayBytes(uint32_t capacity) { return uint64_t{capacity} * sizeof(char*); }

// The manager sets its output to null on failure, so a local pointer receives each block.
uint32_t MakeArray(void* memory, Names* names) {
  void* array = nullptr;
  const uint32_t status =
      adMalloc(memory, ArrayBytes(kFirstCapacity), &array, kSource, kLineArrayAlloc);
  *names = {static_cast<char**>(array), 0, kFirstCapacity};
  return status;
}

uint32_t Double(void* memory, Names* names) {
  const uint32_t capacity = 2 * names->capacity;
  void* array = nullptr;
  const uint32_t status =
      adRealloc(memory, ArrayBytes(capacity), names->array, &array, kSource, kLineArrayGrow);
  if (status != KIV_ST_OK) return status;
  names->array = static_cast<char**>(array);
  names->capacity = capacity;
  return status;
}

uint32_t Add(void* memory, Names* names, const char* prefix, const char* name, uint32_t* osError) {
  const size_t before = std::strlen(prefix);
  const size_t bytes = before + std::strlen(name) + 1;
  if (bytes > KIV_FILE_NAME_BYTES) {
    *osError = os::kErrorPathTooLong;
    return KIV_ST_FIND_NEXT;
  }
  if (names->count == names->capacity) {
    const uint32_t status = Double(memory, names);
    if (status != KIV_ST_OK) return status;
  }
  void* block = nullptr;
  const uint32_t status = adMalloc(memory, KIV_FILE_NAME_BYTES, &block, kSource, kLineNameAlloc);
  if (status != KIV_ST_OK) return status;
  auto* text = static_cast<char*>(block);
  std::memcpy(text, prefix, before + 1);
  std::memcpy(text + before, name, bytes - before);
  names->array[names->count++] = text;
  return KIV_ST_OK;
}

// Adds the record's file and all that follow it, until a call returns a status other than success.
// Stores that status in the context.
void Collect(KivSdContext* ctx, void* memory, const char* prefix, KivSdFindRecord* record,
             Names* names) {
  uint32_t status = MakeArray(memory, names);
  uint32_t osError = 0;
  while (status == KIV_ST_OK) {
    if (!IsFolderItselfOrAbove(record->name)) {
      status = Add(memory, names, prefix, record->name, &osError);
    }
    if (status != KIV_ST_OK) break;
    status = KivSdFileFindNext(ctx, record);
    osError = ctx->osError;
  }
  static_cast<void>(Report(ctx, status, osError));
}

// Whether a search ended because there are no more names.
//
// Compatibility: no operation returns KIV_ST_FIND_NO_MORE. It stays for hosts that replace the
// search operations by their own.
bool IsNormalEnd(uint32_t status) {
  return status == KIV_ST_OK || status == KIV_ST_FIND_START || status == KIV_ST_FIND_END ||
         status == KIV_ST_FIND_NO_MORE;
}

// Stores the absolute path, or an empty one if the system has none or it does not fit.
void ExpandPattern(const char* pattern, char (&path)[KIV_SYSTEM_PATH_MAX]) {
  const uint32_t length = os::AbsolutePath(pattern, sizeof path, path);
  if (length == 0 || length >= sizeof path) path[0] = '\0';
}

}  // namespace

uint32_t KivSdFileFind(void* memory, KivSdContext* ctx, const char* prefix, const char* pattern,
                       uint32_t flags, char*** names, uint32_t* count) {
  RunLeaseGuard();
  if (names != nullptr) *names = nullptr;
  if (count != nullptr) *count = 0;
  if (pattern == nullptr || names == nullptr || count == nullptr) {
    return Report(ctx, KIV_ST_ARGUMENT);
  }
  char path[KIV_SYSTEM_PATH_MAX];
  ExpandPattern(pattern, path);
  KivSdFindRecord record = {};
  KivSdContext searched = {};
  if (KivSdFileFindFirst(&searched, path, flags, &record) != KIV_ST_OK) {
    return Report(ctx, KIV_ST_OK);
  }

  char folder[KIV_SYSTEM_PATH_MAX];
  if (prefix == nullptr) prefix = KivSdFileGetParentPath(path, folder);
  Names collected = {};
  Collect(&searched, memory, prefix, &record, &collected);
  static_cast<void>(KivSdFileFindClose(nullptr, &record));
  if (!IsNormalEnd(searched.status)) {
    static_cast<void>(KivSdFileFreeNames(memory, collected.array, collected.count));
    return Report(ctx, searched.status, searched.osError);
  }
  *names = collected.array;
  *count = collected.count;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdFileFreeNames(const void* /*ignored*/, char** names, uint32_t count) {
  RunLeaseGuard();
  if (names == nullptr) return KIV_ST_OK;
  // The statuses are dropped: a caller could not act on them.
  for (uint32_t i = 0; i < count; ++i) {
    static_cast<void>(adFree(names[i], kSource, kLineNameFree));
  }
  static_cast<void>(adFree(names, kSource, kLineArrayFree));
  return KIV_ST_OK;
}
