// Mapped-file handles. On this platform every handle is a file descriptor, and every operation
// passes its arguments on to the stream operation of the same name.
//
// Compatibility: most operations record OS error 0 in place of the stream operation's error.
// Callers of mapped files look only at the status.
#include "kivsdu/file.h"
#include "kivsdu/mappedfile.h"
#include "report.h"

using namespace kiv;

namespace {

constexpr int32_t kNoFile = -1;

bool IsFile(const KivSdMMAPFile* handle) { return handle->kind == KIV_MMAP_KIND_FILE; }

uint32_t FileOf(const KivSdMMAPFile* handle) { return static_cast<uint32_t>(handle->file); }

uint32_t OpenFile(KivSdContext* ctx, const char* path, uint32_t openFlags, uint32_t shareFlags,
                  uint32_t permissions, uint16_t mode, uint32_t* file) {
  switch (mode) {
    case KIV_MMAP_OPEN_SHARED:
      return KivSdFileSOpen(ctx, path, openFlags, shareFlags, permissions, file);
    case KIV_MMAP_OPEN_LARGE:
      return KivSdFileOpen64(ctx, path, openFlags, permissions, file);
    case KIV_MMAP_OPEN_NEW:
    case KIV_MMAP_OPEN_NEW_LARGE:
      return KivSdFileOpenExclusiveMode(ctx, path, openFlags, permissions, file);
    case KIV_MMAP_OPEN_NEW_SHARED:
      return KivSdFileSOpenExclusiveMode(ctx, path, openFlags, shareFlags, permissions, file);
    default:
      return KivSdFileOpen(ctx, path, openFlags, permissions, file);
  }
}

}  // namespace

uint32_t KivSdMMAPHdlReset(KivSdMMAPFile* handle) {
  *handle = {};
  handle->file = kNoFile;
  handle->kind = KIV_MMAP_KIND_NONE;
  return KIV_ST_OK;
}

uint32_t KivSdMMAPFileOpen(KivSdContext* ctx, const char* path, uint32_t openFlags,
                           uint32_t shareFlags, uint32_t permissions, uint64_t, uint64_t,
                           uint16_t mode, KivSdMMAPFile* handle) {
  uint32_t file = KIV_FILE_NONE;
  const uint32_t status = OpenFile(ctx, path, openFlags, shareFlags, permissions, mode, &file);
  if (status == KIV_ST_OK) {
    handle->kind = KIV_MMAP_KIND_FILE;
    handle->file = static_cast<int32_t>(file);
    return status;
  }
  // No open should fail and still return a descriptor. If one does, close it: otherwise the
  // descriptor would leak.
  if (file != KIV_FILE_NONE) {
    static_cast<void>(KivSdFileClose(nullptr, file));
    handle->file = kNoFile;
  }
  return status;
}

uint32_t KivSdMMAPFileClose(KivSdContext* ctx, KivSdMMAPFile* handle) {
  return IsFile(handle) ? KivSdFileClose(ctx, FileOf(handle)) : KIV_ST_OK;
}

void KivSdMMAPFileSetExtendSize(KivSdContext*, uint32_t first, uint32_t second,
                                KivSdMMAPFile* handle) {
  if (handle->kind != KIV_MMAP_KIND_MAPPED) return;
  handle->extendSizes[0] = first;
  handle->extendSizes[1] = second;
}

uint32_t KivSdMMAPFileRead(KivSdContext* ctx, KivSdMMAPFile* handle, void* buffer, uint32_t length,
                           uint32_t* count) {
  if (!IsFile(handle)) return Report(ctx, KIV_ST_OK);
  return Report(ctx, KivSdFileRead(nullptr, FileOf(handle), buffer, length, count));
}

uint32_t KivSdMMAPFileWrite(KivSdContext* ctx, KivSdMMAPFile* handle, const void* buffer,
                            uint32_t length, uint32_t* count) {
  if (!IsFile(handle)) return Report(ctx, KIV_ST_OK);
  return Report(ctx, KivSdFileWrite(nullptr, FileOf(handle), buffer, length, count));
}

uint32_t KivSdMMAPFilePRead(KivSdContext* ctx, KivSdMMAPFile* handle, void* buffer, uint32_t offset,
                            uint32_t length, uint32_t* count) {
  if (!IsFile(handle)) return Report(ctx, KIV_ST_OK);
  return Report(ctx, KivSdFilePRead(nullptr, FileOf(handle), buffer, offset, length, count));
}

uint32_t KivSdMMAPFilePWrite(KivSdContext* ctx, KivSdMMAPFile* handle, const void* buffer,
                             uint32_t offset, uint32_t length, uint32_t* count, uint32_t* osError) {
  if (osError != nullptr) *osError = 0;
  if (!IsFile(handle)) return Report(ctx, KIV_ST_OK);
  return KivSdFilePWrite(ctx, FileOf(handle), buffer, offset, length, count, osError);
}

uint32_t KivSdMMAPFileLSeek(KivSdContext* ctx, KivSdMMAPFile* handle, int32_t offset,
                            uint32_t origin, uint32_t* position) {
  if (!IsFile(handle)) return Report(ctx, KIV_ST_OK);
  return Report(ctx, KivSdFileLSeek(nullptr, FileOf(handle), offset, origin, position));
}

uint32_t KivSdMMAPFileFlush(KivSdContext* ctx, uint64_t, KivSdMMAPFile* handle) {
  if (!IsFile(handle)) return Report(ctx, KIV_ST_OK);
  return Report(ctx, KivSdFileFlush(nullptr, FileOf(handle)));
}

uint32_t KivSdMMAPFileSetEndOfFile(KivSdContext* ctx, KivSdMMAPFile* handle, uint64_t length,
                                   uint32_t* newLength, uint32_t* osError) {
  if (!IsFile(handle)) return KIV_ST_OK;
  const auto file = static_cast<uint64_t>(handle->file);
  return KivSdFileSetEndOfFile(ctx, file, length, newLength, osError);
}
